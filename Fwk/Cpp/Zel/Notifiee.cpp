#include "Zel/Notifiee.h"

#include <algorithm>

#include "Zel/Activity.h"
#include "Zel/ActivityLoop.h"
#include "Zel/TypeOps.h"

namespace Zel {

PtrInterface::NotifieeConst::~NotifieeConst() {
    // The loop may be about to deliver to this notifiee: drop its entry
    // under the activity lock, which the loop holds while it delivers.
    if (everQueued_) {
        ActivityLockScope lock;
        ActivityLoop::instance().cancel(this);
    }
    if (activity_) activity_->deleteRef();
}

Ptr<ActivityConfig> PtrInterface::NotifieeConst::zelFwkActivity() const {
    return Ptr<ActivityConfig>(activity_);
}

void PtrInterface::NotifieeConst::zelFwkActivityIs(Ptr<ActivityConfig> activity) {
    if (activity_) activity_->deleteRef();
    activity_ = activity.release();
}

bool PtrInterface::NotifieeConst::zelOnAttribute(int attrNumber, int* pendingField) {
    ActivityLoop& loop = ActivityLoop::instance();
    if (loop.dispatching(this) || !zelFwkActivity()) return false;
    if (*pendingField == 0) *pendingField = attrNumber;
    else if (*pendingField != attrNumber) *pendingField = -1;
    loop.enqueue(this);
    return true;
}

void PtrInterface::NotifieeConst::actsm() { ActivityLoop::instance().dispatchingIs(this); }

void PtrInterface::NotifieeConst::redispatch() {}

void PtrInterface::NotifieeConst::handleNotification(ActivityConfig*) {
    actsm();
    redispatch();
}

void NotifieeList::add(GenericIf::NotifieeConst* n) {
    entries_.push_back(n);
    ++count_;
}

void NotifieeList::remove(GenericIf::NotifieeConst* n) {
    auto it = std::find(entries_.begin(), entries_.end(), n);
    if (it == entries_.end()) return;
    --count_;
    // During a delivery the vector is being walked: leave a hole.
    if (delivering_) *it = nullptr; else entries_.erase(it);
}

void NotifieeList::deliver(ZelAttr const* attr, Ptr<GenericIf const> const& value) {
    ++delivering_;
    struct Done {
        NotifieeList* l;
        ~Done() {
            if (--l->delivering_ == 0) {
                l->entries_.erase(std::remove(l->entries_.begin(), l->entries_.end(), nullptr),
                                  l->entries_.end());
            }
        }
    } done{this};
    size_t n = entries_.size();   // notifiees added during delivery wait for the next change
    for (size_t i = 0; i < n; ++i) {
        GenericIf::NotifieeConst* e = entries_[i];
        if (!e || !e->hasNotificationActive()) continue;
        // A counted notifiee survives its own release during the call.
        Ptr<GenericIf::NotifieeConst> keep(e->references() ? e : nullptr);
        if (!e->zelDeferAttribute(attr, value)) e->onAttribute(attr, value);
    }
}

GenericIf::NotifieeConst::NotifieeConst(Ptr<GenericIf const> notifier) {
    notifierIs(std::move(notifier));
}

GenericIf::NotifieeConst::~NotifieeConst() {
    if (list_) list_->remove(this);
}

void GenericIf::NotifieeConst::notifierIs(Ptr<GenericIf const> notifier) {
    if (notifier == notifier_) return;
    if (list_) {
        list_->remove(this);
        list_ = nullptr;
        isRegisteredNotifieeIs(false);
    }
    notifier_ = std::move(notifier);
    if (notifier_ && notifier_->type()->hasOwnPtrInterface()) {
        if (auto* obj = static_cast<PtrInterface const*>(notifier_->valuePtr())) {
            list_ = obj->notifieeList(true);
            if (list_) {
                list_->add(this);
                isRegisteredNotifieeIs(true);
            }
        }
    }
}

void GenericIf::NotifieeConst::onAttribute(ZelAttr const*, Ptr<GenericIf const> const&) {}

bool GenericIf::NotifieeConst::zelDeferAttribute(ZelAttr const* attr, Ptr<GenericIf const> const& value) {
    if (!zelOnAttribute(attr->attributeId(), &pending_)) return false;
    held_.emplace_back(attr, value);
    return true;
}

void GenericIf::NotifieeConst::redispatch() {
    // Changes that arrive while these are delivered are handled at once
    // (this notifiee is being dispatched), so the batch is taken whole.
    auto batch = std::move(held_);
    held_.clear();
    for (auto& [attr, value] : batch) {
        if (!hasNotificationActive() || zelMarkedForDeletion()) break;
        onAttribute(attr, value);
    }
}

void GenericIf::NotifieeConst::handleNotification(ActivityConfig*) {
    pending_ = 0;
    actsm();
    redispatch();
}

void notifyAttribute(PtrInterface const* notifier, ZelAttr const* attr, Ptr<GenericIf const> const& value) {
    if (NotifieeList* l = notifier->notifieeList(false)) l->deliver(attr, value);
}

namespace {
constexpr ArgDesc kNoCtor[] = {{nullptr, nullptr}};
} // namespace

constinit ZelType const PtrInterface::NotifieeConst::_zelType(
    "Zel::PtrInterface::NotifieeConst", sizeof(PtrInterface::NotifieeConst), &PtrInterface::_zelType,
    ZelType::isEntity_ | ZelType::hasOwnPtrInterface_, nullptr, 0, kNoCtor, &kAbstractObjectOps);

namespace {
TypeRegistration const rNotifieeConst(&PtrInterface::NotifieeConst::_zelType);
} // namespace

} // namespace Zel
