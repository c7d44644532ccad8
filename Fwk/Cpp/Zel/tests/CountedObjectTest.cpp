#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "Zel/PtrInterface.h"

namespace {

using Zel::PtrInterface;

// Counts handleZeroRef calls instead of deleting itself.
struct ZeroProbe : PtrInterface {
    mutable int zeroCalls = 0;
    void handleZeroRef() const override { ++zeroCalls; }
};

// Turns thread-safe counting on for a test and restores the old setting.
struct ThreadSafeCounts {
    bool saved = Zel::VFPtrInterface::enableThreadSafePointers;
    ThreadSafeCounts() { Zel::VFPtrInterface::enableThreadSafePointers = true; }
    ~ThreadSafeCounts() { Zel::VFPtrInterface::enableThreadSafePointers = saved; }
};

TEST(Counts, HandleZeroRefRunsExactlyWhenTheCountReachesZero) {
    ZeroProbe p;
    p.newRef();
    p.newRef();
    EXPECT_EQ(p.references(), 2u);
    p.deleteRef();
    EXPECT_EQ(p.zeroCalls, 0);
    p.deleteRef();
    EXPECT_EQ(p.zeroCalls, 1);
    EXPECT_EQ(p.references(), 0u);
}

TEST(Counts, FlagBitsOutsideTheMaskSurviveCounting) {
    ZeroProbe p;
    p.zelMarkedForDeletionIs(true);
    EXPECT_EQ(p.references(), 0u);
    for (int i = 0; i < 1000; ++i) p.newRef();
    EXPECT_EQ(p.references(), 1000u);
    EXPECT_TRUE(p.zelMarkedForDeletion());
    for (int i = 0; i < 999; ++i) p.deleteRef();
    EXPECT_EQ(p.zeroCalls, 0);
    p.deleteRef();
    EXPECT_EQ(p.zeroCalls, 1);   // a set flag does not hide a zero count
    EXPECT_TRUE(p.zelMarkedForDeletion());
    p.newRef();
    p.zelMarkedForDeletionIs(false);
    EXPECT_FALSE(p.zelMarkedForDeletion());
    EXPECT_EQ(p.references(), 1u);
    EXPECT_EQ(PtrInterface::kCountMask & PtrInterface::kMarkedForDeletion, 0u);
    EXPECT_EQ(PtrInterface::kCountMask & PtrInterface::kFlagSpare, 0u);
}

TEST(Counts, PtrCopiesMovesAndAdopts) {
    ZeroProbe p;
    {
        Zel::Ptr<ZeroProbe> a(&p);
        Zel::Ptr<ZeroProbe> b = a;
        EXPECT_EQ(p.references(), 2u);
        Zel::Ptr<ZeroProbe> c = std::move(b);
        EXPECT_EQ(p.references(), 2u);
        EXPECT_EQ(b, nullptr);
        ZeroProbe* raw = c.release();
        EXPECT_EQ(p.references(), 2u);
        Zel::Ptr<ZeroProbe> d = Zel::Ptr<ZeroProbe>::adopt(raw);
        EXPECT_EQ(p.references(), 2u);
    }
    EXPECT_EQ(p.zeroCalls, 1);
}

TEST(Counts, AtomicCountsSurviveThreadsHammering) {
    ThreadSafeCounts on;
    ZeroProbe p;
    p.newRef();
    constexpr int kThreads = 4, kRounds = 200000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&p] {
            for (int i = 0; i < kRounds; ++i) {
                p.newRef();
                p.newRef();
                p.deleteRef();
            }
            for (int i = 0; i < kRounds; ++i) p.deleteRef();
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(p.references(), 1u);
    EXPECT_EQ(p.zeroCalls, 0);
    p.deleteRef();
    EXPECT_EQ(p.zeroCalls, 1);
}

// The flag shares its word with the count: a flag change racing with count
// changes must not undo them.
TEST(Counts, AtomicFlagChangesLoseNoCounts) {
    ThreadSafeCounts on;
    ZeroProbe p;
    p.newRef();
    constexpr int kRounds = 2000000;
    std::thread counter([&p] {
        for (int i = 0; i < kRounds; ++i) p.newRef();
        for (int i = 0; i < kRounds; ++i) p.deleteRef();
    });
    std::thread flagger([&p] {
        for (int i = 0; i < kRounds; ++i) p.zelMarkedForDeletionIs(i % 2 == 0);
    });
    counter.join();
    flagger.join();
    EXPECT_EQ(p.references(), 1u);
    EXPECT_FALSE(p.zelMarkedForDeletion());
}

struct Tracked : PtrInterface {
    explicit Tracked(bool fail) {
        if (fail) throw std::runtime_error("constructor failed");
    }
};
constexpr char const* kTracked = "(anonymous namespace)::Tracked";

TEST(AllocationTracking, LiveCountFollowsObjects) {
    uint64_t base = Zel::allocTrackLiveCount(kTracked);
    {
        Zel::Ptr<Tracked> a = Zel::zelNew<Tracked>(false);
        Zel::Ptr<Tracked> b = Zel::zelNew<Tracked>(false);
        EXPECT_EQ(Zel::allocTrackLiveCount(kTracked), base + 2);
        EXPECT_NE(a->allocTrackSlot(), 0u);
        EXPECT_EQ(a->allocTrackSlot(), b->allocTrackSlot());
        EXPECT_STREQ(Zel::allocTrackSlotName(a->allocTrackSlot()), kTracked);
        EXPECT_EQ(a->references(), 1u);
        b.reset();
        EXPECT_EQ(Zel::allocTrackLiveCount(kTracked), base + 1);
    }
    EXPECT_EQ(Zel::allocTrackLiveCount(kTracked), base);
    EXPECT_EQ(Zel::allocTrackLiveCount("No::SuchType"), 0u);
    EXPECT_EQ(Zel::allocTrackSlotName(0), nullptr);
}

TEST(AllocationTracking, AThrowingConstructorLeavesNoRecord) {
    Zel::Ptr<Tracked> keep = Zel::zelNew<Tracked>(false);   // the slot exists
    uint64_t base = Zel::allocTrackLiveCount(kTracked);
    EXPECT_THROW(Zel::zelNew<Tracked>(true), std::runtime_error);
    EXPECT_EQ(Zel::allocTrackLiveCount(kTracked), base);
    EXPECT_EQ(keep->references(), 1u);
}

} // namespace
