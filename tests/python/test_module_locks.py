"""The activity lock seen from Python threads, and the anchors' protocol."""
import os
import signal
import subprocess
import sys
import threading
import time
import unittest

import _Zel
import _ZelTestHelper as helper


class ActivityLockFunctions(unittest.TestCase):
    def tearDown(self):
        while _Zel.activityLockOwner() == helper.tid():
            _Zel.releaseActivityLock()

    def test_reentrant_acquire_and_single_release(self):
        self.assertEqual(_Zel.activityLockOwner(), 0)
        self.assertIs(_Zel.acquireActivityLock(), True)
        self.assertEqual(_Zel.activityLockOwner(), helper.tid())
        self.assertIs(_Zel.acquireActivityLock(), False)
        self.assertIsNone(_Zel.releaseActivityLock())
        self.assertEqual(_Zel.activityLockOwner(), 0)

    def test_waiting_thread_does_not_hold_up_python(self):
        self.assertTrue(_Zel.acquireActivityLock())
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
        _Zel.releaseActivityLock()
        t.join(5)
        self.assertFalse(t.is_alive())
        taken, tid, owner, _ = got[0]
        self.assertTrue(taken)
        self.assertEqual(owner, tid)
        self.assertNotEqual(tid, helper.tid())

    def test_doc_strings(self):
        self.assertEqual(_Zel.acquireActivityLock.__doc__, "Acquire the global activity lock")
        self.assertEqual(_Zel.releaseActivityLock.__doc__, "Release the global activity lock")
        self.assertEqual(_Zel.activityLockOwner.__doc__, "owner of the activity lock")
        self.assertEqual(_Zel.enableThreadSafePointers.__doc__, "enable atomic smart pointers")


class Anchors(unittest.TestCase):
    def test_nested_anchor_keeps_outer_lock_and_restores_releasable(self):
        me = helper.tid()
        seen = []

        def inner():
            seen.append(helper.lockState())
            return "inner"

        def outer():
            seen.append(helper.lockState())
            self.assertEqual(helper.withAnchor(4, inner), "inner")
            seen.append(helper.lockState())
            return "outer"

        self.assertEqual(helper.withAnchor(1 | 4, outer), "outer")
        self.assertEqual(seen, [(me, False), (me, True), (me, False)])
        self.assertEqual(helper.lockState()[0], 0)

    def test_requiring_releasable_under_unreleasable_lock_is_a_violation(self):
        me = helper.tid()
        after = []

        def outer():
            try:
                helper.withAnchor(2 | 4, lambda: None)
            except SystemError as e:
                after.append((str(e), helper.lockState()))
            return None

        helper.withAnchor(1 | 4, outer)
        self.assertEqual(after, [("Lock Protocol violation xxx", (me, False))])

    def test_unlock_anchor_releases_only_a_releasable_lock(self):
        owners = []

        def callback():
            owners.append(_Zel.activityLockOwner())

        helper.withAnchor(4, lambda: helper.withUnlock(callback))
        self.assertEqual(owners, [0])
        with self.assertRaises(SystemError) as cm:
            helper.withAnchor(1 | 4, lambda: helper.withUnlock(callback))
        self.assertEqual(str(cm.exception), "Lock Protocol exception -- unlocking an unreleasable lock")
        self.assertEqual(owners, [0])

    def test_unlock_anchor_refuses_to_relock_a_lock_already_held(self):
        def grab():
            self.assertTrue(_Zel.acquireActivityLock())

        with self.assertRaises(SystemError) as cm:
            helper.withAnchor(4, lambda: helper.withUnlock(grab))
        self.assertEqual(str(cm.exception), "Lock was already grabbed in UnlockAnchor destructor!")
        # The enclosing anchor unlocked the lock it had taken.
        self.assertEqual(_Zel.activityLockOwner(), 0)


THREAD_SAFE_CHILD = r"""
import sys, threading, time, _Zel, _ZelTestHelper as helper
e = helper.entity("e")
_Zel.enableThreadSafePointers()
held, done = threading.Event(), threading.Event()
def holder():
    _Zel.acquireActivityLock(); held.set(); done.wait(5); _Zel.releaseActivityLock()
t = threading.Thread(target=holder); t.start(); held.wait(5)
start = time.time(); helper.convert(e); waited = time.time() - start
done.set(); t.join()
sys.exit(0 if waited < 1 else 3)
"""


class ThreadSafePointers(unittest.TestCase):
    def test_converter_waits_for_the_lock_until_pointers_are_thread_safe(self):
        e = helper.entity("e")
        waited = []

        def holder():
            _Zel.acquireActivityLock()
            time.sleep(0.3)
            _Zel.releaseActivityLock()

        t = threading.Thread(target=holder)
        t.start()
        time.sleep(0.1)
        start = time.time()
        helper.convert(e)
        waited.append(time.time() - start)
        t.join()
        self.assertGreater(waited[0], 0.1)
        # One-way switch: checked in a child process.
        self.assertEqual(subprocess.call([sys.executable, "-c", THREAD_SAFE_CHILD]), 0)


SIGINT_CHILD = r"""
import os, signal, sys, _Zel, _ZelTestHelper as helper
before = helper.stopOnQuiesce()
try:
    os.kill(os.getpid(), signal.SIGINT)
    for i in range(1000000): pass
    sys.exit(4)
except KeyboardInterrupt:
    sys.exit(0 if (before, helper.stopOnQuiesce()) == (False, True) else 5)
"""


class Interrupt(unittest.TestCase):
    def test_sigint_stops_the_loop_and_still_interrupts_python(self):
        self.assertEqual(subprocess.call([sys.executable, "-c", SIGINT_CHILD]), 0)


if __name__ == "__main__":
    unittest.main()
