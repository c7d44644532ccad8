// Described types used only by the runtime's tests: a value type with one
// field per builtin (FieldAttr), an entity reached through accessors
// (AccessorAttr) with attributes made to be refused, an entity with one
// notifying attribute and a notifiee recording what it is told.
#pragma once

#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "Zel/Activity.h"
#include "Zel/Attr.h"
#include "Zel/Lock.h"
#include "Zel/TypeOps.h"

namespace ZelTest {

using namespace Zel;

template <auto F> inline constexpr Zel::FieldAttr<F> kField;
template <auto G, auto S = nullptr> inline constexpr Zel::AccessorAttr<G, S> kAccessor;

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

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];
};

inline constexpr Zel::TypeOps kAllBuiltinsOps = Zel::valueOps<AllBuiltins>();
inline constinit ZelType const AllBuiltins::_zelType("ZelTest::AllBuiltins", sizeof(AllBuiltins), nullptr,
                                                     ZelType::isValue_, AllBuiltins::_zelAttrs, 14, nullptr,
                                                     &kAllBuiltinsOps);
#define ZELTEST_FIELD(M, ID)                                                                                 \
    {#M, ID, &AllBuiltins::_zelType, &Zel::Builtin<decltype(AllBuiltins::M)>::_zelType,                      \
     ZelAttr::readable_ | ZelAttr::writable_ | ZelAttr::stored_, &kField<&AllBuiltins::M>}
inline constinit ZelAttr const AllBuiltins::_zelAttrs[] = {
    ZELTEST_FIELD(s, 1),   ZELTEST_FIELD(c, 2),    ZELTEST_FIELD(sc, 3), ZELTEST_FIELD(uc, 4),
    ZELTEST_FIELD(sh, 5),  ZELTEST_FIELD(us, 6),   ZELTEST_FIELD(i, 7),  ZELTEST_FIELD(u, 8),
    ZELTEST_FIELD(l, 9),   ZELTEST_FIELD(ull, 10), ZELTEST_FIELD(ll, 11), ZELTEST_FIELD(f, 12),
    ZELTEST_FIELD(d, 13),  ZELTEST_FIELD(b, 14),
};
#undef ZELTEST_FIELD

// Registered as "ZelTest::Gadget"; constructed from its label.
class Gadget : public Zel::PtrInterface {
public:
    explicit Gadget(String8 label) : label_(std::move(label)) {}
    ZelType const* fwkType() const override { return &_zelType; }

    String8 label() const { return label_; }          // read-only
    int level() const { return level_; }              // read-write
    void levelIs(int v) { level_ = v; }
    double ratio() const { return ratio_; }           // flagged writable, no setter
    bool flag() const { return flag_; }               // flagged deletable, no deleter
    void flagIs(bool b) { flag_ = b; }

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];

private:
    String8 label_;
    int level_ = 0;
    double ratio_ = 0.5;
    bool flag_ = false;
};

// Attribute ids of Gadget.
enum GadgetAttr { kLabel = 1, kLevel, kRatio, kFlag };

inline constexpr Zel::ArgDesc kGadgetCtor[] = {{"label", "Zel::String"}, {nullptr, nullptr}};
inline constexpr Zel::TypeOps kGadgetOps = Zel::entityOps<Gadget, String8>();
inline constinit ZelType const Gadget::_zelType("ZelTest::Gadget", sizeof(Gadget), &Zel::PtrInterface::_zelType,
                                                ZelType::isEntity_ | ZelType::hasOwnPtrInterface_,
                                                Gadget::_zelAttrs, 4, kGadgetCtor, &kGadgetOps);
inline constinit ZelAttr const Gadget::_zelAttrs[] = {
    {"label", kLabel, &Gadget::_zelType, &Zel::Builtin<String8>::_zelType, ZelAttr::readable_,
     &kAccessor<&Gadget::label>},
    {"level", kLevel, &Gadget::_zelType, &Zel::Builtin<int>::_zelType, ZelAttr::readable_ | ZelAttr::writable_,
     &kAccessor<&Gadget::level, &Gadget::levelIs>},
    {"ratio", kRatio, &Gadget::_zelType, &Zel::Builtin<double>::_zelType, ZelAttr::readable_ | ZelAttr::writable_,
     &kAccessor<&Gadget::ratio>},
    {"flag", kFlag, &Gadget::_zelType, &Zel::Builtin<bool>::_zelType,
     ZelAttr::readable_ | ZelAttr::writable_ | ZelAttr::deletable_, &kAccessor<&Gadget::flag, &Gadget::flagIs>},
};

inline Zel::TypeRegistration const rAllBuiltins(&AllBuiltins::_zelType);
inline Zel::TypeRegistration const rGadget(&Gadget::_zelType);

// An entity whose one attribute notifies each change.
class Gauge : public Zel::Entity {
public:
    explicit Gauge(Zel::Name n) : Entity(std::move(n)) {}
    ZelType const* fwkType() const override { return &_zelType; }
    int level() const { return level_; }
    void levelIs(int v) {
        level_ = v;
        notifyValue(&_zelAttrs[0], v);
    }
    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];

private:
    int level_ = 0;
};

inline constexpr Zel::ArgDesc kGaugeCtor[] = {{"name", "Zel::Name"}, {nullptr, nullptr}};
inline constexpr Zel::TypeOps kGaugeOps = Zel::entityOps<Gauge, Zel::Name>();
inline constinit ZelType const Gauge::_zelType("ZelTest::Gauge", sizeof(Gauge), &Zel::Entity::_zelType,
                                               ZelType::isEntity_ | ZelType::hasOwnPtrInterface_,
                                               Gauge::_zelAttrs, 1, kGaugeCtor, &kGaugeOps);
inline constinit ZelAttr const Gauge::_zelAttrs[] = {
    {"level", 256, &Gauge::_zelType, &Zel::Builtin<int>::_zelType,
     ZelAttr::readable_ | ZelAttr::writable_ | ZelAttr::doesNotify_, &kAccessor<&Gauge::level, &Gauge::levelIs>},
};

// Records the values it is given, and who held the activity lock, and runs
// an optional action after each.
class Recorder : public Zel::GenericIf::NotifieeConst {
public:
    explicit Recorder(Zel::Ptr<Gauge> g) : NotifieeConst(Zel::genericIfOf(g.ptr(), true)) {}
    void onAttribute(ZelAttr const*, Zel::Ptr<Zel::GenericIf const> const& v) override {
        seen.push_back(Zel::fromGenericIf<int>(v.ptr()));
        lockOwner = Zel::ActivityLockAnchor::lock()->owner();
        if (action) action();
    }
    std::vector<int> seen;
    pid_t lockOwner = 0;
    std::function<void()> action;
};

inline Zel::Ptr<Zel::ActivityManagerConfig> manager() { return Zel::ActivityFacility::activityManagerConfig(); }

inline std::string readFile(std::string const& path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

} // namespace ZelTest
