// AttributeIterator: a position in a collection attribute of one object. It
// keeps the object alive and owns its collection-specific implementation.
#pragma once

#include <memory>

#include "Zel/PtrInterface.h"
#include "Zel/Visibility.h"

namespace Zel {

class GenericIf;

class ZEL_API AttrIteratorImpl {
public:
    virtual ~AttrIteratorImpl();
    // Whether there is a current element.
    virtual bool valid() const = 0;
    virtual void advance() = 0;
    virtual Ptr<GenericIf const> key() const = 0;
    virtual Ptr<GenericIf const> value() const = 0;
    // Removes the current element and moves to the next one.
    virtual void deleteCurrent();
    // One step over a collection whose key and member types are builtins:
    // points `key` and `member` at the current element where it lies
    // (valid while the activity lock stays held and the collection does
    // not change) and moves past it. 1 stepped, 0 at the end, -1 no such
    // access (nothing done: use valid / key / value / advance).
    virtual int nextNative(void const*& key, void const*& member);
};

class ZEL_API AttributeIterator {
public:
    AttributeIterator();
    AttributeIterator(Ptr<GenericIf const> object, std::unique_ptr<AttrIteratorImpl> impl);
    AttributeIterator(AttributeIterator&&) noexcept;
    AttributeIterator& operator=(AttributeIterator&&) noexcept;
    ~AttributeIterator();

    AttrIteratorImpl* impl() const { return impl_.get(); }
    bool valid() const { return impl_ && impl_->valid(); }
    // Throws RangeException "invalid iterator" when there is no current element.
    void checkValid() const;
    void advance() { checkValid(); impl_->advance(); }
    Ptr<GenericIf const> key() const;
    Ptr<GenericIf const> value() const;
    void deleteCurrent() { checkValid(); impl_->deleteCurrent(); }
    // Drops the implementation and the object reference.
    void reset();

private:
    Ptr<GenericIf const> object_;
    std::unique_ptr<AttrIteratorImpl> impl_;
};

} // namespace Zel
