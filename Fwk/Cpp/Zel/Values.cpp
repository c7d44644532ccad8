#include "Zel/Values.h"

#include "Zel/Attr.h"
#include "Zel/Exception.h"
#include "Zel/TypeOps.h"

namespace Zel {

Uri::Uri(String8 const& text) : str(text) {
    std::string_view s = text.view();
    size_t colon = s.find(':');
    if (colon == 0 || colon == std::string_view::npos) {
        throw RangeException("invalid URI (no scheme): " + text);
    }
    for (size_t i = 0; i < colon; ++i) {
        char c = s[i];
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                  (i > 0 && ((c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.'));
        if (!ok) throw RangeException("invalid URI scheme: " + text);
    }
    scheme = String8(s.substr(0, colon));
    std::string_view rest = s.substr(colon + 1);
    if (rest.substr(0, 2) == "//") {
        rest.remove_prefix(2);
        size_t slash = rest.find('/');
        authority = String8(rest.substr(0, slash));
        path = slash == std::string_view::npos ? String8() : String8(rest.substr(slash));
    } else {
        path = String8(rest);
    }
}

EntityUri::EntityUri(String8 const& text) : EntityUri(Uri(text)) {}

void EntityUri::checkScheme() const {
    if (scheme_ != "zel") throw RangeException("entity URI scheme must be zel: " + str);
}

namespace {
constexpr FieldAttr<&Name::value> kNameValue;
constexpr FieldAttr<&Uri::str> kUriStr;
constexpr FieldAttr<&EntityUri::str> kEntityUriStr;
constexpr FieldAttr<&EntityUriPath::str> kEntityUriPathStr;
constexpr ArgDesc kNameCtor[] = {{"value", "Zel::String"}, {nullptr, nullptr}};
constexpr ArgDesc kUriCtor[] = {{"str", "Zel::String"}, {nullptr, nullptr}};
constexpr TypeOps kNameOps = valueOps<Name, String8>();
constexpr TypeOps kUriOps = valueOps<Uri, String8>();
constexpr TypeOps kEntityUriOps = valueOps<EntityUri, String8>();
constexpr TypeOps kEntityUriPathOps = valueOps<EntityUriPath, String8>();
constexpr uint32_t kStoredRW = ZelAttr::readable_ | ZelAttr::writable_ | ZelAttr::stored_;
} // namespace

constinit ZelType const Name::_zelType("Zel::Name", sizeof(Name), nullptr, ZelType::isValue_,
                                       Name::_zelAttrs, 1, kNameCtor, &kNameOps, 0);
constinit ZelAttr const Name::_zelAttrs[] = {
    {"value", 1, &Name::_zelType, &Builtin<String8>::_zelType, kStoredRW, &kNameValue},
};

constinit ZelType const Uri::_zelType("Zel::Uri", sizeof(Uri), nullptr, ZelType::isValue_,
                                      Uri::_zelAttrs, 1, kUriCtor, &kUriOps, 0);
constinit ZelAttr const Uri::_zelAttrs[] = {
    {"str", 1, &Uri::_zelType, &Builtin<String8>::_zelType, ZelAttr::readable_ | ZelAttr::stored_, &kUriStr},
};

constinit ZelType const EntityUri::_zelType("Zel::EntityUri", sizeof(EntityUri), nullptr,
                                            ZelType::isValue_, EntityUri::_zelAttrs, 1, kUriCtor,
                                            &kEntityUriOps, 0);
constinit ZelAttr const EntityUri::_zelAttrs[] = {
    {"str", 1, &EntityUri::_zelType, &Builtin<String8>::_zelType, ZelAttr::readable_ | ZelAttr::stored_,
     &kEntityUriStr},
};

constinit ZelType const EntityUriPath::_zelType("Zel::EntityUriPath", sizeof(EntityUriPath), nullptr,
                                                ZelType::isValue_, EntityUriPath::_zelAttrs, 1,
                                                kUriCtor, &kEntityUriPathOps, 0);
constinit ZelAttr const EntityUriPath::_zelAttrs[] = {
    {"str", 1, &EntityUriPath::_zelType, &Builtin<String8>::_zelType, kStoredRW, &kEntityUriPathStr},
};

namespace {
TypeRegistration const rName(&Name::_zelType);
TypeRegistration const rUri(&Uri::_zelType);
TypeRegistration const rEntityUri(&EntityUri::_zelType);
TypeRegistration const rEntityUriPath(&EntityUriPath::_zelType);
} // namespace

} // namespace Zel
