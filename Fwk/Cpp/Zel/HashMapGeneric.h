// HashMapGeneric: the runtime's generic hash map for small caches and
// keyed collections.
//
// Entries are counted nodes (HashMapEntry, or a class derived from it that
// names its own allocation-tracker slot) created with zelNew and chained in
// buckets. The caller supplies the 32-bit hash; the bucket is taken from
// its TOP bits: index = hash >> (32 - log2(bucketCount)), 0 with one
// bucket. A hash whose low bits vary most (such as String8::hash) should
// therefore be bit-reversed first (String8HashReversed).
//
// Growth: the map starts with 2^log2Initial buckets and doubles the bucket
// count whenever an insertion makes size() exceed the bucket count (load
// above 1). Doubling splits bucket i into 2i and 2i+1, so unordered
// iteration order stays bucket order. The map never shrinks; clear() keeps
// the buckets.
//
// version() grows by one on every change of content: a new entry, an
// overwrite through insert(), each erase, and a clear() of a non-empty map.
// Changes made through an entry's value() are not seen by the map.
//
// No lock: callers serialise access (the activity lock).
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "Zel/Format.h"
#include "Zel/PtrInterface.h"

namespace Zel {

template <class Key, class Value>
class HashMapEntry : public PtrInterface {
public:
    HashMapEntry(Key const& key, Value const& value) : key_(key), value_(value) {}

    Key const& key() const { return key_; }
    Value const& value() const { return value_; }
    Value& value() { return value_; }
    uint32_t hash() const { return hash_; }

private:
    template <class, class, class, class, class, class> friend class HashMapGeneric;
    Key const key_;
    Value value_;
    uint32_t hash_ = 0;
    Ptr<HashMapEntry> next_;
};

// String8::hash() with its bits reversed, for maps keyed by names.
struct String8HashReversed {
    uint32_t operator()(String8 const& s) const { return reverseBits(s.hash()); }
};

// zelHashU32 of a pointer's value, 0 for null.
struct PointerHashU32 {
    uint32_t operator()(void const* p) const { return p ? zelHashU32(p) : 0u; }
};

template <class Key, class Value, class Hash, class Equal = std::equal_to<Key>,
          class Less = std::less<Key>, class Entry = HashMapEntry<Key, Value>>
class HashMapGeneric {
    using Base = HashMapEntry<Key, Value>;
    static_assert(std::is_base_of_v<Base, Entry>, "entries derive from HashMapEntry<Key, Value>");

public:
    static constexpr unsigned kMaxLog2Buckets = 30;

    // The bucket of `hash` among 2^log2Buckets buckets.
    static constexpr uint32_t bucketIndex(uint32_t hash, unsigned log2Buckets) {
        return log2Buckets == 0 ? 0u : hash >> (32 - log2Buckets);
    }

    explicit HashMapGeneric(unsigned log2Initial = 4, Hash hash = Hash(), Equal equal = Equal(),
                            Less less = Less())
        : hash_(std::move(hash)), equal_(std::move(equal)), less_(std::move(less)),
          log2_(std::min(log2Initial, kMaxLog2Buckets)), buckets_(size_t(1) << log2_) {}
    HashMapGeneric(HashMapGeneric const&) = delete;
    HashMapGeneric& operator=(HashMapGeneric const&) = delete;
    ~HashMapGeneric() { unlinkAll(); }

    // Unordered iteration, bucket by bucket. The iterator holds a reference
    // to its entry; erase(iterator) returns the position after it.
    class iterator {
    public:
        iterator() = default;
        Entry& operator*() const { return *entry_; }
        Entry* operator->() const { return entry_.ptr(); }
        iterator& operator++() {
            Ptr<Entry> next(static_cast<Entry*>(entry_->next_.ptr()));
            if (next) entry_ = std::move(next);
            else *this = map_->firstFrom(bucket_ + 1);
            return *this;
        }
        bool operator==(iterator const& o) const { return entry_ == o.entry_; }

    private:
        friend class HashMapGeneric;
        iterator(HashMapGeneric const* map, uint32_t bucket, Entry* e) : map_(map), bucket_(bucket), entry_(e) {}
        HashMapGeneric const* map_ = nullptr;
        uint32_t bucket_ = 0;
        Ptr<Entry> entry_;
    };

    iterator begin() const { return firstFrom(0); }
    iterator end() const { return iterator(); }

    uint32_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    uint32_t version() const { return version_; }
    unsigned log2BucketCount() const { return log2_; }
    uint32_t bucketCount() const { return uint32_t(1) << log2_; }
    uint32_t bucketOf(Key const& key) const { return bucketIndex(hash_(key), log2_); }

    // The entry for `key`, or null.
    Entry* find(Key const& key) const {
        uint32_t h = hash_(key);
        for (Base* e = buckets_[bucketIndex(h, log2_)].ptr(); e; e = e->next_.ptr()) {
            if (e->hash_ == h && equal_(e->key_, key)) return static_cast<Entry*>(e);
        }
        return nullptr;
    }
    // An iterator at `key`'s entry, or end().
    iterator iteratorAt(Key const& key) const {
        Entry* e = find(key);
        return e ? iterator(this, bucketIndex(e->hash_, log2_), e) : end();
    }

    // Inserts, or overwrites the value of an existing entry; returns the
    // entry. Leaves the map unchanged if hashing, allocation or growth throws.
    Entry* insert(Key const& key, Value const& value) {
        if (Entry* e = find(key)) {
            e->value_ = value;
            ++version_;
            return e;
        }
        Ptr<Entry> e = zelNew<Entry>(key, value);
        e->hash_ = hash_(key);
        if (size_ + 1 > bucketCount() && log2_ < kMaxLog2Buckets) rehash(log2_ + 1);
        Ptr<Base>& head = buckets_[bucketIndex(e->hash_, log2_)];
        e->next_ = std::move(head);
        head = e;
        ++size_;
        ++version_;
        return e.ptr();
    }

    // Removes `key`'s entry; false when there was none.
    bool erase(Key const& key) {
        Entry* e = find(key);
        if (!e) return false;
        unlink(e);
        return true;
    }
    // Removes the entry at `it` and returns the position after it.
    iterator erase(iterator it) {
        iterator next = it;
        ++next;
        unlink(it.entry_.ptr());
        return next;
    }

    void clear() {
        if (size_ == 0) return;
        unlinkAll();
        ++version_;
    }

    // A snapshot of the entries in key order (by Less). The snapshot keeps
    // its entries alive, so the map may be changed while walking it.
    std::vector<Ptr<Entry>> ordered() const {
        std::vector<Ptr<Entry>> out;
        out.reserve(size_);
        for (iterator it = begin(); it != end(); ++it) out.emplace_back(&*it);
        std::sort(out.begin(), out.end(),
                  [this](Ptr<Entry> const& a, Ptr<Entry> const& b) { return less_(a->key_, b->key_); });
        return out;
    }

private:
    iterator firstFrom(uint32_t bucket) const {
        for (uint32_t b = bucket; b < buckets_.size(); ++b) {
            if (buckets_[b]) return iterator(this, b, static_cast<Entry*>(buckets_[b].ptr()));
        }
        return end();
    }

    void unlink(Base* e) {
        Ptr<Base>* link = &buckets_[bucketIndex(e->hash_, log2_)];
        while (link->ptr() != e) link = &(*link)->next_;
        Ptr<Base> held = std::move(*link);   // keeps e alive while relinking
        *link = std::move(e->next_);
        --size_;
        ++version_;
    }

    // Releases entries one at a time: no recursion down long chains.
    void unlinkAll() {
        for (Ptr<Base>& head : buckets_) {
            while (head) {
                Ptr<Base> e = std::move(head);
                head = std::move(e->next_);
            }
        }
        size_ = 0;
    }

    void rehash(unsigned log2) {
        std::vector<Ptr<Base>> grown(size_t(1) << log2);   // may throw: nothing moved yet
        for (Ptr<Base>& head : buckets_) {
            while (head) {
                Ptr<Base> e = std::move(head);
                head = std::move(e->next_);
                Ptr<Base>& to = grown[bucketIndex(e->hash_, log2)];
                e->next_ = std::move(to);
                to = std::move(e);
            }
        }
        buckets_.swap(grown);
        log2_ = log2;
    }

    Hash hash_;
    Equal equal_;
    Less less_;
    unsigned log2_;
    std::vector<Ptr<Base>> buckets_;
    uint32_t size_ = 0;
    uint32_t version_ = 0;
};

} // namespace Zel
