// Fatal-signal reporting: on SIGSEGV, SIGBUS, SIGFPE, SIGILL or SIGABRT the
// runtime writes the native backtrace to standard error, lets the embedding
// program add its own (printBacktraceFn), then dies by the same signal.
#include <execinfo.h>
#include <signal.h>
#include <unistd.h>

#include <cstring>

#include "Zel/Exception.h"

namespace {

void writeStr(char const* s) {
    ssize_t r = ::write(2, s, std::strlen(s));
    (void)r;
}

void fatalSignal(int sig) {
    writeStr("\nZel: fatal signal ");
    char const* name = strsignal(sig);
    writeStr(name ? name : "?");
    writeStr(", native backtrace:\n");
    void* frames[64];
    int n = ::backtrace(frames, 64);
    backtrace_symbols_fd(frames, n, 2);
    if (printBacktraceFn) printBacktraceFn(2);
    signal(sig, SIG_DFL);
    raise(sig);
}

struct Install {
    Install() {
        // backtrace() loads its unwinder lazily; do it now, not in a crash.
        void* warm[2];
        ::backtrace(warm, 2);
        for (int sig : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
            struct sigaction sa;
            std::memset(&sa, 0, sizeof sa);
            sa.sa_handler = &fatalSignal;
            sa.sa_flags = SA_RESETHAND | SA_NODEFER;
            sigaction(sig, &sa, nullptr);
        }
    }
} install;

} // namespace
