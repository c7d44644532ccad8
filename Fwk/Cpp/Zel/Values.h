// The framework's string-like value types: Name (attribute "value"), Uri,
// EntityUri and EntityUriPath (attribute "str").
#pragma once

#include "Zel/String8.h"
#include "Zel/ZelType.h"

namespace Zel {

// An entity name.
struct ZEL_API Name {
    String8 value;

    Name() = default;
    Name(String8 v) : value(std::move(v)) {}
    Name(char const* v) : value(v) {}
    String8 const& str() const { return value; }
    bool operator==(Name const& o) const { return value == o.value; }
    bool operator<(Name const& o) const { return value < o.value; }

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];
};

// A parsed URI: scheme ":" rest, where rest is "//authority/path" or a path.
// Construction from text throws RangeException for a text without a scheme.
struct ZEL_API Uri {
    String8 str;
    String8 scheme;
    String8 authority;
    String8 path;

    Uri() = default;
    explicit Uri(String8 const& text);
    bool operator==(Uri const& o) const { return str == o.str; }

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];
};

// A URI naming an entity: scheme "zel", the path its full name.
struct ZEL_API EntityUri {
    String8 str;

    EntityUri() = default;
    explicit EntityUri(Uri const& uri) : str(uri.str), scheme_(uri.scheme) {}
    explicit EntityUri(String8 const& text);
    // Throws RangeException unless the scheme is "zel".
    void checkScheme() const;
    bool operator==(EntityUri const& o) const { return str == o.str; }

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];

private:
    String8 scheme_;
};

// The path part of an entity URI ("/a/b"), kept as text.
struct ZEL_API EntityUriPath {
    String8 str;

    EntityUriPath() = default;
    explicit EntityUriPath(String8 s) : str(std::move(s)) {}
    bool operator==(EntityUriPath const& o) const { return str == o.str; }

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];
};

} // namespace Zel
