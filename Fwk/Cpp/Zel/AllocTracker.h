// AllocTracker: the allocation tracker seen through reflection. A process
// singleton entity ("Zel::AllocTracker") whose collection liveCount gives,
// by type name, the number of live tracked objects of that type, read from
// the tracker at the moment of the lookup.
#pragma once

#include "Zel/Entity.h"

namespace Zel {

class ZEL_API AllocTracker : public Entity {
public:
    explicit AllocTracker(Name name) : Entity(std::move(name)) {}
    ZelType const* fwkType() const override { return &_zelType; }

    static Ptr<AllocTracker> instance();

    // Throws RangeException for a type name the tracker has never seen.
    uint64_t liveCount(String8 const& typeName) const;

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];
};

} // namespace Zel
