#include "Zel/CollectionSupport.h"

namespace Zel {

void throwMissingKey(ZelAttr const& a, GenericIf const* index) {
    throw RangeException(String8(a.name()) + ": no member " + (index ? index->strep() : String8("None")));
}

void throwNullIndex(ZelAttr const& a) { throw TypeException(String8(a.name()) + ": an index is required"); }

void throwIndexGiven(ZelAttr const& a) {
    throw TypeException(String8(a.name()) + ": members are keyed by their " + a.internalIndexName() +
                        ", the index must be null");
}

Ptr<GenericIf const> internalKeyOf(ZelAttr const& a, GenericIf const* member) {
    if (!member) throw TypeException(String8(a.name()) + ": null member");
    ZelAttr const* k = member->type()->attr(a.internalIndexName());
    if (!k) {
        throw InternalException(String8(a.name()) + ": member type " + member->type()->name() +
                                " has no attribute " + a.internalIndexName());
    }
    return k->genericIfGet(member, nullptr);
}

} // namespace Zel
