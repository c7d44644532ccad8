"""Soak: every actor of soak_actors at once for ZEL_SOAK_SECONDS (default 20), each notification, firing and reply
checked (soak_checks), then the process back where it started (docs/soak.md)."""
import os
import subprocess
import sys
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

        def phase(seconds, fn, *args):
            """fn(*args), which the watchdog allows `seconds`."""
            watchdog.stdin.write(b'%f\n' % seconds)
            watchdog.stdin.flush()
            return fn(*args)
        try:
            # A short run first makes what every later run finds made: type
            # proxies, compiled code, thread states, lazily made singletons.
            # A run may take its time and each of its waits.
            phase(WARMUP_SECONDS + 3 * HANG + 30, runChecked, self, WARMUP_SECONDS)
            before = phase(2 * HANG, snapshot)
            phase(SECONDS + 3 * HANG + 30, runChecked, self, SECONDS)
            after = phase(2 * HANG, snapshot)
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
