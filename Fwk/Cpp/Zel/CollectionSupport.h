// What every collection attribute handler shares: turning an index into a
// key, reading the key a member carries (its internal index), telling the
// owner's notifiees, and making entity members children of their owner.
#pragma once

#include <type_traits>

#include "Zel/Attr.h"
#include "Zel/Entity.h"

namespace Zel {

[[noreturn]] ZEL_API void throwMissingKey(ZelAttr const& a, GenericIf const* index);
[[noreturn]] ZEL_API void throwNullIndex(ZelAttr const& a);
// The collection keys its members itself: an index must not be given.
[[noreturn]] ZEL_API void throwIndexGiven(ZelAttr const& a);
// The member's own key attribute (named by internalIndexName()).
ZEL_API Ptr<GenericIf const> internalKeyOf(ZelAttr const& a, GenericIf const* member);

// The key of type K held by `index`. A Name is accepted for a String8 key,
// since entities are keyed by their name.
template <class K>
K collectionKey(ZelAttr const& a, GenericIf const* index) {
    if (!index) throwNullIndex(a);
    if constexpr (std::is_same_v<K, String8>) {
        if (index->type() == &Name::_zelType) return static_cast<Name const*>(index->valuePtr())->value;
    }
    return GenericIfTraits<K>::from(index);
}

// The owner of a collection as an entity, or null for a value owner.
template <class C>
Entity* ownerEntity(C* self) {
    if constexpr (std::is_base_of_v<Entity, C>) return self;
    else return nullptr;
}

// Tells the owner's notifiees that the collection `a` changed; `value` is
// built only when somebody listens.
template <class C, class F>
void notifyCollection(C* self, ZelAttr const& a, F&& value) {
    if constexpr (std::is_base_of_v<PtrInterface, C>) {
        if (NotifieeList* l = self->notifieeList(false); l && !l->empty()) l->deliver(&a, value());
    }
}

// Entity members belong to the entity holding them.
template <class V>
void adoptMember(Entity* owner, V const& member, ZelAttr const& a) {
    if constexpr (requires { member->parentIs(owner, String8()); }) {
        if (owner && member) member->parentIs(owner, String8(a.name()));
    }
}
template <class V>
void releaseMember(Entity* owner, V const& member) {
    if constexpr (requires { member->parentIs(owner, String8()); }) {
        if (owner && member && member->parent() == owner) member->parentIs(nullptr, String8());
    }
}

} // namespace Zel
