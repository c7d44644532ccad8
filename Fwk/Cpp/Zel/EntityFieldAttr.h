// A data member of an entity as a singleton attribute: get reads it, set
// writes it, del (for deletable attributes) resets it to its default (null
// for a Ptr). When the attribute is flagged doesNotify_, a change that
// actually alters the member tells the entity's notifiees the new value.
//
//   constexpr Zel::EntityFieldAttr<&Interface::mtu_> kMtu;
#pragma once

#include "Zel/Attr.h"
#include "Zel/Notifiee.h"

namespace Zel {

template <auto Field>
class EntityFieldAttr final : public AttrHandler {
    using F = detail::MemberField<decltype(Field)>;
    using C = typename F::Class;
    using T = typename F::Type;

public:
    constexpr EntityFieldAttr() = default;
    Ptr<GenericIf const> get(ZelAttr const&, GenericIf const& obj, GenericIf const*) const override {
        return GenericIfTraits<T>::to(selfOf<C>(obj)->*Field);
    }
    void set(ZelAttr const& a, GenericIf const& obj, GenericIf const*, GenericIf const* value) const override {
        assign(a, selfOf<C>(obj), T(GenericIfTraits<T>::from(value)));
    }
    void del(ZelAttr const& a, GenericIf const& obj, GenericIf const*) const override {
        assign(a, selfOf<C>(obj), T());
    }
    void const* getNative(ZelAttr const&, GenericIf const& obj, void*) const override {
        if constexpr (!IsBuiltin<T>::value) return nullptr;
        else return &(selfOf<C>(obj)->*Field);
    }
    bool setNative(ZelAttr const& a, GenericIf const& obj, void const* in) const override {
        if constexpr (!IsBuiltin<T>::value) return false;
        else assign(a, selfOf<C>(obj), *static_cast<T const*>(in));
        return true;
    }

    // For the entity's own setters: the same change and notification.
    static void assign(ZelAttr const& a, C* self, T v) {
        if (self->*Field == v) return;
        self->*Field = std::move(v);
        if (!a.doesNotify()) return;
        if (NotifieeList* l = self->notifieeList(false); l && !l->empty()) {
            l->deliver(&a, GenericIfTraits<T>::to(self->*Field));
        }
    }
};

} // namespace Zel
