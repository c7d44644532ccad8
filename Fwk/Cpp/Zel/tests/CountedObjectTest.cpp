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

// The flag shares its word with the count: neither disturbs the other, and a
// set flag does not hide a zero count. Ptr copies count, moves and adoption
// do not.
TEST(Counts, HandleZeroRefRunsExactlyAtZeroWhateverTheFlagAndPtrsCountTheirCopies) {
    ZeroProbe p;
    p.zelMarkedForDeletionIs(true);
    EXPECT_EQ(p.references(), 0u);
    for (int i = 0; i < 1000; ++i) p.newRef();
    EXPECT_EQ(p.references(), 1000u);
    EXPECT_TRUE(p.zelMarkedForDeletion());
    for (int i = 0; i < 999; ++i) p.deleteRef();
    EXPECT_EQ(p.zeroCalls, 0);
    p.deleteRef();
    EXPECT_EQ(p.zeroCalls, 1);
    EXPECT_EQ(p.references(), 0u);
    EXPECT_TRUE(p.zelMarkedForDeletion());
    p.newRef();
    p.zelMarkedForDeletionIs(false);
    EXPECT_FALSE(p.zelMarkedForDeletion());
    EXPECT_EQ(p.references(), 1u);
    {
        Zel::Ptr<ZeroProbe> a = Zel::Ptr<ZeroProbe>::adopt(&p);
        Zel::Ptr<ZeroProbe> b = a;
        EXPECT_EQ(p.references(), 2u);
        Zel::Ptr<ZeroProbe> c = std::move(b);
        EXPECT_EQ(b, nullptr);
        Zel::Ptr<ZeroProbe> d = Zel::Ptr<ZeroProbe>::adopt(c.release());
        EXPECT_EQ(p.references(), 2u);
    }
    EXPECT_EQ(p.zeroCalls, 2);
}

// With thread-safe counting, threads counting at once lose no counts, nor
// does a flag changed at the same time undo them.
TEST(Counts, AtomicCountsAndFlagChangesSurviveThreadsHammering) {
    bool const saved = Zel::VFPtrInterface::enableThreadSafePointers;
    Zel::VFPtrInterface::enableThreadSafePointers = true;
    ZeroProbe p;
    p.newRef();
    constexpr int kThreads = 3, kRounds = 300000;
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
    threads.emplace_back([&p] {
        for (int i = 0; i < 4 * kRounds; ++i) p.zelMarkedForDeletionIs(i % 2 == 0);
    });
    for (auto& t : threads) t.join();
    Zel::VFPtrInterface::enableThreadSafePointers = saved;
    EXPECT_EQ(p.references(), 1u);
    EXPECT_FALSE(p.zelMarkedForDeletion());
    EXPECT_EQ(p.zeroCalls, 0);
    p.deleteRef();
    EXPECT_EQ(p.zeroCalls, 1);
}

struct Tracked : PtrInterface {
    explicit Tracked(bool fail) {
        if (fail) throw std::runtime_error("constructor failed");
    }
};

// Objects made by zelNew are counted live under their type's name, in one
// slot per type; a throwing constructor leaves no record.
TEST(AllocationTracking, LiveCountFollowsObjects) {
    constexpr char const* kTracked = "(anonymous namespace)::Tracked";
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
        EXPECT_THROW(Zel::zelNew<Tracked>(true), std::runtime_error);
        EXPECT_EQ(Zel::allocTrackLiveCount(kTracked), base + 1);
        EXPECT_EQ(a->references(), 1u);
    }
    EXPECT_EQ(Zel::allocTrackLiveCount(kTracked), base);
    EXPECT_EQ(Zel::allocTrackLiveCount("No::SuchType"), 0u);
    EXPECT_EQ(Zel::allocTrackSlotName(0), nullptr);
}

} // namespace
