#include "Zel/Activity.h"

#include "Zel/ActivityLoop.h"
#include "Zel/Attr.h"
#include "Zel/NamedEntityOps.h"

namespace Zel {

ActivityConfig::ActivityConfig(Name name) : Entity(std::move(name)) {}

ActivityManagerConfig::ActivityManagerConfig(Name name) : Entity(std::move(name)) {}

void ActivityManagerConfig::execTimeIs(double const& seconds) {
    ActivityLoop::instance().runFor(seconds < 0 ? 0.0 : seconds);
}

void ActivityManagerConfig::run() { ActivityLoop::instance().runFor(-1.0); }

void ActivityManagerConfig::stopOnQuiesceIs(bool stop) { ActivityLoop::instance().stopOnQuiesceIs(stop); }

bool ActivityManagerConfig::stopOnQuiesce() const { return ActivityLoop::instance().stopOnQuiesce(); }

void ActivityManagerConfig::stop() { ActivityLoop::instance().stop(); }

Ptr<ActivityManagerConfig> ActivityFacility::activityManagerConfig() {
    static ActivityManagerConfig* const config = [] {
        Ptr<ActivityManagerConfig> c = zelNew<ActivityManagerConfig>(Name("Zel::ActivityManagerConfig"));
        Entity::singletonIs(Ptr<Entity>(c));
        return c.release();   // kept for the process
    }();
    return Ptr<ActivityManagerConfig>(config);
}

ActivityManagerSm* ActivityImplFacility::activityManagerSm() {
    static ActivityManagerSm sm;
    return &sm;
}

namespace {

Ptr<ActivityConfig> newActivityConfig(Name const& n) { return zelNew<ActivityConfig>(n); }
Ptr<ActivityManagerConfig> theManagerConfig(Name const&) { return ActivityFacility::activityManagerConfig(); }

// The manager's configuration is a singleton from load time on.
struct MakeManagerEarly {
    MakeManagerEarly() { ActivityFacility::activityManagerConfig(); }
} const makeManagerEarly;

constexpr ArgDesc kCtor[] = {{"name", "Zel::Name"}, {nullptr, nullptr}};
constexpr TypeOps kActivityOps = namedEntityOps<ActivityConfig, &newActivityConfig>();
constexpr TypeOps kManagerOps = namedEntityOps<ActivityManagerConfig, &theManagerConfig>();

constexpr AccessorAttr<&ActivityManagerConfig::stopOnQuiesce, &ActivityManagerConfig::stopOnQuiesceIs> kStopOnQuiesce;
constexpr MethodAttr<&ActivityManagerConfig::execTimeIs> kExecTimeIs;
constexpr MethodAttr<&ActivityManagerConfig::stop> kStop;
constexpr ArgDesc kExecArgs[] = {{"seconds", "double"}, {nullptr, nullptr}};
constexpr ArgDesc kNoArgs[] = {{nullptr, nullptr}};

constexpr uint32_t kEntityFlags = ZelType::isEntity_ | ZelType::hasOwnPtrInterface_;

} // namespace

constinit ZelType const ActivityConfig::_zelType("Zel::ActivityConfig", sizeof(ActivityConfig),
                                                 &Entity::_zelType, kEntityFlags, nullptr, 0,
                                                 kCtor, &kActivityOps);

constinit ZelType const ActivityManagerConfig::_zelType(
    "Zel::ActivityManagerConfig", sizeof(ActivityManagerConfig), &Entity::_zelType, kEntityFlags,
    ActivityManagerConfig::_zelAttrs, 3, kCtor, &kManagerOps);
constinit ZelAttr const ActivityManagerConfig::_zelAttrs[] = {
    {"stopOnQuiesce", 256, &ActivityManagerConfig::_zelType, &Builtin<bool>::_zelType,
     ZelAttr::readable_ | ZelAttr::writable_, &kStopOnQuiesce},
    {"execTimeIs", 257, &ActivityManagerConfig::_zelType, nullptr, ZelAttr::isFunction_, &kExecTimeIs,
     nullptr, kExecArgs},
    {"stop", 258, &ActivityManagerConfig::_zelType, nullptr, ZelAttr::isFunction_, &kStop, nullptr,
     kNoArgs},
};

namespace {
TypeRegistration const rActivityConfig(&ActivityConfig::_zelType);
TypeRegistration const rActivityManagerConfig(&ActivityManagerConfig::_zelType);
} // namespace

} // namespace Zel
