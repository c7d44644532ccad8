"""The activity lock from Python threads, the anchors' protocol, the Zel package's reads under each state of
the lock, and thread-safe pointers and SIGINT."""
import threading
import time
import unittest

import Zel
import ZelDemo  # noqa: F401  (registers the Demo types)
import _Zel
import _ZelTestHelper as helper
import children

UNRELEASABLE, RELEASABLE, LOCK = 1, 2, 4   # anchor flags


class ActivityLock(unittest.TestCase):
    def tearDown(self):
        while _Zel.activityLockOwner() == helper.tid():
            _Zel.releaseActivityLock()

    def test_reentrant_acquire_single_release_and_a_waiting_thread(self):
        self.assertEqual(_Zel.activityLockOwner(), 0)
        self.assertEqual((_Zel.acquireActivityLock(), _Zel.activityLockOwner(), _Zel.acquireActivityLock()),
                         (True, helper.tid(), False))
        got = []
        t = threading.Thread(target=lambda: got.append((_Zel.acquireActivityLock(), helper.tid(),
                                                          _Zel.activityLockOwner(), _Zel.releaseActivityLock())))
        t.start()
        # The other thread waits for the activity lock without the
        # interpreter lock, so this thread keeps running Python.
        deadline = time.time() + 0.3
        while time.time() < deadline:
            self.assertEqual(got, [])
        self.assertEqual(_Zel.activityLockOwner(), helper.tid())
        self.assertIsNone(_Zel.releaseActivityLock())   # one release, however many acquires
        t.join(5)
        self.assertFalse(t.is_alive())
        taken, tid, owner, _ = got[0]
        self.assertEqual((taken, owner, _Zel.activityLockOwner()), (True, tid, 0))
        self.assertNotEqual(tid, helper.tid())


class Anchors(unittest.TestCase):
    def test_nested_anchor_keeps_outer_lock_and_restores_releasable(self):
        me, seen = helper.tid(), []

        def inner():
            seen.append(helper.lockState())
            return "inner"

        def outer():
            seen.append(helper.lockState())
            self.assertEqual(helper.withAnchor(LOCK, inner), "inner")
            seen.append(helper.lockState())
            return "outer"
        self.assertEqual(helper.withAnchor(UNRELEASABLE | LOCK, outer), "outer")
        self.assertEqual(seen, [(me, False), (me, True), (me, False)])
        self.assertEqual(helper.lockState()[0], 0)

    def test_releasable_needs_are_refused_under_an_unreleasable_lock(self):
        me, after = helper.tid(), []

        def nested(call):
            try:
                call()
            except SystemError as e:
                after.append((str(e), helper.lockState()))
        for call in (lambda: helper.withAnchor(RELEASABLE | LOCK, lambda: None),
                     lambda: _Zel.activityManagerExecTimeIs(0.3)):
            helper.withAnchor(UNRELEASABLE | LOCK, lambda: nested(call))
        self.assertEqual(after, [("Lock Protocol violation xxx", (me, False))] * 2)
        # Under a releasable lock, or none, the loop runs its time.
        for call in (lambda: _Zel.activityManagerExecTimeIs(0.3),
                     lambda: helper.withAnchor(LOCK, lambda: _Zel.activityManagerExecTimeIs(0.3))):
            start = time.time()
            self.assertIsNone(call())
            self.assertGreaterEqual(time.time() - start, 0.25)

    def test_unlock_anchor_releases_only_a_releasable_lock_it_can_take_back(self):
        owners = []
        helper.withAnchor(LOCK, lambda: helper.withUnlock(lambda: owners.append(_Zel.activityLockOwner())))
        self.assertEqual(owners, [0])
        for flags, callback, text in (
                (UNRELEASABLE | LOCK, lambda: owners.append(1),
                 "Lock Protocol exception -- unlocking an unreleasable lock"),
                (LOCK, lambda: self.assertTrue(_Zel.acquireActivityLock()),
                 "Lock was already grabbed in UnlockAnchor destructor!")):
            with self.assertRaises(SystemError) as cm:
                helper.withAnchor(flags, lambda: helper.withUnlock(callback))
            self.assertEqual(str(cm.exception), text)
        self.assertEqual(owners, [0])
        # The enclosing anchor unlocked the lock it had taken.
        self.assertEqual(_Zel.activityLockOwner(), 0)


class PackageReads(unittest.TestCase):
    def test_reads_take_a_free_lock_nest_in_a_held_one_and_wait_without_the_interpreter_lock(self):
        sw, a = Zel.new("Demo::Switch", "package-reads"), Zel.new("Demo::AllTypes", "package-reads")
        sw.vlan[1] = "one"
        a.i32 = 7
        expected = ("one", True, 1, 0, 7)

        def reads():
            return sw.vlan[1], 1 in sw.vlan, len(sw.vlan), len(sw.log), a.i32
        me = helper.tid()
        self.assertEqual((reads(), helper.lockState()), (expected, (0, True)))
        seen = []
        helper.withAnchor(UNRELEASABLE | LOCK, lambda: seen.append((reads(), helper.lockState())))
        self.assertEqual(seen, [(expected, (me, False))])
        # Held by another thread: the reader waits without the interpreter
        # lock (or this thread could not run on to let the holder go).
        held, release, got = threading.Event(), threading.Event(), []

        def holder():
            _Zel.acquireActivityLock()
            held.set()
            release.wait(5)
            _Zel.releaseActivityLock()
        threads = [threading.Thread(target=holder), threading.Thread(target=lambda: got.append(reads()))]
        threads[0].start()
        held.wait(5)
        threads[1].start()
        deadline = time.time() + 0.3
        while time.time() < deadline:
            self.assertEqual(got, [])
        release.set()
        for t in threads:
            t.join(5)
        self.assertEqual((got, helper.lockState()), ([expected], (0, True)))


# A converter waits for another thread's activity lock, until thread-safe
# pointers (a one-way switch) are enabled.
THREAD_SAFE_CHILD = r"""
import sys, threading, time, _Zel, _ZelTestHelper as helper
e = helper.entity("e")
def waited(hold):
    held, done = threading.Event(), threading.Event()
    def holder():
        _Zel.acquireActivityLock(); held.set(); done.wait(hold); _Zel.releaseActivityLock()
    t = threading.Thread(target=holder); t.start(); held.wait(5)
    start = time.time(); helper.convert(e); waited = time.time() - start
    done.set(); t.join()
    return waited
before = waited(0.3)
_Zel.enableThreadSafePointers()
sys.exit(0 if before > 0.1 and waited(5) < 1 else 3)
"""

SIGINT_CHILD = r"""
import os, signal, sys, _Zel
quiesce = lambda: _Zel.singleton("Zel::ActivityManagerConfig").attributeSingleton(
    _Zel.typeNode("Zel::ActivityManagerConfig").attr("stopOnQuiesce"))
before = quiesce()
try:
    os.kill(os.getpid(), signal.SIGINT)
    for i in range(1000000): pass
    sys.exit(4)
except KeyboardInterrupt:
    sys.exit(0 if (before, quiesce()) == (False, True) else 5)
"""


class FreshProcess(unittest.TestCase):
    def test_thread_safe_pointers_and_sigint(self):
        for name, code in (("THREAD_SAFE_CHILD", THREAD_SAFE_CHILD), ("SIGINT_CHILD", SIGINT_CHILD)):
            rc, out, err = children.python(name, code)
            self.assertEqual(rc, 0, "%s: %s" % (name, err))


if __name__ == "__main__":
    unittest.main()
