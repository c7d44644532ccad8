// Activities and the run loop. One activity manager per process owns the
// activity lock and runs the loop: it dispatches due clock notifiees and
// the notifications queued for activities, holding the activity lock
// (marked releasable) while it dispatches and waiting without it. A loop
// started by a thread that already holds the activity lock keeps it held
// throughout, also while it waits. Every ActivityConfig is served by the
// process's one loop; see docs/activities.md.
#pragma once

#include "Zel/Entity.h"
#include "Zel/Lock.h"

namespace Zel {

// An entity naming an activity. A notifiee given one has its
// notifications queued and delivered by the loop rather than at once.
class ZEL_API ActivityConfig : public Entity {
public:
    explicit ActivityConfig(Name name);
    ZelType const* fwkType() const override { return &_zelType; }

    // Constructible by reflection from a Zel::Name or a Zel::String.
    static ZelType const _zelType;
};

// The activity manager's configuration: runs the loop.
class ZEL_API ActivityManagerConfig : public Entity {
public:
    explicit ActivityManagerConfig(Name name);
    ZelType const* fwkType() const override { return &_zelType; }

    // Runs the loop on the calling thread for `seconds` (at least one
    // dispatch pass), or until stopped.
    void execTimeIs(double const& seconds);
    // Runs the loop until stopped (agents).
    void run();
    // Makes the running loop (or the next one) return as soon as nothing
    // is due; cleared when a loop returns because of it.
    void stopOnQuiesceIs(bool stop);
    bool stopOnQuiesce() const;
    // Makes the running loops return after the current dispatch (safe from
    // any thread and from signal handlers); loops started later run on.
    void stop();

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];
};

class ZEL_API ActivityManagerSm {
public:
    // The process's activity lock (the same object as ActivityLockAnchor::lock()).
    Lock* activityLock() const { return ActivityLockAnchor::lock(); }
};

struct ZEL_API ActivityFacility {
    static Ptr<ActivityManagerConfig> activityManagerConfig();
};

struct ZEL_API ActivityImplFacility {
    static ActivityManagerSm* activityManagerSm();
};

} // namespace Zel
