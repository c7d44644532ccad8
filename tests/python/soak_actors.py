"""The soak's actors, which run all at once (docs/soak.md)."""
import collections
import ctypes
import itertools
import os
import select
import shutil
import socket
import sys
import tempfile
import threading
import time
import traceback

import PyServer
import Zel
import ZelDemo  # noqa: F401
import _Zel
from ZelWire import KIND_EVAL, KIND_EXEC, greet, request
from soak_checks import CLIENT_VLAN, STATIC_VLANS, WRITER_VLAN, Seen, idle, owner, problems
from zelsupport import run_until_quiet

# A thread or reply taking this long has hung (under valgrind,
# where the server runs tens of times slower, memcheck.sh sets more).
HANG = float(os.environ.get('ZEL_SOAK_HANG', 60))
WRITERS, CLIENTS, CLOCKS = 3, 4, 3
QUIET = HANG / 2               # the loop goes quiet within this once every actor stopped
REARM = 0.002                  # clock handlers wake again this long after a firing

ALL = _Zel.typeNode('Demo::AllTypes')
I32 = ALL.attr('i32')
SW = _Zel.typeNode('Demo::Switch')
VLAN, INTF = SW.attr('vlan'), SW.attr('intf')
CN = _Zel.typeNode('Zel::PyClockNotifiee')
WAKE = CN.attr('timeMinProxy')
ACTIVITY = _Zel.typeNode('Zel::ActivityConfig')

_libc = ctypes.CDLL(None)

# A remote user's watch on one object, living in the connection's namespace:
# its handler refers to that namespace, and so to the watch itself.
WATCH = 'mine = []\nwatch = Zel.notifiee(objs[%d], lambda name, v: mine.append(v), attrs=["i64"])'


def client_step(c, r, seq, v):
    """(kind, command, answer) of request r on a connection of client c, its seq'th; v: the client's sets so far."""
    k, absent, here = CLIENT_VLAN + c, 10 ** 6 + seq, r // 6 + 1   # here: the sets on this connection
    return [(KIND_EXEC, 'objs[%d].i64 = %d\nprint(objs[%d].i64)' % (c, v, c), ('OK', '%d\n' % v)),
            (KIND_EVAL, '(%d, sw.add(%d, %d))' % (seq, c, seq), ('OK', '(%d, %d)' % (seq, c + seq))),
            (KIND_EXEC, 'sw.vlan[%d] = "c%d-%d"\nprint(sw.vlan[%d])' % (k, c, seq, k), ('OK', 'c%d-%d\n' % (c, seq))),
            (KIND_EVAL, '([k for k in sw.vlan if k < %d] == list(range(%d)), len(mine))' % (STATIC_VLANS, STATIC_VLANS),
             ('OK', '(True, %d)' % here)),
            (KIND_EVAL, 'all(v.name == k for k, v in sw.intf.iteritems()) and %d' % seq, ('OK', str(seq))),
            (KIND_EVAL, 'sw.vlan[%d]' % absent, ('EX', 'KeyError: %d\n' % absent))][r % 6]


class Soak(object):
    """One run of every actor for `seconds`; soak_checks.problems() tells what went wrong."""

    def __init__(self, seconds):
        self.seconds, self.errors, self.clocks = seconds, [], []
        self.stop, self.loopStop = threading.Event(), threading.Event()
        self.act = _Zel.newGenericIf(ACTIVITY, ('soak',))
        self.clock = _Zel.singleton('Zel::Clock')   # not a global: the module outlives a test module
        self.sw = Zel.new('Demo::Switch', 'soak')
        for k in range(STATIC_VLANS):
            self.sw.vlan[k] = 'v%d' % k
        self.objs = [Zel.new('Demo::AllTypes', 'soak%d' % i) for i in range(max(WRITERS, CLIENTS, CLOCKS))]
        # Immediate and deferred notifiees on every object and on the switch,
        # and through the package a filtered, deferred one.
        self.now = [dict((a, Seen(ordered=True)) for a in ('i32', 'i64', 'u64')) for _ in self.objs]
        self.later = [dict((a, Seen(ordered=True)) for a in ('i32', 'i64', 'u64')) for _ in self.objs]
        self.swNow, self.swLater, self.swIntf = Seen(), Seen(), Seen()
        self.keep = [o.ptr_.newNotifiee(_Zel.handle(self.guard(how, lambda n, v, s=seen: s[n].see(v))), act)
                     for o, now, later in zip(self.objs, self.now, self.later)
                     for how, seen, act in (('now', now, None), ('later', later, self.act))]
        self.keep += [self.sw.ptr_.newNotifiee(_Zel.handle(self.guard(how, lambda n, k, s=seen: s.see(owner(n, k)))),
                                               act)
                      for how, seen, act in (('switch now', self.swNow, None), ('switch later', self.swLater, self.act))]
        self.filtered = Zel.notifiee(self.sw, self.guard('intf only', lambda n, k: self.swIntf.see(owner(n, k))),
                                     attrs=['intf'], activity=self.act)
        self.expected = Seen()   # switch changes by owner
        self.writes, self.sets, self.requests = [0] * WRITERS, [0] * CLIENTS, [0] * CLIENTS
        self.churns = 0
        self.dir = tempfile.mkdtemp()
        self.server = PyServer.PyServer('soak.srv', tcpPort=0, directory=self.dir,
                                        namespace={'Zel': Zel, 'sw': self.sw, 'objs': self.objs})

    # ---- helpers ----------------------------------------------------------
    def guard(self, where, fn):
        """fn, recording what it raises and stopping the run: a handler that raises ends the process."""
        def guarded(*args):
            try:
                fn(*args)
            except Exception:
                self.errors.append('%s%r: %s' % (where, args, traceback.format_exc()))
                self.stop.set()
        return guarded

    def thread(self, name, fn, *args):
        def run():
            # The kernel's name of the thread, which the watchdog's report shows.
            _libc.prctl(15, ctypes.c_char_p(name[:15].encode()), 0, 0, 0)
            self.guard(name, fn)(*args)
        t = threading.Thread(target=run, name=name)
        t.daemon = True   # a hung one must not keep the process from reporting
        return t

    def steps(self, items=None):
        """items (by default 1, 2, 3, ...) until the actors stop."""
        return itertools.takewhile(lambda _: not self.stop.is_set(), itertools.count(1) if items is None else items)

    # ---- the actors ---------------------------------------------------------
    def writer(self, w):
        """Sets i32 of its object to 1, 2, 3, ...; changes vlans and interfaces of its own; reads the switch."""
        obj, ptr, sw, key, me = self.objs[w], self.objs[w].ptr_, self.sw, WRITER_VLAN + w, 'w%d' % w
        mine = collections.deque()
        for i in self.steps():
            if i % 2:
                obj.i32 = i
            else:
                ptr.attributeSingletonIs(I32, i)
            self.writes[w] = i
            if i % 7 == 0:
                sw.vlan[key] = '%s-%d' % (me, i)
            if i % 50 == 0:
                del sw.vlan[key]
            if i % 11 == 0:
                mine.append(sw.intf.newMember('%s-%d' % (me, i)).name)
            if len(mine) > 4:
                del sw.intf[mine.popleft()]
            if i % 10 == 0:
                # Flat out, the writers would have the loop do little but
                # deliver their changes; pausing lets every actor have turns.
                time.sleep(0.001)
                assert obj.i32 == i and ptr.attributeSingleton(I32) == i
                assert [k for k in sw.vlan if k < STATIC_VLANS] == list(range(STATIC_VLANS))
                assert sw.vlan[i % STATIC_VLANS] == 'v%d' % (i % STATIC_VLANS)
                assert all(intf.name == name for name, intf in sw.intf.iteritems())
                assert not mine or sw.intf[mine[-1]].mtu == 1500
        for name in mine:
            del sw.intf[name]
        # The switch's changes it made: every interface made is deleted again.
        n = self.writes[w]
        self.expected.see(('vlan', key), n // 7 + n // 50)
        self.expected.see(('intf', me), 2 * (n // 11))

    def client(self, c):
        """Commands over the wire (odd clients by TCP), a new connection every so often, each with its own watch."""
        for connection in self.steps():
            s = socket.socket(socket.AF_INET if c % 2 else socket.AF_UNIX)
            s.settimeout(HANG)
            try:
                s.connect(('127.0.0.1', self.server.tcpPort) if c % 2 else self.server.socketPath)
                greet(s)
                assert request(s, KIND_EXEC, WATCH % c) == ('OK', '')
                for r in self.steps(range(40 + 37 * ((connection + c) % 5))):
                    self.requests[c] += 1
                    self.sets[c] += r % 6 == 0
                    self.expected.see(('vlan', CLIENT_VLAN + c), r % 6 == 2)
                    kind, cmd, want = client_step(c, r, self.requests[c], self.sets[c])
                    got = request(s, kind, cmd)
                    if want[0] == 'EX':   # the end of the traceback
                        got = got[0], got[1][-len(want[1]):]
                    assert got == want, (c, self.requests[c], got, want)
                # Exactly one reply per request: nothing more is on its way.
                assert not select.select([s], [], [], 0)[0], 'a reply nobody asked for'
            finally:
                s.close()

    def startClock(self, k, activity):
        """A clock notifiee whose handler re-arms it: k 0 and 1 through _Zel (deferred, immediate), 2 a Zel.timer."""
        clock = dict(fired=0, arms=0, armed=None, box=[])
        obj, box = self.objs[k], clock['box']

        def arm():
            clock['armed'] = Zel.now() + REARM
            clock['arms'] += 1
            if k == 2:
                box[0].at(clock['armed'])
            else:
                box[0].attributeSingletonIs(WAKE, clock['armed'])

        def fired():
            if box:   # not the call a raw clock notifiee makes when it is made
                armed, clock['armed'] = clock['armed'], None
                assert armed is not None, 'fired without a wake time'
                assert Zel.now() >= armed, 'fired %g s early' % (armed - Zel.now())
                clock['fired'] += 1
                obj.u64 = clock['fired']
                if not self.stop.is_set():
                    arm()
        handler = self.guard('clock %d' % k, fired)
        if k == 2:   # stored before it is armed, as below
            box.append(Zel.timer(handler, at=Zel.now() + HANG, activity=activity))
        else:
            box.append(_Zel.newGenericIf(CN, (activity, self.clock, _Zel.handle(handler))))
        arm()
        self.clocks.append(clock)

    def loop(self):
        while not self.loopStop.is_set():
            _Zel.activityManagerExecTimeIs(0.01)
        # Wake-ups armed before the end are at most REARM away; then
        # whatever the last passes queued. Once every actor has stopped,
        # nothing may keep the loop busy.
        _Zel.activityManagerExecTimeIs(10 * REARM + 0.05)
        started = time.time()
        run_until_quiet(QUIET)
        assert time.time() - started < QUIET, 'the loop never went quiet: wake-ups or deliveries kept coming'

    def churn(self):
        """Makes and drops handles, notifiees, clock notifiees, timers, proxies and iterators of its own."""
        base = Zel.new('Demo::AllTypes', 'churn')
        for k in self.steps():
            _Zel.handle((k, 'dropped at once'))
            got = []
            n = base.ptr_.newNotifiee(_Zel.handle(self.guard('churn', lambda name, v: got.append(v))),
                                      self.act if k % 2 else None)
            base.i32 = k
            if k % 2 == 0:
                assert got == [k], got   # immediate: delivered before the set returned
            del n   # a deferred one may be dropped with its delivery queued
            assert got in ([], [k]), got
            calls = []
            c = _Zel.newGenericIf(CN, (self.act if k % 3 else None, self.clock,
                                       _Zel.handle(self.guard('churn clock', lambda: calls.append(1)))))
            assert calls == [1], calls   # the call made when it is made
            if k % 2:
                c.attributeSingletonIs(WAKE, Zel.now() + REARM / 2)
            del c
            self.selfArmingTimer(self.act if k % 2 else None, k % 4 == 0)
            p = Zel.new('Demo::AllTypes', 'churn%d' % k)
            p.peer = base
            w = Zel.notifiee(p, lambda name, v: None, attrs=['peer'])
            p.s8 = 'x' * (k % 40)
            assert p.peer == base and p.s8 == 'x' * (k % 40)
            w.close()
            del p, w
            name = 'c-%d' % k
            intf = self.sw.intf.newMember(name)
            intf.mtu = 1000 + k % 8000
            it = self.sw.ptr_.attributeIter(VLAN if k % 2 else INTF, k % 3)
            for _ in range(k % 5):
                next(it, None)
            del it, intf
            del self.sw.intf[name]
            self.expected.see(('intf', 'c'), 2)
            assert self.sw.vlan.get(k % STATIC_VLANS) == 'v%d' % (k % STATIC_VLANS)
            assert self.sw.describe().startswith('switch soak: ')
            assert self.sw.intf.get(name) is None
            self.churns += 1

    def selfArmingTimer(self, activity, wait):
        """A timer whose handler keeps it to re-arm it, dropped by its maker: it re-arms until the actors stop."""
        # It lives on in that cycle until the collector runs; dozens
        # re-arming for ever kept the loop from going quiet under valgrind.
        box, done = [], []

        def fired():
            assert not done, 'fired again with no wake time set'
            if self.stop.is_set():
                done.append(True)
            else:
                box[0].after(REARM)
        # Stored before it is armed: armed at once, it could fire on the
        # loop's thread before the maker had stored it to re-arm.
        box.append(Zel.timer(self.guard('churn timer', fired), at=Zel.now() + HANG, activity=activity))
        box[0].after(REARM)
        if wait:
            time.sleep(3 * REARM)

    # ---- the run ----------------------------------------------------------
    def run(self):
        self.server.start()
        hung = []
        try:
            for k in range(CLOCKS):
                self.startClock(k, [self.act, None, self.act][k])
            loop = self.thread('soak loop', self.loop)
            workers = ([self.thread('soak writer %d' % w, self.writer, w) for w in range(WRITERS)] +
                       [self.thread('soak client %d' % c, self.client, c) for c in range(CLIENTS)] +
                       [self.thread('soak churn', self.churn)])
            for t in [loop] + workers:
                t.start()
            self.stop.wait(self.seconds)
            self.awaitProgress()
            self.stop.set()
            hung = self.join(workers)
            self.loopStop.set()
            hung += self.join([loop])
            if hung:
                frames = sys._current_frames()
                self.errors.append('hung threads:\n' + '\n'.join(
                    '%s:\n%s' % (t.name, ''.join(traceback.format_stack(frames.get(t.ident)))) for t in hung))
        finally:
            if not hung:   # stop() would wait for a hung connection
                self.server.stop()
            shutil.rmtree(self.dir, ignore_errors=True)

    def awaitProgress(self):
        # However loaded the machine, a run counts only once every actor
        # did its work at least once; not within HANG is a hang.
        end = time.time() + HANG
        while idle(self) and not self.stop.is_set() and time.time() < end:
            time.sleep(0.05)
        if idle(self) and not self.stop.is_set():
            self.errors.append('no progress within %d s: %s' % (HANG, ', '.join(idle(self))))

    @staticmethod
    def join(threads):
        end = time.time() + HANG
        for t in threads:
            t.join(max(0.0, end - time.time()))
        return [t for t in threads if t.is_alive()]

    def close(self):
        for clock in self.clocks:
            if clock['box'] and not isinstance(clock['box'][0], Zel.Timer):
                del clock['box'][:]   # a _Zel clock handler's reference to its own notifiee
        self.__dict__.clear()


def runChecked(test, seconds):
    """Runs every actor for `seconds`; fails `test` with what went wrong."""
    soak = Soak(seconds)
    try:
        soak.run()
        bad = problems(soak)
        test.assertEqual(bad, [], '\n'.join(bad))
        sys.stderr.write('soak %.0f s: writes %r, client sets %r, requests %r, churns %d, clock firings '
                         '%r\n' % (seconds, soak.writes, soak.sets, soak.requests, soak.churns,
                                   [clock['fired'] for clock in soak.clocks]))
    finally:
        soak.close()
