// CollectionIndex: a hash index over the nodes of a Collection's ordered
// map, so that a keyed look-up costs the same at a thousand members as at
// a million (the map keeps key order for iteration; a tree descent at a
// million members is twenty dependent, badly predicted steps). Open
// addressing with linear probing over a power-of-two table of (hash, node)
// slots, at most half full; deletion shifts the following cluster back, so
// there are no tombstones. Map nodes never move, so the slots stay valid
// until their member is erased.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Zel/String8.h"

namespace Zel {

// Keys with a hash: integers and strings. Other key types go without an
// index (the map alone).
template <class K>
constexpr bool kIndexedKey = std::is_integral_v<K> || std::is_same_v<K, String8>;

template <class K>
uint64_t collectionKeyHash(K const& k) {
    uint64_t h;
    if constexpr (std::is_same_v<K, String8>) h = std::hash<std::string_view>()(k.view());
    else h = static_cast<uint64_t>(k);
    // Fibonacci mixing: consecutive keys spread over the whole table.
    return h * 0x9E3779B97F4A7C15ull;
}

template <class Node>
class CollectionIndex {
    using Key = std::remove_const_t<typename Node::first_type>;

public:
    Node* find(Key const& k) const {
        if (slots_.empty()) return nullptr;
        uint64_t const h = collectionKeyHash(k);
        for (size_t i = home(h);; i = next(i)) {
            Slot const& s = slots_[i];
            if (!s.node) return nullptr;
            if (s.hash == h && s.node->first == k) return s.node;
        }
    }
    // `node`'s key must not be indexed yet.
    void insert(Node* node) {
        if ((count_ + 1) * 2 > slots_.size()) grow();
        place(collectionKeyHash(node->first), node);
        ++count_;
    }
    void erase(Key const& k) {
        if (slots_.empty()) return;
        uint64_t const h = collectionKeyHash(k);
        size_t i = home(h);
        for (;; i = next(i)) {
            if (!slots_[i].node) return;
            if (slots_[i].hash == h && slots_[i].node->first == k) break;
        }
        // Shift back every later member of the cluster whose home does not
        // lie cyclically in (i, j]: it would no longer be found past the hole.
        for (size_t j = next(i);; j = next(j)) {
            if (!slots_[j].node) break;
            size_t const want = home(slots_[j].hash);
            bool const stays = i < j ? (i < want && want <= j) : (i < want || want <= j);
            if (stays) continue;
            slots_[i] = slots_[j];
            i = j;
        }
        slots_[i] = Slot();
        --count_;
    }
    void clear() {
        slots_.clear();
        count_ = 0;
    }

private:
    struct Slot {
        uint64_t hash = 0;
        Node* node = nullptr;   // null: empty
    };

    size_t home(uint64_t h) const { return static_cast<size_t>(h >> shift_); }
    size_t next(size_t i) const { return (i + 1) & (slots_.size() - 1); }

    void place(uint64_t h, Node* node) {
        size_t i = home(h);
        while (slots_[i].node) i = next(i);
        slots_[i] = Slot{h, node};
    }
    void grow() {
        std::vector<Slot> old;
        old.swap(slots_);
        size_t const size = old.empty() ? 16 : old.size() * 2;
        slots_.assign(size, Slot());
        shift_ = 64 - static_cast<unsigned>(__builtin_ctzll(size));
        for (Slot const& s : old) {
            if (s.node) place(s.hash, s.node);
        }
    }

    std::vector<Slot> slots_;
    size_t count_ = 0;
    unsigned shift_ = 64;
};

} // namespace Zel
