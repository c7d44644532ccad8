#include "Zel/String8.h"

#include <ostream>

namespace Zel {

uint32_t String8::hash() const {
    uint32_t h = 2166136261u;
    for (unsigned char c : s_) {
        h ^= c;
        h *= 16777619u;
    }
    return h;
}

std::ostream& operator<<(std::ostream& os, String8 const& s) {
    return os.write(s.data(), static_cast<std::streamsize>(s.size()));
}

} // namespace Zel
