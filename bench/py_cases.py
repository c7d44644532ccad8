"""The Python-side measures of bench/run.py: the objects they work on and
one harness.Case per timed statement (keys are what run.py's rows name).

prepare() builds the objects, among them Demo::Switches whose `vlan`
collections hold SMALL, MEDIUM and BIG entries (about two seconds at
1,000,000), each also as a proxy and its `vlan` view.
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
# The bulk reads (keys(), dict(view), ...) are timed at these sizes too.
MEDIUM = 100000
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
        put(vlan, key, vlan_value(key))
    if sw.attributeMembers(vlan) != entries:
        raise RuntimeError("Demo::Switch vlan holds %d entries, not %d" % (sw.attributeMembers(vlan), entries))
    return sw


def vlan_value(key):
    return "vlan%012d" % key


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
        "medium": switch_with(MEDIUM),
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
    for size in ("small", "medium", "big"):
        sw = env[size]
        env[size + "Proxy"] = Zel._wrap(sw)
        env[size + "View"] = Zel._wrap(sw).vlan
        count = sw.attributeMembers(env["vlan"])
        _ZelBench.bulkFloorDataIs(count)
        env[size + "Entries"] = count
    env["queue"] = Zel._wrap(env["small"]).log
    _ZelBench.notifiedSetHandlerIs(handler)
    return env


ENV = {}
PRELUDE = "from py_cases import ENV as e, _Zel, _ZelBench, itertools, nextOf, vlan_value\n"


def nextOf(it):
    """The iterator's own next method (a bound method: no call of next() in between)."""
    return getattr(it, "__next__", None) or it.next


def lookup(name, table, keys):
    return Case(name,
                "f = e['%s'].attributeCollection; k = e['vlan']; nk = nextOf(itertools.cycle(e['%s']))" % (table, keys),
                "f(k, nk())", baseline="nk()")


# Sets alternate two values: only a change notifies.
SET = "f(k, v); f(k, w)"


def view_cases(size, keys):
    """Each view operation, on a kept view and through the proxy, beside
    the GifPtr method it stands for, on the same object and keys. The
    set rows delete one member and put it back as it was; the get and `in`
    rows cycle through the same keys as the raw look-up rows."""
    sw, v, o = "e['%s']" % size, "e['%sView']" % size, "e['%sProxy']" % size
    one = "i = e['%sEntries'] // 2; s = vlan_value(i)" % size
    nk = "nk = nextOf(itertools.cycle(e['%s']))" % keys
    return [
        Case("view get " + size, "v = %s; %s" % (v, nk), "v[nk()]", baseline="nk()"),
        Case("view fetch get " + size, "o = %s; %s" % (o, nk), "o.vlan[nk()]", baseline="nk()"),
        Case("raw in " + size, "f = %s.attributeCollectionExist; k = e['vlan']; %s" % (sw, nk), "f(k, nk())", baseline="nk()"),
        Case("view in " + size, "v = %s; %s" % (v, nk), "nk() in v", baseline="nk()"),
        Case("view fetch in " + size, "o = %s; %s" % (o, nk), "nk() in o.vlan", baseline="nk()"),
        Case("raw len " + size, "f = %s.attributeMembers; k = e['vlan']" % sw, "f(k)"),
        Case("view len " + size, "v = %s; n = len" % v, "n(v)"),
        Case("view fetch len " + size, "o = %s; n = len" % o, "n(o.vlan)"),
        Case("raw del set " + size, "f, d = %s.attributeCollectionIs, %s.attributeCollectionDel; k = e['vlan']; %s"
             % (sw, sw, one), "d(k, i); f(k, i, s)", per_stmt=2),
        Case("view del set " + size, "v = %s; %s" % (v, one), "del v[i]; v[i] = s", per_stmt=2),
        Case("view fetch del set " + size, "o = %s; %s" % (o, one), "del o.vlan[i]; o.vlan[i] = s", per_stmt=2),
    ]


def queue_cases():
    return [
        Case("raw queue add remove", "f, r = e['small'].attributeAdd, e['small'].attributeRemove; "
             "k = e['queue'].attr_; s = 'up'", "f(k, s); r(k)", per_stmt=2),
        Case("queue add remove", "q = e['queue']; s = 'up'", "q.add(s); q.remove()", per_stmt=2),
        Case("queue fetch add remove", "o = e['smallProxy']; s = 'up'", "o.log.add(s); o.log.remove()", per_stmt=2),
        Case("raw queue len", "f = e['small'].attributeMembers; k = e['queue'].attr_", "f(k)"),
        Case("queue len", "q = e['queue']; n = len", "n(q)"),
        Case("queue fetch len", "o = e['smallProxy']; n = len", "n(o.log)"),
    ]


# The bulk reads, per member, against F5 building the same objects.
BULK = (("keys", "v.keys()", 0), ("values", "v.values()", 1), ("items", "v.items()", 2),
        ("iter", "for _ in v: pass", 0), ("dict", "dict(v)", 3), ("list", "list(v)", 0))


def bulk_cases(size):
    n = {"small": SMALL, "medium": MEDIUM, "big": BIG}[size]
    out = [Case("F5 %s %s" % (mode, size), "f = _ZelBench.bulkFloor; n = e['%sEntries']; m = %d" % (size, m),
                "f(n, m)", per_stmt=n)
           for mode, m in (("keys", 0), ("values", 1), ("items", 2), ("dict", 3))]
    out += [Case("bulk %s %s" % (name, size), "v = e['%sView']" % size, stmt, per_stmt=n) for name, stmt, _ in BULK]
    return out


def cases():
    return view_cases("small", "smallKeys") + view_cases("big", "bigKeys") + queue_cases() + \
        bulk_cases("small") + bulk_cases("medium") + bulk_cases("big") + [
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
