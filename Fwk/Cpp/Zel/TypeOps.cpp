#include "Zel/TypeOps.h"

#include "Zel/Format.h"

namespace Zel {

namespace {

// The attributes that make up a value's state, in declaration order.
template <class F>
void forEachStateAttr(ZelType const* t, F&& f) {
    constexpr uint32_t skip = ZelAttr::isStatic_ | ZelAttr::isFunction_ | ZelAttr::isCollection_ |
                              ZelAttr::isEnumConst_;
    for (uint16_t i = 0; i < t->attrCount(); ++i) {
        ZelAttr const& a = t->attrs()[i];
        if (a.readable() && !(a.flags() & skip)) f(a);
    }
}

} // namespace

String8 reflectiveStrep(GenericIf const& g) {
    String8 out("Value('");
    out += g.type()->name();
    out += "', ** {";
    bool first = true;
    forEachStateAttr(g.type(), [&](ZelAttr const& a) {
        if (!first) out += ", ";
        first = false;
        out += '\'';
        out += a.name();
        out += "': ";
        Ptr<GenericIf const> v = a.genericIfGet(&g, nullptr);
        out += v ? v->strep() : String8("None");
    });
    out += "})";
    return out;
}

uint32_t reflectiveHash(GenericIf const& g) {
    uint32_t h = zelHashU32(g.type());
    forEachStateAttr(g.type(), [&](ZelAttr const& a) {
        Ptr<GenericIf const> v = a.genericIfGet(&g, nullptr);
        h = zelHashU32((uint64_t(h) << 32) | (v ? v->hash() : 0u));
    });
    return h;
}

bool reflectiveEqual(GenericIf const& x, GenericIf const& y) {
    if (x.type() != y.type()) return false;
    bool same = true;
    forEachStateAttr(x.type(), [&](ZelAttr const& a) {
        if (!same) return;
        Ptr<GenericIf const> vx = a.genericIfGet(&x, nullptr);
        Ptr<GenericIf const> vy = a.genericIfGet(&y, nullptr);
        same = (!vx && !vy) || (vx && vy && vx->equals(*vy));
    });
    return same;
}

String8 objectStrep(GenericIf const& g) {
    void* p = g.valuePtr();
    if (!p) return String8("None");
    return format("Ptr('%s', %p)", g.type()->name(), p);
}

uint32_t objectHash(GenericIf const& g) { return zelHashU32(g.valuePtr()); }

bool objectEqual(GenericIf const& a, GenericIf const& b) { return a.valuePtr() == b.valuePtr(); }

Ptr<GenericIf> makeObject(ZelType const* type, void const* object, bool isConst) {
    return zelNew<PtrGenericIf>(type, static_cast<PtrInterface const*>(object), isConst);
}

void throwConstructorCount(ZelType const* t, size_t want, size_t got) {
    throw TypeException(format("%s takes %zu constructor arguments, got %zu", t->name(), want, got));
}

void throwNoConstructor(ZelType const* t) {
    throw NoImplementationException(String8(t->name()) + " cannot be constructed by reflection");
}

namespace {
Ptr<GenericIf> refuseConstruct(ZelType const* type, ArgVector const&, bool) { throwNoConstructor(type); }
} // namespace

TypeOps const kAbstractObjectOps{&makeObject, &refuseConstruct, &objectHash, &objectStrep, &objectEqual};

} // namespace Zel
