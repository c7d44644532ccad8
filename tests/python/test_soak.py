"""Soak: for ZEL_SOAK_SECONDS (default 20), all at once, Python threads
change and read framework objects, the activity loop delivers deferred
attribute notifications and clock firings into Python while immediate
notifiees are called on the changing threads, clients send commands over
the PyServer's UNIX socket and TCP port (raw wire protocol, and zelc
processes through Zel::PyClient) that read and change the same objects,
and handles, notifiees, timers, proxies and iterators are made and dropped
in a loop (soak_actors). Every notification, firing and reply is checked
to arrive once and be right (soak_checks); afterwards the live framework
objects, threads, file descriptors and Python objects are back where they
started."""
import os
import subprocess
import sys
import time
import unittest

import children
import soak_checks
from snapshot import snapshot
from soak_actors import HANG, runChecked

SECONDS = float(os.environ.get('ZEL_SOAK_SECONDS') or 20)
WARMUP_SECONDS = 1.0


class SoakTest(unittest.TestCase):
    def test_everything_at_once_and_back_where_it_started(self):
        watchdog = subprocess.Popen([sys.executable, '-c', soak_checks.WATCHDOG, str(os.getpid())],
                                    stdin=subprocess.PIPE, close_fds=True)

        def allow(seconds):
            watchdog.stdin.write('%f\n' % seconds)
            watchdog.stdin.flush()
        try:
            # A short run first makes what every later run finds made: type
            # proxies, compiled code, thread states, lazily made singletons.
            allow(WARMUP_SECONDS + 3 * HANG + 30)   # the run and each of its waits
            runChecked(self, WARMUP_SECONDS)
            allow(2 * HANG)
            before = snapshot()
            started = time.time()
            allow(SECONDS + 3 * HANG + 30)
            runChecked(self, SECONDS)
            allow(2 * HANG)
            after = snapshot()
            sys.stderr.write('soak: %.1f s\n' % (time.time() - started))
        finally:
            watchdog.stdin.close()
            with children.watched(watchdog, 'the soak watchdog'):
                watchdog.wait()
        self.assertEqual(soak_checks.changed_live(before['live'], after['live']), {})
        self.assertEqual((after['threads'], after['tasks']), (before['threads'], before['tasks']))
        self.assertEqual(after['fds'], before['fds'])
        self.assertEqual(soak_checks.grown(before['census'], after['census']), {})


if __name__ == '__main__':
    unittest.main()
