#include "Zel/TraceSettings.h"

#include <cctype>

namespace Zel {

namespace {

std::string_view trim(std::string_view s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
    return s;
}

// "n" or "n-m" with single digits; 0 when malformed.
uint16_t parseLevels(std::string_view s) {
    s = trim(s);
    auto digit = [](char c) { return c >= '0' && c <= '9'; };
    if (s.size() == 1 && digit(s[0])) return uint16_t(1u << (s[0] - '0'));
    if (s.size() == 3 && digit(s[0]) && s[1] == '-' && digit(s[2]) && s[0] <= s[2]) {
        uint16_t m = 0;
        for (int l = s[0] - '0'; l <= s[2] - '0'; ++l) m |= uint16_t(1u << l);
        return m;
    }
    return 0;
}

} // namespace

std::vector<TraceRule> parseTraceRules(char const* text) {
    std::vector<TraceRule> rules;
    if (!text) return rules;
    std::string_view rest(text);
    while (!rest.empty()) {
        size_t comma = rest.find(',');
        std::string_view item = trim(rest.substr(0, comma));
        rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
        if (item.empty()) continue;
        size_t slash = item.rfind('/');
        TraceRule r;
        if (slash == std::string_view::npos) {
            r.handle = String8(item);
            r.mask = 0x3ff;
        } else {
            r.handle = String8(trim(item.substr(0, slash)));
            r.mask = parseLevels(item.substr(slash + 1));
        }
        if (!r.handle.empty() && r.mask) rules.push_back(std::move(r));
    }
    return rules;
}

uint16_t traceMaskFor(std::vector<TraceRule> const& rules, String8 const& name) {
    uint16_t m = 0;
    for (TraceRule const& r : rules) {
        if (r.handle == "*" || r.handle == name) m |= r.mask;
    }
    return m;
}

} // namespace Zel
