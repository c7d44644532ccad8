// The readable name of a C++ type, as error messages, allocation tracking
// and type registrations show it.
#pragma once

#include <typeinfo>

#include "Zel/String8.h"
#include "Zel/Visibility.h"

namespace Zel {

// The demangled name of `info`, or its mangled name should demangling fail.
ZEL_API String8 demangledName(std::type_info const& info);

} // namespace Zel
