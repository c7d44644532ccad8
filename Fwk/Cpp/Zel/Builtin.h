// The fourteen builtin types, and the mapping from a C++ type to its
// framework type (ZelTypeOf) and to and from GenericIf (GenericIfTraits).
#pragma once

#include <type_traits>

#include "Zel/GenericIf.h"

namespace Zel {

// Builtin<T>::_zelType for T in: String8, char, signed char, unsigned char,
// short, unsigned short, int, unsigned int, long, unsigned long long,
// long long, float, double, bool. Named "Zel::String" for String8, else by
// the C++ spelling.
template <class T>
struct Builtin {
    ZEL_API static ZelType const _zelType;
};

template <class T> struct IsBuiltin : std::false_type {};
// Each type is declared here as an explicit specialization (defined in
// Builtin.cpp), so that no translation unit instantiates the primary
// template's undefined member.
#define ZEL_BUILTIN(T) \
    template <> struct IsBuiltin<T> : std::true_type {}; \
    template <> ZEL_API ZelType const Builtin<T>::_zelType;
ZEL_BUILTIN(String8)
ZEL_BUILTIN(char)
ZEL_BUILTIN(signed char)
ZEL_BUILTIN(unsigned char)
ZEL_BUILTIN(short)
ZEL_BUILTIN(unsigned short)
ZEL_BUILTIN(int)
ZEL_BUILTIN(unsigned int)
ZEL_BUILTIN(long)
ZEL_BUILTIN(unsigned long long)
ZEL_BUILTIN(long long)
ZEL_BUILTIN(float)
ZEL_BUILTIN(double)
ZEL_BUILTIN(bool)
#undef ZEL_BUILTIN

// The framework type of a C++ type: Builtin<T> for builtins, T::_zelType
// for described classes, the pointee's type for Ptr<T>. Enumerations
// specialise it beside their description.
template <class T, class = void>
struct ZelTypeOf {
    static ZelType const* get() { return &T::_zelType; }
};
template <class T>
struct ZelTypeOf<T, std::enable_if_t<IsBuiltin<T>::value>> {
    static ZelType const* get() { return &Builtin<T>::_zelType; }
};
template <class T>
struct ZelTypeOf<Ptr<T>> {
    static ZelType const* get() { return ZelTypeOf<std::remove_const_t<T>>::get(); }
};

// Moving C++ values in and out of GenericIf. Values are copied; counted
// objects travel as references (a null one as a typed null).
template <class T>
struct GenericIfTraits {
    static Ptr<GenericIf const> to(T const& v, bool isConst = false) {
        return zelNew<ValueGenericIf<T>>(ZelTypeOf<T>::get(), v, isConst);
    }
    static T const& from(GenericIf const* g) {
        ZelType const* want = ZelTypeOf<T>::get();
        if (!g) throw TypeException(String8("expected ") + want->name() + ", got a null value");
        if (g->type() != want) {
            throw TypeException(String8("expected ") + want->name() + ", got " + g->type()->name());
        }
        return *static_cast<T const*>(g->valuePtr());
    }
};
template <class T>
struct GenericIfTraits<Ptr<T>> {
    static Ptr<GenericIf const> to(Ptr<T> const& p, bool isConst = false) {
        ZelType const* t = p ? p->fwkType() : ZelTypeOf<std::remove_const_t<T>>::get();
        return zelNew<PtrGenericIf>(t, p.ptr(), isConst);
    }
    static Ptr<T> from(GenericIf const* g) {
        if (!g) return Ptr<T>();
        g->typeCheck(ZelTypeOf<std::remove_const_t<T>>::get());
        auto* pi = static_cast<PtrInterface*>(g->valuePtr());
        return Ptr<T>(static_cast<T*>(pi));
    }
};

template <class T>
Ptr<GenericIf const> toGenericIf(T const& v) { return GenericIfTraits<T>::to(v); }
template <class T>
decltype(auto) fromGenericIf(GenericIf const* g) { return GenericIfTraits<T>::from(g); }

} // namespace Zel
