// GenericIf: the reflective interface to one value or entity. A value's
// GenericIf holds its own copy of the value; an entity's holds a counted
// reference to the entity (or nothing: a typed null).
#pragma once

#include "Zel/AttributeIterator.h"
#include "Zel/Exception.h"
#include "Zel/ZelType.h"

namespace Zel {

template <class T> struct Builtin;

class ZEL_API GenericIf : public PtrInterface {
public:
    using AttributeIterator = Zel::AttributeIterator;
    class NotifieeConst;     // defined in Zel/Notifiee.h
    class Notifiee;

    // The dynamic type of the held value or entity.
    ZelType const* type() const { return type_; }
    bool isConst() const { return isConst_; }

    // A writable pointer to the held native value; for a pointer-owning
    // type, the held object itself (null for a typed null).
    virtual void* valuePtr() const = 0;
    // The held object as a PtrInterface; throws TypeException when the type
    // does not own a PtrInterface.
    virtual PtrInterface* ptrInterface() const;

    uint32_t hash() const { return type_->ops()->hash(*this); }
    // The string representation: builtins as literals, values as
    // constructor calls Value('Type', ** {...}), entities by address.
    String8 strep() const { return type_->ops()->strep(*this); }
    bool equals(GenericIf const& o) const {
        return type_ == o.type_ && type_->ops()->equal(*this, o);
    }

    // Throws TypeException unless the held object conforms to `t`.
    void typeCheck(ZelType const* t) const;

    // The held native value as a T; throws TypeException when the type is
    // not T's.
    template <class T> T* attrValPtr() const {
        if (type_ != &Builtin<T>::_zelType) throwTypeMismatch(&Builtin<T>::_zelType);
        return static_cast<T*>(valuePtr());
    }

    ZelType const* fwkType() const override;

protected:
    GenericIf(ZelType const* type, bool isConst) : type_(type), isConst_(isConst) {}
    [[noreturn]] void throwTypeMismatch(ZelType const* wanted) const;

private:
    ZelType const* type_;
    bool isConst_;
};

// The GenericIf of a value of C++ type T, held by copy.
template <class T>
class ValueGenericIf final : public GenericIf {
public:
    ValueGenericIf(ZelType const* type, bool isConst) : GenericIf(type, isConst), value_() {}
    ValueGenericIf(ZelType const* type, T const& v, bool isConst)
        : GenericIf(type, isConst), value_(v) {}
    ValueGenericIf(ZelType const* type, T&& v, bool isConst)
        : GenericIf(type, isConst), value_(std::move(v)) {}
    void* valuePtr() const override { return const_cast<T*>(&value_); }
    T& value() const { return const_cast<T&>(value_); }

private:
    T value_;
};

// The GenericIf of a pointer-owning type: a counted reference to the object.
class ZEL_API PtrGenericIf final : public GenericIf {
public:
    PtrGenericIf(ZelType const* type, PtrInterface const* object, bool isConst)
        : GenericIf(type, isConst), object_(const_cast<PtrInterface*>(object)) {}
    void* valuePtr() const override { return object_.ptr(); }
    PtrInterface* ptrInterface() const override { return object_.ptr(); }

private:
    Ptr<PtrInterface> object_;
};

// A GenericIf for a counted object, typed by the object's own fwkType().
ZEL_API Ptr<GenericIf> genericIfOf(PtrInterface const* object, bool isConst = false);

// The object held by `g` as a T (null for a null or typed-null GenericIf);
// throws TypeException when the held object is not a T.
template <class T>
T* objectOf(GenericIf const* g) {
    if (!g) return nullptr;
    void* p = g->valuePtr();
    if (!g->type()->hasOwnPtrInterface()) {
        throw TypeException(String8("expected ") + T::_zelType.name() + ", got " + g->type()->name());
    }
    if (!p) return nullptr;
    T* t = dynamic_cast<T*>(static_cast<PtrInterface*>(p));
    if (!t) throw TypeException(String8("expected ") + T::_zelType.name() + ", got " + g->type()->name());
    return t;
}

} // namespace Zel
