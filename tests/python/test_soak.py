"""Soak: for ZEL_SOAK_SECONDS (default 20), all at once, Python threads
change and read framework objects, the activity loop delivers deferred
attribute notifications and clock firings into Python while immediate
notifiees are called on the changing threads, clients send commands over
the PyServer's UNIX socket and TCP port (raw wire protocol, and zelc
processes through Zel::PyClient) that read and change the same objects,
and handles, notifiees, timers, proxies and iterators are made and dropped
in a loop. Every notification, firing and reply is checked to arrive once
and be right; afterwards the live framework objects, threads, file
descriptors and Python objects are back where they started."""
import collections
import ctypes
import gc
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time
import traceback
import types
import unittest
import weakref

import PyServer
import Zel
import ZelDemo  # noqa: F401
import _Zel
from wire import recvExactly, request

SECONDS = float(os.environ.get('ZEL_SOAK_SECONDS') or 20)
WARMUP_SECONDS = 1.0
HANG = 60.0                    # a thread, reply or zelc run taking this long has hung
WRITERS, CLIENTS, CLOCKS = 3, 4, 3
OBJECTS = max(WRITERS, CLIENTS, CLOCKS)
STATIC_VLANS = 20              # vlan keys 0..19 are set up once and never change
CLIENT_VLAN, WRITER_VLAN, ZELC_VLAN = 1000, 2000, 3000
QUIET = HANG / 2               # the loop goes quiet within this once every actor stopped
REARM = 0.002                  # clock handlers wake again this long after a firing
ZELC = os.path.join(os.environ.get('ZEL_BUILD_DIR', ''), 'bin', 'zelc')

ALL = _Zel.typeNode('Demo::AllTypes')
I32 = ALL.attr('i32')
SW = _Zel.typeNode('Demo::Switch')
VLAN, INTF = SW.attr('vlan'), SW.attr('intf')
CN = _Zel.typeNode('Zel::PyClockNotifiee')
WAKE = CN.attr('timeMinProxy')
CLOCK = _Zel.singleton('Zel::Clock')
ACTIVITY = _Zel.typeNode('Zel::ActivityConfig')
MGR = _Zel.singleton('Zel::ActivityManagerConfig')
QUIESCE = _Zel.typeNode('Zel::ActivityManagerConfig').attr('stopOnQuiesce')
TRACKER = _Zel.singleton('Zel::AllocTracker')
LIVE = _Zel.typeNode('Zel::AllocTracker').attr('liveCount')

_libc = ctypes.CDLL(None)


def _nameThisThread(name):
    # The kernel's name of the thread, which the watchdog's report shows.
    _libc.prctl(15, ctypes.c_char_p(name[:15]), 0, 0, 0)


def liveCounts():
    it = TRACKER.attributeIter(LIVE, _Zel.IteratorModeItems)
    return dict(iter(lambda: next(it, None), None))


def census():
    """Objects by type: every object the collector tracks, and the
    untracked ones (GifPtr handles, strings, numbers) they refer to."""
    gc.collect()
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


def snapshot():
    gc.collect()
    return {'live': liveCounts(), 'threads': threading.active_count(),
            'tasks': len(os.listdir('/proc/self/task')), 'fds': sorted(os.listdir('/proc/self/fd')),
            'census': census()}


class Ordered(object):
    """One attribute of one object whose single writer sets 1, 2, 3, ...: a
    notifiee called at once sees each value once, in order."""

    def __init__(self):
        self.last = 0

    def see(self, v):
        if v != self.last + 1:
            raise AssertionError('%r after %r' % (v, self.last))
        self.last = v

    def check(self, n):
        return None if self.last == n else 'saw up to %d of %d' % (self.last, n)


class Once(object):
    """The same values through a deferred notifiee: any order, each once.
    Two threads may deliver at the same time (the loop, and the writer
    when the loop is dispatching that notifiee), hence the lock."""

    def __init__(self):
        self.bits = bytearray(1024)
        self.seen = 0
        self.lock = threading.Lock()

    def see(self, v):
        with self.lock:
            while v >= len(self.bits):
                self.bits.extend(bytearray(len(self.bits)))
            if v <= 0 or self.bits[v]:
                raise AssertionError('%r delivered twice or out of range' % v)
            self.bits[v] = 1
            self.seen += 1

    def check(self, n):
        if self.seen == n and self.bits.find('\0', 1, n + 1) < 0:
            return None
        return 'saw %d of %d, first missing %r' % (self.seen, n, self.bits.find('\0', 1))


class Tally(object):
    """Counts by key, from any thread."""

    def __init__(self):
        self.counts = collections.Counter()
        self.lock = threading.Lock()

    def add(self, key):
        with self.lock:
            self.counts[key] += 1


def owner(name, key):
    """Who changed the switch's member `key`: every member belongs to one actor."""
    if name == 'vlan' and isinstance(key, int) and key >= CLIENT_VLAN:
        return 'vlan', key
    if name == 'intf' and '-' in key:
        return 'intf', key.split('-')[0]
    raise AssertionError('unexpected change of %s[%r]' % (name, key))


# A remote user's watch on one object, living in the connection's namespace:
# its handler refers to that namespace, and so to the watch itself.
WATCH = 'mine = []\nwatch = Zel.notifiee(objs[%d], lambda name, v: mine.append(v), attrs=["i64"])'


class Soak(object):
    """One run of every actor for `seconds`; check() tells what went wrong."""

    def __init__(self, seconds):
        self.seconds = seconds
        self.errors = []
        self.stop = threading.Event()
        self.loopStop = threading.Event()
        self.act = _Zel.newGenericIf(ACTIVITY, ('soak',))
        self.sw = Zel.new('Demo::Switch', 'soak')
        for k in range(STATIC_VLANS):
            self.sw.vlan[k] = 'v%d' % k
        self.objs = [Zel.new('Demo::AllTypes', 'soak%d' % i) for i in range(OBJECTS)]
        # Immediate and deferred notifiees on every object and on the switch.
        self.now = [dict(i32=Ordered(), i64=Ordered(), u64=Ordered()) for _ in self.objs]
        self.later = [dict(i32=Once(), i64=Once(), u64=Once()) for _ in self.objs]
        self.swNow, self.swLater, self.swIntf = Tally(), Tally(), Tally()
        self.keep = []
        for o, now, later in zip(self.objs, self.now, self.later):
            self.keep.append(o.ptr_.newNotifiee(_Zel.handle(self.guard('now', self.perAttr(now))), None))
            self.keep.append(o.ptr_.newNotifiee(_Zel.handle(self.guard('later', self.perAttr(later))),
                                                self.act))
        self.keep.append(self.sw.ptr_.newNotifiee(
            _Zel.handle(self.guard('switch now', lambda n, k: self.swNow.add(owner(n, k)))), None))
        self.keep.append(self.sw.ptr_.newNotifiee(
            _Zel.handle(self.guard('switch later', lambda n, k: self.swLater.add(owner(n, k)))), self.act))
        # Through the package: a filtered, deferred notifiee.
        self.filtered = Zel.notifiee(self.sw, self.guard('intf only', lambda n, k: self.swIntf.add(owner(n, k))),
                                     attrs=['intf'], activity=self.act)
        self.expected = collections.Counter()   # switch changes by owner
        self.expectLock = threading.Lock()
        self.writes = [0] * WRITERS
        self.sets = [0] * CLIENTS
        self.requests = [0] * CLIENTS
        self.zelcRuns = self.zelcLines = 0
        self.zelcProc = None
        self.churns = 0
        self.clocks = []
        self.dir = tempfile.mkdtemp()
        self.server = PyServer.PyServer('soak.srv', tcpPort=0, directory=self.dir,
                                        namespace={'Zel': Zel, 'sw': self.sw, 'objs': self.objs})

    # ---- helpers ----------------------------------------------------------
    def guard(self, where, fn):
        """A handler must not raise (that ends the process): record instead."""
        def handler(*args):
            try:
                fn(*args)
            except Exception:
                self.errors.append('%s handler%r: %s' % (where, args, traceback.format_exc()))
                self.stop.set()
        return handler

    @staticmethod
    def perAttr(trackers):
        def seen(name, v):
            if name not in trackers:
                raise AssertionError('unexpected change of %s to %r' % (name, v))
            trackers[name].see(v)
        return seen

    def expect(self, key, n=1):
        with self.expectLock:
            self.expected[key] += n

    def thread(self, name, fn, *args):
        def run():
            _nameThisThread(name)
            try:
                fn(*args)
            except Exception:
                self.errors.append('%s: %s' % (name, traceback.format_exc()))
                self.stop.set()
        t = threading.Thread(target=run, name=name)
        t.daemon = True   # a hung one must not keep the process from reporting
        return t

    # ---- the actors ---------------------------------------------------------
    def writer(self, w):
        """Sets i32 of its object to 1, 2, 3, ...; adds and removes vlans
        and interfaces of its own; reads the switch's collections."""
        obj, ptr, sw = self.objs[w], self.objs[w].ptr_, self.sw
        mine = collections.deque()
        i = 0
        while not self.stop.is_set():
            i += 1
            if i % 2:
                obj.i32 = i
            else:
                ptr.attributeSingletonIs(I32, i)
            self.writes[w] = i
            if i % 10 == 0:
                # Flat out, the writers would have the loop do little but
                # deliver their changes; pausing lets every actor have turns.
                time.sleep(0.001)
            if i % 7 == 0:
                sw.vlan[WRITER_VLAN + w] = 'w%d-%d' % (w, i)
                self.expect(('vlan', WRITER_VLAN + w))
            if i % 50 == 0:
                del sw.vlan[WRITER_VLAN + w]
                self.expect(('vlan', WRITER_VLAN + w))
            if i % 11 == 0:
                mine.append(sw.intf.newMember('w%d-%d' % (w, i)).name)
                self.expect(('intf', 'w%d' % w))
                if len(mine) > 4:
                    del sw.intf[mine.popleft()]
                    self.expect(('intf', 'w%d' % w))
            if i % 10 == 0:
                assert obj.i32 == i and ptr.attributeSingleton(I32) == i
                assert [k for k in sw.vlan if k < STATIC_VLANS] == range(STATIC_VLANS)
                assert sw.vlan[i % STATIC_VLANS] == 'v%d' % (i % STATIC_VLANS)
                for name, intf in sw.intf.iteritems():
                    assert intf.name == name, (intf.name, name)
                if len(mine):
                    assert sw.intf[mine[-1]].mtu == 1500
        for name in mine:
            del sw.intf[name]
            self.expect(('intf', 'w%d' % w))

    def client(self, c):
        """Commands over the wire, a new connection every so often, each with
        a watch of its own in its namespace."""
        tcp = c % 2 == 1
        connection = 0
        while not self.stop.is_set():
            connection += 1
            if tcp:
                s = socket.create_connection(('127.0.0.1', self.server.tcpPort))
            else:
                s = socket.socket(socket.AF_UNIX)
                s.connect(self.server.socketPath)
            s.settimeout(HANG)
            try:
                s.sendall('CR')
                recvExactly(s, 4)
                assert request(s, '?2', WATCH % c) == ('OK', '')
                here = 0
                for r in range(40 + 37 * ((connection + c) % 5)):
                    if self.stop.is_set():
                        break
                    self.requests[c] += 1
                    seq = self.requests[c]
                    kind = r % 6
                    if kind == 0:
                        self.sets[c] += 1
                        here += 1
                        v = self.sets[c]
                        got = request(s, '?2', 'objs[%d].i64 = %d\nprint objs[%d].i64' % (c, v, c))
                        want = ('OK', '%d\n' % v)
                    elif kind == 1:
                        got = request(s, '?1', '(%d, sw.add(%d, %d))' % (seq, c, seq))
                        want = ('OK', '(%d, %d)' % (seq, c + seq))
                    elif kind == 2:
                        k = CLIENT_VLAN + c
                        self.expect(('vlan', k))
                        got = request(s, '?2', 'sw.vlan[%d] = "c%d-%d"\nprint sw.vlan[%d]' % (k, c, seq, k))
                        want = ('OK', 'c%d-%d\n' % (c, seq))
                    elif kind == 3:
                        got = request(s, '?1', '([k for k in sw.vlan if k < %d] == range(%d), len(mine))'
                                      % (STATIC_VLANS, STATIC_VLANS))
                        want = ('OK', '(True, %d)' % here)
                    elif kind == 4:
                        got = request(s, '?1', 'all(v.name == k for k, v in sw.intf.iteritems()) and %d' % seq)
                        want = ('OK', str(seq))
                    else:
                        got = request(s, '?1', 'sw.vlan[%d]' % (10 ** 6 + seq))
                        want = ('EX', 'KeyError: %d\n' % (10 ** 6 + seq))
                        got = got[0], got[1][-len(want[1]):]
                    assert got == want, (c, seq, got, want)
                # Exactly one reply per request: nothing more is on its way.
                s.setblocking(False)
                try:
                    extra = s.recv(1)
                except socket.error:
                    extra = None
                assert extra is None, 'a reply nobody asked for: %r' % extra
            finally:
                s.close()

    def zelc(self):
        """zelc -i runs, alternately over the socket and the TCP port, each a
        batch of statements and expressions on one connection."""
        run = 0
        while not self.stop.is_set():
            run += 1
            how = ['-s', self.server.socketPath] if run % 2 else ['-p', str(self.server.tcpPort)]
            lines, want = [], []
            for j in range(25):
                n = self.zelcLines = self.zelcLines + 1
                lines += ['sw.vlan[%d] = "z%d"' % (ZELC_VLAN, n), 'sw.vlan[%d]' % ZELC_VLAN,
                          'sw.add(%d, 1000)' % n]
                want += ["'z%d'" % n, str(n + 1000)]
            self.expect(('vlan', ZELC_VLAN), 25)
            p = self.zelcProc = subprocess.Popen([ZELC, '-i'] + how, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                                 stderr=subprocess.PIPE, close_fds=True)
            out, err = p.communicate('\n'.join(lines) + '\n')
            assert (p.returncode, err, out.split('\n')) == (0, '', want + ['']), (p.returncode, err, out)
            self.zelcRuns += 1

    def startClock(self, k, activity):
        """A clock notifiee whose handler re-arms it: k 0 and 1 through _Zel
        (deferred, immediate), k 2 a package timer that keeps itself."""
        state = {'calls': 0, 'arms': 0, 'armed': None}
        obj = self.objs[k]
        box = []

        def arm():
            state['armed'] = Zel.now() + REARM
            state['arms'] += 1
            if k == 2:
                box[0].at(state['armed'])
            else:
                box[0].attributeSingletonIs(WAKE, state['armed'])

        def fired():
            state['calls'] += 1
            if box:   # not the call a raw clock notifiee makes when it is made
                armed, state['armed'] = state['armed'], None
                assert armed is not None, 'fired without a wake time'
                assert Zel.now() >= armed, 'fired %g s early' % (armed - Zel.now())
                obj.u64 = state['calls'] - (k != 2)
                if not self.stop.is_set():
                    arm()
        handler = self.guard('clock %d' % k, fired)
        if k == 2:
            state['armed'] = Zel.now() + REARM
            state['arms'] += 1
            box.append(Zel.timer(handler, at=state['armed'], activity=activity))
        else:
            box.append(_Zel.newGenericIf(CN, (activity, CLOCK, _Zel.handle(handler))))
            arm()
        self.clocks.append((state, box))

    def loop(self):
        while not self.loopStop.is_set():
            _Zel.activityManagerExecTimeIs(0.01)
        # Wake-ups armed before the end are at most REARM away; then
        # whatever the last passes queued. Once every actor has stopped,
        # nothing may keep the loop busy.
        _Zel.activityManagerExecTimeIs(10 * REARM + 0.05)
        MGR.attributeSingletonIs(QUIESCE, True)
        started = time.time()
        _Zel.activityManagerExecTimeIs(QUIET)
        assert time.time() - started < QUIET, 'the loop never went quiet: wake-ups or deliveries kept coming'

    def churn(self):
        """Makes and drops handles, notifiees, clock notifiees, timers,
        proxies and iterators; every object it makes is its own."""
        base = Zel.new('Demo::AllTypes', 'churn')
        k = 0
        while not self.stop.is_set():
            k += 1
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
            c = _Zel.newGenericIf(CN, (self.act if k % 3 else None, CLOCK,
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
            self.expect(('intf', 'c'))
            intf.mtu = 1000 + k % 8000
            it = self.sw.ptr_.attributeIter(VLAN if k % 2 else INTF, k % 3)
            for _ in range(k % 5):
                next(it, None)
            del it, intf
            del self.sw.intf[name]
            self.expect(('intf', 'c'))
            assert self.sw.vlan.get(k % STATIC_VLANS) == 'v%d' % (k % STATIC_VLANS)
            assert self.sw.describe().startswith('switch soak: ')
            assert self.sw.intf.get(name) is None
            self.churns += 1

    def selfArmingTimer(self, activity, wait):
        """A timer as it is usually written: its handler keeps it, to re-arm
        it; dropped by its maker, at times after it fired and re-armed.

        Dropped, it lives on in that cycle until the collector runs, which
        the loop's own work does not make it do. So it re-arms only until
        the actors stop: dozens of them re-arming for ever kept the loop
        from going quiet once one round of their firings took longer than
        REARM, so that one was always due (under valgrind, on a loaded
        machine). The firing that finds the actors
        stopped sets no new wake time, so it must be the last."""
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
                       [self.thread('soak zelc', self.zelc), self.thread('soak churn', self.churn)])
            loop.start()
            for t in workers:
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
                    '%s:\n%s' % (t.name, ''.join(traceback.format_stack(frames.get(t.ident))))
                    for t in hung))
                if self.zelcProc is not None and self.zelcProc.poll() is None:
                    self.zelcProc.kill()
        finally:
            if not hung:   # stop() would wait for a hung connection
                self.server.stop()
            shutil.rmtree(self.dir, ignore_errors=True)

    def progress(self):
        """What has not yet done one whole step of its work."""
        idle = ['writer %d' % w for w in range(WRITERS) if not self.writes[w]]
        idle += ['client %d' % c for c in range(CLIENTS) if not self.sets[c]]
        idle += ['clock %d' % k for k, (state, box) in enumerate(self.clocks) if state['calls'] < 3]
        return idle + [n for n, done in (('zelc', self.zelcRuns), ('churn', self.churns)) if not done]

    def awaitProgress(self):
        # However loaded the machine, a run counts only once every actor
        # did its work at least once; not within HANG is a hang.
        end = time.time() + HANG
        while self.progress() and not self.stop.is_set() and time.time() < end:
            time.sleep(0.05)
        if self.progress() and not self.stop.is_set():
            self.errors.append('no progress within %d s: %s' % (HANG, ', '.join(self.progress())))

    @staticmethod
    def join(threads):
        end = time.time() + HANG
        for t in threads:
            t.join(max(0.0, end - time.time()))
        return [t for t in threads if t.is_alive()]

    def check(self):
        """What went wrong, as a list of lines (empty when all is well)."""
        if self.errors:
            return self.errors
        bad = []

        def need(what, problem):
            if problem:
                bad.append('%s: %s' % (what, problem))
        for w in range(WRITERS):
            need('i32 of writer %d, at once' % w, self.now[w]['i32'].check(self.writes[w]))
            need('i32 of writer %d, deferred' % w, self.later[w]['i32'].check(self.writes[w]))
        for c in range(CLIENTS):
            need('i64 of client %d, at once' % c, self.now[c]['i64'].check(self.sets[c]))
            need('i64 of client %d, deferred' % c, self.later[c]['i64'].check(self.sets[c]))
        for k, (state, box) in enumerate(self.clocks):
            fired = state['calls'] - (k != 2)
            need('clock %d' % k, None if (fired, state['armed']) == (state['arms'], None)
                 else '%d firings of %d wake-ups, %r pending' % (fired, state['arms'], state['armed']))
            need('u64 set by clock %d, at once' % k, self.now[k]['u64'].check(fired))
            need('u64 set by clock %d, deferred' % k, self.later[k]['u64'].check(fired))
        need('switch changes, at once', self.diff(self.swNow.counts, self.expected))
        need('switch changes, deferred', self.diff(self.swLater.counts, self.expected))
        need('interface changes, filtered', self.diff(
            self.swIntf.counts, dict((key, n) for key, n in self.expected.items() if key[0] == 'intf')))
        need('work done', ', '.join(self.progress()))
        return bad

    @staticmethod
    def diff(got, want):
        keys = sorted(set(got) | set(want))
        wrong = ['%s %r: %d, not %d' % (k[0], k[1], got.get(k, 0), want.get(k, 0))
                 for k in keys if got.get(k, 0) != want.get(k, 0)]
        return '; '.join(wrong)

    def close(self):
        for state, box in self.clocks:
            if box and not isinstance(box[0], Zel.Timer):
                del box[:]   # a _Zel clock handler's reference to its own notifiee
        self.__dict__.clear()


# Should the process hang with the interpreter lock held, no join timeout
# can report it: a process outside names the threads. The test renews the
# watchdog's allowance at every phase ("seconds\n" on its standard input)
# and closes the pipe when it is done.
WATCHDOG = r'''
import os, select, signal, subprocess, sys
pid, limit = int(sys.argv[1]), None
while True:
    if not select.select([0], [], [], limit)[0]:
        break
    line = os.read(0, 64)
    if not line:
        sys.exit(0)
    limit = float(line.split()[-1])
out = ["test_soak: a phase took over %d s; its threads (id, name, state, kernel wait):" % limit]
for tid in sorted(os.listdir("/proc/%d/task" % pid), key=int):
    d = "/proc/%d/task/%s/" % (pid, tid)
    try:
        out.append("  %s %s %s %s" % (tid, open(d + "comm").read().strip(),
                   open(d + "stat").read().rsplit(")", 1)[1].split()[0], open(d + "wchan").read()))
    except IOError:
        pass
sys.stderr.write("\n".join(out) + "\n")
try:
    subprocess.call(["gdb", "-p", str(pid), "-batch", "-ex", "thread apply all bt"], stdout=sys.stderr)
except OSError:
    pass
os.kill(pid, signal.SIGABRT)
'''


class SoakTest(unittest.TestCase):
    def test_everything_at_once_and_back_where_it_started(self):
        watchdog = subprocess.Popen([sys.executable, '-c', WATCHDOG, str(os.getpid())], stdin=subprocess.PIPE,
                                    close_fds=True)

        def allow(seconds):
            watchdog.stdin.write('%f\n' % seconds)
            watchdog.stdin.flush()
        try:
            # A short run first makes what every later run finds made: type
            # proxies, compiled code, thread states, lazily made singletons.
            allow(WARMUP_SECONDS + 3 * HANG + 30)   # the run and each of its waits
            self.runSoak(WARMUP_SECONDS)
            allow(2 * HANG)
            before = snapshot()
            started = time.time()
            allow(SECONDS + 3 * HANG + 30)
            self.runSoak(SECONDS)
            allow(2 * HANG)
            after = snapshot()
            sys.stderr.write('soak: %.1f s\n' % (time.time() - started))
        finally:
            watchdog.stdin.close()
            watchdog.wait()
        self.assertEqual(self.changedLive(before['live'], after['live']), {})
        self.assertEqual((after['threads'], after['tasks']), (before['threads'], before['tasks']))
        self.assertEqual(after['fds'], before['fds'])
        self.assertEqual(self.grown(before['census'], after['census']), {})

    def runSoak(self, seconds):
        soak = Soak(seconds)
        try:
            soak.run()
            problems = soak.check()
            if not problems:
                sys.stderr.write('soak %.0f s: writes %r, client sets %r, requests %r, zelc runs %d, churns %d, '
                                 'clock firings %r\n' % (seconds, soak.writes, soak.sets, soak.requests,
                                                         soak.zelcRuns, soak.churns,
                                                         [s['calls'] for s, b in soak.clocks]))
            self.assertEqual(problems, [], '\n'.join(problems))
        finally:
            soak.close()

    @staticmethod
    def changedLive(before, after):
        return dict((name, (before.get(name, 0), n)) for name, n in after.items() if n != before.get(name, 0))

    @staticmethod
    def grown(before, after):
        grown = {}
        for t in set(before) | set(after):
            d, most = after.get(t, 0) - before.get(t, 0), mayGrow(t)
            if most is not None and d > most:
                grown['%s.%s' % (t.__module__, t.__name__)] = d
        return grown


CELL = type((lambda x: lambda: x)(0).func_closure[0])


def mayGrow(t):
    """How many more objects of type t a run may leave behind: none of the
    kinds the soak or the code it drives makes per operation (a leak there
    is one per operation, thousands a run); a few general containers (the
    first snapshot's own, alive while the second is taken, and caches the
    interpreter fills on a path's first use); None: not compared."""
    if t.__module__ in ('_Zel', '_ZelProxy', 'Zel', 'PyServer', 'threading', 'socket', 'subprocess') or \
            t in (types.FrameType, types.FunctionType, types.MethodType, types.GeneratorType, CELL):
        return 0
    if t in (dict, list, tuple, weakref.ref):
        return 25
    return None


if __name__ == '__main__':
    unittest.main()
