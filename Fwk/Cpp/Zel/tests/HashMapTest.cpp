#include <gtest/gtest.h>

#include <set>
#include <tuple>

#include "Zel/HashMapGeneric.h"
#include "Zel/String8.h"

namespace {

using Zel::HashMapGeneric;

// The key is its own hash, so a test chooses the bucket bits directly.
struct IdentityHash {
    uint32_t operator()(uint32_t k) const { return k; }
};
using IdMap = HashMapGeneric<uint32_t, int, IdentityHash>;

// The bucket comes from the hash's top bits; unordered iteration follows
// bucket order; the map doubles when its load exceeds one (a one-bucket map
// too) and keeps every entry in the bucket its hash names.
TEST(HashMapBuckets, TopBitsChooseTheBucketAndTheMapDoublesPastLoadOne) {
    // (one bucket: the shift would be 32)
    using B = std::tuple<uint32_t, unsigned, uint32_t>;
    for (auto [hash, log2, want] : {B{0xF0000000u, 4, 15u}, B{0x0FFFFFFFu, 4, 0u}, B{0x80000000u, 1, 1u},
                                    B{0xFFFFFFFFu, 0, 0u}, B{0xFFFFFFFFu, 30, 0x3FFFFFFFu}}) {
        EXPECT_EQ(IdMap::bucketIndex(hash, log2), want) << hash << " " << log2;
    }
    IdMap m(4);
    EXPECT_EQ(m.bucketCount(), 16u);
    EXPECT_EQ(m.bucketOf(0x10000000u), 1u);
    EXPECT_EQ(m.bucketOf(0x0000FFFFu), 0u);   // low bits never choose the bucket
    for (uint32_t k : {0xF0000001u, 0x00000007u, 0x30000000u}) m.insert(k, 0);
    std::vector<uint32_t> keys;
    for (auto it = m.begin(); it != m.end(); ++it) keys.push_back(it->key());
    EXPECT_EQ(keys, (std::vector<uint32_t>{0x00000007u, 0x30000000u, 0xF0000001u}));

    IdMap one(0);
    one.insert(0xFFFFFFFFu, 1);
    EXPECT_EQ(one.find(0xFFFFFFFFu)->value(), 1);
    EXPECT_EQ(one.bucketCount(), 1u);
    one.insert(5, 2);
    EXPECT_EQ(one.bucketCount(), 2u);   // load 1 (one entry per bucket): no growth yet
    one.insert(6, 3);
    EXPECT_EQ(one.bucketCount(), 4u);
    EXPECT_EQ(one.find(5)->value(), 2);
    for (uint32_t k = 7; k <= 1000; ++k) one.insert(k * 0x9E3779B9u, int(k));
    EXPECT_EQ(one.size(), 997u);
    EXPECT_EQ(one.bucketCount(), 1024u);
    for (uint32_t k = 7; k <= 1000; ++k) {
        auto* e = one.find(k * 0x9E3779B9u);
        ASSERT_NE(e, nullptr) << k;
        EXPECT_EQ(e->value(), int(k));
        EXPECT_EQ(one.bucketOf(e->key()), IdMap::bucketIndex(e->hash(), one.log2BucketCount()));
    }
    Zel::String8 s("filter");   // strings hash through their varying bits
    EXPECT_EQ(Zel::String8HashReversed()(s), Zel::reverseBits(s.hash()));
    EXPECT_EQ(Zel::reverseBits(1u), 0x80000000u);
    EXPECT_EQ(Zel::PointerHashU32()(nullptr), 0u);
}

// Equal hashes share a chain; equality, not the hash, tells keys apart.
struct ConstantHash {
    uint32_t operator()(Zel::String8 const&) const { return 0x12345678u; }
};

// Insert overwrites, erase reports absence, and the version grows on every
// change only (an overwrite with the same value is one); keys with equal
// hashes share a chain, told apart by equality.
TEST(HashMapOps, InsertOverwritesEraseReportsAbsenceAndVersionCountsChanges) {
    IdMap m;
    uint32_t const v = m.version();
    m.insert(7, 1);
    EXPECT_EQ(m.insert(7, 2)->value(), 2);
    m.insert(7, 2);
    EXPECT_EQ(m.size(), 1u);
    EXPECT_EQ(m.version(), v + 3);
    EXPECT_EQ(m.find(8), nullptr);
    EXPECT_FALSE(m.erase(8));
    m.clear();   // not empty: a change
    EXPECT_EQ(m.version(), v + 4);
    EXPECT_TRUE(m.empty() && m.begin() == m.end());
    m.clear();   // nothing to clear
    m.insert(3, 3);
    EXPECT_TRUE(m.erase(3));
    EXPECT_EQ(m.find(3), nullptr);
    EXPECT_EQ(m.version(), v + 6);

    HashMapGeneric<Zel::String8, int, ConstantHash> c;
    for (char const* k : {"a", "b", "c"}) c.insert(k, k[0] - 'a' + 1);
    EXPECT_TRUE(c.erase("b"));
    EXPECT_EQ(c.find("a")->value(), 1);
    EXPECT_EQ(c.find("b"), nullptr);
    EXPECT_EQ(c.find("c")->value(), 3);
}

// Erasing through the iterator (at 64 buckets, each entry ends its chain)
// visits every entry once.
TEST(HashMapIteration, EraseThroughIteratorVisitsEachOnceAndOrderedFollowsLess) {
    IdMap m(2);
    for (uint32_t k = 0; k < 64; ++k) m.insert(k * 0x04000001u, int(k));
    std::set<uint32_t> seen;
    for (auto it = m.begin(); it != m.end();) {
        EXPECT_TRUE(seen.insert(it->key()).second) << "visited twice: " << it->key();
        if (it->value() % 2) it = m.erase(it);
        else ++it;
    }
    EXPECT_EQ(seen.size(), 64u);
    EXPECT_EQ(m.size(), 32u);
    for (auto it = m.begin(); it != m.end(); ++it) EXPECT_EQ(it->value() % 2, 0);
    // An iterator made at a key starts there.
    auto it = m.iteratorAt(2 * 0x04000001u);
    ASSERT_FALSE(it == m.end());
    EXPECT_EQ((++it)->key(), 4 * 0x04000001u);
    EXPECT_TRUE(m.iteratorAt(3) == m.end());

    // Ordered iteration follows less and survives erasing as it goes.
    HashMapGeneric<Zel::String8, int, Zel::String8HashReversed> s;
    for (char const* k : {"delta", "alpha", "echo", "charlie", "bravo"}) s.insert(k, 1);
    std::vector<std::string> keys;
    for (auto const& e : s.ordered()) {
        keys.push_back(e->key().str());
        s.erase(e->key());
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"alpha", "bravo", "charlie", "delta", "echo"}));
    EXPECT_TRUE(s.empty());

    // Descending by a user ordering.
    HashMapGeneric<uint32_t, int, IdentityHash, std::equal_to<uint32_t>, std::greater<uint32_t>> d;
    for (uint32_t k : {5u, 1u, 9u}) d.insert(k, 0);
    std::vector<uint32_t> got;
    for (auto const& e : d.ordered()) got.push_back(e->key());
    EXPECT_EQ(got, (std::vector<uint32_t>{9u, 5u, 1u}));
}

// A named entry type: the allocation tracker counts it under its own name.
struct TrackedEntry : Zel::HashMapEntry<uint32_t, int> {
    using HashMapEntry::HashMapEntry;
};

TEST(HashMapEntries, AreTrackedCountedObjects) {
    char const* name = "(anonymous namespace)::TrackedEntry";
    uint64_t before = Zel::allocTrackLiveCount(name);
    Zel::Ptr<TrackedEntry> kept;
    {
        HashMapGeneric<uint32_t, int, IdentityHash, std::equal_to<uint32_t>, std::less<uint32_t>, TrackedEntry> m;
        for (uint32_t k = 0; k < 10; ++k) m.insert(k << 28, 0);
        EXPECT_EQ(Zel::allocTrackLiveCount(name), before + 10);
        kept = m.find(0);
        EXPECT_EQ(kept->references(), 2u);
        m.erase(1u << 28);
        EXPECT_EQ(Zel::allocTrackLiveCount(name), before + 9);
    }
    // The map is gone; the entry held outside it lives on alone.
    EXPECT_EQ(Zel::allocTrackLiveCount(name), before + 1);
    EXPECT_EQ(kept->references(), 1u);
    kept.reset();
    EXPECT_EQ(Zel::allocTrackLiveCount(name), before);
}

} // namespace
