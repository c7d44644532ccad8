#include "Zel/GenericIf.h"

#include "Zel/AttributeIterator.h"

namespace Zel {

PtrInterface* GenericIf::ptrInterface() const {
    throw TypeException(String8("a ") + type_->name() + " is not a Zel::PtrInterface");
}

ZelType const* GenericIf::fwkType() const { return type_; }

void GenericIf::typeCheck(ZelType const* t) const {
    if (type_ == t || type_->isDerived(t)) return;
    throw TypeException(String8("expected ") + t->name() + ", got " + type_->name());
}

void GenericIf::throwTypeMismatch(ZelType const* wanted) const {
    throw TypeException(String8("expected ") + wanted->name() + ", got " + type_->name());
}

Ptr<GenericIf> genericIfOf(PtrInterface const* object, bool isConst) {
    if (!object) throw RangeException("null object has no type");
    ZelType const* t = object->fwkType();
    if (!t) throw TypeException("object has no framework type");
    return zelNew<PtrGenericIf>(t, object, isConst);
}

AttrIteratorImpl::~AttrIteratorImpl() = default;

void AttrIteratorImpl::deleteCurrent() {
    throw OpNotSupportedException("this iterator cannot delete");
}

int AttrIteratorImpl::nextNative(void const*&, void const*&) { return -1; }

AttributeIterator::AttributeIterator() = default;
AttributeIterator::AttributeIterator(Ptr<GenericIf const> object, std::unique_ptr<AttrIteratorImpl> impl)
    : object_(std::move(object)), impl_(std::move(impl)) {}
AttributeIterator::AttributeIterator(AttributeIterator&&) noexcept = default;
AttributeIterator& AttributeIterator::operator=(AttributeIterator&&) noexcept = default;
AttributeIterator::~AttributeIterator() = default;

void AttributeIterator::checkValid() const {
    if (!valid()) throw RangeException("invalid iterator");
}

Ptr<GenericIf const> AttributeIterator::key() const {
    checkValid();
    return impl_->key();
}

Ptr<GenericIf const> AttributeIterator::value() const {
    checkValid();
    return impl_->value();
}

void AttributeIterator::reset() {
    impl_.reset();
    object_.reset();
}

} // namespace Zel
