"""Watches: a PyServer in this process over raw sockets (the activity loop run here delivers the changes). zelc
--watch against a zelagent: test_zelc_operator."""

import gc
import shutil
import socket
import tempfile
import time
import unittest

import Zel
import ZelDemo  # noqa: F401
import PyServer
import ZelWatch
from snapshot import live
from zelsupport import run_until_quiet, until
from ZelWire import KIND_WATCH, frame, greet, response

KEPT = ('Zel::PyGenericIfNotifiee', 'Zel::ActivityConfig', 'Zel::PyObjHandle')


def changes(sock, count):
    """The next `count` pushed frames as (status, attribute or count, value)."""
    frames = [response(sock) for _ in range(count)]
    return [(st,) + tuple(p.split(' ', 2)[1:]) if st == 'CH' else (st, p, None) for st, p in frames]


class InProcess(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp()
        self.server = PyServer.PyServer('t.watch', directory=self.dir).start()
        self.sw = Zel.root().newEntity('wt', 'Demo::Switch')
        self.et = self.sw.intf.newMember('et1')

    def tearDown(self):
        self.server.stop()
        del Zel.root().entity['wt']
        shutil.rmtree(self.dir, ignore_errors=True)

    def watch(self, command):
        s = socket.socket(socket.AF_UNIX)
        s.connect(self.server.socketPath)
        s.settimeout(30)
        greet(s)
        s.sendall(frame(KIND_WATCH, command))
        return s, response(s)

    def test_changes_in_order_and_only_those_asked_for_refusals_and_ends(self):
        gc.collect()
        before = live(*KEPT)
        for command, error in (('/wt/nope', 'LookupError: no entity /wt/nope\n'),
                               ('/wt\nreset', 'AttributeError: Demo::Switch has no attribute reset\n'),
                               ('/wt\nvlan\nnone', 'AttributeError: Demo::Switch has no attribute none\n')):
            refused, answer = self.watch(command)
            self.assertEqual((answer, refused.recv(10)), (('EX', error), b''))
        s, started = self.watch('/wt/et1\nmtu\ndescription')
        whole, wholeStarted = self.watch('/wt')
        self.assertEqual((started, wholeStarted), (('OK', '/wt/et1'), ('OK', '/wt')))
        self.assertEqual((ZelWatch.watching(), live(*KEPT)[:2]), (2, [before[0] + 2, before[1] + 2]))
        since = time.time()
        for i in range(2000):
            self.et.mtu = i
            self.et.adminUp = i % 2 == 0
        self.et.description = 'up'
        self.sw.vlan[10] = 'users'
        self.sw.intf.newMember('et2')
        run_until_quiet()
        self.assertEqual(changes(s, 2001), [('CH', 'mtu', '%d' % i) for i in range(2000)] +
                         [('CH', 'description', "'up'")])
        # The collections' changes name the key.
        self.assertEqual(changes(whole, 2), [('CH', 'vlan', '10'), ('CH', 'intf', "'et2'")])
        del self.sw.vlan[10]
        run_until_quiet()
        stamp, rest = response(whole)[1].split(' ', 1)
        self.assertEqual((rest, since <= float(stamp) <= time.time() + 0.001), ('vlan 10', True))
        whole.close()   # the client goes ...
        until(lambda: ZelWatch.watching() == 1)
        self.assertEqual((ZelWatch.watching(), live(*KEPT)[:2]), (1, [before[0] + 1, before[1] + 1]))
        self.et.mtu = 1
        run_until_quiet()
        self.assertEqual(changes(s, 1), [('CH', 'mtu', '1')])
        self.server.stop()   # ... or the server stops
        self.assertEqual((ZelWatch.watching(), s.recv(10)), (0, b''))
        self.assertEqual(live(*KEPT), before)

    def test_a_reader_too_slow_is_told_how_many_changes_were_dropped(self):
        limits = ZelWatch.MAX_QUEUED, ZelWatch.MAX_QUEUED_BYTES
        ZelWatch.MAX_QUEUED, ZelWatch.MAX_QUEUED_BYTES = 100, 4000
        try:
            s, _ = self.watch('/wt/et1\nmtu\ndescription')
        finally:
            ZelWatch.MAX_QUEUED, ZelWatch.MAX_QUEUED_BYTES = limits
        total = 30000
        for i in range(total):   # never read meanwhile: the loop must not wait for the reader
            self.et.mtu = i
            if i % 500 == 499:
                run_until_quiet()
        expected = dropped = 0
        while expected < total:
            status, payload = response(s)
            if status == 'DR':
                expected += int(payload)
                dropped += int(payload)
            else:
                # In order, and every change either sent or counted in its place.
                self.assertEqual((status, int(payload.split(' ')[2])), ('CH', expected))
                expected += 1
        self.assertEqual(expected, total)
        self.assertGreater(dropped, 0)
        # A value too large for the queue's bytes is dropped alone, and counted before the next change.
        self.et.description, self.et.mtu = 'x' * 5000, total
        run_until_quiet()
        self.assertEqual(changes(s, 2), [('DR', '1', None), ('CH', 'mtu', '%d' % total)])


if __name__ == '__main__':
    unittest.main()
