// TypeOps for described classes: how a type's values are made, constructed
// from arguments, hashed, printed and compared.
//
//   constexpr Zel::TypeOps kPointOps = Zel::valueOps<Point, int, int>();
//   constexpr Zel::TypeOps kSwitchOps = Zel::entityOps<Switch, Zel::String8>();
//
// The C++ types after the class are its constructor's parameter types, in
// the order of the type's constructor argument list.
#pragma once

#include <tuple>
#include <utility>

#include "Zel/Builtin.h"

namespace Zel {

// Reflective forms, from the type's readable, non-static singleton
// attributes: Value('Type', ** {'a': <strep>, ...}), a hash mixing the
// attributes' hashes, and attribute-wise equality.
ZEL_API String8 reflectiveStrep(GenericIf const& g);
ZEL_API uint32_t reflectiveHash(GenericIf const& g);
ZEL_API bool reflectiveEqual(GenericIf const& a, GenericIf const& b);
// Counted objects: printed as Ptr('Type', 0xaddress), hashed and compared
// by identity.
ZEL_API String8 objectStrep(GenericIf const& g);
ZEL_API uint32_t objectHash(GenericIf const& g);
ZEL_API bool objectEqual(GenericIf const& a, GenericIf const& b);

[[noreturn]] ZEL_API void throwConstructorCount(ZelType const* t, size_t want, size_t got);
[[noreturn]] ZEL_API void throwNoConstructor(ZelType const* t);

namespace detail {
template <class T, class... A, size_t... I>
T constructFrom(ArgVector const& args, std::index_sequence<I...>) {
    return T(GenericIfTraits<A>::from(args[I].ptr())...);
}
template <class T, class... A, size_t... I>
Ptr<T> newFrom(ArgVector const& args, std::index_sequence<I...>) {
    return zelNew<T>(GenericIfTraits<A>::from(args[I].ptr())...);
}
} // namespace detail

template <class T>
Ptr<GenericIf> makeValue(ZelType const* type, void const* value, bool isConst) {
    if (!value) return zelNew<ValueGenericIf<T>>(type, isConst);
    return zelNew<ValueGenericIf<T>>(type, *static_cast<T const*>(value), isConst);
}

template <class T, class... A>
Ptr<GenericIf> constructValue(ZelType const* type, ArgVector const& args, bool isConst) {
    if (args.empty() && sizeof...(A) != 0) {
        if constexpr (std::is_default_constructible_v<T>) return makeValue<T>(type, nullptr, isConst);
    }
    if (args.size() != sizeof...(A)) throwConstructorCount(type, sizeof...(A), args.size());
    return zelNew<ValueGenericIf<T>>(
        type, detail::constructFrom<T, A...>(args, std::index_sequence_for<A...>()), isConst);
}

template <class T>
bool valueEqual(GenericIf const& a, GenericIf const& b) {
    if constexpr (requires(T const& x) { x == x; }) {
        return *static_cast<T const*>(a.valuePtr()) == *static_cast<T const*>(b.valuePtr());
    } else {
        return reflectiveEqual(a, b);
    }
}

// A value type of C++ class T, constructible from arguments of types A...
template <class T, class... A>
constexpr TypeOps valueOps() {
    return TypeOps{&makeValue<T>, &constructValue<T, A...>, &reflectiveHash, &reflectiveStrep,
                   &valueEqual<T>};
}

ZEL_API Ptr<GenericIf> makeObject(ZelType const* type, void const* object, bool isConst);

template <class T, class... A>
Ptr<GenericIf> constructObject(ZelType const* type, ArgVector const& args, bool isConst) {
    if constexpr (sizeof...(A) == 0 && !std::is_default_constructible_v<T>) {
        throwNoConstructor(type);
    } else {
        if (args.size() != sizeof...(A)) throwConstructorCount(type, sizeof...(A), args.size());
        Ptr<T> obj = detail::newFrom<T, A...>(args, std::index_sequence_for<A...>());
        return makeObject(obj->fwkType(), obj.ptr(), isConst);
    }
}

// A counted (entity-like) type T, constructible from arguments of types A...
template <class T, class... A>
constexpr TypeOps entityOps() {
    return TypeOps{&makeObject, &constructObject<T, A...>, &objectHash, &objectStrep, &objectEqual};
}

// A counted type that reflection cannot construct.
ZEL_API extern TypeOps const kAbstractObjectOps;

} // namespace Zel
