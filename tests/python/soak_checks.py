"""The soak's checks: what each notifiee saw against what the actors did, what a run may leave behind, the watchdog."""
import collections
import threading
import types
import weakref

# Keys of the switch's members: each actor changes only its own.
STATIC_VLANS = 20              # vlan keys 0..19 are set up once and never change
CLIENT_VLAN, WRITER_VLAN = 1000, 2000


class Seen(object):
    """Counts by key, from any thread; `ordered`: keys 1, 2, 3, ... in that order (one writer's)."""

    def __init__(self, ordered=False):
        self.ordered = ordered
        self.counts = collections.Counter()
        self.lock = threading.Lock()

    def see(self, key, n=1):
        with self.lock:
            if self.ordered and key != len(self.counts) + 1:
                raise AssertionError('%r after %d values' % (key, len(self.counts)))
            self.counts[key] += n


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
    out += ['clock %d' % k for k, clock in enumerate(soak.clocks) if clock['fired'] < 3]
    return out + ([] if soak.churns else ['churn'])


def diff(got, want):
    """The first keys seen other than as often as wanted."""
    bad = sorted(k for k in set(got) | set(want) if got.get(k, 0) != want.get(k, 0))
    return '; '.join('%r: %d, not %d' % (k, got.get(k, 0), want.get(k, 0)) for k in bad[:5])


def problems(soak):
    """What went wrong in a run, as lines: values seen once, each owner's changes counted, wake-ups fired."""
    if soak.errors:
        return soak.errors
    values = [('i32 of writer %d' % w, 'i32', w, n) for w, n in enumerate(soak.writes)]
    values += [('i64 of client %d' % c, 'i64', c, n) for c, n in enumerate(soak.sets)]
    values += [('u64 set by clock %d' % k, 'u64', k, clock['fired']) for k, clock in enumerate(soak.clocks)]
    bad = ['clock %d: %d firings of %d wake-ups, %r pending' % (k, c['fired'], c['arms'], c['armed'])
           for k, c in enumerate(soak.clocks) if (c['fired'], c['armed']) != (c['arms'], None)]
    counts = [('%s, %s' % (what, how), seen[i][attr], dict.fromkeys(range(1, n + 1), 1))
              for what, attr, i, n in values for how, seen in (('at once', soak.now), ('deferred', soak.later))]
    expected = soak.expected.counts
    counts += [('switch changes, at once', soak.swNow, expected), ('switch changes, deferred', soak.swLater, expected),
               ('interface changes, filtered', soak.swIntf, dict((k, n) for k, n in expected.items() if k[0] == 'intf'))]
    bad += ['%s: %s' % (what, diff(seen.counts, want)) for what, seen, want in counts if diff(seen.counts, want)]
    if idle(soak):
        bad.append('work done: ' + ', '.join(idle(soak)))
    return bad


def changed_live(before, after):
    return dict((name, (before.get(name, 0), n)) for name, n in after.items() if n != before.get(name, 0))


CELL = type((lambda x: lambda: x)(0).__closure__[0])


def grown(before, after):
    """{type: how many more} of the types that grew too much, by the limits of docs/soak.md (The end state)."""
    out = {}
    for t in set(before) | set(after):
        if t.__module__ in ('_Zel', '_ZelProxy', 'Zel', 'PyServer', 'threading', 'socket', 'subprocess') or \
                t in (types.FrameType, types.FunctionType, types.MethodType, types.GeneratorType, CELL):
            most = 0
        else:
            most = 25 if t in (dict, list, tuple, weakref.ref) else None
        d = after.get(t, 0) - before.get(t, 0)
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
