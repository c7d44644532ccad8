// The process title: what `ps` shows for this process, and the "external"
// title and socket that a passive mount records for the process.
#pragma once

#include "Zel/String8.h"

namespace Zel {

// Sets the title to the non-empty ones of `a`, `b` and `c` joined by single
// blanks (null counts as empty): the text is written over the argument
// area of `argv` (extended, the first time, over the environment strings
// that follow it, which are first copied elsewhere so getenv keeps
// working); a title longer than the area is cut. The calling thread's
// name (/proc/self/task/<tid>/comm) becomes the title's first 15 bytes.
// With argc 0 or a null argv only the thread name changes.
ZEL_API void procTitleIs(int argc, char** argv, char const* a, char const* b, char const* c);

// The argument count and vector the process was started with (captured
// when the library is loaded), for callers without access to main's.
ZEL_API int procArgc();
ZEL_API char** procArgv();

// The external title: a text kept for others to read; it changes nothing
// that `ps` shows.
ZEL_API void externalProcTitleIs(char const* title);
ZEL_API String8 externalProcTitle();

namespace NboAttrLog {
// The socket (and its name) set from outside the framework for the
// process's attribute-log connection; 0 and "" until set.
ZEL_API extern int externallySetSocket;
ZEL_API extern String8 externallySetSocketName;
} // namespace NboAttrLog

} // namespace Zel
