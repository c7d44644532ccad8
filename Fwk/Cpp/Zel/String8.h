// String8: the framework's counted 8-bit string. Embedded NUL bytes are
// ordinary characters; c_str() is always terminated for C callers.
#pragma once

#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Zel/Visibility.h"

namespace Zel {

class ZEL_API String8 {
public:
    using IteratorConst = char const*;

    String8() = default;
    String8(char const* s) : s_(s ? s : "") {}
    String8(char const* s, size_t n) : s_(s, n) {}
    String8(std::string s) : s_(std::move(s)) {}
    String8(std::string_view s) : s_(s) {}

    char const* c_str() const { return s_.c_str(); }
    char const* data() const { return s_.data(); }
    size_t size() const { return s_.size(); }
    size_t length() const { return s_.size(); }
    bool empty() const { return s_.empty(); }
    IteratorConst begin() const { return s_.data(); }
    IteratorConst end() const { return s_.data() + s_.size(); }
    char operator[](size_t i) const { return s_[i]; }

    std::string const& str() const { return s_; }
    std::string_view view() const { return s_; }
    operator std::string_view() const { return s_; }

    String8& operator+=(String8 const& o) { s_ += o.s_; return *this; }
    String8& operator+=(std::string_view o) { s_ += o; return *this; }
    String8& operator+=(char const* o) { s_ += o; return *this; }
    String8& operator+=(char c) { s_ += c; return *this; }

    // Stable across runs and processes: FNV-1a over the bytes.
    uint32_t hash() const;

    friend bool operator==(String8 const& a, String8 const& b) { return a.s_ == b.s_; }
    friend bool operator!=(String8 const& a, String8 const& b) { return a.s_ != b.s_; }
    friend bool operator<(String8 const& a, String8 const& b) { return a.s_ < b.s_; }
    friend bool operator==(String8 const& a, char const* b) { return a.s_ == b; }
    friend String8 operator+(String8 a, String8 const& b) { a += b; return a; }
    friend String8 operator+(String8 a, char const* b) { a += b; return a; }
    friend String8 operator+(char const* a, String8 const& b) { String8 r(a); r += b; return r; }

private:
    std::string s_;
};

ZEL_API std::ostream& operator<<(std::ostream& os, String8 const& s);

} // namespace Zel
