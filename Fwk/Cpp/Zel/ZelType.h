// Type and attribute descriptors: immutable metadata, constant-initialised
// (so a descriptor is usable from any static initialiser, whatever the
// order), registered by name with typeNodeIs.
//
// A type is described declaratively beside its C++ class: one ZelType, an
// array of ZelAttr and, where it has them, a null-ended array of constructor
// arguments. Attribute behaviour lives in AttrHandler objects (Zel/Attr.h
// builds them from member pointers).
#pragma once

#include <cstdint>

#include <boost/container/small_vector.hpp>

#include "Zel/PtrInterface.h"
#include "Zel/String8.h"

namespace Zel {

class GenericIf;
class ZelAttr;
class ZelType;
class AttrHandler;
class AttributeIterator;

using AttributeId = int32_t;
using ArgVector = boost::container::small_vector<Ptr<GenericIf const>, 8>;

// A (name, type name) pair of a constructor, call or instantiating argument
// list; lists end with an entry whose name is null.
struct ArgDesc {
    char const* name;
    char const* typeName;
};

// How values of a type are made: from a native value at an address (a copy;
// for a pointer-owning type the address is the object itself; null gives the
// default value or a typed null) and from constructor arguments.
struct TypeOps {
    Ptr<GenericIf> (*make)(ZelType const* type, void const* value, bool isConst);
    Ptr<GenericIf> (*construct)(ZelType const* type, ArgVector const& args, bool isConst);
    uint32_t (*hash)(GenericIf const& g);
    String8 (*strep)(GenericIf const& g);
    bool (*equal)(GenericIf const& a, GenericIf const& b);
};

class ZEL_API ZelType {
public:
    enum Flag : uint16_t {
        isValue_ = 1u << 0,
        isEntity_ = 1u << 1,
        isConstrainer_ = 1u << 2,
        isBuiltinType_ = 1u << 3,
        isEnumType_ = 1u << 4,
        isBitSetType_ = 1u << 5,
        hasOwnPtrInterface_ = 1u << 6,
        hasAttrLogSupport_ = 1u << 7,
        isStreamAdapter_ = 1u << 8,
    };
    static constexpr uint8_t kNoPosition = 255;

    constexpr ZelType(char const* name, uint32_t size, ZelType const* base, uint16_t flags,
                      ZelAttr const* attrs, uint16_t attrCount, ArgDesc const* ctorArgs,
                      TypeOps const* ops, uint8_t valAttrPos = kNoPosition,
                      uint8_t defaultCollectionPos = kNoPosition)
        : name_(name), size_(size), base_(base), flags_(flags), attrs_(attrs),
          attrCount_(attrCount), ctorArgs_(ctorArgs), ops_(ops), valAttrPos_(valAttrPos),
          defaultCollectionPos_(defaultCollectionPos) {}
    ZelType(ZelType const&) = delete;
    ZelType& operator=(ZelType const&) = delete;

    char const* name() const { return name_; }
    uint32_t size() const { return size_; }
    ZelType const* baseType() const { return base_; }
    uint16_t flags() const { return flags_; }
    bool isValue() const { return flags_ & isValue_; }
    bool isEntity() const { return flags_ & isEntity_; }
    bool isConstrainer() const { return flags_ & isConstrainer_; }
    bool isBuiltinType() const { return flags_ & isBuiltinType_; }
    bool isEnumType() const { return flags_ & isEnumType_; }
    bool isBitSetType() const { return flags_ & isBitSetType_; }
    bool hasOwnPtrInterface() const { return flags_ & hasOwnPtrInterface_; }
    bool hasAttrLogSupport() const { return flags_ & hasAttrLogSupport_; }
    bool isStreamAdapter() const { return flags_ & isStreamAdapter_; }

    // The type's own attributes, in declaration order.
    ZelAttr const* attrs() const { return attrs_; }
    uint16_t attrCount() const { return attrCount_; }
    // Attribute by name or id: own attributes first, then the base types'.
    ZelAttr const* attr(char const* name) const;
    ZelAttr const* attr(AttributeId id) const;

    ArgDesc const* constructorArgs() const { return ctorArgs_; }
    unsigned constructorArgNames() const;
    uint8_t valAttrPosition() const { return valAttrPos_; }
    uint8_t defaultCollectionPosition() const { return defaultCollectionPos_; }
    ZelAttr const* valAttr() const;
    ZelAttr const* defaultCollection() const;

    // True when `other` is this type or one of its base types.
    bool isDerived(ZelType const* other) const;

    // A GenericIf of this type holding a copy of the native value at
    // `value` (for pointer-owning types: the object at `value`); null
    // gives the default value, or a typed null for pointer-owning types.
    Ptr<GenericIf> genericIf(void const* value, bool isConst) const;
    // Constructs a value or entity of this type from constructor arguments.
    Ptr<GenericIf> genericIf(ArgVector const& args, bool isConst) const;

    TypeOps const* ops() const { return ops_; }

private:
    char const* name_;
    uint32_t size_;
    ZelType const* base_;
    uint16_t flags_;
    ZelAttr const* attrs_;
    uint16_t attrCount_;
    ArgDesc const* ctorArgs_;
    TypeOps const* ops_;
    uint8_t valAttrPos_;
    uint8_t defaultCollectionPos_;
};

class ZEL_API ZelAttr {
public:
    enum Flag : uint32_t {
        readable_ = 1u << 0,
        writable_ = 1u << 1,
        isImmutable_ = 1u << 2,
        doesNotify_ = 1u << 3,
        isCollection_ = 1u << 4,
        isQueueCollection_ = 1u << 5,
        isStackCollection_ = 1u << 6,
        isStatic_ = 1u << 7,         // a constant of the type: same value for every object
        isFunction_ = 1u << 8,
        isPtr_ = 1u << 9,
        isDynArray_ = 1u << 10,
        isEnumConst_ = 1u << 11,
        instantiating_ = 1u << 12,
        isDeferredInstantiating_ = 1u << 13,
        anonymous_ = 1u << 14,
        isIndependentDomainAttr_ = 1u << 15,
        isLogging_ = 1u << 16,
        hasDataMember_ = 1u << 17,
        hasAutomanagedKey_ = 1u << 18,
        rawPtrInterface_ = 1u << 19,
        stored_ = 1u << 20,          // part of the value's state (not computed)
        directLookup_ = 1u << 21,    // keyed lookups may go straight to get
        deletable_ = 1u << 22,
        // Writes and deletes that the other flags do not permit reach the
        // handler, which refuses them as operation-not-supported: the
        // refusal of types whose attribute dispatch is their own (the
        // module's handle and clock notifiee) rather than the generic
        // not-writable / not-deletable one.
        handlerRefuses_ = 1u << 23,
    };

    constexpr ZelAttr(char const* name, AttributeId id, ZelType const* scope,
                      ZelType const* memberType, uint32_t flags, AttrHandler const* handler,
                      ZelType const* indexType = nullptr, ArgDesc const* args = nullptr,
                      char const* internalIndexName = nullptr,
                      int8_t instantiatingIndexPosition = -1)
        : name_(name), id_(id), scope_(scope), memberType_(memberType), indexType_(indexType),
          flags_(flags), handler_(handler), args_(args), internalIndexName_(internalIndexName),
          instantiatingIndexPosition_(instantiatingIndexPosition) {}
    ZelAttr(ZelAttr const&) = delete;
    ZelAttr& operator=(ZelAttr const&) = delete;

    char const* name() const { return name_; }
    AttributeId attributeId() const { return id_; }
    ZelType const* scope() const { return scope_; }
    // For a function: its result type, null when it returns nothing.
    ZelType const* memberType() const { return memberType_; }
    ZelType const* indexType() const { return indexType_; }
    uint32_t flags() const { return flags_; }
    bool has(Flag f) const { return flags_ & f; }
    bool readable() const { return flags_ & readable_; }
    bool writable() const { return flags_ & writable_; }
    bool isCollection() const { return flags_ & isCollection_; }
    bool isFunction() const { return flags_ & isFunction_; }
    bool instantiating() const { return flags_ & instantiating_; }
    bool doesNotify() const { return flags_ & doesNotify_; }
    bool isStored() const { return flags_ & stored_; }
    bool directLookup() const { return flags_ & directLookup_; }

    // Instantiating or call parameters (null-ended list) and their count.
    ArgDesc const* instantiatingArgs() const { return args_; }
    unsigned instantiatingArgNames() const;
    int8_t instantiatingIndexPosition() const { return instantiatingIndexPosition_; }
    // Name of the member-type attribute that keys the collection (its
    // internal index), or null.
    char const* internalIndexName() const { return internalIndexName_; }
    AttrHandler const* handler() const { return handler_; }

    // Reflective operations. `object` is the GenericIf of an object whose
    // type derives from scope(); index, key and value may be null where the
    // attribute kind allows it. Refusals throw the framework's exceptions.
    Ptr<GenericIf const> genericIfGet(GenericIf const* object, GenericIf const* index) const;
    void genericIfSet(GenericIf const* object, GenericIf const* index, GenericIf const* value) const;
    Ptr<GenericIf const> genericIfSet(GenericIf const* object, ArgVector const& args) const;
    void genericIfDel(GenericIf const* object, GenericIf const* index) const;
    bool genericIfExist(GenericIf const* object, GenericIf const* key) const;
    uint64_t genericIfMembers(GenericIf const* object) const;
    void genericIfAdd(GenericIf const* object, GenericIf const* value) const;
    Ptr<GenericIf const> genericIfAdd(GenericIf const* object, ArgVector const& args) const;
    Ptr<GenericIf const> genericIfRemove(GenericIf const* object) const;
    uint64_t genericIfVersion(GenericIf const* object) const;
    // At the first member (in key order for ordered collections), or at
    // `key` (not valid when the key is absent). See Zel/AttributeIterator.h.
    AttributeIterator genericIfIterator(GenericIf const* object) const;
    AttributeIterator genericIfIteratorKey(GenericIf const* object, GenericIf const* key) const;
    Ptr<GenericIf const> genericIfCall(GenericIf const* object, ArgVector const& args) const;
    // The allocation-free forms of genericIfGet / genericIfSet (null index)
    // for a singleton of a builtin member type (see AttrHandler::getNative
    // and setNative): same checks and refusals; null / false when the
    // attribute has no direct path (use the GenericIf forms then).
    void const* genericIfGetNative(GenericIf const* object, void* scratch) const;
    bool genericIfSetNative(GenericIf const* object, void const* in) const;
    // The same for a keyed look-up with a native key of indexType(): see
    // AttrHandler::lookupNative.
    bool genericIfLookupNative(GenericIf const* object, void const* key, void const*& member) const;
    // genericIfCall with native arguments and result: see
    // AttrHandler::callNative.
    bool genericIfCallNative(GenericIf const* object, void const* const* args, size_t count, void* result) const;

private:
    char const* name_;
    AttributeId id_;
    ZelType const* scope_;
    ZelType const* memberType_;
    ZelType const* indexType_;
    uint32_t flags_;
    AttrHandler const* handler_;
    ArgDesc const* args_;
    char const* internalIndexName_;
    int8_t instantiatingIndexPosition_;
};

// The type registry.
ZEL_API void typeNodeIs(ZelType const* type);
// Throws NoTypeNodeException for an unknown name.
ZEL_API ZelType const* typeNode(String8 const& name);
ZEL_API ZelType const* typeNodeOrNull(std::string_view name);
// Makes `alias` another name of `type` (such as "Zel::AttributeId" for int).
ZEL_API void typeNodeAliasIs(char const* alias, ZelType const* type);

// Registers a type from a static initialiser: `static TypeRegistration r(&T::_zelType);`
struct TypeRegistration {
    explicit TypeRegistration(ZelType const* t) { typeNodeIs(t); }
};

} // namespace Zel
