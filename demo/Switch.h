// Demo::Switch: an entity with one collection of every kind (instantiated
// entities keyed by their name or by an automatic number, ordered values, an
// enumeration-valued map, a queue) and function attributes of every shape.
#pragma once

#include "Zel/Collection.h"
#include "Zel/Entity.h"
#include "demo/Color.h"
#include "demo/Event.h"
#include "demo/Interface.h"

namespace Demo {

class ZEL_API Switch : public Zel::Entity {
public:
    explicit Switch(Zel::String8 const& name) : Entity(Zel::Name(name)) {}
    Zel::ZelType const* fwkType() const override { return &_zelType; }

    // Empties vlan, log and event.
    void reset();
    int add(int a, int b) { return a + b; }
    Zel::String8 describe() const;
    unsigned interfaceCount() const { return static_cast<unsigned>(intf.size()); }
    // Throws the exception named by `kind` (see demo/Switch.cpp).
    void fail(Zel::String8 const& kind, Zel::String8 const& message);

    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];

    // The collections; public for the attribute handlers.
    Zel::Collection<Zel::String8, Zel::Ptr<Interface>> intf;
    Zel::Collection<unsigned, Zel::Ptr<Event>> event;
    Zel::Collection<int, Zel::String8> vlan;
    Zel::Collection<Zel::String8, Color> color;
    Zel::Queue<Zel::String8> log;
};

} // namespace Demo
