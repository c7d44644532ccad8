#include "Zel/Entity.h"

#include <cstring>
#include <map>
#include <mutex>

#include "Zel/Attr.h"
#include "Zel/Dir.h"
#include "Zel/TypeOps.h"

namespace Zel {

constinit ZelType const PtrInterface::_zelType("Zel::PtrInterface", sizeof(PtrInterface), nullptr,
                                               ZelType::hasOwnPtrInterface_, nullptr, 0, nullptr,
                                               &kAbstractObjectOps);

Entity::Entity(Name name) : name_(std::move(name)) {}

Entity::~Entity() { delete notifiees_; }

NotifieeList* Entity::notifieeList(bool create) const {
    if (!notifiees_ && create) notifiees_ = new NotifieeList;
    return notifiees_;
}

Name Entity::fullName() const {
    if (!parent_) return name_;
    String8 path;
    Entity const* e = this;
    for (; e->parent_; e = e->parent_) path = "/" + e->name_.value + path;
    // The tree's top contributes its name unless it is the global root "/",
    // so a switch "sw1" outside the global Dir still names its interfaces
    // "/sw1/eth1".
    if (e->name_.value != "/") path = "/" + e->name_.value + path;
    return Name(path);
}

namespace {

struct Singletons {
    std::mutex mutex;
    std::map<String8, Ptr<Entity>> byType;
};

// Singletons live for the process: their registry is never destroyed, so
// no singleton is torn down after the code it needs has been unloaded.
Singletons& singletons() {
    static Singletons* s = new Singletons;
    return *s;
}

} // namespace

Ptr<Entity> Entity::singleton(Name const& typeName) {
    Singletons& s = singletons();
    std::lock_guard<std::mutex> g(s.mutex);
    auto it = s.byType.find(typeName.value);
    return it == s.byType.end() ? Ptr<Entity>() : it->second;
}

bool Entity::singletonExists(Name const& typeName) { return bool(singleton(typeName)); }

void Entity::singletonIs(Ptr<Entity> const& entity) {
    Singletons& s = singletons();
    std::lock_guard<std::mutex> g(s.mutex);
    s.byType[entity->fwkType()->name()] = entity;
}

Ptr<Entity> Entity::singletonIs(ZelType const* type) {
    if (Ptr<Entity> e = singleton(Name(type->name()))) return e;
    // Built by reflection; a one-argument constructor gets the type name.
    ArgVector args;
    if (ArgDesc const* a = type->constructorArgs(); a && a[0].name) {
        // Compared by name, not through the registry: singletons may be made
        // from static initialisers, before every type is registered.
        if (std::strcmp(a[0].typeName, Name::_zelType.name()) == 0) {
            args.push_back(GenericIfTraits<Name>::to(Name(type->name())));
        } else {
            args.push_back(GenericIfTraits<String8>::to(String8(type->name())));
        }
    }
    Ptr<GenericIf> g = type->genericIf(args, false);
    Ptr<Entity> e(objectOf<Entity>(g.ptr()));
    if (!e) throw TypeException(String8("singleton type is not an entity: ") + type->name());
    Singletons& s = singletons();
    std::lock_guard<std::mutex> lock(s.mutex);
    auto [it, inserted] = s.byType.emplace(String8(type->name()), e);
    return it->second;
}

namespace {
constexpr AccessorAttr<&Entity::name> kName;
constexpr AccessorAttr<&Entity::fullName> kFullName;
constexpr AccessorAttr<&Entity::parentAttrName> kParentAttrName;

// The parent as a counted reference (the entity keeps only a raw pointer).
class ParentAttr final : public AttrHandler {
public:
    constexpr ParentAttr() = default;
    Ptr<GenericIf const> get(ZelAttr const&, GenericIf const& obj, GenericIf const*) const override {
        return GenericIfTraits<Ptr<Entity>>::to(Ptr<Entity>(selfOf<Entity>(obj)->parent()));
    }
};
constexpr ParentAttr kParent;

constexpr ArgDesc kCtor[] = {{"name", "Zel::Name"}, {nullptr, nullptr}};
constexpr ArgDesc kNoCtor[] = {{nullptr, nullptr}};
constexpr TypeOps kOps = entityOps<Entity, Name>();
constexpr uint32_t kReadOnly = ZelAttr::readable_ | ZelAttr::isImmutable_;
} // namespace

constinit ZelType const Entity::_zelType("Zel::Entity", sizeof(Entity), &PtrInterface::_zelType,
                                         ZelType::isEntity_ | ZelType::hasOwnPtrInterface_,
                                         Entity::_zelAttrs, 5, kCtor, &kOps);
constinit ZelAttr const Entity::_zelAttrs[] = {
    {"name", 130, &Entity::_zelType, &Name::_zelType, kReadOnly | ZelAttr::stored_, &kName},
    {"parent", 138, &Entity::_zelType, &Entity::_zelType, kReadOnly | ZelAttr::isPtr_, &kParent},
    {"parentAttrName", 139, &Entity::_zelType, &Builtin<String8>::_zelType, kReadOnly, &kParentAttrName},
    {"fullName", 141, &Entity::_zelType, &Name::_zelType, kReadOnly, &kFullName},
    {"entity", 143, &Entity::_zelType, &Entity::_zelType, ZelAttr::readable_ | ZelAttr::isCollection_,
     &kEntityChildrenAttr, &Builtin<String8>::_zelType},
};

constinit ZelType const Entity::NotifieeConst::_zelType(
    "Zel::Entity::NotifieeConst", sizeof(Entity::NotifieeConst), &PtrInterface::NotifieeConst::_zelType,
    ZelType::isEntity_ | ZelType::hasOwnPtrInterface_, nullptr, 0, kNoCtor, &kAbstractObjectOps);

namespace {
TypeRegistration const rPtrInterface(&PtrInterface::_zelType);
TypeRegistration const rEntity(&Entity::_zelType);
TypeRegistration const rEntityNotifiee(&Entity::NotifieeConst::_zelType);
} // namespace

} // namespace Zel
