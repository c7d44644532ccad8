"""Nanoseconds per call of the _Zel module's hot paths, and their ratio to
the cheapest native call (_ZelBench.noop()).

Run from the top of the tree:  build-j/zelpython bench/py_attr_bench.py

Python 2.7, standard library only. Every case binds its callable and
arguments in the timeit setup, so the statement timed is one call; the cost
of the timeit loop itself (an empty statement with the same setup) is
subtracted, and each figure is the median over the repeats.
"""
from __future__ import print_function

import argparse
import datetime
import platform
import sys
import timeit

import ZelDemo  # noqa: F401  (registers the Demo types)
import _Zel
import _ZelBench

VLAN_COUNT = 1000
STRING16 = "0123456789abcdef"

ALL_TYPES = _Zel.typeNode("Demo::AllTypes")
SWITCH = _Zel.typeNode("Demo::Switch")
POINT = _Zel.typeNode("Demo::Point")


def make_env():
    """The objects every case's setup draws on (imported by name there)."""
    a = _Zel.newGenericIf(ALL_TYPES, ("bench",))
    sw = _Zel.newGenericIf(SWITCH, ("bench",))
    vlan = SWITCH.attr("vlan")
    for key in range(VLAN_COUNT):
        sw.attributeCollectionIs(vlan, key, "vlan%012d" % key)
    assert sw.attributeMembers(vlan) == VLAN_COUNT
    a.attributeSingletonIs(ALL_TYPES.attr("s8"), STRING16)
    return {
        "a": a,
        "sw": sw,
        "i32": ALL_TYPES.attr("i32"),
        "s8": ALL_TYPES.attr("s8"),
        "vlan": vlan,
        "add": SWITCH.attr("add"),
        "point": POINT,
    }


ENV = make_env()
PRELUDE = "from __main__ import ENV as e, _Zel, _ZelBench\n"

# (label, setup, statement, fixed number of calls per repeat or None)
CASES = [
    ("noop() (floor)", "f = _ZelBench.noop", "f()", None),
    ("attributeSingleton i32", "f = e['a'].attributeSingleton; k = e['i32']", "f(k)", None),
    ("attributeSingletonIs i32", "f = e['a'].attributeSingletonIs; k = e['i32']", "f(k, 5)", None),
    ("attributeSingleton s8 (16 B)", "f = e['a'].attributeSingleton; k = e['s8']", "f(k)", None),
    ("attributeSingletonIs s8 (16 B)",
     "f = e['a'].attributeSingletonIs; k = e['s8']; v = %r" % STRING16, "f(k, v)", None),
    ("attributeCollection vlan (1,000)",
     "f = e['sw'].attributeCollection; k = e['vlan']; i = %d" % (VLAN_COUNT // 2), "f(k, i)", None),
    ("attributeFunction add", "f = e['sw'].attributeFunction; k = e['add']; p = (2, 40)", "f(k, p)", None),
    # A fresh iterator per repeat, stepped exactly once per entry: every
    # timed call returns an item, none raises StopIteration.
    ("iterator step vlan (items)",
     "nx = next; it = e['sw'].attributeIter(e['vlan'], _Zel.IteratorModeItems)", "nx(it)", VLAN_COUNT),
    ("newGenericIf Demo::Point", "f = _Zel.newGenericIf; t = e['point']; p = (3, 4)", "f(t, p)", None),
]


def median(values):
    s = sorted(values)
    n = len(s)
    return s[n // 2] if n % 2 else (s[n // 2 - 1] + s[n // 2]) / 2.0


def calibrate(timer, target):
    """Calls per repeat so that one repeat takes about `target` seconds."""
    number = 1
    while True:
        elapsed = timer.timeit(number)
        if elapsed >= target / 10.0:
            return max(1, int(number * target / elapsed))
        number *= 10


def measure(setup, stmt, number, repeats, target):
    """Median seconds per call of `stmt`, less the loop's own cost."""
    timer = timeit.Timer(stmt, PRELUDE + setup)
    empty = timeit.Timer("pass", PRELUDE + setup)
    if number is None:
        number = calibrate(timer, target)
    full, loop = [], []
    for _ in range(repeats):   # interleaved, so drift hits both alike
        full.append(timer.timeit(number))
        loop.append(empty.timeit(number))
    return max(0.0, median(full) - median(loop)) / number, number


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("-r", "--repeats", type=int, default=7, help="repeats per case (at least 5; default 7)")
    parser.add_argument("-t", "--target", type=float, default=0.1,
                        help="seconds per repeat for calibrated cases (default 0.1)")
    parser.add_argument("--markdown", action="store_true", help="print a Markdown table")
    args = parser.parse_args()
    repeats = max(5, args.repeats)

    rows = []
    floor = None
    for label, setup, stmt, fixed in CASES:
        # Fixed-count cases repeat many more times: each repeat is short.
        reps = repeats if fixed is None else max(repeats, 101)
        per_call, number = measure(setup, stmt, fixed, reps, args.target)
        if floor is None:
            floor = per_call
        rows.append((label, per_call * 1e9, per_call / floor if floor else float("nan"), number, reps))

    print("# %s, Python %s, %s" % (datetime.date.today().isoformat(), platform.python_version(), platform.machine()))
    if args.markdown:
        print("| Operation | ns/call | x floor |")
        print("|---|---:|---:|")
        for label, ns, ratio, _, _ in rows:
            print("| %s | %.1f | %.1f |" % (label, ns, ratio))
    else:
        print("%-34s %10s %9s %10s %5s" % ("operation", "ns/call", "x floor", "calls", "reps"))
        for label, ns, ratio, number, reps in rows:
            print("%-34s %10.1f %9.1f %10d %5d" % (label, ns, ratio, number, reps))
    return 0


if __name__ == "__main__":
    sys.exit(main())
