"""What a process holds, for the leak-checking runner and the soak to compare before and after."""
import collections
import gc
import os
import threading
import time

import _Zel

_TRACKER = _Zel.singleton("Zel::AllocTracker")
_LIVE = _Zel.typeNode("Zel::AllocTracker").attr("liveCount")


def collect():
    # Finalisers may drop the last reference to more objects, hence repeat
    # until nothing more is found.
    for _ in range(10):
        if not gc.collect():
            break


def live_counts():
    """{type name: live objects}, every type the allocation tracker knows."""
    it = _TRACKER.attributeIter(_LIVE, _Zel.IteratorModeItems)
    return dict(iter(lambda: next(it, None), None))


def live(*names):
    """[live objects] of each named type."""
    counts = live_counts()
    return [counts.get(name, 0) for name in names]


def census():
    """Python objects by type: those the collector tracks, and the untracked ones they refer to."""
    objs = gc.get_objects()
    seen = set(map(id, objs))
    count = collections.Counter(type(o) for o in objs)
    for o in objs:
        for r in gc.get_referents(o):
            if id(r) not in seen:
                seen.add(id(r))
                count[type(r)] += 1
    del objs
    return count


def tasks(quiet=0.5, limit=10.0):
    """The process's threads as the kernel counts them, once the count has held still for `quiet` seconds: a
    thread that join() has let go may still be on its way out (for long under the sanitizers)."""
    deadline = time.time() + limit
    count, since = None, time.time()
    while True:
        now, n = time.time(), len(os.listdir("/proc/self/task"))
        if n != count:
            count, since = n, now
        elif now - since >= quiet or now >= deadline:
            return count
        time.sleep(0.02)


def snapshot():
    collect()
    return {"live": live_counts(), "threads": threading.active_count(),
            "tasks": tasks(), "fds": sorted(os.listdir("/proc/self/fd")),
            "census": census()}
