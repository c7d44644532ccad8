// Entity: a named, observable framework object. Entities form a tree
// (parent, fullName) under the global Dir, and notify their notifiees of
// every attribute change. Process singletons are entities keyed by type
// name (Entity::singleton).
#pragma once

#include "Zel/Builtin.h"
#include "Zel/Notifiee.h"
#include "Zel/Values.h"

namespace Zel {

class ZEL_API Entity : public PtrInterface {
public:
    class NotifieeConst;

    explicit Entity(Name name);
    ~Entity() override;

    ZelType const* fwkType() const override { return &_zelType; }
    NotifieeList* notifieeList(bool create) const override;

    Name const& name() const { return name_; }
    Entity* parent() const { return parent_; }
    // The name of the parent's collection holding this entity ("" at a root).
    String8 parentAttrName() const { return parentAttrName_; }
    // "/a/b/name" from the top of its tree (the global root "/" is left out);
    // a parentless entity's full name is its name.
    Name fullName() const;

    // Set by the collection that takes the entity in (not counted: the
    // parent's collection keeps the child alive, not the reverse).
    void parentIs(Entity* parent, String8 attrName) {
        parent_ = parent;
        parentAttrName_ = std::move(attrName);
    }
    // Restores the name (used when an entity is rebuilt from a backup).
    void nameIsFromBackup(Name const& n) { name_ = n; }

    // Process singletons, keyed by type name.
    static Ptr<Entity> singleton(Name const& typeName);
    static bool singletonExists(Name const& typeName);
    // Constructs the type (by reflection, from its name) and registers it
    // as the singleton of that type name; returns the existing one if any.
    static Ptr<Entity> singletonIs(ZelType const* type);
    // Registers an existing object as the singleton of its type.
    static void singletonIs(Ptr<Entity> const& entity);

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];

protected:
    // Tells the notifiees that `attr` changed to `value`.
    void notify(ZelAttr const* attr, Ptr<GenericIf const> const& value) const {
        if (notifiees_) notifyAttribute(this, attr, value);
    }
    // The same, building the value only when somebody listens.
    template <class T>
    void notifyValue(ZelAttr const* attr, T const& value) const {
        if (notifiees_) notifyAttribute(this, attr, GenericIfTraits<T>::to(value));
    }
    bool hasNotifiees() const { return notifiees_ && !notifiees_->empty(); }

private:
    Name name_;
    Entity* parent_ = nullptr;
    String8 parentAttrName_;
    mutable NotifieeList* notifiees_ = nullptr;
};

// A notifiee of an entity: the common ancestor of the notifiees of the
// framework's entities (the clock's among them), under which reflection
// files them.
class ZEL_API Entity::NotifieeConst : public PtrInterface::NotifieeConst {
public:
    ZelType const* fwkType() const override { return &_zelType; }

    static ZelType const _zelType;
};

} // namespace Zel
