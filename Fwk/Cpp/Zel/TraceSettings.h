// The ZELTRACE setting: a comma-separated list of "handle/levels" items,
// where handle is a trace handle's name or "*" (every handle) and levels is
// "n" or "n-m" (0 to 9); an item without "/levels" enables all ten levels.
// Items naming the same handle add up. Malformed items are ignored.
#pragma once

#include <cstdint>
#include <vector>

#include "Zel/String8.h"

namespace Zel {

struct TraceRule {
    String8 handle;      // "*" for all
    uint16_t mask = 0;   // bit n: level n
};

ZEL_API std::vector<TraceRule> parseTraceRules(char const* text);
// The level mask the rules give the handle `name`.
ZEL_API uint16_t traceMaskFor(std::vector<TraceRule> const& rules, String8 const& name);

} // namespace Zel
