// AttrHandler: the behaviour behind one attribute descriptor, and handlers
// built from member pointers for the common attribute kinds. Handlers are
// stateless constant objects, referenced from ZelAttr descriptors:
//
//   constexpr Zel::AccessorAttr<&Intf::mtu, &Intf::mtuIs> kMtu;
//   ... ZelAttr("mtu", 131, &Intf::_zelType, &Builtin<int>::_zelType,
//               ZelAttr::readable_ | ZelAttr::writable_, &kMtu) ...
//
// An operation a handler does not implement is refused with
// OpNotSupportedException. ZelAttr's genericIf* members check the object's
// type, constness and the attribute's flags before calling a handler.
#pragma once

#include <tuple>
#include <type_traits>
#include <utility>

#include "Zel/Builtin.h"

namespace Zel {

class ZEL_API AttrHandler {
public:
    constexpr AttrHandler() = default;

    virtual Ptr<GenericIf const> get(ZelAttr const& a, GenericIf const& obj, GenericIf const* index) const;
    virtual void set(ZelAttr const& a, GenericIf const& obj, GenericIf const* index, GenericIf const* value) const;
    virtual Ptr<GenericIf const> setArgs(ZelAttr const& a, GenericIf const& obj, ArgVector const& args) const;
    virtual void del(ZelAttr const& a, GenericIf const& obj, GenericIf const* index) const;
    virtual bool exist(ZelAttr const& a, GenericIf const& obj, GenericIf const* key) const;
    virtual uint64_t members(ZelAttr const& a, GenericIf const& obj) const;
    virtual void add(ZelAttr const& a, GenericIf const& obj, GenericIf const* value) const;
    virtual Ptr<GenericIf const> addArgs(ZelAttr const& a, GenericIf const& obj, ArgVector const& args) const;
    virtual Ptr<GenericIf const> remove(ZelAttr const& a, GenericIf const& obj) const;
    virtual uint64_t version(ZelAttr const& a, GenericIf const& obj) const;
    virtual AttributeIterator iterator(ZelAttr const& a, GenericIf const& obj) const;
    virtual AttributeIterator iteratorKey(ZelAttr const& a, GenericIf const& obj, GenericIf const* key) const;
    virtual Ptr<GenericIf const> call(ZelAttr const& a, GenericIf const& obj, ArgVector const& args) const;

    // Direct access to a singleton of a builtin member type, with no
    // GenericIf made for the value. getNative returns where the native
    // value is: the member itself (valid while the activity lock is held
    // and nothing changes it) or `scratch`, a value of that type (String8
    // for Zel::String) the handler filled; null when it has no such path.
    // setNative takes a native value of that type; false when it has no
    // such path. Callers fall back to get / set.
    virtual void const* getNative(ZelAttr const& a, GenericIf const& obj, void* scratch) const;
    virtual bool setNative(ZelAttr const& a, GenericIf const& obj, void const* in) const;
    // Keyed look-up in a collection whose index and member types are
    // builtins, with a native key: `member` points at the stored member
    // (valid while the activity lock stays held and the collection does
    // not change) or is null when the key is absent. False when there is
    // no such path (use get / an iterator).
    virtual bool lookupNative(ZelAttr const& a, GenericIf const& obj, void const* key, void const*& member) const;
    // A call of a function whose parameters and result are builtins (or
    // that returns nothing), with native arguments (`args[i]` points at a
    // value of parameter i's type) and the result written to `result` (a
    // value of the result type; unused without a result). False when the
    // handler has no such path (use call).
    virtual bool callNative(ZelAttr const& a, GenericIf const& obj, void const* const* args, size_t count,
                            void* result) const;

protected:
    ~AttrHandler() = default;
    [[noreturn]] static void refuse(ZelAttr const& a, char const* operation);
};

// The C++ object behind `obj`, as a C. The caller (ZelAttr) has checked
// that obj's type derives from the attribute's scope, so the cast is safe.
template <class C>
C* selfOf(GenericIf const& obj) {
    void* p = obj.valuePtr();
    if constexpr (std::is_base_of_v<PtrInterface, C>) {
        if (!p) throw RangeException("null object");
        return static_cast<C*>(static_cast<PtrInterface*>(p));
    } else {
        return static_cast<C*>(p);
    }
}

namespace detail {
template <class M> struct MemberFn;
template <class C, class R, class... A> struct MemberFn<R (C::*)(A...)> {
    using Class = C; using Result = R; using Args = std::tuple<std::decay_t<A>...>;
};
template <class C, class R, class... A> struct MemberFn<R (C::*)(A...) const> {
    using Class = C; using Result = R; using Args = std::tuple<std::decay_t<A>...>;
};
template <class M> struct MemberField;
template <class C, class T> struct MemberField<T C::*> { using Class = C; using Type = T; };
} // namespace detail

// Read through a const getter, write (when given) through a setter.
template <auto Getter, auto Setter = nullptr>
class AccessorAttr final : public AttrHandler {
    using G = detail::MemberFn<decltype(Getter)>;
    using C = typename G::Class;
    using T = std::decay_t<typename G::Result>;
public:
    constexpr AccessorAttr() = default;
    Ptr<GenericIf const> get(ZelAttr const&, GenericIf const& obj, GenericIf const*) const override {
        return GenericIfTraits<T>::to((selfOf<C>(obj)->*Getter)());
    }
    void set(ZelAttr const& a, GenericIf const& obj, GenericIf const* index, GenericIf const* value) const override {
        // Decided by the parameter's type: comparing a member-function
        // pointer value with nullptr is not a constant expression for
        // every compiler configuration (GCC with -fsanitize=undefined).
        if constexpr (std::is_null_pointer_v<decltype(Setter)>) {
            AttrHandler::set(a, obj, index, value);
        } else {
            (selfOf<C>(obj)->*Setter)(GenericIfTraits<T>::from(value));
        }
    }
    void const* getNative(ZelAttr const&, GenericIf const& obj, void* scratch) const override {
        if constexpr (!IsBuiltin<T>::value) return nullptr;
        else *static_cast<T*>(scratch) = (selfOf<C>(obj)->*Getter)();
        return scratch;
    }
    bool setNative(ZelAttr const&, GenericIf const& obj, void const* in) const override {
        if constexpr (std::is_null_pointer_v<decltype(Setter)> || !IsBuiltin<T>::value) return false;
        else (selfOf<C>(obj)->*Setter)(*static_cast<T const*>(in));
        return true;
    }
};

// A public data member of a value type, read and written directly.
template <auto Field>
class FieldAttr final : public AttrHandler {
    using F = detail::MemberField<decltype(Field)>;
    using C = typename F::Class;
    using T = typename F::Type;
public:
    constexpr FieldAttr() = default;
    Ptr<GenericIf const> get(ZelAttr const&, GenericIf const& obj, GenericIf const*) const override {
        return GenericIfTraits<T>::to(selfOf<C>(obj)->*Field);
    }
    void set(ZelAttr const&, GenericIf const& obj, GenericIf const*, GenericIf const* value) const override {
        selfOf<C>(obj)->*Field = GenericIfTraits<T>::from(value);
    }
    void const* getNative(ZelAttr const&, GenericIf const& obj, void*) const override {
        if constexpr (!IsBuiltin<T>::value) return nullptr;
        else return &(selfOf<C>(obj)->*Field);
    }
    bool setNative(ZelAttr const&, GenericIf const& obj, void const* in) const override {
        if constexpr (!IsBuiltin<T>::value) return false;
        else selfOf<C>(obj)->*Field = *static_cast<T const*>(in);
        return true;
    }
};

// A constant string of the type (such as "defaultAttribute").
class ZEL_API ConstStringAttr final : public AttrHandler {
public:
    constexpr explicit ConstStringAttr(char const* text) : text_(text) {}
    Ptr<GenericIf const> get(ZelAttr const&, GenericIf const&, GenericIf const*) const override;
private:
    char const* text_;
};

// A constant bool of the type (such as "defaultAttributeUsedForAccessor").
class ZEL_API ConstBoolAttr final : public AttrHandler {
public:
    constexpr explicit ConstBoolAttr(bool value) : value_(value) {}
    Ptr<GenericIf const> get(ZelAttr const&, GenericIf const&, GenericIf const*) const override;
private:
    bool value_;
};

// A function attribute calling a member function: arguments are unwrapped by
// the member's parameter types, the result wrapped (void gives null).
template <auto Method>
class MethodAttr final : public AttrHandler {
    using M = detail::MemberFn<decltype(Method)>;
    using C = typename M::Class;
    using R = std::decay_t<typename M::Result>;
    using Args = typename M::Args;
public:
    constexpr MethodAttr() = default;
    Ptr<GenericIf const> call(ZelAttr const& a, GenericIf const& obj, ArgVector const& args) const override {
        constexpr size_t n = std::tuple_size_v<Args>;
        if (args.size() != n) wrongCount(a, n, args.size());
        return invoke(selfOf<C>(obj), args, std::make_index_sequence<n>());
    }
    bool callNative(ZelAttr const& a, GenericIf const& obj, void const* const* args, size_t count,
                    void* result) const override {
        if constexpr (!nativeCallable(std::make_index_sequence<std::tuple_size_v<Args>>())) {
            return false;
        } else {
            constexpr size_t n = std::tuple_size_v<Args>;
            if (count != n) wrongCount(a, n, count);
            invokeNative(selfOf<C>(obj), args, result, std::make_index_sequence<n>());
            return true;
        }
    }

private:
    template <size_t... I>
    static constexpr bool nativeCallable(std::index_sequence<I...>) {
        return (std::is_void_v<R> || IsBuiltin<R>::value) && (IsBuiltin<std::tuple_element_t<I, Args>>::value && ...);
    }
    template <size_t... I>
    static void invokeNative(C* self, void const* const* args, void* result, std::index_sequence<I...>) {
        if constexpr (std::is_void_v<R>) {
            (self->*Method)(*static_cast<std::tuple_element_t<I, Args> const*>(args[I])...);
        } else {
            *static_cast<R*>(result) = (self->*Method)(*static_cast<std::tuple_element_t<I, Args> const*>(args[I])...);
        }
    }
    template <size_t... I>
    static Ptr<GenericIf const> invoke(C* self, ArgVector const& args, std::index_sequence<I...>) {
        if constexpr (std::is_void_v<R>) {
            (self->*Method)(GenericIfTraits<std::tuple_element_t<I, Args>>::from(args[I].ptr())...);
            return Ptr<GenericIf const>();
        } else {
            return GenericIfTraits<R>::to(
                (self->*Method)(GenericIfTraits<std::tuple_element_t<I, Args>>::from(args[I].ptr())...));
        }
    }
    [[noreturn]] static void wrongCount(ZelAttr const& a, size_t want, size_t got);
};

[[noreturn]] ZEL_API void throwArgumentCount(ZelAttr const& a, size_t want, size_t got);

template <auto Method>
void MethodAttr<Method>::wrongCount(ZelAttr const& a, size_t want, size_t got) {
    throwArgumentCount(a, want, got);
}

} // namespace Zel
