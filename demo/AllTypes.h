// Demo::AllTypes: an entity with one writable, notifying attribute of every
// builtin and demo value type, a nullable peer pointer and a read-only int.
#pragma once

#include "Zel/Entity.h"
#include "Zel/Values.h"
#include "demo/Color.h"
#include "demo/MacAddr.h"
#include "demo/Meters.h"
#include "demo/Opaque.h"
#include "demo/Point.h"
#include "demo/PyLiteral.h"

namespace Demo {

class ZEL_API AllTypes : public Zel::Entity {
public:
    explicit AllTypes(Zel::String8 const& name) : Entity(Zel::Name(name)) {}
    Zel::ZelType const* fwkType() const override { return &_zelType; }

    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];

    // The attribute state; public for the attribute handlers.
    Zel::String8 s8;
    char ch = 0;
    signed char i8 = 0;
    unsigned char u8 = 0;
    short i16 = 0;
    unsigned short u16 = 0;
    int i32 = 0;
    unsigned int u32 = 0;
    long l = 0;
    long long i64 = 0;
    unsigned long long u64 = 0;
    float f32 = 0;
    double f64 = 0;
    bool flag = false;
    Color color = Color::red;
    Point point;
    Meters length;
    MacAddr mac;
    PyLiteral literal;
    Opaque opaque;
    Zel::EntityUri uri;
    Zel::EntityUriPath uriPath;
    Zel::Name label;
    Zel::Ptr<AllTypes> peer;
    int readOnly = 42;
};

} // namespace Demo
