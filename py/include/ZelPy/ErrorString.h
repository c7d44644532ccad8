// The system's text for an error number, shared by the module's error
// translation and the client's socket layer.
#pragma once

#include "Zel/String8.h"
#include "Zel/Visibility.h"

namespace Zel {

// strerror_r into a 256-byte buffer; never throws for an unknown number
// (the C library's "Unknown error N" text is returned).
ZEL_API String8 errorString(int errnum);

} // namespace Zel
