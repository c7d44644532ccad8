"""The timeit harness of the Python benchmarks (Python 2.7 or 3, standard library).

A case is one statement timed in a loop. Its setup binds the callable and
its arguments to local names, so the statement is one call. Each case also
has a baseline statement run with the same setup and count ("pass" unless
the statement needs a helper such as fetching the next key): the baseline's
median time is the loop's own cost and is subtracted from every repeat.

Time is the process's CPU time (ZelCompat.cpuTime), not wall time: every case
runs in this one process, and on a machine shared with other work the
time spent descheduled would otherwise land on whichever case was running.

All cases are calibrated first, then timed round-robin, one repeat of every
case per round, so that a change in the machine's load during the run
affects every case, floors included, alike.
"""
import timeit

from ZelCompat import cpuTime


class Case(object):
    """`per_stmt`: calls made by one execution of `stmt`. `number`: a fixed
    count of executions per timeit call (for statements that consume their
    setup, such as an iterator), else calibrated."""

    def __init__(self, key, setup, stmt, baseline="pass", per_stmt=1, number=None):
        self.key = key
        self.setup = setup
        self.stmt = stmt
        self.baseline = baseline
        self.per_stmt = per_stmt
        self.number = number


def median(values):
    s = sorted(values)
    n = len(s)
    if n == 0:
        raise ValueError("median of no values")
    return s[n // 2] if n % 2 else (s[n // 2 - 1] + s[n // 2]) / 2.0


class _Timed(object):
    """One case's timers and how many timeit calls of what count make a repeat."""

    def __init__(self, case, prelude, target):
        self.case = case
        self.timer = timeit.Timer(case.stmt, prelude + case.setup, timer=cpuTime)
        self.empty = timeit.Timer(case.baseline, prelude + case.setup, timer=cpuTime)
        if case.number is None:
            self.number, self.chunks = self._calibrate(target), 1
        else:
            one = max(self.timer.timeit(case.number), 1e-9)
            self.number, self.chunks = case.number, max(1, int(target / one))
        self.full, self.loop = [], []

    def _calibrate(self, target):
        number = 1
        while True:
            elapsed = self.timer.timeit(number)
            if elapsed >= target / 10.0:
                return max(1, int(number * target / elapsed))
            number *= 10

    def repeat(self):
        # Every timeit call runs the setup afresh (a new iterator, say).
        self.full.append(sum(self.timer.timeit(self.number) for _ in range(self.chunks)))
        self.loop.append(sum(self.empty.timeit(self.number) for _ in range(self.chunks)))

    def per_call(self):
        """Seconds per call, one value per repeat, less the median loop cost."""
        calls = float(self.number * self.chunks * self.case.per_stmt)
        loop = median(self.loop)
        return [(full - loop) / calls for full in self.full]


def run(cases, repeats, target, prelude, progress=None):
    """{case key: [seconds per call, one per repeat]}; about `target`
    seconds per repeat of each case."""
    timed = []
    for case in cases:
        if progress:
            progress("calibrating " + case.key)
        timed.append(_Timed(case, prelude, target))
    for r in range(repeats):
        if progress:
            progress("round %d of %d" % (r + 1, repeats))
        for t in timed:
            t.repeat()
    return dict((t.case.key, t.per_call()) for t in timed)
