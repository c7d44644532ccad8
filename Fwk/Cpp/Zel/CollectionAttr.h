// The handler of a keyed collection attribute over a Collection<K, V> data
// member (V a value, or Ptr<E> for entities). What the attribute descriptor
// says selects the behaviour:
//   internalIndexName()   members are keyed by that attribute of theirs;
//                         set and add take no index
//   instantiating_        set/add from arguments construct the member with
//                         the descriptor's args; instantiatingIndexPosition()
//                         tells which argument is the key
//   hasAutomanagedKey_    add numbers the members 1, 2, 3, ... (the key
//                         argument is supplied here)
// Every change grows the collection's version and notifies the owner with
// the key. Missing keys are refused with RangeException.
//
//   constexpr Zel::CollectionAttr<&Switch::vlan_> kVlan;
#pragma once

#include "Zel/CollectionIterator.h"
#include "Zel/CollectionSupport.h"

namespace Zel {

template <auto Member>
class CollectionAttr final : public AttrHandler {
    using F = detail::MemberField<decltype(Member)>;
    using C = typename F::Class;
    using Store = typename F::Type;
    using K = typename Store::Key;
    using V = typename Store::Value;

public:
    constexpr CollectionAttr() = default;

    Ptr<GenericIf const> get(ZelAttr const& a, GenericIf const& obj, GenericIf const* index) const override {
        V const* v = store(obj).find(collectionKey<K>(a, index));
        if (!v) throwMissingKey(a, index);
        return GenericIfTraits<V>::to(*v);
    }
    void set(ZelAttr const& a, GenericIf const& obj, GenericIf const* index, GenericIf const* value) const override {
        V v = memberOf(a, value);
        if (a.internalIndexName()) {
            if (index) throwIndexGiven(a);
            put(selfOf<C>(obj), a, collectionKey<K>(a, internalKeyOf(a, value).ptr()), std::move(v));
        } else {
            put(selfOf<C>(obj), a, collectionKey<K>(a, index), std::move(v));
        }
    }
    // Constructs the member from all its arguments; an existing member with
    // the same key is kept and returned.
    Ptr<GenericIf const> setArgs(ZelAttr const& a, GenericIf const& obj, ArgVector const& args) const override {
        if (!a.instantiating()) AttrHandler::setArgs(a, obj, args);
        int pos = keyArgPosition(a);
        if (pos >= 0 && size_t(pos) < args.size()) {
            K k = collectionKey<K>(a, args[pos].ptr());
            if (V const* v = store(obj).find(k)) return GenericIfTraits<V>::to(*v);
        }
        return instantiate(a, obj, args);
    }
    void del(ZelAttr const& a, GenericIf const& obj, GenericIf const* index) const override {
        erase(selfOf<C>(obj), a, collectionKey<K>(a, index));
    }
    bool lookupNative(ZelAttr const&, GenericIf const& obj, void const* key, void const*& member) const override {
        if constexpr (!IsBuiltin<K>::value || !IsBuiltin<V>::value) {
            return false;
        } else {
            member = store(obj).find(*static_cast<K const*>(key));
            return true;
        }
    }
    bool exist(ZelAttr const& a, GenericIf const& obj, GenericIf const* key) const override {
        return store(obj).find(collectionKey<K>(a, key)) != nullptr;
    }
    uint64_t members(ZelAttr const&, GenericIf const& obj) const override { return store(obj).size(); }
    uint64_t version(ZelAttr const&, GenericIf const& obj) const override { return store(obj).version(); }

    void add(ZelAttr const& a, GenericIf const& obj, GenericIf const* value) const override {
        V v = memberOf(a, value);
        if (a.internalIndexName()) {
            put(selfOf<C>(obj), a, collectionKey<K>(a, internalKeyOf(a, value).ptr()), std::move(v));
        } else if (a.has(ZelAttr::hasAutomanagedKey_)) {
            put(selfOf<C>(obj), a, nextKey(a, obj), std::move(v));
        } else {
            AttrHandler::add(a, obj, value);
        }
    }
    // Arguments without the key when the key is managed here.
    Ptr<GenericIf const> addArgs(ZelAttr const& a, GenericIf const& obj, ArgVector const& args) const override {
        if (!a.instantiating()) AttrHandler::addArgs(a, obj, args);
        int pos = a.instantiatingIndexPosition();
        if (a.has(ZelAttr::hasAutomanagedKey_) && pos >= 0 && size_t(pos) <= args.size()) {
            ArgVector full(args);
            full.insert(full.begin() + pos, GenericIfTraits<K>::to(nextKey(a, obj)));
            return instantiate(a, obj, full);
        }
        return instantiate(a, obj, args);
    }
    // Removes the first member in key order; null when empty.
    Ptr<GenericIf const> remove(ZelAttr const& a, GenericIf const& obj) const override {
        Store const& s = store(obj);
        if (s.empty()) return Ptr<GenericIf const>();
        Ptr<GenericIf const> out = GenericIfTraits<V>::to(s.map().begin()->second);
        erase(selfOf<C>(obj), a, s.map().begin()->first);
        return out;
    }
    AttributeIterator iterator(ZelAttr const&, GenericIf const& obj) const override {
        return AttributeIterator(&obj, std::make_unique<CollectionIterator<K, V>>(store(obj)));
    }
    AttributeIterator iteratorKey(ZelAttr const& a, GenericIf const& obj, GenericIf const* key) const override {
        K k = collectionKey<K>(a, key);
        return AttributeIterator(&obj, std::make_unique<CollectionIterator<K, V>>(store(obj), &k));
    }

    // For the owner's own code: changes that version and notify like the
    // reflective ones.
    static void put(C* self, ZelAttr const& a, K const& k, V v) {
        Store& s = self->*Member;
        if (V const* old = s.find(k)) releaseMember(ownerEntity(self), *old);
        adoptMember(ownerEntity(self), s.set(k, std::move(v)), a);
        notifyCollection(self, a, [&] { return GenericIfTraits<K>::to(k); });
    }
    static void erase(C* self, ZelAttr const& a, K const& k) {
        if (auto old = (self->*Member).del(k)) {
            releaseMember(ownerEntity(self), *old);
            notifyCollection(self, a, [&] { return GenericIfTraits<K>::to(k); });
        }
    }
    static void clear(C* self, ZelAttr const& a) {
        while (!(self->*Member).empty()) erase(self, a, (self->*Member).map().begin()->first);
    }

private:
    static Store& store(GenericIf const& obj) { return selfOf<C>(obj)->*Member; }

    // Which instantiating argument is the key: the recorded position, else
    // the argument named like the internal index; -1 when none is.
    static int keyArgPosition(ZelAttr const& a) {
        if (a.instantiatingIndexPosition() >= 0) return a.instantiatingIndexPosition();
        ArgDesc const* args = a.instantiatingArgs();
        char const* index = a.internalIndexName();
        for (int i = 0; index && args && args[i].name; ++i) {
            if (std::string_view(args[i].name) == index) return i;
        }
        return -1;
    }

    static V memberOf(ZelAttr const& a, GenericIf const* value) {
        if (!value) throw TypeException(String8(a.name()) + ": null member");
        return GenericIfTraits<V>::from(value);
    }

    static K nextKey(ZelAttr const& a, GenericIf const& obj) {
        if constexpr (std::is_integral_v<K>) {
            Store const& s = store(obj);
            return s.empty() ? K(1) : K(std::prev(s.map().end())->first + 1);
        } else {
            throw InternalException(String8(a.name()) + ": only integer keys can be numbered");
        }
    }

    Ptr<GenericIf const> instantiate(ZelAttr const& a, GenericIf const& obj, ArgVector const& args) const {
        Ptr<GenericIf const> made = a.memberType()->genericIf(args, false);
        int pos = a.instantiatingIndexPosition();
        K k = pos >= 0 ? collectionKey<K>(a, args[pos].ptr())
                       : collectionKey<K>(a, internalKeyOf(a, made.ptr()).ptr());
        put(selfOf<C>(obj), a, k, memberOf(a, made.ptr()));
        return made;
    }
};

} // namespace Zel
