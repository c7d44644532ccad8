"""Runs every ZelPy benchmark and prints one table: each measure's median,
min and max over the repeats, its floor, the ratio, the limit and PASS or
MISS. Exit status 0 when every target passes, 1 otherwise.

Run through a build's launcher (scripts/bench.sh does it all):
    build-release/zelpython bench/run.py [--repeats N] [--quick] [--markdown]
The C++ programs are taken from $ZEL_BUILD_DIR/bin (the launcher sets it).
"""
from __future__ import print_function

import argparse
import datetime
import os
import platform
import sys

import harness
import native
import table
from table import Row, extra_row, floor_row, stats


def progress(message):
    sys.stderr.write("[bench] %s\n" % message)
    sys.stderr.flush()


class Settings(object):
    def __init__(self, args):
        self.repeats = max(5, args.repeats)
        quick = args.quick
        self.target = 0.01 if quick else 0.1            # seconds per repeat of a Python case
        self.clock_seconds = 0.05 if quick else 0.4     # per clock-firing repeat
        self.handles = 20000 if quick else 200000       # handles per memory repeat
        self.min_time = 0.01 if quick else 0.1          # Google Benchmark, per repetition
        self.build = args.build_dir


def python_rows(s):
    import py_cases
    import py_clock
    import py_memory

    progress("building the objects (a %d-entry collection among them)" % py_cases.BIG)
    py_cases.prepare()
    t = harness.run(py_cases.cases(), s.repeats, s.target, py_cases.PRELUDE, progress)
    ns = dict((k, stats([v * 1e9 for v in samples])) for k, samples in t.items())
    progress("clock firings")
    clock = stats(py_clock.samples(s.repeats, s.clock_seconds))
    progress("memory")
    gifptr = stats([float(py_memory.gifptr_bytes()) for _ in range(s.repeats)], "B")
    handle = stats(py_memory.samples(s.repeats, s.handles), "B")

    f1 = floor_row("F1: METH_VARARGS call, one checked \"O&\" argument", ns["F1"], tag="F1")
    f2 = floor_row("F2: F1 + lock protocol, native int read", ns["F2"], tag="F2", floor=f1)
    f3 = floor_row("F3: Python property setter -> callback(name, value)", ns["F3"], tag="F3")
    f7 = floor_row("F7: F1 + lock protocol of a set calling handler(name, value)", ns["F7"], tag="F7", floor=f3)
    small = Row("attributeCollection, 1,000 entries", ns["collection small"], f2, 2.0, tag="1,000 entries")
    floors = [f1, f2, f3, f7]
    targets = [
        Row("attributeSingleton int", ns["get i32"], f2, 1.5),
        Row("attributeSingletonIs int", ns["set i32"], f2, 1.6),
        Row("attributeSingleton Zel::String, 16 B", ns["get s8"], f2, 1.7),
        small,
        Row("attributeCollection, 1,000,000 entries", ns["collection big"], small, 1.5),
        Row("iteration step, items mode", ns["iter step"], f2, 2.0),
        Row("attributeFunction Demo::Switch.add", ns["function add"], f2, 2.5),
        Row("Zel package read proxy.i32", ns["package get i32"], f2, 3.0),
        Row("attribute set -> Python handler (notifiee)", ns["set i32 notify"], f3, 1.5),
        Row("memory: GifPtr (sys.getsizeof)", gifptr, limit=32),
        Row("memory: handle to an int value, in all", handle, limit=96),
    ]
    extras = [
        extra_row("attributeSingletonIs Zel::String, 16 B", ns["set s8"], f2),
        extra_row("attributeCollection, 1,000,000 entries, one key", ns["collection big one key"], f2),
        extra_row("attributeCollection, 1,000,000 entries, 100,000 keys", ns["collection big wide"], f2),
        extra_row("newGenericIf Demo::Point", ns["newGenericIf"], f2),
        extra_row("attribute set, no notifiee", ns["set i32 plain"], f3),
        extra_row("attribute set -> handler, filtered", ns["set i32 notify filtered"], f3),
        extra_row("attribute set -> Python handler, against F7", ns["set i32 notify"], f7),
        extra_row("Zel package set -> Zel.notifiee handler", ns["package set i32 notify"], f3),
        extra_row("clock firing -> Python handler", clock, f3),
    ]
    views, f5 = view_rows(ns)
    return floors + f5, targets + views, extras


SIZES = (("small", "1,000"), ("medium", "100,000"), ("big", "1,000,000"))
VIEW_OPS = (("get", "view[k]", "collection %s"), ("in", "k in view", "raw in %s"), ("len", "len(view)", "raw len %s"),
            ("del set", "del view[k]; view[k] = v", "raw del set %s"))


def view_rows(ns):
    """The package's views against the raw GifPtr calls they make (1.2 x),
    and their bulk reads, per member, against F5 (2.0 x)."""
    rows, floors = [], []
    for size, shown in (SIZES[0], SIZES[2]):
        for op, stmt, raw in VIEW_OPS:
            base = floor_row("GifPtr method of %s, %s entries" % (stmt, shown), ns[raw % size],
                             tag="raw %s %s" % (op, shown))
            floors.append(base)
            rows.append(Row("%s, %s entries" % (stmt, shown), ns["view %s %s" % (op, size)], base, 1.2))
            rows.append(Row("%s, view fetched (proxy.vlan), %s entries" % (stmt, shown),
                            ns["view fetch %s %s" % (op, size)], base, 1.2))
    for op, stmt, raw in (("add remove", "queue.add(v); queue.remove()", "raw queue add remove"),
                          ("len", "len(queue)", "raw queue len")):
        base = floor_row("GifPtr method of %s" % stmt, ns[raw], tag="raw queue " + op)
        floors.append(base)
        rows.append(Row(stmt, ns["queue " + op], base, 1.2))
        rows.append(Row("%s, view fetched (proxy.log)" % stmt, ns["queue fetch " + op], base, 1.2))
    import py_cases
    for size, shown in SIZES:
        f5 = {}
        for mode in ("keys", "values", "items", "dict"):
            f5[mode] = floor_row("F5: %s of %s entries built from native data, per member" % (mode, shown),
                                 ns["F5 %s %s" % (mode, size)], tag="F5 %s %s" % (mode, shown))
            floors.append(f5[mode])
        for name, stmt, mode in py_cases.BULK:
            floor = f5[("keys", "values", "items", "dict")[mode]]
            rows.append(Row("%s, %s entries, per member" % (stmt, shown), ns["bulk %s %s" % (name, size)], floor, 2.0))
    return rows, floors


TRANSPORTS = (("unix", "UNIX"), ("tcp", "TCP"))
PLACEMENTS = (("free", ()), ("pinned", ("taskset", "-c", "0")))


def _sample(result, name):
    """(Stats or None, note)."""
    if name in result.samples:
        return stats(result.samples[name]), ""
    return None, result.error or "no %s in the program's report" % name


def client_rows(s, env):
    floors, targets = [], []
    for placement, prefix in PLACEMENTS:
        progress("bench_client, %s placement" % placement)
        # The floor and the round trips it is divided by share the run's
        # moments of load: their repetitions are interleaved.
        result = native.run(os.path.join(s.build, "bin", "bench_client"), s.repeats, s.min_time, env, prefix,
                            interleave=True)
        for key, shown in TRANSPORTS:
            value, note = _sample(result, "BM_PingPong/" + key)
            f4 = floor_row("F4: raw ping-pong %s, %s" % (shown, placement), value, tag="F4 %s %s" % (key, placement),
                           note=note)
            value, note = _sample(result, "BM_ClientEval/" + key)
            floors.append(f4)
            targets.append(Row("eval \"1+1\" PyClient -> zelagent, %s, %s" % (shown, placement), value, f4, 1.5,
                               note=note))
    return floors, targets


def program_rows(s, env, name):
    progress("bench_" + name)
    result = native.run(os.path.join(s.build, "bin", "bench_" + name), s.repeats, s.min_time, env,
                        clock="cpu_time")
    if not result.samples:
        return [extra_row("bench_%s" % name, None, note=result.error or "no results")]
    return [extra_row("bench_%s %s" % (name, bm), stats(result.samples[bm]), note=result.error or "")
            for bm in sorted(result.samples)]


def parse_args(argv):
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--repeats", type=int, default=7, help="repeats of every measure (at least 5; default 7)")
    parser.add_argument("--quick", action="store_true",
                        help="smoke run: short repeats (figures are noisy, verdicts not to be quoted)")
    parser.add_argument("--markdown", action="store_true", help="print the table as Markdown")
    parser.add_argument("--python-only", action="store_true", help="skip the C++ programs")
    parser.add_argument("--build-dir", default=os.environ.get("ZEL_BUILD_DIR", "build-release"),
                        help="where bin/bench_* and bin/zelagent are (default: $ZEL_BUILD_DIR)")
    return parser.parse_args(argv)


def main(argv):
    args = parse_args(argv)
    s = Settings(args)
    env = dict(os.environ, ZEL_BUILD_DIR=os.path.abspath(s.build))
    floors, targets, extras = python_rows(s)
    if not args.python_only:
        f4, evals = client_rows(s, env)
        floors += f4
        targets += evals
        extras += program_rows(s, env, "activity") + program_rows(s, env, "collections")
    rows = floors + targets + extras
    print("ZelPy benchmarks, %s, Python %s, %s, %d repeats%s" % (
        datetime.date.today().isoformat(), platform.python_version(), platform.machine(), s.repeats,
        " (quick)" if args.quick else ""))
    print(table.markdown(rows) if args.markdown else table.text(rows))
    for line in table.notes(rows):
        print("  " + line)
    status = table.exit_status(rows)
    counts = [v for v in (r.verdict() for r in rows if r.kind == "target")]
    print("%d PASS, %d MISS, %d MISSING" % (counts.count(table.PASS), counts.count(table.MISS),
                                          counts.count(table.MISSING)))
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
