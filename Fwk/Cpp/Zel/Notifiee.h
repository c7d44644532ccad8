// Notifiees: objects told about changes of another object's attributes.
//
// A GenericIf::NotifieeConst observes one object (through its GenericIf);
// every attribute change of that object calls onAttribute(attr, value):
// the new value for a singleton attribute, the key for a keyed collection,
// null for a queue. Delivery happens at once on the mutating thread, which
// holds the activity lock. A notifier does not keep its notifiees alive; a
// notifiee unregisters when destroyed, also during a delivery.
#pragma once

#include <vector>

#include "Zel/GenericIf.h"

namespace Zel {

class ActivityConfig;

// The base of every notifiee.
class ZEL_API PtrInterface::NotifieeConst : public PtrInterface {
public:
    NotifieeConst() = default;
    ~NotifieeConst() override;

    // Whether notifications reach this notifiee at all.
    bool hasNotificationActive() const { return active_; }
    virtual void hasNotificationActiveIs(bool active) { active_ = active; }
    bool isRegisteredNotifiee() const { return registered_; }
    virtual void isRegisteredNotifieeIs(bool r) { registered_ = r; }

private:
    bool active_ = true;
    bool registered_ = false;
};

// The notifiees registered on one object, in registration order.
class ZEL_API NotifieeList {
public:
    void add(GenericIf::NotifieeConst* n);
    void remove(GenericIf::NotifieeConst* n);
    bool empty() const { return count_ == 0; }
    // Calls onAttribute on every notifiee registered when the delivery
    // started and still registered when its turn comes.
    void deliver(ZelAttr const* attr, Ptr<GenericIf const> const& value);

private:
    std::vector<GenericIf::NotifieeConst*> entries_;   // removed entries become null
    size_t count_ = 0;
    int delivering_ = 0;
};

class ZEL_API GenericIf::NotifieeConst : public PtrInterface::NotifieeConst {
public:
    // Registers with the object `notifier` refers to (when it can be observed).
    explicit NotifieeConst(Ptr<GenericIf const> notifier);
    ~NotifieeConst() override;

    GenericIf const* notifier() const { return notifier_.ptr(); }
    // Moves the registration to another object (null: none).
    virtual void notifierIs(Ptr<GenericIf const> notifier);

    virtual void onAttribute(ZelAttr const* attr, Ptr<GenericIf const> const& value);

private:
    Ptr<GenericIf const> notifier_;
    NotifieeList* list_ = nullptr;
};

// A notifiee that may change the object it observes.
class ZEL_API GenericIf::Notifiee : public GenericIf::NotifieeConst {
public:
    explicit Notifiee(Ptr<GenericIf const> notifier) : NotifieeConst(std::move(notifier)) {}
};

// Delivers one attribute change of `notifier` to its notifiees.
ZEL_API void notifyAttribute(PtrInterface const* notifier, ZelAttr const* attr,
                             Ptr<GenericIf const> const& value);

} // namespace Zel
