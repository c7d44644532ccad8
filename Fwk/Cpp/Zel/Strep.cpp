#include "Zel/Strep.h"

#include <charconv>
#include <cstdio>
#include <cstring>

#include "Zel/Format.h"

namespace Zel {

namespace {

void appendQuoted(String8& out, char const* p, size_t n) {
    out += '\'';
    for (size_t i = 0; i < n; ++i) {
        unsigned char c = static_cast<unsigned char>(p[i]);
        switch (c) {
        case '\\': out += "\\\\"; break;
        case '\'': out += "\\'"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20 || c >= 0x7f) {
                char buf[5];
                std::snprintf(buf, sizeof buf, "\\x%02x", c);
                out += buf;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    out += '\'';
}

template <class T>
String8 integer(T v) {
    char buf[32];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    return String8(buf, static_cast<size_t>(r.ptr - buf));
}

template <class T>
String8 floating(T v) {
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, v);   // shortest round-trip form
    return String8(buf, static_cast<size_t>(r.ptr - buf));
}

} // namespace

String8 valueToStrep(String8 const& v) {
    String8 out;
    appendQuoted(out, v.data(), v.size());
    return out;
}
String8 valueToStrep(char v) {
    String8 out;
    appendQuoted(out, &v, 1);
    return out;
}
String8 valueToStrep(signed char v) { return integer(static_cast<int>(v)); }
String8 valueToStrep(unsigned char v) { return integer(static_cast<unsigned>(v)); }
String8 valueToStrep(short v) { return integer(v); }
String8 valueToStrep(unsigned short v) { return integer(v); }
String8 valueToStrep(int v) { return integer(v); }
String8 valueToStrep(unsigned int v) { return integer(v); }
String8 valueToStrep(long v) { return integer(v); }
String8 valueToStrep(unsigned long long v) { return integer(v); }
String8 valueToStrep(long long v) { return integer(v); }
String8 valueToStrep(float v) { return floating(v); }
String8 valueToStrep(double v) { return floating(v); }
String8 valueToStrep(bool v) { return String8(v ? "True" : "False"); }

// Names are quoted like strings so that any name reads back unchanged.
String8 rawPtrToStrep(ZelType const* t) {
    if (!t) return String8("None");
    String8 out("type(");
    appendQuoted(out, t->name(), std::strlen(t->name()));
    out += ')';
    return out;
}

String8 rawPtrToStrep(ZelAttr const* a) {
    if (!a) return String8("None");
    String8 out = rawPtrToStrep(a->scope());
    out += ".attr(";
    appendQuoted(out, a->name(), std::strlen(a->name()));
    out += ')';
    return out;
}

String8 rawPtrToStrep(AttributeId id) { return integer(id); }

} // namespace Zel
