"""Nanoseconds per notification delivered into Python, beside what a Python
programmer pays for an observer written in Python.

Run from the top of the tree:  build/zelpython bench/py_notify_bench.py

Cases, each the median of at least 5 repeats with the timeit loop's own
cost subtracted (the harness of py_attr_bench.py):
- F3, the reference: a property setter calling one callback with
  (name, value);
- an attribute set from Python reaching a Python handler through an
  attribute notifiee, unfiltered and filtered (the filter lets i32 through);
- the same set with no notifiee, for the share the notification adds;
- a clock firing into Python: the handler re-arms its wake time, the loop
  runs for a while, and the time is divided by the firings counted.
"""
from __future__ import print_function

import sys
import time

import py_attr_bench as harness
import _Zel
import _ZelBench  # noqa: F401  (the harness's timing prelude imports it from here)

T = harness.ALL_TYPES


class Observed(object):
    """What Python code writes for an observer: a property that calls back."""

    def __init__(self, callback):
        self._value = 0
        self._callback = callback

    @property
    def i32(self):
        return self._value

    @i32.setter
    def i32(self, value):
        self._value = value
        self._callback("i32", value)


def handler(name, value):
    pass


def notifying(filtered):
    obj = _Zel.newGenericIf(T, ("bench-notify",))
    notifiee = obj.newNotifiee(_Zel.handle(handler), None)
    if filtered:
        base = _Zel.typeNode("Zel::PyGenericIfNotifieeBase")
        notifiee.attributeSingletonIs(base.attr("filtered"), True)
        notifiee.attributeCollectionIs(base.attr("filterAttr"), "i32", True)
    return obj, notifiee


PLAIN = _Zel.newGenericIf(T, ("bench-plain",))
UNFILTERED = notifying(False)
FILTERED = notifying(True)
OBSERVED = Observed(handler)
ENV = dict(harness.ENV, plain=PLAIN, unfiltered=UNFILTERED[0], filtered=FILTERED[0], observed=OBSERVED)

# Each set changes the value (only changes notify): alternate two values.
SET = "f(k, v); f(k, w)"
CASES = [
    ("F3: property setter -> callback", "o = e['observed']", "o.i32 = 1; o.i32 = 2", 2),
    ("set i32, no notifiee", "f = e['plain'].attributeSingletonIs; k = e['i32']; v, w = 1, 2", SET, 2),
    ("set i32 -> handler, unfiltered", "f = e['unfiltered'].attributeSingletonIs; k = e['i32']; v, w = 1, 2", SET, 2),
    ("set i32 -> handler, filtered", "f = e['filtered'].attributeSingletonIs; k = e['i32']; v, w = 1, 2", SET, 2),
]


def clock_firing_ns(seconds=0.5):
    """ns per clock firing: the handler re-arms at once, the loop fires it
    again on its next pass."""
    clock = _Zel.singleton("Zel::Clock")
    ctype = _Zel.typeNode("Zel::PyClockNotifiee")
    wake = ctype.attr("timeMinProxy")
    fired = [0]
    box = []

    def on_time():
        fired[0] += 1
        if box:
            box[0].attributeSingletonIs(wake, 0.0)

    notifiee = _Zel.newGenericIf(ctype, (None, clock, _Zel.handle(on_time)))
    box.append(notifiee)
    notifiee.attributeSingletonIs(wake, 0.0)
    fired[0] = 0
    start = time.time()
    _Zel.activityManagerExecTimeIs(seconds)
    elapsed = time.time() - start
    del box[:]
    return elapsed / max(1, fired[0]) * 1e9, fired[0]


def main():
    repeats = 7
    rows = []
    for label, setup, stmt, calls in CASES:
        per_stmt, _ = harness.measure(setup, stmt, None, repeats, 0.1)
        rows.append((label, per_stmt / calls * 1e9))
    firings = [clock_firing_ns() for _ in range(5)]
    rows.append(("clock firing -> handler", harness.median([ns for ns, _ in firings])))
    f3 = rows[0][1]
    print("%-34s %10s %8s" % ("operation", "ns", "x F3"))
    for label, ns in rows:
        print("%-34s %10.1f %8.2f" % (label, ns, ns / f3))
    return 0


if __name__ == "__main__":
    sys.exit(main())
