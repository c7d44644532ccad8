// String representations ("streps") of values: Python-like literals that
// read back as the value. valueToStrep writes one; the parsing side walks a
// String8 with an IteratorConst pair:
//
//   needString(it, end, "Value('X', ** {")    consumes an exact literal
//   sequenceToValue<T>(it, end)                parses one T at `it`
//   rethrowFromDeserializeAttr(e, "field")     adds the field name to a parse error
//
// Builtins: integers in decimal, floating point in shortest round-trip
// form, bool as True/False, strings and chars as single-quoted literals
// with Python escapes. Raw pointers to descriptors: type('Name'),
// type('Name').attr('attr'), None for null; an AttributeId as a decimal.
// Text produced by valueToStrep/rawPtrToStrep parses back to an equal value
// (NaN to a NaN).
#pragma once

#include "Zel/Exception.h"
#include "Zel/String8.h"
#include "Zel/ZelType.h"

namespace Zel {

ZEL_API String8 valueToStrep(String8 const& v);
ZEL_API String8 valueToStrep(char v);
ZEL_API String8 valueToStrep(signed char v);
ZEL_API String8 valueToStrep(unsigned char v);
ZEL_API String8 valueToStrep(short v);
ZEL_API String8 valueToStrep(unsigned short v);
ZEL_API String8 valueToStrep(int v);
ZEL_API String8 valueToStrep(unsigned int v);
ZEL_API String8 valueToStrep(long v);
ZEL_API String8 valueToStrep(unsigned long long v);
ZEL_API String8 valueToStrep(long long v);
ZEL_API String8 valueToStrep(float v);
ZEL_API String8 valueToStrep(double v);
ZEL_API String8 valueToStrep(bool v);

ZEL_API String8 rawPtrToStrep(ZelType const* t);
ZEL_API String8 rawPtrToStrep(ZelAttr const* a);
// An attribute number is written as its decimal value.
ZEL_API String8 rawPtrToStrep(AttributeId id);

using StrepIt = String8::IteratorConst;

// Consumes `literal` exactly; otherwise throws ParseException naming the
// expected literal and the text found at `it` (or "end of text").
ZEL_API void needString(StrepIt& it, StrepIt const& end, char const* literal);

// Parses one value of T at `it`, advancing past it (and nothing more: no
// blanks are skipped). Syntax errors throw ParseException; a well-formed
// number outside T's range, an unknown type name (NoTypeNodeException) or
// an unknown attribute name throw RangeException kinds.
template <class T> T sequenceToValue(StrepIt& it, StrepIt const& end);

#define ZEL_STREP_PARSER(T) \
    template <> ZEL_API T sequenceToValue<T>(StrepIt & it, StrepIt const& end);
ZEL_STREP_PARSER(String8)
ZEL_STREP_PARSER(char)
ZEL_STREP_PARSER(signed char)
ZEL_STREP_PARSER(unsigned char)
ZEL_STREP_PARSER(short)
ZEL_STREP_PARSER(unsigned short)
ZEL_STREP_PARSER(int)   // also AttributeId
ZEL_STREP_PARSER(unsigned int)
ZEL_STREP_PARSER(long)
ZEL_STREP_PARSER(unsigned long long)
ZEL_STREP_PARSER(long long)
ZEL_STREP_PARSER(float)
ZEL_STREP_PARSER(double)
ZEL_STREP_PARSER(bool)
ZEL_STREP_PARSER(ZelType const*)
ZEL_STREP_PARSER(ZelAttr const*)
#undef ZEL_STREP_PARSER

// Rethrows `e` as the same kind (RangeException, ParseException or
// NoTypeNodeException; other kinds as RangeException) with the same ids and
// backtrace and the message "attrName: <old message>".
[[noreturn]] ZEL_API void rethrowFromDeserializeAttr(RangeException const& e, char const* attrName);

// Parses one T of a named field, adding the field name to a range error.
template <class T>
T deserializeAttr(StrepIt& it, StrepIt const& end, char const* attrName) {
    try {
        return sequenceToValue<T>(it, end);
    } catch (RangeException const& e) {
        rethrowFromDeserializeAttr(e, attrName);
    }
}

} // namespace Zel
