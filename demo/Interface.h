// Demo::Interface: a network interface of a Switch, keyed there by its name.
#pragma once

#include "Zel/Entity.h"
#include "demo/MacAddr.h"

namespace Demo {

class ZEL_API Interface : public Zel::Entity {
public:
    explicit Interface(Zel::String8 const& name) : Entity(Zel::Name(name)) {}
    Zel::ZelType const* fwkType() const override { return &_zelType; }

    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];

    // The attribute state; public for the attribute handlers.
    int mtu = 1500;
    bool adminUp = false;
    MacAddr mac;
    Zel::String8 description;
    unsigned long long speed = 0;   // bits per second
    unsigned long long inOctets = 0;
};

} // namespace Demo
