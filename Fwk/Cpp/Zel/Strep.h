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

using StrepIt = String8::IteratorConst;

// Throws ParseException naming what was expected and what was found.
ZEL_API void needString(StrepIt& it, StrepIt const& end, char const* literal);

// Parses one value of T at `it`, advancing past it; a malformed or
// out-of-range text throws RangeException (ParseException for syntax).
template <class T> T sequenceToValue(StrepIt& it, StrepIt const& end);

// Rethrows `e` with the field's name added to its message.
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
