#include <gtest/gtest.h>

#include <sys/prctl.h>

#include <cstdlib>
#include <thread>

#include "TestTypes.h"
#include "Zel/ProcTitle.h"

using namespace Zel;

TEST(ProcTitle, ShownInCmdlineAndThreadNameWhileTheEnvironmentSurvives) {
    ASSERT_GT(procArgc(), 0);
    setenv("ZEL_PROCTITLE_PROBE", "still here", 1);
    std::string path = std::getenv("PATH") ? std::getenv("PATH") : "";
    // Run on a thread of its own so the test runner's thread keeps its name.
    std::thread t([&] {
        procTitleIs(procArgc(), procArgv(), "zeltitle", nullptr, "worker");
        std::string comm = ZelTest::readFile("/proc/self/task/" + std::to_string(currentTid()) + "/comm");
        EXPECT_EQ(comm, "zeltitle worker\n");
    });
    t.join();
    std::string cmdline = ZelTest::readFile("/proc/self/cmdline");
    EXPECT_EQ(cmdline.substr(0, 16), std::string("zeltitle worker\0", 16));
    EXPECT_STREQ(procArgv()[0], "zeltitle worker");
    EXPECT_STREQ(std::getenv("ZEL_PROCTITLE_PROBE"), "still here");
    EXPECT_EQ(std::getenv("PATH") ? std::getenv("PATH") : "", path);
    // A later setenv gives environ a new array; the moved one stays owned
    // by the title code (the leak checker of a sanitized build sees it).
    setenv("ZEL_PROCTITLE_LATER", "set after", 1);
    EXPECT_STREQ(std::getenv("ZEL_PROCTITLE_LATER"), "set after");
    EXPECT_STREQ(std::getenv("ZEL_PROCTITLE_PROBE"), "still here");
    // A title set by someone else is kept as given, and cleared by null.
    externalProcTitleIs("passive mount");
    EXPECT_EQ(externalProcTitle(), "passive mount");
    externalProcTitleIs(nullptr);
    EXPECT_EQ(externalProcTitle(), "");
}
