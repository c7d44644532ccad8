#include "Zel/ZelType.h"

#include <cstring>
#include <map>
#include <mutex>
#include <string>

#include "Zel/Attr.h"
#include "Zel/GenericIf.h"

namespace Zel {

namespace {

struct Registry {
    std::mutex mutex;
    std::map<std::string, ZelType const*, std::less<>> byName;
};

Registry& registry() {
    static Registry* r = new Registry;   // outlives every static destructor
    return *r;
}

} // namespace

void typeNodeIs(ZelType const* type) {
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.mutex);
    r.byName[type->name()] = type;
}

void typeNodeAliasIs(char const* alias, ZelType const* type) {
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.mutex);
    r.byName[alias] = type;
}

ZelType const* typeNodeOrNull(std::string_view name) {
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.mutex);
    auto it = r.byName.find(name);
    return it == r.byName.end() ? nullptr : it->second;
}

ZelType const* typeNode(String8 const& name) {
    if (ZelType const* t = typeNodeOrNull(name.view())) return t;
    throw NoTypeNodeException("no type named " + name);
}

ZelAttr const* ZelType::attr(char const* name) const {
    if (!name) return nullptr;
    for (ZelType const* t = this; t; t = t->base_) {
        for (uint16_t i = 0; i < t->attrCount_; ++i) {
            char const* n = t->attrs_[i].name();
            if (n && std::strcmp(n, name) == 0) return &t->attrs_[i];
        }
    }
    return nullptr;
}

ZelAttr const* ZelType::attr(AttributeId id) const {
    for (ZelType const* t = this; t; t = t->base_) {
        for (uint16_t i = 0; i < t->attrCount_; ++i) {
            if (t->attrs_[i].attributeId() == id) return &t->attrs_[i];
        }
    }
    return nullptr;
}

unsigned ZelType::constructorArgNames() const {
    unsigned n = 0;
    if (ctorArgs_) while (ctorArgs_[n].name) ++n;
    return n;
}

ZelAttr const* ZelType::valAttr() const {
    return valAttrPos_ < attrCount_ ? &attrs_[valAttrPos_] : nullptr;
}

ZelAttr const* ZelType::defaultCollection() const {
    return defaultCollectionPos_ < attrCount_ ? &attrs_[defaultCollectionPos_] : nullptr;
}

bool ZelType::isDerived(ZelType const* other) const {
    for (ZelType const* t = this; t; t = t->base_) {
        if (t == other) return true;
    }
    return false;
}

Ptr<GenericIf> ZelType::genericIf(void const* value, bool isConst) const {
    return ops_->make(this, value, isConst);
}

Ptr<GenericIf> ZelType::genericIf(ArgVector const& args, bool isConst) const {
    return ops_->construct(this, args, isConst);
}

unsigned ZelAttr::instantiatingArgNames() const {
    unsigned n = 0;
    if (args_) while (args_[n].name) ++n;
    return n;
}

namespace {

// The checks every reflective operation makes before its handler runs.
void checkObject(ZelAttr const& a, GenericIf const* object) {
    if (!object) throw RangeException(String8("null object for attribute ") + a.name());
    ZelType const* t = object->type();
    if (t != a.scope() && !t->isDerived(a.scope())) {
        throw UnknownAttrException(String8("unknown attribute ") + a.name() + " for type " + t->name());
    }
}

void checkMutable(ZelAttr const& a, GenericIf const* object) {
    checkObject(a, object);
    if (object->isConst()) {
        throw ConstException(String8("cannot modify attribute ") + a.name() + " of a const " +
                             object->type()->name());
    }
}

void checkWritable(ZelAttr const& a, GenericIf const* object) {
    checkMutable(a, object);
    if (!a.writable() && !a.has(ZelAttr::handlerRefuses_)) throw NonwritableAttrException(String8("attribute ") + a.name() + " is not writable");
}

void checkReadable(ZelAttr const& a, GenericIf const* object) {
    checkObject(a, object);
    if (!a.readable()) throw OpNotSupportedException(String8("attribute ") + a.name() + " is not readable");
}

} // namespace

Ptr<GenericIf const> ZelAttr::genericIfGet(GenericIf const* object, GenericIf const* index) const {
    checkReadable(*this, object);
    return handler_->get(*this, *object, index);
}

void const* ZelAttr::genericIfGetNative(GenericIf const* object, void* scratch) const {
    checkReadable(*this, object);
    return handler_->getNative(*this, *object, scratch);
}

bool ZelAttr::genericIfLookupNative(GenericIf const* object, void const* key, void const*& member) const {
    checkReadable(*this, object);
    return handler_->lookupNative(*this, *object, key, member);
}

bool ZelAttr::genericIfSetNative(GenericIf const* object, void const* in) const {
    checkWritable(*this, object);
    return handler_->setNative(*this, *object, in);
}

void ZelAttr::genericIfSet(GenericIf const* object, GenericIf const* index, GenericIf const* value) const {
    checkWritable(*this, object);
    handler_->set(*this, *object, index, value);
}

Ptr<GenericIf const> ZelAttr::genericIfSet(GenericIf const* object, ArgVector const& args) const {
    checkWritable(*this, object);
    return handler_->setArgs(*this, *object, args);
}

void ZelAttr::genericIfDel(GenericIf const* object, GenericIf const* index) const {
    checkMutable(*this, object);
    if (!(flags_ & (deletable_ | handlerRefuses_))) {
        throw NondeletableAttrException(String8("attribute ") + name_ + " is not deletable");
    }
    handler_->del(*this, *object, index);
}

bool ZelAttr::genericIfExist(GenericIf const* object, GenericIf const* key) const {
    checkReadable(*this, object);
    return handler_->exist(*this, *object, key);
}

uint64_t ZelAttr::genericIfMembers(GenericIf const* object) const {
    checkReadable(*this, object);
    return handler_->members(*this, *object);
}

void ZelAttr::genericIfAdd(GenericIf const* object, GenericIf const* value) const {
    checkWritable(*this, object);
    handler_->add(*this, *object, value);
}

Ptr<GenericIf const> ZelAttr::genericIfAdd(GenericIf const* object, ArgVector const& args) const {
    checkWritable(*this, object);
    return handler_->addArgs(*this, *object, args);
}

Ptr<GenericIf const> ZelAttr::genericIfRemove(GenericIf const* object) const {
    checkMutable(*this, object);
    return handler_->remove(*this, *object);
}

uint64_t ZelAttr::genericIfVersion(GenericIf const* object) const {
    checkObject(*this, object);
    return handler_->version(*this, *object);
}

AttributeIterator ZelAttr::genericIfIterator(GenericIf const* object) const {
    checkReadable(*this, object);
    return handler_->iterator(*this, *object);
}

AttributeIterator ZelAttr::genericIfIteratorKey(GenericIf const* object, GenericIf const* key) const {
    checkReadable(*this, object);
    return handler_->iteratorKey(*this, *object, key);
}

Ptr<GenericIf const> ZelAttr::genericIfCall(GenericIf const* object, ArgVector const& args) const {
    checkObject(*this, object);
    if (!isFunction()) throw OpNotSupportedException(String8("attribute ") + name_ + " is not a function");
    return handler_->call(*this, *object, args);
}

bool ZelAttr::genericIfCallNative(GenericIf const* object, void const* const* args, size_t count,
                                  void* result) const {
    checkObject(*this, object);
    if (!isFunction()) throw OpNotSupportedException(String8("attribute ") + name_ + " is not a function");
    return handler_->callNative(*this, *object, args, count, result);
}

} // namespace Zel
