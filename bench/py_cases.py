"""The Python-side measures of bench/run.py: the objects they work on and
one harness.Case per timed statement (keys are what run.py's rows name).

Importing this module builds the objects, among them a Demo::Switch whose
`vlan` collection holds `BIG` entries (about two seconds at 1,000,000).
"""
import itertools
import random

import ZelDemo  # noqa: F401  (registers the Demo types)
import Zel
import _Zel
import _ZelBench  # noqa: F401  (the floors; imported by the timing prelude)

from ZelCompat import irange
from harness import Case

SMALL = 1000
BIG = 1000000
# The two sized lookups cycle through the same number (SMALL) of keys,
# drawn at random over each table's whole key range and visited in a
# shuffled order: the row compares what a look-up costs at each size, not
# how many distinct members the loop drags through the caches. A third,
# informational, cycles through SPREAD keys of the big table, where every
# look-up is a trip to main memory.
SPREAD = 100000
STRING16 = "0123456789abcdef"

ALL_TYPES = _Zel.typeNode("Demo::AllTypes")
SWITCH = _Zel.typeNode("Demo::Switch")
POINT = _Zel.typeNode("Demo::Point")
NOTIFIEE_BASE = _Zel.typeNode("Zel::PyGenericIfNotifieeBase")


class Observed(object):
    """F3: what a Python programmer writes for an observer."""

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


def switch_with(entries):
    sw = _Zel.newGenericIf(SWITCH, ("bench%d" % entries,))
    vlan = SWITCH.attr("vlan")
    put = sw.attributeCollectionIs
    for key in irange(entries):
        put(vlan, key, "vlan%012d" % key)
    if sw.attributeMembers(vlan) != entries:
        raise RuntimeError("Demo::Switch vlan holds %d entries, not %d" % (sw.attributeMembers(vlan), entries))
    return sw


def spread_keys(entries, count):
    rng = random.Random(entries + count)
    return rng.sample(irange(entries), min(entries, count))


def notifying(filtered):
    obj = _Zel.newGenericIf(ALL_TYPES, ("bench-notify",))
    notifiee = obj.newNotifiee(_Zel.handle(handler), None)
    if filtered:
        notifiee.attributeSingletonIs(NOTIFIEE_BASE.attr("filtered"), True)
        notifiee.attributeCollectionIs(NOTIFIEE_BASE.attr("filterAttr"), "i32", True)
    return obj, notifiee


def make_env(big):
    a = _Zel.newGenericIf(ALL_TYPES, ("bench",))
    a.attributeSingletonIs(ALL_TYPES.attr("s8"), STRING16)
    proxy = Zel.new("Demo::AllTypes", "bench-proxy")
    watched = Zel.new("Demo::AllTypes", "bench-watched")
    env = {
        "a": a,
        "i32": ALL_TYPES.attr("i32"),
        "s8": ALL_TYPES.attr("s8"),
        "vlan": SWITCH.attr("vlan"),
        "add": SWITCH.attr("add"),
        "point": POINT,
        "small": switch_with(SMALL),
        "smallKeys": spread_keys(SMALL, SMALL),
        "big": switch_with(big),
        "bigKeys": spread_keys(big, SMALL),
        "wideKeys": spread_keys(big, SPREAD),
        "proxy": proxy,
        "watched": watched,
        "watcher": Zel.notifiee(watched, handler),
        "plain": _Zel.newGenericIf(ALL_TYPES, ("bench-plain",)),
        "unfiltered": notifying(False),
        "filtered": notifying(True),
        "observed": Observed(handler),
    }
    _ZelBench.notifiedSetHandlerIs(handler)
    return env


ENV = {}
PRELUDE = "from py_cases import ENV as e, _Zel, _ZelBench, itertools, nextOf\n"


def nextOf(it):
    """The iterator's own next method (a bound method: no call of next() in between)."""
    return getattr(it, "__next__", None) or it.next


def lookup(name, table, keys):
    return Case(name,
                "f = e['%s'].attributeCollection; k = e['vlan']; nk = nextOf(itertools.cycle(e['%s']))" % (table, keys),
                "f(k, nk())", baseline="nk()")


# Sets alternate two values: only a change notifies.
SET = "f(k, v); f(k, w)"


def cases():
    return [
        Case("F1", "f = _ZelBench.callFloor; k = e['i32']", "f(k)"),
        Case("F2", "f = _ZelBench.lockedReadFloor; k = e['i32']", "f(k)"),
        Case("F3", "o = e['observed']", "o.i32 = 1; o.i32 = 2", per_stmt=2),
        Case("F7", "f = _ZelBench.notifiedSetFloor; k = e['i32']; v, w = 1, 2", SET, per_stmt=2),
        Case("get i32", "f = e['a'].attributeSingleton; k = e['i32']", "f(k)"),
        Case("set i32", "f = e['a'].attributeSingletonIs; k = e['i32']", "f(k, 5)"),
        Case("get s8", "f = e['a'].attributeSingleton; k = e['s8']", "f(k)"),
        Case("set s8", "f = e['a'].attributeSingletonIs; k = e['s8']; v = %r" % STRING16, "f(k, v)"),
        lookup("collection small", "small", "smallKeys"),
        lookup("collection big", "big", "bigKeys"),
        lookup("collection big wide", "big", "wideKeys"),
        Case("collection big one key", "f = e['big'].attributeCollection; k = e['vlan']; i = %d" % (BIG // 2),
             "f(k, i)"),
        # A fresh iterator per timeit call, stepped once per entry: every
        # timed step yields an item, none raises StopIteration.
        Case("iter step", "nx = next; it = e['small'].attributeIter(e['vlan'], _Zel.IteratorModeItems)", "nx(it)",
             number=SMALL),
        Case("function add", "f = e['small'].attributeFunction; k = e['add']; p = (2, 40)", "f(k, p)"),
        Case("package get i32", "o = e['proxy']", "o.i32"),
        Case("package set i32 notify", "o = e['watched']", "o.i32 = 1; o.i32 = 2", per_stmt=2),
        Case("set i32 plain", "f = e['plain'].attributeSingletonIs; k = e['i32']; v, w = 1, 2", SET, per_stmt=2),
        Case("set i32 notify", "f = e['unfiltered'][0].attributeSingletonIs; k = e['i32']; v, w = 1, 2", SET,
             per_stmt=2),
        Case("set i32 notify filtered", "f = e['filtered'][0].attributeSingletonIs; k = e['i32']; v, w = 1, 2", SET,
             per_stmt=2),
        Case("newGenericIf", "f = _Zel.newGenericIf; t = e['point']; p = (3, 4)", "f(t, p)"),
    ]


def prepare(big=BIG):
    ENV.clear()
    ENV.update(make_env(big))
