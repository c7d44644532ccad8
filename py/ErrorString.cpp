#include "ZelPy/ErrorString.h"

#include <string.h>

namespace Zel {

String8 errorString(int errnum) {
    char buf[256];
    buf[0] = '\0';
    // The GNU strerror_r may return a static text instead of filling buf.
    char const* text = strerror_r(errnum, buf, sizeof buf);
    return String8(text ? text : buf);
}

} // namespace Zel
