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
// embedding program's, and the process dies by the original signal.
constexpr char const* kReport = "fatal signal [^\n]*, native backtrace:\n[^\n]*\\[0x[0-9a-f]+\\].*EMBEDDER-BACKTRACE";

TEST(FatalSignalsDeathTest, SegvPrintsBothBacktracesAndDiesBySegv) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            printBacktraceFn = &embedderBacktrace;
            raise(SIGSEGV);
        },
        ::testing::KilledBySignal(SIGSEGV), kReport);
}

TEST(FatalSignalsDeathTest, AbortIsReportedToo) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            printBacktraceFn = &embedderBacktrace;
            std::abort();
        },
        ::testing::KilledBySignal(SIGABRT), kReport);
}

TEST(FatalSignalsDeathTest, WithoutAnEmbedderOnlyTheNativeBacktrace) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            printBacktraceFn = nullptr;
            raise(SIGBUS);
        },
        ::testing::KilledBySignal(SIGBUS), "native backtrace:\n[^\n]*\\[0x");
}

} // namespace
