"""The soak's checks: trackers of what each notifiee saw, the comparison of
every count with what the actors did, what a run may leave behind, and the
watchdog that names the threads of a hung process."""
import collections
import threading
import types
import weakref

# Keys of the switch's members: each actor changes only its own.
STATIC_VLANS = 20              # vlan keys 0..19 are set up once and never change
CLIENT_VLAN, WRITER_VLAN, ZELC_VLAN = 1000, 2000, 3000


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
        self.seen = set()
        self.lock = threading.Lock()

    def see(self, v):
        with self.lock:
            if v <= 0 or v in self.seen:
                raise AssertionError('%r delivered twice or out of range' % v)
            self.seen.add(v)

    def check(self, n):
        missing = sorted(set(range(1, n + 1)) - self.seen)
        if len(self.seen) == n and not missing:
            return None
        return 'saw %d of %d, first missing %r' % (len(self.seen), n, missing[:1])


class Tally(object):
    """Counts by key, from any thread."""

    def __init__(self):
        self.counts = collections.Counter()
        self.lock = threading.Lock()

    def add(self, key):
        with self.lock:
            self.counts[key] += 1


def owner(name, key):
    """Who changed the switch's member `key`."""
    if name == 'vlan' and isinstance(key, int) and key >= CLIENT_VLAN:
        return 'vlan', key
    if name == 'intf' and '-' in key:
        return 'intf', key.split('-')[0]
    raise AssertionError('unexpected change of %s[%r]' % (name, key))


def idle(soak):
    """The actors that have not yet done one whole step of their work."""
    out = ['writer %d' % w for w, n in enumerate(soak.writes) if not n]
    out += ['client %d' % c for c, n in enumerate(soak.sets) if not n]
    out += ['clock %d' % k for k, (state, box) in enumerate(soak.clocks) if state['calls'] < 3]
    return out + [n for n, done in (('zelc', soak.zelcRuns), ('churn', soak.churns)) if not done]


def diff(got, want):
    keys = sorted(set(got) | set(want))
    return '; '.join('%s %r: %d, not %d' % (k[0], k[1], got.get(k, 0), want.get(k, 0))
                     for k in keys if got.get(k, 0) != want.get(k, 0))


def problems(soak):
    """What went wrong in a run, as a list of lines (empty when all is well)."""
    if soak.errors:
        return soak.errors
    wanted = []   # (what, tracker key, object index, count)
    wanted += [('i32 of writer %d' % w, 'i32', w, n) for w, n in enumerate(soak.writes)]
    wanted += [('i64 of client %d' % c, 'i64', c, n) for c, n in enumerate(soak.sets)]
    bad = []
    for k, (state, box) in enumerate(soak.clocks):
        fired = state['calls'] - (k != 2)   # the _Zel ones are also called when made
        if (fired, state['armed']) != (state['arms'], None):
            bad.append('clock %d: %d firings of %d wake-ups, %r pending' % (k, fired, state['arms'], state['armed']))
        wanted.append(('u64 set by clock %d' % k, 'u64', k, fired))
    for what, attr, i, n in wanted:
        for how, trackers in (('at once', soak.now), ('deferred', soak.later)):
            problem = trackers[i][attr].check(n)
            if problem:
                bad.append('%s, %s: %s' % (what, how, problem))
    intf = dict((key, n) for key, n in soak.expected.items() if key[0] == 'intf')
    for what, got, want in (('switch changes, at once', soak.swNow, soak.expected),
                            ('switch changes, deferred', soak.swLater, soak.expected),
                            ('interface changes, filtered', soak.swIntf, intf)):
        if diff(got.counts, want):
            bad.append('%s: %s' % (what, diff(got.counts, want)))
    if idle(soak):
        bad.append('work done: ' + ', '.join(idle(soak)))
    return bad


def changed_live(before, after):
    return dict((name, (before.get(name, 0), n)) for name, n in after.items() if n != before.get(name, 0))


CELL = type((lambda x: lambda: x)(0).func_closure[0])


def may_grow(t):
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


def grown(before, after):
    """{type: how many more} of the compared types that grew too much."""
    out = {}
    for t in set(before) | set(after):
        d, most = after.get(t, 0) - before.get(t, 0), may_grow(t)
        if most is not None and d > most:
            out['%s.%s' % (t.__module__, t.__name__)] = d
    return out


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
