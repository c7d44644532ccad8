#include "Zel/Notifiee.h"

#include <algorithm>

namespace Zel {

PtrInterface::NotifieeConst::~NotifieeConst() = default;

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
        e->onAttribute(attr, value);
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

void notifyAttribute(PtrInterface const* notifier, ZelAttr const* attr, Ptr<GenericIf const> const& value) {
    if (NotifieeList* l = notifier->notifieeList(false)) l->deliver(attr, value);
}

} // namespace Zel
