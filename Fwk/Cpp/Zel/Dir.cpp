#include "Zel/Dir.h"

#include "Zel/CollectionAttr.h"
#include "Zel/TypeOps.h"

namespace Zel {

namespace {
using ChildrenAttr = CollectionAttr<&Dir::entity_>;
constexpr ChildrenAttr kChildren;
constexpr MethodAttr<&Dir::newDir> kNewDir;
constexpr MethodAttr<&Dir::newEntity> kNewEntity;
constexpr ArgDesc kCtor[] = {{"name", "Zel::Name"}, {nullptr, nullptr}};
constexpr ArgDesc kNewDirArgs[] = {{"name", "Zel::String"}, {nullptr, nullptr}};
constexpr ArgDesc kNewEntityArgs[] = {{"name", "Zel::String"}, {"typeName", "Zel::String"}, {nullptr, nullptr}};
constexpr TypeOps kOps = entityOps<Dir, Name>();
constexpr uint32_t kFunction = ZelAttr::isFunction_;
} // namespace

constinit EntityChildrenAttr const kEntityChildrenAttr;

constinit ZelType const Dir::_zelType("Zel::Dir", sizeof(Dir), &Entity::_zelType,
                                      ZelType::isEntity_ | ZelType::hasOwnPtrInterface_, Dir::_zelAttrs, 3,
                                      kCtor, &kOps, ZelType::kNoPosition, 0);
constinit ZelAttr const Dir::_zelAttrs[] = {
    {"entity", 143, &Dir::_zelType, &Entity::_zelType,
     ZelAttr::readable_ | ZelAttr::writable_ | ZelAttr::deletable_ | ZelAttr::isCollection_ |
         ZelAttr::doesNotify_ | ZelAttr::directLookup_,
     &kChildren, &Builtin<String8>::_zelType, nullptr, "name"},
    {"newDir", 144, &Dir::_zelType, &Dir::_zelType, kFunction, &kNewDir, nullptr, kNewDirArgs},
    {"newEntity", 145, &Dir::_zelType, &Entity::_zelType, kFunction, &kNewEntity, nullptr, kNewEntityArgs},
};

Dir::~Dir() {
    for (auto const& [name, child] : entity_.map()) {
        if (child->parent() == this) child->parentIs(nullptr, String8());
    }
}

Ptr<Entity> Dir::entity(String8 const& name) const {
    Ptr<Entity> const* e = entity_.find(name);
    return e ? *e : Ptr<Entity>();
}

void Dir::entityIs(Ptr<Entity> const& child) {
    if (!child) throw TypeException("entity: null member");
    ChildrenAttr::put(this, _zelAttrs[0], child->name().value, child);
}

void Dir::entityDel(String8 const& name) { ChildrenAttr::erase(this, _zelAttrs[0], name); }

Ptr<Dir> Dir::newDir(String8 const& name) {
    return Ptr<Dir>(static_cast<Dir*>(newEntity(name, "Zel::Dir").ptr()));
}

Ptr<Entity> Dir::newEntity(String8 const& name, String8 const& typeName) {
    ZelType const* type = typeNode(typeName);
    if (!type->isEntity()) throw TypeException("not an entity type: " + typeName);
    if (Ptr<Entity> old = entity(name)) {
        if (old->fwkType() != type) throw NameInUseException("name in use: " + name);
        return old;
    }
    // The first constructor argument is the name, as a Name or a string.
    ArgVector args;
    ArgDesc const* a = type->constructorArgs();
    if (a && a[0].name && typeNode(a[0].typeName) == &Name::_zelType) {
        args.push_back(GenericIfTraits<Name>::to(Name(name)));
    } else {
        args.push_back(GenericIfTraits<String8>::to(name));
    }
    Ptr<Entity> e(objectOf<Entity>(type->genericIf(args, false).ptr()));
    entityIs(e);
    return e;
}

Ptr<Dir> globalDir() {
    // Never destroyed: entities anywhere may point into the tree until exit.
    static Dir* const root = zelNew<Dir>(Name("/")).release();
    return Ptr<Dir>(root);
}

namespace {
Dir* dirOf(GenericIf const& obj) { return dynamic_cast<Dir*>(selfOf<Entity>(obj)); }
} // namespace

Ptr<GenericIf const> EntityChildrenAttr::get(ZelAttr const& a, GenericIf const& obj, GenericIf const* index) const {
    if (dirOf(obj)) return kChildren.get(a, obj, index);
    throwMissingKey(a, index);
}
bool EntityChildrenAttr::exist(ZelAttr const& a, GenericIf const& obj, GenericIf const* key) const {
    Dir* d = dirOf(obj);
    return d && kChildren.exist(a, obj, key);
}
uint64_t EntityChildrenAttr::members(ZelAttr const&, GenericIf const& obj) const {
    Dir* d = dirOf(obj);
    return d ? d->entity_.size() : 0;
}
uint64_t EntityChildrenAttr::version(ZelAttr const&, GenericIf const& obj) const {
    Dir* d = dirOf(obj);
    return d ? d->entity_.version() : 0;
}
AttributeIterator EntityChildrenAttr::iterator(ZelAttr const& a, GenericIf const& obj) const {
    if (dirOf(obj)) return kChildren.iterator(a, obj);
    return AttributeIterator(&obj, nullptr);
}
AttributeIterator EntityChildrenAttr::iteratorKey(ZelAttr const& a, GenericIf const& obj, GenericIf const* key) const {
    if (dirOf(obj)) return kChildren.iteratorKey(a, obj, key);
    return AttributeIterator(&obj, nullptr);
}

namespace {
TypeRegistration const rDir(&Dir::_zelType);
} // namespace

} // namespace Zel
