// Described types used only by the runtime's tests: a value type with one
// field per builtin (FieldAttr) and an entity type reached through
// accessors (AccessorAttr), with attributes made to be refused.
#pragma once

#include "Zel/Attr.h"
#include "Zel/TypeOps.h"

namespace ZelTest {

using Zel::String8;

// Registered as "ZelTest::AllBuiltins".
struct AllBuiltins {
    String8 s;
    char c = 0;
    signed char sc = 0;
    unsigned char uc = 0;
    short sh = 0;
    unsigned short us = 0;
    int i = 0;
    unsigned int u = 0;
    long l = 0;
    unsigned long long ull = 0;
    long long ll = 0;
    float f = 0;
    double d = 0;
    bool b = false;

    bool operator==(AllBuiltins const&) const = default;

    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];
};

// Registered as "ZelTest::Gadget"; constructed from its label.
class Gadget : public Zel::PtrInterface {
public:
    explicit Gadget(String8 label) : label_(std::move(label)) {}
    Zel::ZelType const* fwkType() const override { return &_zelType; }

    String8 label() const { return label_; }          // read-only
    int level() const { return level_; }              // read-write
    void levelIs(int v) { level_ = v; }
    double ratio() const { return ratio_; }           // flagged writable, no setter
    bool flag() const { return flag_; }               // flagged deletable, no deleter
    void flagIs(bool b) { flag_ = b; }

    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];

private:
    String8 label_;
    int level_ = 0;
    double ratio_ = 0.5;
    bool flag_ = false;
};

// Attribute ids of Gadget.
enum GadgetAttr { kLabel = 1, kLevel, kRatio, kFlag };

} // namespace ZelTest
