// Collection storage: the members of one collection attribute of one
// object, kept in key order (std::map), with a hash index for keyed
// look-ups where the key type has a hash (constant time at any size), and
// a version that grows on every change so that iterators can tell when
// their position must be found again.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "Zel/CollectionIndex.h"

namespace Zel {

template <class K, class V>
class Collection {
public:
    using Key = K;
    using Value = V;
    using Map = std::map<K, V>;

    Collection() = default;
    // The index points into this collection's own nodes: a copy builds its own.
    Collection(Collection const& o) : map_(o.map_), version_(o.version_) { reindex(); }
    Collection& operator=(Collection const& o) {
        if (this != &o) {
            map_ = o.map_;
            version_ = o.version_;
            reindex();
        }
        return *this;
    }
    Collection(Collection&&) noexcept = default;   // nodes (and the index) move along
    Collection& operator=(Collection&&) noexcept = default;

    Map const& map() const { return map_; }
    uint64_t version() const { return version_; }
    size_t size() const { return map_.size(); }
    bool empty() const { return map_.empty(); }

    V const* find(K const& k) const {
        if constexpr (kIndexedKey<K>) {
            typename Map::value_type* node = index_.find(k);
            return node ? &node->second : nullptr;
        } else {
            auto it = map_.find(k);
            return it == map_.end() ? nullptr : &it->second;
        }
    }
    // Inserts or replaces; returns the stored member.
    V const& set(K const& k, V v) {
        ++version_;
        auto [it, inserted] = map_.insert_or_assign(k, std::move(v));
        if constexpr (kIndexedKey<K>) {
            if (inserted) index_.insert(&*it);
        }
        return it->second;
    }
    // Returns the removed member, or nothing when `k` is absent (which is
    // not a change).
    std::optional<V> del(K const& k) {
        auto it = map_.find(k);
        if (it == map_.end()) return std::nullopt;
        std::optional<V> out(std::move(it->second));
        if constexpr (kIndexedKey<K>) index_.erase(k);
        map_.erase(it);
        ++version_;
        return out;
    }
    void clear() {
        if (map_.empty()) return;
        map_.clear();
        index_.clear();
        ++version_;
    }

private:
    void reindex() {
        if constexpr (kIndexedKey<K>) {
            index_.clear();
            for (auto& node : map_) index_.insert(&node);
        }
    }

    Map map_;
    uint64_t version_ = 0;
    // Unused (and empty) for keys without a hash.
    CollectionIndex<typename Map::value_type> index_;
};

// A queue: members added at the back and removed from the front. Stored as
// a collection keyed by an arrival number, so it shares the iterator.
template <class V>
class Queue {
public:
    using Store = Collection<uint64_t, V>;

    Store const& store() const { return store_; }
    uint64_t version() const { return store_.version(); }
    size_t size() const { return store_.size(); }
    bool empty() const { return store_.empty(); }

    void push(V v) { store_.set(next_++, std::move(v)); }
    std::optional<V> pop() {
        if (store_.empty()) return std::nullopt;
        return store_.del(store_.map().begin()->first);
    }
    void clear() { store_.clear(); }

private:
    Store store_;
    uint64_t next_ = 0;
};

} // namespace Zel
