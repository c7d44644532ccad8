"""`zeltest_runner.py MODULE [MODULE.Class[.test] ...]`: runs as `-m unittest -v`, fails on framework objects left."""
import os
import sys
import threading
import time
import unittest

import _Zel
from snapshot import collect, live_counts

# Objects the framework makes once per process, on first use, and keeps
# until exit: a module that is the first to ask for one is not leaking it.
# One each is allowed; a second one is a leak like any other.
PROCESS_WIDE = {
    "Zel::AllocTracker",                       # made when libzel is loaded; these counts are read from it
    "Zel::Clock",                              # which every clock notifiee and timer hangs on
    "Zel::ActivityManagerConfig",              # the activity loop's settings (stopOnQuiesce)
    "Zel::Dir",                                # behind _Zel.globalDir()
    "Zel::ConnectionDir",                      # NboAttrLog's
    "Zel::NboAttrLog::DemuxerManager",
    "Zel::PyGenericIf::FwkPyGenericIfMapping",  # _Zel's conversion cache, made at the first conversion
}

# Entries of process-wide registries keyed by something finite and fixed
# while the process runs, made on first use and kept: any number may appear.
REGISTRY_ENTRIES = {
    "Zel::TraceHandle",   # one per trace handle name, so that ZELTRACE settings apply by name
    "Zel::PyGenericIf::FwkPyGenericIfMapping::ZelDefaultAttributeData",   # the cache's rule for one value type
    # The cache's interned name of one enumerator, held in a Zel::PyObjHandle (allowed below).
    "Zel::PyGenericIf::FwkPyGenericIfMapping::ZelAttributeData",
}

# How long threads the module started get to finish before the count: a
# server's accepting thread or a loop thread lets go of its objects as it
# ends, shortly after the test that stopped it returned.
THREAD_GRACE_SECONDS = 10.0


def leftovers(before, after):
    """[(type, before, after)] for every type the module left objects of,
    beyond what the process-wide objects themselves hold."""
    def grown(name):
        return max(0, after.get(name, 0) - before.get(name, 0))
    extra = {"Zel::PyObjHandle": grown("Zel::PyGenericIf::FwkPyGenericIfMapping::ZelAttributeData")}
    # The Zel package keeps the clock's handle (and the "now" attribute,
    # not a counted object) once any timer or Zel.now() needed them.
    clock = getattr(sys.modules.get("Zel"), "_clock", None)
    if clock:
        extra["Zel::PtrGenericIf"] = sum(1 for x in clock if type(x) is _Zel.GifPtr)
    return [(name, before.get(name, 0), now) for name, now in sorted(after.items())
            if grown(name) > extra.get(name, 0) and name not in REGISTRY_ENTRIES
            and not (name in PROCESS_WIDE and now <= 1)]


def run(names):
    module_name = names[0].split(".")[0]
    # As under `python -m unittest`: modules are found in the current directory.
    if os.getcwd() not in sys.path:
        sys.path.insert(0, os.getcwd())
    threads_before = set(threading.enumerate())
    collect()
    # The first reading makes the tracker's own slots (the key and count
    # values it hands out); from the second on, every reading sees the
    # same objects of its own alive.
    live_counts()
    before = live_counts()

    module = __import__(module_name)
    loader = unittest.TestLoader()
    suite = loader.loadTestsFromModule(module) if names == [module_name] else loader.loadTestsFromNames(names)
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    ok = result.wasSuccessful()

    # Everything that can still refer to the module's objects: the cases
    # (with whatever setUp stored on them), the results holding the cases,
    # the module and its globals, the last exception of this thread (which
    # Python 3 drops by itself at the end of the except block).
    del suite, result, module
    del sys.modules[module_name]
    getattr(sys, "exc_clear", lambda: None)()
    for attr in ("last_type", "last_value", "last_traceback"):
        if hasattr(sys, attr):
            delattr(sys, attr)
    deadline = time.time() + THREAD_GRACE_SECONDS
    for t in set(threading.enumerate()) - threads_before - set([threading.current_thread()]):
        t.join(max(0.0, deadline - time.time()))
    collect()
    left = leftovers(before, live_counts())
    if left:
        sys.stderr.write("\n%s left framework objects alive (type: before -> after):\n" % module_name)
        for name, was, now in left:
            sys.stderr.write("  %s: %d -> %d (+%d)\n" % (name, was, now, now - was))
    return ok and not left


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.stderr.write("usage: %s MODULE [MODULE.Class[.test] ...]\n" % sys.argv[0])
        sys.exit(2)
    sys.exit(0 if run(sys.argv[1:]) else 1)
