#include "module/mapping/Mapping.h"

#include <cstdlib>
#include <typeinfo>

#include "support/PyCompat.h"
#include "Zel/Attr.h"
#include "Zel/Demangle.h"
#include "Zel/TypeOps.h"

namespace Zel::PyGenericIf {

namespace {

FwkPyGenericIfMapping* gMapping = nullptr;

// The type's own default value, or null when its default constructor
// cannot be used.
Ptr<GenericIf const> defaultInstance(ZelType const* type) {
    Expect expect(Exception::idExpectAll);
    try {
        return Ptr<GenericIf const>(type->genericIf(nullptr, true));
    } catch (Exception const&) {
        return Ptr<GenericIf const>();
    }
}

DefaultAttributeData invalid(char const* literal, ZelType const* type) {
    DefaultAttributeData r;
    r.valid = false;
    r.errorMessage = String8(literal) + type->name();
    return r;
}

} // namespace

FwkPyGenericIfMapping::FwkPyGenericIfMapping(Name name) : Entity(std::move(name)) {}

FwkPyGenericIfMapping::~FwkPyGenericIfMapping() {
    // The handles release their strings under the interpreter lock.
    attributeData_.clear();
    defaultAttributeData_.clear();
}

FwkPyGenericIfMapping* FwkPyGenericIfMapping::global() {
    if (gMapping) return gMapping;
    Name name(demangledName(typeid(FwkPyGenericIfMapping)));
    Ptr<Entity> e = Entity::singletonExists(name) ? Entity::singleton(name) : Entity::singletonIs(&_zelType);
    // The singleton registry keeps the entity alive; no reference here.
    gMapping = dynamic_cast<FwkPyGenericIfMapping*>(e.ptr());
    return gMapping;
}

DefaultAttributeData FwkPyGenericIfMapping::defaultAttributeData(ZelType const* type) const {
    if (!type || !type->isValue()) return DefaultAttributeData();
    if (ZelDefaultAttributeData* e = defaultAttributeData_.find(type)) return e->value();
    DefaultAttributeData r = computeDefaultAttributeData(type);
    defaultAttributeDataIs(type, r);
    return r;
}

DefaultAttributeData FwkPyGenericIfMapping::computeDefaultAttributeData(ZelType const* type) const {
    DefaultAttributeData r;
    ZelAttr const* a = type->attr("defaultAttribute");
    ZelAttr const* b = type->attr("defaultReprAttribute");
    bool repr = b != nullptr;
    if (a && b) return invalid("Both 'defaultAttribute' and 'defaultReprAttribute' are defined for type ", type);
    if (!a && !b) {
        // Implicit rule: the designated attribute is the one stored attribute.
        ZelAttr const* designated = type->valAttr();
        if (!designated) return r;
        unsigned stored = 0;
        ZelAttr const* storedAttr = nullptr;
        for (unsigned i = 0; i < type->attrCount(); ++i) {
            if (type->attrs()[i].isStored()) {
                ++stored;
                storedAttr = &type->attrs()[i];
            }
        }
        if (stored != 1 || storedAttr != designated) return r;
        if (Ptr<GenericIf const> inst = defaultInstance(type)) {
            if (ZelAttr const* onDynamic = inst->type()->attr(designated->name())) {
                r.defaultId = onDynamic->attributeId();
            }
        }
        r.defaultType = designated->memberType();
        r.defaultAttr = designated;
        return r;
    }
    Ptr<GenericIf const> inst = defaultInstance(type);
    if (!inst) {
        return invalid(repr ? "defaultReprAttribute only works if the default constructor can be used for type "
                            : "defaultAttribute only works if the default constructor can be used for type ",
                       type);
    }
    ZelAttr const* declaring = repr ? b : a;
    Ptr<GenericIf const> nameValue = declaring->genericIfGet(inst.ptr(), nullptr);
    if (!nameValue || nameValue->type() != &Builtin<String8>::_zelType) return r;
    String8 const& n = *static_cast<String8 const*>(nameValue->valuePtr());
    ZelAttr const* chosen = type->attr(n.c_str());
    if (!chosen) {
        return invalid(repr ? "defaultReprAttribute does not refer to a known attribute for type "
                            : "defaultAttribute does not refer to a known attribute for type ",
                       type);
    }
    if (repr && chosen->memberType() != &Builtin<String8>::_zelType) {
        return invalid("defaultReprAttribute does not refer to a Zel::String for type ", type);
    }
    ZelAttr const* onDynamic = inst->type()->attr(n.c_str());
    r.defaultId = onDynamic ? onDynamic->attributeId() : chosen->attributeId();
    r.defaultType = chosen->memberType();
    r.defaultAttr = chosen;
    r.usePythonRepr = repr;
    ZelAttr const* used = type->attr("defaultAttributeUsedForAccessor");
    if (!used) return r;
    Ptr<GenericIf const> usedValue = used->genericIfGet(inst.ptr(), nullptr);
    if (!usedValue || usedValue->type() != &Builtin<bool>::_zelType) {
        return invalid("defaultAttributeUsedForAccessor is not a bool for type ", type);
    }
    r.defaultAttributeUsedForAccessor = *static_cast<bool const*>(usedValue->valuePtr());
    return r;
}

Ptr<PyObjHandle> FwkPyGenericIfMapping::attributeData(TypeAttributeIdKey const& key) const {
    if (ZelAttributeData* e = attributeData_.find(key)) return e->value();
    ZelType const* type = key.typeptr;
    if (!type || !type->isEnumType() || type->attrCount() == 0) return Ptr<PyObjHandle>();
    // The whole enumeration at once: later lookups of any of its values are
    // plain cache hits.
    Ptr<PyObjHandle> wanted;
    for (unsigned i = 0; i < type->attrCount(); ++i) {
        ZelAttr const& enumerator = type->attrs()[i];
        PyObject* s = Zel::compat::interned(enumerator.name());
        if (!s) {
            PyErr_Clear();
            throw MemoryException("No memory for enum string");
        }
        Ptr<PyObjHandle> h = pyObjHandleFactory(s, true);
        attributeDataIs(TypeAttributeIdKey(type, enumerator.attributeId()), h);
        if (enumerator.attributeId() == key.id) wanted = h;
    }
    return wanted;
}

void FwkPyGenericIfMapping::attributeDataIs(TypeAttributeIdKey const& key, Ptr<PyObjHandle> const& handle) const {
    if (ZelAttributeData* e = attributeData_.find(key)) {
        e->value() = handle;
    } else {
        newAttributeData(key, handle);
    }
    attributeDataNotify(key);
}

FwkPyGenericIfMapping::ZelAttributeData* FwkPyGenericIfMapping::newAttributeData(
    TypeAttributeIdKey const& key, Ptr<PyObjHandle> const& handle) const {
    return attributeData_.insert(key, handle);
}

void FwkPyGenericIfMapping::attributeDataDel(TypeAttributeIdKey const& key) const {
    if (attributeData_.erase(key)) attributeDataNotify(key);
}

FwkPyGenericIfMapping::AttributeDataMap::iterator FwkPyGenericIfMapping::attributeDataDel(
    AttributeDataMap::iterator it) const {
    TypeAttributeIdKey key = it->key();
    auto next = attributeData_.erase(it);
    attributeDataNotify(key);
    return next;
}

void FwkPyGenericIfMapping::attributeDataDelAll() const { attributeData_.clear(); }

void FwkPyGenericIfMapping::defaultAttributeDataIs(ZelType const* type, DefaultAttributeData const& data) const {
    if (ZelDefaultAttributeData* e = defaultAttributeData_.find(type)) {
        e->value() = data;
    } else {
        newDefaultAttributeData(type, data);
    }
    defaultAttributeDataNotify(type);
}

FwkPyGenericIfMapping::ZelDefaultAttributeData* FwkPyGenericIfMapping::newDefaultAttributeData(
    ZelType const* type, DefaultAttributeData const& data) const {
    return defaultAttributeData_.insert(type, data);
}

void FwkPyGenericIfMapping::defaultAttributeDataDel(ZelType const* type) const {
    if (defaultAttributeData_.erase(type)) defaultAttributeDataNotify(type);
}

FwkPyGenericIfMapping::DefaultAttributeDataMap::iterator FwkPyGenericIfMapping::defaultAttributeDataDel(
    DefaultAttributeDataMap::iterator it) const {
    ZelType const* type = it->key();
    auto next = defaultAttributeData_.erase(it);
    defaultAttributeDataNotify(type);
    return next;
}

void FwkPyGenericIfMapping::defaultAttributeDataDelAll() const { defaultAttributeData_.clear(); }

Ptr<FwkPyGenericIfMapping> fwkPyGenericIfMappingFactory(Name const& name) {
    Ptr<FwkPyGenericIfMapping> m = zelNew<FwkPyGenericIfMapping>(name);
    if (!m) throw RangeException("null ValidPtr");
    return m;
}

namespace {

// "attributeData": the enumerator-name cache, read by key.
class AttributeDataAttr final : public AttrHandler {
public:
    constexpr AttributeDataAttr() = default;
    Ptr<GenericIf const> get(ZelAttr const& a, GenericIf const& obj, GenericIf const* index) const override {
        auto const* self = selfOf<FwkPyGenericIfMapping>(obj);
        TypeAttributeIdKey const& key = GenericIfTraits<TypeAttributeIdKey>::from(index);
        auto* e = self->attributeDataMap().find(key);
        if (!e) throw RangeException(String8(a.name()) + ": no member " + valueToStrep(key));
        return GenericIfTraits<Ptr<PyObjHandle>>::to(e->value());
    }
    bool exist(ZelAttr const&, GenericIf const& obj, GenericIf const* key) const override {
        auto const* self = selfOf<FwkPyGenericIfMapping>(obj);
        return self->attributeDataMap().find(GenericIfTraits<TypeAttributeIdKey>::from(key)) != nullptr;
    }
    uint64_t members(ZelAttr const&, GenericIf const& obj) const override {
        return selfOf<FwkPyGenericIfMapping>(obj)->attributeDataMap().size();
    }
    uint64_t version(ZelAttr const&, GenericIf const& obj) const override {
        return selfOf<FwkPyGenericIfMapping>(obj)->attributeDataMap().version();
    }
};

class GlobalAttr final : public AttrHandler {
public:
    constexpr GlobalAttr() = default;
    Ptr<GenericIf const> call(ZelAttr const& a, GenericIf const&, ArgVector const& args) const override {
        if (!args.empty()) throwArgumentCount(a, 0, args.size());
        return GenericIfTraits<Ptr<FwkPyGenericIfMapping>>::to(Ptr<FwkPyGenericIfMapping>(FwkPyGenericIfMapping::global()));
    }
};

// Reflective construction goes through the factory like every creation.
Ptr<GenericIf> constructMapping(ZelType const* type, ArgVector const& args, bool isConst) {
    if (args.size() != 1) throwConstructorCount(type, 1, args.size());
    Ptr<FwkPyGenericIfMapping> m = fwkPyGenericIfMappingFactory(GenericIfTraits<Name>::from(args[0].ptr()));
    return makeObject(m->fwkType(), m.ptr(), isConst);
}

constexpr AttributeDataAttr kAttributeData;
constexpr GlobalAttr kGlobal;
constexpr ArgDesc kCtor[] = {{"name", "Zel::Name"}, {nullptr, nullptr}};
constexpr TypeOps kOps{&makeObject, &constructMapping, &objectHash, &objectStrep, &objectEqual};

} // namespace

constinit ZelType const FwkPyGenericIfMapping::_zelType(
    "Zel::PyGenericIf::FwkPyGenericIfMapping", sizeof(FwkPyGenericIfMapping), &Entity::_zelType,
    ZelType::isEntity_ | ZelType::hasOwnPtrInterface_, FwkPyGenericIfMapping::_zelAttrs, 2, kCtor, &kOps);
constinit ZelAttr const FwkPyGenericIfMapping::_zelAttrs[] = {
    {"attributeData", 258, &FwkPyGenericIfMapping::_zelType, &PyObjHandle::_zelType,
     ZelAttr::readable_ | ZelAttr::isCollection_ | ZelAttr::stored_, &kAttributeData,
     &TypeAttributeIdKey::_zelType},
    {"global", 260, &FwkPyGenericIfMapping::_zelType, &FwkPyGenericIfMapping::_zelType, ZelAttr::isFunction_,
     &kGlobal},
};

namespace {
// The value types first: the entity's description refers to them.
TypeRegistration const rDefaultAttributeData(&DefaultAttributeData::_zelType);
TypeRegistration const rTypeAttributeIdKey(&TypeAttributeIdKey::_zelType);
TypeRegistration const rMapping(&FwkPyGenericIfMapping::_zelType);
} // namespace

} // namespace Zel::PyGenericIf
