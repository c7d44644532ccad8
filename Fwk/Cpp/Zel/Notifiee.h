// Notifiees: objects told about changes of another object's attributes.
//
// A GenericIf::NotifieeConst observes one object (through its GenericIf);
// every attribute change of that object calls onAttribute(attr, value):
// the new value for a singleton attribute, the key for a keyed collection,
// null for a queue. Without an activity, delivery happens at once on the
// mutating thread, which holds the activity lock. A notifiee given an
// activity (zelFwkActivityIs) has its notifications queued instead and
// delivered later by the activity loop (Zel/Activity.h), in order. A
// notifier does not keep its notifiees alive; a notifiee unregisters when
// destroyed, also during a delivery, and its queued deliveries are dropped.
#pragma once

#include <deque>
#include <utility>
#include <vector>

#include "Zel/GenericIf.h"

namespace Zel {

class ActivityConfig;
class ActivityLoop;

// The base of every notifiee, with the deferral of notifications to an
// activity: a notifiee with an activity offers each notification to
// zelOnAttribute, which records it in a pending field and queues the
// notifiee; the loop later calls handleNotification(activity), which takes
// the pending notifications and delivers them.
class ZEL_API PtrInterface::NotifieeConst : public PtrInterface {
public:
    NotifieeConst() = default;
    // Drops the deliveries still queued for this notifiee.
    ~NotifieeConst() override;
    ZelType const* fwkType() const override { return &_zelType; }

    // Whether notifications reach this notifiee at all.
    bool hasNotificationActive() const { return active_; }
    virtual void hasNotificationActiveIs(bool active) { active_ = active; }
    bool isRegisteredNotifiee() const { return registered_; }
    virtual void isRegisteredNotifieeIs(bool r) { registered_ = r; }

    // The activity whose loop delivers the notifications (null: at once).
    virtual Ptr<ActivityConfig> zelFwkActivity() const;
    virtual void zelFwkActivityIs(Ptr<ActivityConfig> activity);

    // Offers notification `attrNumber` for deferral. True when it was
    // queued for the activity: *pendingField then holds attrNumber, or -1
    // when different notifications are pending (a full redispatch). False
    // when it must be handled at once: no activity, or this thread is
    // dispatching this notifiee right now (a change its handler makes).
    bool zelOnAttribute(int attrNumber, int* pendingField);
    // The dispatch step: from here until the loop finishes with this
    // notifiee, the notifications this thread makes are handled at once.
    void actsm();
    // Delivers whatever this notifiee holds back (the base holds nothing).
    virtual void redispatch();
    // Called by the loop for a queued notifiee; the base runs actsm() and
    // redispatch().
    virtual void handleNotification(ActivityConfig* activity);
    // Whether the loop has a delivery queued for this notifiee.
    bool zelQueuedForActivity() const { return queued_; }

    static ZelType const _zelType;

private:
    ActivityConfig* activity_ = nullptr;   // a counted reference
    bool active_ = true;
    bool registered_ = false;
    bool queued_ = false;
    bool everQueued_ = false;
    friend class ActivityLoop;
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

    // Queues the change for the activity when this notifiee has one;
    // false when it must be delivered at once.
    bool zelDeferAttribute(ZelAttr const* attr, Ptr<GenericIf const> const& value);
    // Delivers the changes held for the activity, in arrival order.
    void redispatch() override;
    void handleNotification(ActivityConfig* activity) override;

private:
    Ptr<GenericIf const> notifier_;
    NotifieeList* list_ = nullptr;
    int pending_ = 0;
    std::deque<std::pair<ZelAttr const*, Ptr<GenericIf const>>> held_;
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
