// The handler of a queue collection attribute over a Queue<V> data member:
// add appends at the back, remove takes from the front (null when empty),
// iteration runs front to back with null keys. Changes notify the owner with
// a null value.
//
//   constexpr Zel::CollectionQueueAttr<&Switch::log_> kLog;
#pragma once

#include "Zel/CollectionIterator.h"
#include "Zel/CollectionSupport.h"

namespace Zel {

template <auto Member>
class CollectionQueueAttr final : public AttrHandler {
    using F = detail::MemberField<decltype(Member)>;
    using C = typename F::Class;
    using Q = typename F::Type;
    using V = typename Q::Store::Value;

public:
    constexpr CollectionQueueAttr() = default;

    uint64_t members(ZelAttr const&, GenericIf const& obj) const override { return queue(obj).size(); }
    uint64_t version(ZelAttr const&, GenericIf const& obj) const override { return queue(obj).version(); }
    void add(ZelAttr const& a, GenericIf const& obj, GenericIf const* value) const override {
        if (!value) throw TypeException(String8(a.name()) + ": null member");
        push(selfOf<C>(obj), a, GenericIfTraits<V>::from(value));
    }
    Ptr<GenericIf const> remove(ZelAttr const& a, GenericIf const& obj) const override {
        C* self = selfOf<C>(obj);
        auto v = (self->*Member).pop();
        if (!v) return Ptr<GenericIf const>();
        releaseMember(ownerEntity(self), *v);
        notifyCollection(self, a, [] { return Ptr<GenericIf const>(); });
        return GenericIfTraits<V>::to(*v);
    }
    AttributeIterator iterator(ZelAttr const&, GenericIf const& obj) const override {
        return AttributeIterator(&obj, std::make_unique<CollectionIterator<uint64_t, V, false>>(queue(obj).store()));
    }

    static void push(C* self, ZelAttr const& a, V v) {
        adoptMember(ownerEntity(self), v, a);
        (self->*Member).push(std::move(v));
        notifyCollection(self, a, [] { return Ptr<GenericIf const>(); });
    }
    static void clear(C* self, ZelAttr const& a) {
        if ((self->*Member).empty()) return;
        (self->*Member).clear();
        notifyCollection(self, a, [] { return Ptr<GenericIf const>(); });
    }

private:
    static Q& queue(GenericIf const& obj) { return selfOf<C>(obj)->*Member; }
};

} // namespace Zel
