// Dir: an entity holding child entities by name (its collection "entity"),
// the tree the framework's full names walk. globalDir() is the process-wide
// root, named "/".
#pragma once

#include "Zel/Attr.h"
#include "Zel/Collection.h"
#include "Zel/Entity.h"

namespace Zel {

class ZEL_API Dir : public Entity {
public:
    explicit Dir(Name name) : Entity(std::move(name)) {}
    ~Dir() override;
    ZelType const* fwkType() const override { return &_zelType; }

    Ptr<Entity> entity(String8 const& name) const;
    // Makes a child Dir; an existing child Dir of that name is returned.
    Ptr<Dir> newDir(String8 const& name);
    // Constructs a child of the named entity type (by reflection, from its
    // name); an existing child of that name and type is returned. Another
    // child of that name is refused with NameInUseException.
    Ptr<Entity> newEntity(String8 const& name, String8 const& typeName);
    // Adds (or replaces) a child under its own name.
    void entityIs(Ptr<Entity> const& child);
    void entityDel(String8 const& name);

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];

    // The children; public for the attribute handler only.
    Collection<String8, Ptr<Entity>> entity_;
};

ZEL_API Ptr<Dir> globalDir();

// Entity's "entity" attribute: a Dir's children, empty for other entities.
class ZEL_API EntityChildrenAttr final : public AttrHandler {
public:
    constexpr EntityChildrenAttr() = default;
    Ptr<GenericIf const> get(ZelAttr const& a, GenericIf const& obj, GenericIf const* index) const override;
    bool exist(ZelAttr const& a, GenericIf const& obj, GenericIf const* key) const override;
    uint64_t members(ZelAttr const& a, GenericIf const& obj) const override;
    uint64_t version(ZelAttr const& a, GenericIf const& obj) const override;
    AttributeIterator iterator(ZelAttr const& a, GenericIf const& obj) const override;
    AttributeIterator iteratorKey(ZelAttr const& a, GenericIf const& obj, GenericIf const* key) const override;
};
ZEL_API extern EntityChildrenAttr const kEntityChildrenAttr;

} // namespace Zel
