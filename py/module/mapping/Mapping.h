// Zel::PyGenericIf::FwkPyGenericIfMapping: the process-wide cache behind
// the conversions between Python and framework values. It knows, per value
// type, which attribute stands for the whole value (defaultAttributeData),
// and, per enumerator, the interned Python string of its name
// (attributeData). Entries are made on first use and kept: type
// descriptions do not change while the process runs. Callers hold the
// interpreter lock, which serialises every access.
#pragma once

#include <functional>

#include "module/mapping/DefaultAttributeData.h"
#include "module/mapping/TypeAttributeIdKey.h"
#include "Zel/Entity.h"
#include "Zel/HashMapGeneric.h"
#include "ZelPy/PyObjHandle.h"

namespace Zel::PyGenericIf {

class ZEL_API FwkPyGenericIfMapping : public Entity {
public:
    // Enumerator keys hash to their low bits mostly; the map buckets by the
    // top bits, hence the reversal.
    struct KeyHash {
        uint32_t operator()(TypeAttributeIdKey const& k) const { return reverseBits(k.hash()); }
    };
    struct TypeLess {
        bool operator()(ZelType const* a, ZelType const* b) const {
            return reinterpret_cast<uintptr_t>(a) < reinterpret_cast<uintptr_t>(b);
        }
    };
    class ZelAttributeData : public HashMapEntry<TypeAttributeIdKey, Ptr<PyObjHandle>> {
    public:
        using HashMapEntry::HashMapEntry;
    };
    class ZelDefaultAttributeData : public HashMapEntry<ZelType const*, DefaultAttributeData> {
    public:
        using HashMapEntry::HashMapEntry;
    };
    using AttributeDataMap = HashMapGeneric<TypeAttributeIdKey, Ptr<PyObjHandle>, KeyHash,
                                            std::equal_to<TypeAttributeIdKey>, std::less<TypeAttributeIdKey>,
                                            ZelAttributeData>;
    using DefaultAttributeDataMap = HashMapGeneric<ZelType const*, DefaultAttributeData, PointerHashU32,
                                                   std::equal_to<ZelType const*>, TypeLess, ZelDefaultAttributeData>;

    explicit FwkPyGenericIfMapping(Name name);
    ~FwkPyGenericIfMapping() override;

    ZelType const* fwkType() const override { return &_zelType; }

    static FwkPyGenericIfMapping* global();

    // The rule of `type`; an inconsistent declaration comes back with valid
    // false and a message, never as an exception.
    DefaultAttributeData defaultAttributeData(ZelType const* type) const;
    // The interned name of enumerator key.id of enumeration key.typeptr, or
    // null. Needs the interpreter lock (it creates Python strings).
    Ptr<PyObjHandle> attributeData(TypeAttributeIdKey const& key) const;

    AttributeDataMap const& attributeDataMap() const { return attributeData_; }
    DefaultAttributeDataMap const& defaultAttributeDataMap() const { return defaultAttributeData_; }

    void attributeDataIs(TypeAttributeIdKey const& key, Ptr<PyObjHandle> const& handle) const;
    ZelAttributeData* newAttributeData(TypeAttributeIdKey const& key, Ptr<PyObjHandle> const& handle) const;
    void attributeDataDel(TypeAttributeIdKey const& key) const;
    AttributeDataMap::iterator attributeDataDel(AttributeDataMap::iterator it) const;
    void attributeDataDelAll() const;

    void defaultAttributeDataIs(ZelType const* type, DefaultAttributeData const& data) const;
    ZelDefaultAttributeData* newDefaultAttributeData(ZelType const* type, DefaultAttributeData const& data) const;
    void defaultAttributeDataDel(ZelType const* type) const;
    DefaultAttributeDataMap::iterator defaultAttributeDataDel(DefaultAttributeDataMap::iterator it) const;
    void defaultAttributeDataDelAll() const;

    // Nobody observes this cache.
    void attributeDataNotify(TypeAttributeIdKey const&) const {}
    void defaultAttributeDataNotify(ZelType const*) const {}

    unsigned zelAuditErrors() const { return 0; }

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];

private:
    DefaultAttributeData computeDefaultAttributeData(ZelType const* type) const;

    mutable AttributeDataMap attributeData_;
    mutable DefaultAttributeDataMap defaultAttributeData_;
};

ZEL_API Ptr<FwkPyGenericIfMapping> fwkPyGenericIfMappingFactory(Name const& name);

} // namespace Zel::PyGenericIf
