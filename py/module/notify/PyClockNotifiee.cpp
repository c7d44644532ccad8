#include "module/notify/PyClockNotifiee.h"

#include <cstdio>
#include <cstdlib>

#include "module/notify/Callback.h"
#include "Zel/Attr.h"
#include "Zel/TypeOps.h"

namespace Zel {

namespace {
constexpr int kClockNotification = 258;
} // namespace

PyClockNotifiee::PyClockNotifiee(Ptr<ActivityConfig> activity, Ptr<Clock const> clock, Ptr<PyObjHandle> handler)
    : zelFwkActivity_(std::move(activity)), handler_(std::move(handler)) {
    // Through this class's notifierIs: a clock given now fires the handler
    // once, like one set later.
    notifierIs(std::move(clock));
    isRegisteredNotifieeIs(true);
}

PyClockNotifiee::~PyClockNotifiee() = default;

void PyClockNotifiee::notifierIs(Ptr<Clock const> clock) {
    if (clock == notifier()) return;
    Clock::NotifieeConst::notifierIs(clock);
    if (clock && !zelMarkedForDeletion()) handleTime();
    isRegisteredNotifieeIs(true);
}

void PyClockNotifiee::hasNotificationActiveIs(bool active) {
    Clock::NotifieeConst::hasNotificationActiveIs(active);
    if (active) {
        if (notifier()) isRegisteredNotifieeIs(true);
    } else {
        isRegisteredNotifieeIs(false);
    }
}

void PyClockNotifiee::onTime() {
    if (zelOnAttribute(kClockNotification, &pending_)) return;
    if (!zelMarkedForDeletion()) handleTime();
}

void PyClockNotifiee::handleNotification(ActivityConfig*) {
    int32_t const pending = pending_;
    pending_ = 0;
    actsm();
    if (pending == -1) {
        onTime();
        redispatch();
    } else if (pending == kClockNotification) {
        onTime();
    }
}

void PyClockNotifiee::zelDoZombieReactors(bool zombie) {
    if (zombie != zelMarkedForDeletion() && notifier()) hasNotificationActiveIs(!zombie);
    zelMarkedForDeletionIs(zombie);
}

void PyClockNotifiee::handleTime() {
    if (!handler_->pyObject()) return;
    Ptr<PyObjHandle> handler = handler_;   // outlives the re-lock
    CallbackLocks locks;
    PyObject* result = PyObject_CallObject(handler->pyObject(), nullptr);
    if (!result) {
        // A raising handler is a programming error with no way back.
        std::fputs("PyClockNotifiee::handleNotification's handler raised an exception\n", stderr);
        PyErr_Print();
        std::abort();
    }
    Py_DECREF(result);
}

Ptr<PyClockNotifiee> pyClockNotifieeFactory(Ptr<ActivityConfig> activity, Ptr<Clock const> clock,
                                            Ptr<PyObjHandle> handler) {
    Ptr<PyClockNotifiee> n = zelNew<PyClockNotifiee>(std::move(activity), std::move(clock), std::move(handler));
    if (!n) throw RangeException("null ValidPtr");
    n->hasNotificationActiveIs(true);
    return n;
}

namespace {

// The observed clock, as the base's notifier: anything but a clock reads
// as none.
class NotifierAttr final : public AttrHandler {
public:
    constexpr NotifierAttr() = default;
    Ptr<GenericIf const> get(ZelAttr const&, GenericIf const& obj, GenericIf const*) const override {
        return GenericIfTraits<Ptr<Clock const>>::to(selfOf<PyClockNotifiee>(obj)->clock());
    }
    void set(ZelAttr const&, GenericIf const& obj, GenericIf const*, GenericIf const* value) const override {
        Clock const* clock = nullptr;
        if (value && value->type()->hasOwnPtrInterface()) {
            clock = dynamic_cast<Clock const*>(static_cast<PtrInterface const*>(value->valuePtr()));
        }
        selfOf<PyClockNotifiee>(obj)->notifierIs(Ptr<Clock const>(clock));
    }
};

Ptr<GenericIf> constructClockNotifiee(ZelType const* type, ArgVector const& args, bool isConst) {
    if (args.size() != 3) throwConstructorCount(type, 3, args.size());
    Ptr<PyClockNotifiee> n = pyClockNotifieeFactory(GenericIfTraits<Ptr<ActivityConfig>>::from(args[0].ptr()),
                                                    GenericIfTraits<Ptr<Clock const>>::from(args[1].ptr()),
                                                    GenericIfTraits<Ptr<PyObjHandle>>::from(args[2].ptr()));
    return makeObject(n->fwkType(), static_cast<PtrInterface*>(n.ptr()), isConst);
}

constexpr AccessorAttr<&PyClockNotifiee::clock> kClock;
constexpr NotifierAttr kNotifier;
constexpr AccessorAttr<&PyClockNotifiee::handler> kHandler;
constexpr MethodAttr<&PyClockNotifiee::handleTime> kHandleTime;
constexpr AccessorAttr<&PyClockNotifiee::timeMinProxy, &PyClockNotifiee::timeMinProxyIs> kTimeMinProxy;
constexpr ArgDesc kCtor[] = {{"zelFwkActivity", "Zel::ActivityConfig"},
                             {"notifier", "Zel::Clock"},
                             {"handler", "Zel::PyObjHandle"},
                             {nullptr, nullptr}};
constexpr TypeOps kOps{&makeObject, &constructClockNotifiee, &objectHash, &objectStrep, &objectEqual};
constexpr uint32_t kRefuses = ZelAttr::handlerRefuses_;

} // namespace

// Reflection files it under the entity notifiee type, as the other
// notifiees of entities.
constinit ZelType const PyClockNotifiee::_zelType(
    "Zel::PyClockNotifiee", sizeof(PyClockNotifiee), &Entity::NotifieeConst::_zelType,
    ZelType::isEntity_ | ZelType::hasOwnPtrInterface_, PyClockNotifiee::_zelAttrs, 5, kCtor, &kOps);
// Operations beyond those the flags name are refused as not supported.
constinit ZelAttr const PyClockNotifiee::_zelAttrs[] = {
    {"clock", 262, &PyClockNotifiee::_zelType, &Clock::_zelType, ZelAttr::readable_ | kRefuses, &kClock},
    {"notifier", 263, &PyClockNotifiee::_zelType, &Clock::_zelType,
     ZelAttr::readable_ | ZelAttr::writable_ | kRefuses, &kNotifier},
    {"handler", 264, &PyClockNotifiee::_zelType, &PyObjHandle::_zelType, ZelAttr::readable_ | kRefuses, &kHandler},
    {"handleTime", 265, &PyClockNotifiee::_zelType, nullptr, ZelAttr::isFunction_ | kRefuses, &kHandleTime},
    {"timeMinProxy", 266, &PyClockNotifiee::_zelType, &Builtin<double>::_zelType,
     ZelAttr::readable_ | ZelAttr::writable_ | kRefuses, &kTimeMinProxy},
};

namespace {
TypeRegistration const rPyClockNotifiee(&PyClockNotifiee::_zelType);
} // namespace

} // namespace Zel
