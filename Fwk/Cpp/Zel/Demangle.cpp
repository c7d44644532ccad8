#include "Zel/Demangle.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace Zel {

String8 demangledName(std::type_info const& info) {
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> const name(abi::__cxa_demangle(info.name(), nullptr, nullptr, &status),
                                                           &std::free);
    return String8(status == 0 && name ? name.get() : info.name());
}

} // namespace Zel
