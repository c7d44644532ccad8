#include "demo/MacAddr.h"

#include "Zel/Attr.h"
#include "Zel/TypeOps.h"

namespace Demo {

namespace {
int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}
} // namespace

MacAddr::MacAddr(Zel::String8 const& text) {
    std::string_view s = text.view();
    // Six pairs of hex digits joined by five colons: 17 characters.
    bool ok = s.size() == 17;
    for (size_t i = 0; ok && i < 6; ++i) {
        int hi = hexDigit(s[3 * i]), lo = hexDigit(s[3 * i + 1]);
        ok = hi >= 0 && lo >= 0 && (i == 5 || s[3 * i + 2] == ':');
        if (ok) bytes_[i] = uint8_t(hi << 4 | lo);
    }
    if (!ok) throw Zel::RangeException("invalid MAC address: " + text);
}

Zel::String8 MacAddr::stringValue() const {
    static char const digits[] = "0123456789abcdef";
    std::string out;
    for (size_t i = 0; i < 6; ++i) {
        if (i) out += ':';
        out += digits[bytes_[i] >> 4];
        out += digits[bytes_[i] & 15];
    }
    return Zel::String8(std::move(out));
}

namespace {
constexpr Zel::AccessorAttr<&MacAddr::stringValue, &MacAddr::stringValueIs> kStringValue;
constexpr Zel::ConstStringAttr kDefaultAttribute("stringValue");
constexpr Zel::ArgDesc kCtor[] = {{"stringValue", "Zel::String"}, {nullptr, nullptr}};
constexpr Zel::TypeOps kOps = Zel::valueOps<MacAddr, Zel::String8>();
} // namespace

constinit Zel::ZelType const MacAddr::_zelType("Demo::MacAddr", sizeof(MacAddr), nullptr, Zel::ZelType::isValue_,
                                               MacAddr::_zelAttrs, 2, kCtor, &kOps);
constinit Zel::ZelAttr const MacAddr::_zelAttrs[] = {
    {"stringValue", 1, &MacAddr::_zelType, &Zel::Builtin<Zel::String8>::_zelType,
     Zel::ZelAttr::readable_ | Zel::ZelAttr::writable_ | Zel::ZelAttr::stored_, &kStringValue},
    {"defaultAttribute", 2, &MacAddr::_zelType, &Zel::Builtin<Zel::String8>::_zelType,
     Zel::ZelAttr::readable_ | Zel::ZelAttr::isStatic_, &kDefaultAttribute},
};

namespace {
Zel::TypeRegistration const rMacAddr(&MacAddr::_zelType);
} // namespace

} // namespace Demo
