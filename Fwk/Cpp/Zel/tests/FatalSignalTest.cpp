#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <cstdlib>

#include "Zel/Exception.h"

namespace {

void embedderBacktrace(int fd) {
    char const text[] = "EMBEDDER-BACKTRACE\n";
    ssize_t r = ::write(fd, text, sizeof text - 1);
    (void)r;
}

// The native backtrace (at least one frame line) comes first, then the
// embedding program's when there is one, and the process dies by the
// original signal.
TEST(FatalSignalsDeathTest, ReportBothBacktracesAndDieByTheSignal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct Case { int sig; void (*embedder)(int); char const* report; };
    char const* both = "fatal signal [^\n]*, native backtrace:\n[^\n]*\\[0x[0-9a-f]+\\].*EMBEDDER-BACKTRACE";
    for (Case c : {Case{SIGSEGV, &embedderBacktrace, both}, Case{SIGABRT, &embedderBacktrace, both},
                   Case{SIGBUS, nullptr, "native backtrace:\n[^\n]*\\[0x"}}) {
        SCOPED_TRACE(strsignal(c.sig));
        EXPECT_EXIT(
            {
                printBacktraceFn = c.embedder;
                c.sig == SIGABRT ? std::abort() : (void)raise(c.sig);
            },
            ::testing::KilledBySignal(c.sig), c.report);
    }
}

} // namespace
