// Linked into every fuzz target. The Zel runtime installs its own handlers
// for the fatal signals when it is loaded (they print a backtrace, then die
// by the signal), and libFuzzer leaves a signal alone when it already has a
// handler: an abort() of a target's check, or a crash, would end the run
// without the input being saved. This initialiser runs after those of the
// libraries and before libFuzzer's main installs its handlers, and puts
// such signals back to their defaults, so that libFuzzer takes them.
#include <signal.h>

#include <initializer_list>

namespace {

struct DefaultFatalSignals {
    DefaultFatalSignals() {
        for (int sig : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
            struct sigaction current {};
            // A sanitizer's own handler (SA_SIGINFO) stays: libFuzzer chains to it.
            if (sigaction(sig, nullptr, &current) == 0 && !(current.sa_flags & SA_SIGINFO) &&
                current.sa_handler != SIG_DFL && current.sa_handler != SIG_IGN) {
                signal(sig, SIG_DFL);
            }
        }
    }
} defaultFatalSignals;

} // namespace
