// Runtime collections with a test-only value type owning them: iterators
// under change, queues, Dir children and the AllocTracker.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "Zel/AllocTracker.h"
#include "Zel/CollectionAttr.h"
#include "Zel/CollectionQueueAttr.h"
#include "Zel/Dir.h"
#include "Zel/TypeOps.h"

namespace {

struct Bag {
    Zel::Collection<int, int> squares;
    Zel::Queue<int> fifo;
    bool operator==(Bag const&) const { return true; }
    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];
};

constexpr Zel::CollectionAttr<&Bag::squares> kSquares;
constexpr Zel::CollectionQueueAttr<&Bag::fifo> kFifo;
constexpr Zel::TypeOps kBagOps = Zel::valueOps<Bag>();
constexpr uint32_t kColl = Zel::ZelAttr::readable_ | Zel::ZelAttr::writable_ | Zel::ZelAttr::deletable_ |
                           Zel::ZelAttr::isCollection_;
constinit Zel::ZelType const Bag::_zelType("Test::Bag", sizeof(Bag), nullptr, Zel::ZelType::isValue_,
                                           Bag::_zelAttrs, 2, nullptr, &kBagOps);
constinit Zel::ZelAttr const Bag::_zelAttrs[] = {
    {"squares", 1, &Bag::_zelType, &Zel::Builtin<int>::_zelType, kColl, &kSquares, &Zel::Builtin<int>::_zelType},
    {"fifo", 2, &Bag::_zelType, &Zel::Builtin<int>::_zelType, kColl | Zel::ZelAttr::isQueueCollection_, &kFifo},
};

struct CollectionTest : ::testing::Test {
    Zel::Ptr<Zel::GenericIf> bag = Bag::_zelType.genericIf(nullptr, false);
    Zel::ZelAttr const& squares = Bag::_zelAttrs[0];
    Zel::ZelAttr const& fifo = Bag::_zelAttrs[1];
    void put(int k) { squares.genericIfSet(bag.ptr(), Zel::toGenericIf(k).ptr(), Zel::toGenericIf(k * k).ptr()); }
    static int keyOf(Zel::AttributeIterator const& it) { return Zel::fromGenericIf<int>(it.key().ptr()); }
    static int valueOf(Zel::Ptr<Zel::GenericIf const> const& v) { return Zel::fromGenericIf<int>(v.ptr()); }
};

// Records "attribute=key" for each change of a Dir's children.
struct Children : Zel::GenericIf::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    std::vector<Zel::String8> seen;
    void onAttribute(Zel::ZelAttr const* a, Zel::Ptr<Zel::GenericIf const> const& v) override {
        seen.push_back(Zel::String8(a->name()) + "=" + Zel::fromGenericIf<Zel::String8>(v.ptr()));
    }
};

} // namespace

// An iterator moves on from a removed member, visits members added ahead of
// it and not those behind; exhausted (or made empty), it sees members added
// beyond the last it saw; remove takes the front.
TEST_F(CollectionTest, IteratorSurvivesRemovalAndInsertionQueueKeepsArrivalOrder) {
    auto empty = squares.genericIfIterator(bag.ptr());
    EXPECT_FALSE(empty.valid());
    for (int k : {1, 3, 5, 7}) put(k);
    ASSERT_TRUE(empty.valid());
    EXPECT_EQ(keyOf(empty), 1);
    auto it = squares.genericIfIterator(bag.ptr());
    it.advance();
    squares.genericIfDel(bag.ptr(), Zel::toGenericIf(3).ptr());   // the current member goes: on to 5
    put(4);          // ahead of the position: visited
    EXPECT_EQ(keyOf(it), 4);
    put(2);          // behind it: not visited
    it.advance();
    EXPECT_EQ(keyOf(it), 5);
    EXPECT_EQ(valueOf(it.value()), 25);
    it.advance();
    it.advance();
    EXPECT_FALSE(it.valid());
    put(6);          // behind the last member seen: still exhausted
    EXPECT_FALSE(it.valid());
    put(9);          // beyond it: visible
    ASSERT_TRUE(it.valid());
    EXPECT_EQ(keyOf(it), 9);
    EXPECT_EQ(valueOf(squares.genericIfRemove(bag.ptr())), 1);
    EXPECT_EQ(keyOf(empty), 2);
    EXPECT_EQ(squares.genericIfVersion(bag.ptr()), 10u);
    EXPECT_THROW(squares.genericIfIteratorKey(bag.ptr(), Zel::toGenericIf(8).ptr()).key(), Zel::RangeException);

    // A queue keeps arrival order, without keys.
    for (int v : {30, 10, 20}) fifo.genericIfAdd(bag.ptr(), Zel::toGenericIf(v).ptr());
    std::vector<int> seen;
    for (auto q = fifo.genericIfIterator(bag.ptr()); q.valid(); q.advance()) {
        EXPECT_EQ(q.key(), nullptr);
        seen.push_back(valueOf(q.value()));
    }
    EXPECT_EQ(seen, (std::vector<int>{30, 10, 20}));
    EXPECT_EQ(valueOf(fifo.genericIfRemove(bag.ptr())), 30);
    auto frozen = Bag::_zelType.genericIf(bag->valuePtr(), true);
    EXPECT_THROW(fifo.genericIfAdd(frozen.ptr(), Zel::toGenericIf(1).ptr()), Zel::ConstException);
}

// A Dir notifies each child added or removed by its name; a plain entity's
// "entity" collection is empty.
TEST(DirTest, ChildrenNotifyAndPlainEntitiesHaveNone) {
    Zel::Ptr<Zel::Dir> top = Zel::globalDir()->newDir("dirtest");
    EXPECT_EQ(Zel::globalDir()->newDir("dirtest"), top);
    Zel::Ptr<Zel::Dir> sub = top->newDir("sub");
    EXPECT_EQ(sub->fullName().value, "/dirtest/sub");
    EXPECT_EQ(sub->parentAttrName(), "entity");
    auto g = Zel::genericIfOf(top.ptr());
    Zel::Ptr<Children> n = Zel::zelNew<Children>(g);
    top->newEntity("leaf", "Zel::Entity");
    top->entityDel("sub");
    EXPECT_EQ(n->seen, (std::vector<Zel::String8>{"entity=leaf", "entity=sub"}));
    EXPECT_EQ(sub->parent(), nullptr);
    Zel::ZelAttr const* children = Zel::Entity::_zelType.attr("entity");
    EXPECT_EQ(children->genericIfMembers(g.ptr()), 1u);
    auto leaf = Zel::genericIfOf(top->entity("leaf").ptr());
    EXPECT_FALSE(children->genericIfIterator(leaf.ptr()).valid());
    EXPECT_THROW(children->genericIfGet(leaf.ptr(), Zel::toGenericIf(Zel::String8("x")).ptr()), Zel::RangeException);
    EXPECT_THROW(top->newEntity("leaf", "Zel::Dir"), Zel::NameInUseException);
    Zel::globalDir()->entityDel("dirtest");
}

// The tracker's live counts, by type name and in name order, through
// reflection (the counts themselves: AllocationTracking in CountedObjectTest).
TEST(AllocTrackerTest, LiveCountsByNameInOrder) {
    auto tracker = Zel::genericIfOf(Zel::AllocTracker::instance().ptr());
    EXPECT_EQ(Zel::Entity::singleton(Zel::Name("Zel::AllocTracker")).ptr(), tracker->valuePtr());
    Zel::ZelAttr const* live = tracker->type()->attr("liveCount");
    Zel::Ptr<Zel::GenericIf const> key = Zel::toGenericIf(Zel::String8("Zel::Dir"));
    EXPECT_EQ(Zel::fromGenericIf<unsigned long long>(live->genericIfGet(tracker.ptr(), key.ptr()).ptr()),
              Zel::allocTrackLiveCount("Zel::Dir"));
    EXPECT_THROW(live->genericIfGet(tracker.ptr(), Zel::toGenericIf(Zel::String8("No::Such")).ptr()), Zel::RangeException);
    Zel::String8 last;
    for (auto it = live->genericIfIterator(tracker.ptr()); it.valid(); it.advance()) {
        EXPECT_LT(last, Zel::fromGenericIf<Zel::String8>(it.key().ptr()));
        last = Zel::fromGenericIf<Zel::String8>(it.key().ptr());
    }
}

// The hash index against the ordered map it indexes: random sets and
// deletions over a small key range make long probe clusters that wrap
// around the table's end, the case where deletion must shift members back.
TEST(CollectionIndexTest, FindsWhatTheMapHoldsThroughGrowthDeletionAndCopies) {
    Zel::Collection<int, int> c;
    std::map<int, int> model;
    uint64_t seed = 12345;
    auto next = [&seed] { return seed = seed * 6364136223846793005ull + 1442695040888963407ull; };
    for (int step = 0; step < 20000; ++step) {
        int const k = static_cast<int>(next() >> 33) % 300 - 150;
        if (next() >> 63) {
            c.set(k, step);
            model[k] = step;
        } else {
            c.del(k);
            model.erase(k);
        }
        if (step % 1000 == 0) c = Zel::Collection<int, int>(c);   // a copy indexes its own nodes
        if (step % 97 == 0) {
            for (int probe = -151; probe <= 150; ++probe) {
                auto it = model.find(probe);
                int const* got = c.find(probe);
                ASSERT_EQ(got != nullptr, it != model.end()) << "step " << step << " key " << probe;
                ASSERT_EQ(got ? *got : -1, got ? it->second : -1);
            }
        }
    }
    c.clear();
    EXPECT_EQ(c.find(model.begin()->first), nullptr);
}
