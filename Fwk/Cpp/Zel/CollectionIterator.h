// The attribute iterator of a Collection, in key order. It remembers the key
// of its position; when the collection's version has moved on since it last
// looked, it finds its place again with lower_bound (or upper_bound once it
// has stepped past that key). So changes during iteration are safe: a
// removed current member leaves the iterator on the next one, members added
// ahead of the position are visited, those behind it are not.
#pragma once

#include "Zel/AttributeIterator.h"
#include "Zel/Builtin.h"
#include "Zel/Collection.h"

namespace Zel {

template <class K, class V, bool ExposeKey = true>
class CollectionIterator final : public AttrIteratorImpl {
    using Store = Collection<K, V>;
    using It = typename Store::Map::const_iterator;

public:
    // At the first member, or (with `at`) at that key: not valid when absent.
    CollectionIterator(Store const& store, K const* at = nullptr) : store_(store) {
        if (at) {
            it_ = store.map().find(*at);
            key_ = *at;
            missing_ = it_ == store.map().end();
        } else {
            it_ = store.map().begin();
            if (it_ != store.map().end()) key_ = it_->first;
        }
        version_ = store.version();
    }

    bool valid() const override { resync(); return !missing_ && it_ != store_.map().end(); }
    void advance() override {
        if (!valid()) return;
        key_ = it_->first;
        after_ = true;
        if (++it_ != store_.map().end()) {
            key_ = it_->first;
            after_ = false;
        }
    }
    Ptr<GenericIf const> key() const override {
        if constexpr (ExposeKey) return GenericIfTraits<K>::to(current()->first);
        else return Ptr<GenericIf const>();
    }
    Ptr<GenericIf const> value() const override { return GenericIfTraits<V>::to(current()->second); }
    int nextNative(void const*& key, void const*& member) override {
        if constexpr (!ExposeKey || !IsBuiltin<K>::value || !IsBuiltin<V>::value) {
            return -1;
        } else {
            if (!valid()) return 0;
            key = &it_->first;
            member = &it_->second;
            advance();   // the node stays where it is
            return 1;
        }
    }

private:
    It current() const {
        if (!valid()) throw RangeException("invalid iterator");
        return it_;
    }
    void resync() const {
        if (version_ == store_.version()) return;
        version_ = store_.version();
        auto const& m = store_.map();
        if (missing_) return;   // positioned at an absent key: stays invalid
        if (!key_) it_ = m.begin();
        else it_ = after_ ? m.upper_bound(*key_) : m.lower_bound(*key_);
        if (it_ != m.end()) {
            key_ = it_->first;
            after_ = false;
        }
    }

    Store const& store_;
    mutable It it_;
    mutable std::optional<K> key_;
    mutable bool after_ = false;
    mutable uint64_t version_ = 0;
    bool missing_ = false;
};

} // namespace Zel
