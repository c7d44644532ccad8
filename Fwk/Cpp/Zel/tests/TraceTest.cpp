#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <atomic>
#include <sstream>
#include <thread>

#include "TestTypes.h"
#include "Zel/Trace.h"
#include "Zel/TraceSettings.h"

using namespace Zel;

TEST(TraceSettings, ParsesHandlesLevelsAndWildcard) {
    auto rules = parseTraceRules("PyClient/0-9, Demo/1,Demo/3 ,Bad/7-2,Junk/x,Whole,*/0-1");
    EXPECT_EQ(traceMaskFor(rules, "PyClient"), 0x3ff);
    EXPECT_EQ(traceMaskFor(rules, "Demo"), 0x0a | 0x03);
    EXPECT_EQ(traceMaskFor(rules, "Whole"), 0x3ff);
    EXPECT_EQ(traceMaskFor(rules, "Bad"), 0x03) << "a malformed range enables nothing of its own";
    EXPECT_EQ(traceMaskFor(rules, "Other"), 0x03);
    EXPECT_EQ(traceMaskFor(parseTraceRules(nullptr), "PyClient"), 0);
}

namespace {

struct TraceFileTest : ::testing::Test {
    std::string path = "/tmp/zel_trace_test_" + std::to_string(::getpid());
    void SetUp() override {
        ::unlink(path.c_str());
        setenv("ZELTRACE", "TraceTestHandle/2-3", 1);
        setenv("ZELTRACEFILE", path.c_str(), 1);
        traceSettingsReload();
    }
    void TearDown() override {
        unsetenv("ZELTRACE");
        unsetenv("ZELTRACEFILE");
        traceSettingsReload();
        ::unlink(path.c_str());
    }
};

} // namespace

TEST_F(TraceFileTest, EnabledLevelsAreWrittenOneLineEachSuppressedOnesNotWildcardReachesAll) {
    Ptr<TraceHandle> h = TraceHandle::traceHandle("TraceTestHandle");
    EXPECT_EQ(h, TraceHandle::traceHandle("TraceTestHandle"));
    EXPECT_FALSE(traceLineSuppressed(h.ptr(), 2));
    EXPECT_TRUE(traceLineSuppressed(h.ptr(), 4));
    EXPECT_TRUE(traceLineSuppressed(h.ptr(), 10));
    EXPECT_TRUE(traceLineSuppressed(nullptr, 0)) << "the default handle is not enabled";

    int built = 0;
    ZEL_TRACE(h.ptr(), 4, "quiet", "never " << ++built);
    EXPECT_EQ(built, 0) << "a suppressed line does not build its message";
    ZEL_TRACE(h.ptr(), 3, "loud", "value " << 42);
    trace_h(h.ptr(), "dir/Here.cpp", 12, "withNul", String8("a\0b", 3), 2);
    trace_h(nullptr, "x.cpp", 1, "f", "default handle", 0);

    std::istringstream lines(ZelTest::readFile(path));
    std::string first, second, extra;
    ASSERT_TRUE(std::getline(lines, first));
    ASSERT_TRUE(std::getline(lines, second));
    EXPECT_FALSE(std::getline(lines, extra));
    std::string pid = " " + std::to_string(::getpid()) + " ";
    EXPECT_NE(first.find(pid), std::string::npos) << first;
    EXPECT_NE(first.find("TraceTestHandle/3 TraceTest.cpp:"), std::string::npos) << first;
    EXPECT_NE(first.find(" loud: value 42"), std::string::npos) << first;
    EXPECT_NE(second.find("TraceTestHandle/2 Here.cpp:12 withNul: "), std::string::npos) << second;
    EXPECT_EQ(second.substr(second.size() - 3), std::string("a\0b", 3));

    // Reflection gives the named handle; a wildcard reaches every handle.
    ArgVector args{toGenericIf(String8("TraceTestHandle"))};
    Ptr<GenericIf> g = TraceHandle::_zelType.genericIf(args, false);
    EXPECT_EQ(objectOf<TraceHandle>(g.ptr()), TraceHandle::traceHandle("TraceTestHandle").ptr());

    setenv("ZELTRACE", "*/0-3", 1);
    traceSettingsReload();
    EXPECT_FALSE(traceLineSuppressed(nullptr, 3));
    EXPECT_TRUE(traceLineSuppressed(nullptr, 4));
    EXPECT_EQ(TraceHandle::traceHandle("TraceTestMadeLater")->levelMask(), 0x0f);
}

// A thread tests its handle's levels, holding no lock, while the settings
// are reloaded: the cached bits are shared between threads (run under
// scripts/tsan.sh, a plain word here is reported as a data race).
TEST_F(TraceFileTest, LevelsAreReadWhileAnotherThreadReloadsThem) {
    Ptr<TraceHandle> h = TraceHandle::traceHandle("TraceTestHandle");
    std::atomic<bool> done{false};
    std::atomic<int> seen{0};
    std::thread reader([&] {
        while (!done.load()) seen.fetch_add(traceLineSuppressed(h.ptr(), 2) ? 0 : 1);
    });
    for (int i = 0; i < 200; ++i) {
        setenv("ZELTRACE", i % 2 ? "TraceTestHandle/2-3" : "Other/1", 1);
        traceSettingsReload();
    }
    done.store(true);
    reader.join();
    EXPECT_EQ(h->levelMask(), 0x0c) << "the last reload enabled levels 2 and 3";
}
