// The fourteen builtin type descriptors.
#include "Zel/Builtin.h"

#include <cmath>
#include <cstring>

#include "Zel/Format.h"
#include "Zel/Strep.h"
#include "Zel/TypeOps.h"

namespace Zel {

namespace {

template <class T>
T const& held(GenericIf const& g) { return *static_cast<T const*>(g.valuePtr()); }

template <class T>
uint32_t builtinHash(GenericIf const& g) {
    T const& v = held<T>(g);
    if constexpr (std::is_same_v<T, String8>) {
        return v.hash();
    } else if constexpr (std::is_floating_point_v<T>) {
        double d = v == 0 ? 0.0 : static_cast<double>(v);   // -0.0 == 0.0
        uint64_t bits;
        std::memcpy(&bits, &d, sizeof bits);
        return zelHashU32(bits);
    } else {
        return zelHashU32(static_cast<uint64_t>(v));
    }
}

template <class T>
String8 builtinStrep(GenericIf const& g) { return valueToStrep(held<T>(g)); }

template <class T>
bool builtinEqual(GenericIf const& a, GenericIf const& b) { return held<T>(a) == held<T>(b); }

// A builtin is constructed from nothing (its zero) or from one argument of
// its own type.
template <class T>
Ptr<GenericIf> builtinConstruct(ZelType const* type, ArgVector const& args, bool isConst) {
    if (args.empty()) return makeValue<T>(type, nullptr, isConst);
    if (args.size() != 1) throwConstructorCount(type, 1, args.size());
    return makeValue<T>(type, &GenericIfTraits<T>::from(args[0].ptr()), isConst);
}

template <class T>
constexpr TypeOps builtinOps{&makeValue<T>, &builtinConstruct<T>, &builtinHash<T>, &builtinStrep<T>,
                             &builtinEqual<T>};

constexpr uint16_t kBuiltinFlags = ZelType::isValue_ | ZelType::isBuiltinType_;

} // namespace

#define ZEL_DEFINE_BUILTIN(T, NAME)                                                              \
    template <>                                                                                  \
    constinit ZelType const Builtin<T>::_zelType(NAME, sizeof(T), nullptr, kBuiltinFlags, nullptr, \
                                                 0, nullptr, &builtinOps<T>);

ZEL_DEFINE_BUILTIN(String8, "Zel::String")
ZEL_DEFINE_BUILTIN(char, "char")
ZEL_DEFINE_BUILTIN(signed char, "signed char")
ZEL_DEFINE_BUILTIN(unsigned char, "unsigned char")
ZEL_DEFINE_BUILTIN(short, "short")
ZEL_DEFINE_BUILTIN(unsigned short, "unsigned short")
ZEL_DEFINE_BUILTIN(int, "int")
ZEL_DEFINE_BUILTIN(unsigned int, "unsigned int")
ZEL_DEFINE_BUILTIN(long, "long")
ZEL_DEFINE_BUILTIN(unsigned long long, "unsigned long long")
ZEL_DEFINE_BUILTIN(long long, "long long")
ZEL_DEFINE_BUILTIN(float, "float")
ZEL_DEFINE_BUILTIN(double, "double")
ZEL_DEFINE_BUILTIN(bool, "bool")
#undef ZEL_DEFINE_BUILTIN

namespace {

struct RegisterBuiltins {
    RegisterBuiltins() {
        typeNodeIs(&Builtin<String8>::_zelType);
        typeNodeIs(&Builtin<char>::_zelType);
        typeNodeIs(&Builtin<signed char>::_zelType);
        typeNodeIs(&Builtin<unsigned char>::_zelType);
        typeNodeIs(&Builtin<short>::_zelType);
        typeNodeIs(&Builtin<unsigned short>::_zelType);
        typeNodeIs(&Builtin<int>::_zelType);
        typeNodeIs(&Builtin<unsigned int>::_zelType);
        typeNodeIs(&Builtin<long>::_zelType);
        typeNodeIs(&Builtin<unsigned long long>::_zelType);
        typeNodeIs(&Builtin<long long>::_zelType);
        typeNodeIs(&Builtin<float>::_zelType);
        typeNodeIs(&Builtin<double>::_zelType);
        typeNodeIs(&Builtin<bool>::_zelType);
        // Names the type descriptions use for builtins of other spellings.
        typeNodeAliasIs("Zel::String8", &Builtin<String8>::_zelType);
        typeNodeAliasIs("Zel::AttributeId", &Builtin<int>::_zelType);
        typeNodeAliasIs("U32", &Builtin<unsigned int>::_zelType);
        typeNodeAliasIs("U64", &Builtin<unsigned long long>::_zelType);
    }
} registerBuiltins;

} // namespace

} // namespace Zel
