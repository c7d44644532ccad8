// Parsing streps: the inverse of valueToStrep and rawPtrToStrep.
#include <charconv>
#include <cstring>
#include <type_traits>
#include <utility>

#include "Zel/Format.h"
#include "Zel/Strep.h"

namespace Zel {

namespace {

// What a parse error shows of the text at `it`.
String8 foundText(StrepIt it, StrepIt end, size_t want) {
    if (it == end) return String8("end of text");
    size_t n = static_cast<size_t>(end - it);
    size_t show = want < 16 ? 16 : want;
    String8 out("'");
    out += std::string_view(it, n < show ? n : show);
    out += n > show ? "'..." : "'";
    return out;
}

[[noreturn]] void parseError(char const* expected, StrepIt it, StrepIt end) {
    throw ParseException(String8("expected ") + expected + ", found " + foundText(it, end, 0));
}

bool startsWith(StrepIt it, StrepIt end, char const* literal) {
    size_t n = std::strlen(literal);
    return static_cast<size_t>(end - it) >= n && std::memcmp(it, literal, n) == 0;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// A single-quoted literal with the escapes the writer uses: \\ \' \n \r \t
// and \xHH.
String8 quoted(StrepIt& it, StrepIt const& end) {
    StrepIt p = it;
    if (p == end || *p != '\'') parseError("a quoted string", it, end);
    ++p;
    String8 out;
    for (;;) {
        if (p == end) parseError("a closing quote", p, end);
        char c = *p++;
        if (c == '\'') break;
        if (c != '\\') {
            out += c;
            continue;
        }
        if (p == end) parseError("an escape", p, end);
        char e = *p++;
        switch (e) {
        case '\\': out += '\\'; break;
        case '\'': out += '\''; break;
        case 'n': out += '\n'; break;
        case 'r': out += '\r'; break;
        case 't': out += '\t'; break;
        case 'x': {
            int hi = p != end ? hexDigit(p[0]) : -1;
            int lo = end - p >= 2 ? hexDigit(p[1]) : -1;
            if (hi < 0 || lo < 0) parseError("two hex digits after \\x", p, end);
            out += static_cast<char>(hi * 16 + lo);
            p += 2;
            break;
        }
        default: parseError("a known escape", p - 1, end);
        }
    }
    it = p;
    return out;
}

[[noreturn]] void outOfRange(char const* typeName, StrepIt from, StrepIt to) {
    throw RangeException(String8("value ") + std::string_view(from, static_cast<size_t>(to - from)) +
                         " out of range for " + typeName);
}

// A decimal integer, range-checked against T.
template <class T>
T integer(StrepIt& it, StrepIt const& end, char const* typeName) {
    using Wide = std::conditional_t<std::is_signed_v<T>, long long, unsigned long long>;
    StrepIt p = it;
    bool negative = p != end && *p == '-';
    // from_chars takes no sign for unsigned types: parse the magnitude and
    // refuse a negative one below.
    StrepIt digits = std::is_unsigned_v<T> && negative ? p + 1 : p;
    Wide v = 0;
    auto r = std::from_chars(digits, end, v);
    if (r.ec == std::errc::invalid_argument) parseError("an integer", it, end);
    if (r.ec == std::errc::result_out_of_range) outOfRange(typeName, it, r.ptr);
    if (std::is_unsigned_v<T> && negative && v != 0) outOfRange(typeName, it, r.ptr);
    if (!std::in_range<T>(v)) outOfRange(typeName, it, r.ptr);
    it = r.ptr;
    return static_cast<T>(v);
}

// Floating point as to_chars writes it, including inf, -inf and nan.
template <class T>
T floating(StrepIt& it, StrepIt const& end, char const* typeName) {
    T v = 0;
    auto r = std::from_chars(it, end, v);
    if (r.ec == std::errc::invalid_argument) parseError("a number", it, end);
    if (r.ec == std::errc::result_out_of_range) outOfRange(typeName, it, r.ptr);
    it = r.ptr;
    return v;
}

} // namespace

void needString(StrepIt& it, StrepIt const& end, char const* literal) {
    if (!startsWith(it, end, literal)) {
        throw ParseException(String8("expected '") + literal + "', found " +
                             foundText(it, end, std::strlen(literal)));
    }
    it += std::strlen(literal);
}

#define ZEL_INTEGER_PARSER(T)                                        \
    template <> T sequenceToValue<T>(StrepIt & it, StrepIt const& end) { \
        return integer<T>(it, end, #T);                              \
    }
ZEL_INTEGER_PARSER(signed char)
ZEL_INTEGER_PARSER(unsigned char)
ZEL_INTEGER_PARSER(short)
ZEL_INTEGER_PARSER(unsigned short)
ZEL_INTEGER_PARSER(int)
ZEL_INTEGER_PARSER(unsigned int)
ZEL_INTEGER_PARSER(long)
ZEL_INTEGER_PARSER(unsigned long long)
ZEL_INTEGER_PARSER(long long)
#undef ZEL_INTEGER_PARSER

template <> float sequenceToValue<float>(StrepIt& it, StrepIt const& end) {
    return floating<float>(it, end, "float");
}

template <> double sequenceToValue<double>(StrepIt& it, StrepIt const& end) {
    return floating<double>(it, end, "double");
}

template <> bool sequenceToValue<bool>(StrepIt& it, StrepIt const& end) {
    if (startsWith(it, end, "True")) {
        it += 4;
        return true;
    }
    if (startsWith(it, end, "False")) {
        it += 5;
        return false;
    }
    parseError("True or False", it, end);
}

template <> String8 sequenceToValue<String8>(StrepIt& it, StrepIt const& end) { return quoted(it, end); }

template <> char sequenceToValue<char>(StrepIt& it, StrepIt const& end) {
    StrepIt p = it;
    String8 s = quoted(p, end);
    if (s.size() != 1) parseError("a one-character literal", it, end);
    it = p;
    return s[0];
}

template <> ZelType const* sequenceToValue<ZelType const*>(StrepIt& it, StrepIt const& end) {
    if (startsWith(it, end, "None")) {
        it += 4;
        return nullptr;
    }
    StrepIt p = it;
    needString(p, end, "type(");
    String8 name = quoted(p, end);
    needString(p, end, ")");
    ZelType const* t = typeNode(name);
    it = p;
    return t;
}

template <> ZelAttr const* sequenceToValue<ZelAttr const*>(StrepIt& it, StrepIt const& end) {
    if (startsWith(it, end, "None")) {
        it += 4;
        return nullptr;
    }
    StrepIt p = it;
    ZelType const* t = sequenceToValue<ZelType const*>(p, end);
    needString(p, end, ".attr(");
    String8 name = quoted(p, end);
    needString(p, end, ")");
    ZelAttr const* a = t ? t->attr(name.c_str()) : nullptr;
    if (!a) {
        throw RangeException(String8("no attribute '") + name + "' in type " + (t ? t->name() : "None"));
    }
    it = p;
    return a;
}

void rethrowFromDeserializeAttr(RangeException const& e, char const* attrName) {
    String8 message = String8(attrName ? attrName : "?") + ": " + e.message();
    // Copies keep the ids and the original backtrace; each kind is copied
    // as itself so that callers can still tell them apart.
    if (auto const* p = dynamic_cast<ParseException const*>(&e)) {
        ParseException copy(*p);
        copy.messageIs(message);
        throw copy;
    }
    if (auto const* n = dynamic_cast<NoTypeNodeException const*>(&e)) {
        NoTypeNodeException copy(*n);
        copy.messageIs(message);
        throw copy;
    }
    RangeException copy(e);
    copy.messageIs(message);
    throw copy;
}

} // namespace Zel
