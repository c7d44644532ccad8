"""Notifiees made by _Zel: attribute notifiees (filter, every kind of callable, deferral, the end of calls), clock
notifiees (calls at creation and at wake times only, reflection, deferral), and raising handlers, which abort the
process with the message, the traceback and the Python stack of the change notified (in children)."""
import functools
import re
import unittest
import weakref

import Zel  # noqa: F401
import ZelDemo  # noqa: F401
import _Zel
import children
import pyver
from zelsupport import drain, run_until_quiet

ALL = _Zel.typeNode("Demo::AllTypes")
BASE = _Zel.typeNode("Zel::PyGenericIfNotifieeBase")
FILTERED, FILTER, HANDLER = BASE.attr("filtered"), BASE.attr("filterAttr"), BASE.attr("handler")
ACTIVITY = _Zel.typeNode("Zel::ActivityConfig")


class Watch(object):
    def __init__(self, obj, activity=None):
        self.calls = calls = []   # the handler must not keep its own notifiee alive
        self.handle = _Zel.handle(lambda name, value: calls.append((name, value)))
        self.notifiee = obj.newNotifiee(self.handle, activity)


class Filter(unittest.TestCase):
    def setUp(self):
        self.obj = _Zel.newGenericIf(ALL, ("filter",))
        self.w = Watch(self.obj)
        self.n = self.w.notifiee
        self.value = 0

    def touch(self):
        # Only a change notifies: every touch writes new values.
        self.value += 1
        del self.w.calls[:]
        self.obj.attributeSingletonIs(ALL.attr("i32"), self.value)
        self.obj.attributeSingletonIs(ALL.attr("s8"), str(self.value))
        return [name for name, _ in self.w.calls]

    def test_unfiltered_then_each_filter_change_applies_to_the_next_call(self):
        self.assertEqual((self.n.typeName(), self.n.attributeSingleton(FILTERED), self.n.attributeMembers(FILTER),
                          self.n.attributeSingleton(HANDLER).ptr), ("Zel::PyGenericIfNotifieeBase", False, 0,
                                                                     self.w.handle.ptr))
        self.assertEqual(self.touch(), ["i32", "s8"])
        self.assertEqual(self.w.calls, [("i32", 1), ("s8", "1")])
        first = [name for name, _ in self.w.calls]
        self.touch()
        for a, b in zip(first, [name for name, _ in self.w.calls]):   # interned attribute names
            self.assertIs(a, b)
            self.assertIs(a, pyver.intern(a))
        v0 = self.n.attributeVersion(FILTER)
        entry = lambda name, on: lambda: self.n.attributeCollectionIs(FILTER, name, on)  # noqa: E731
        steps = [("nothing", lambda: None, ["i32", "s8"]),
                 ("i32 on, unfiltered", entry("i32", True), ["i32", "s8"]),
                 ("filtered", lambda: self.n.attributeSingletonIs(FILTERED, True), ["i32"]),
                 ("i32 off in place", entry("i32", False), []),
                 ("i32 on again", entry("i32", True), ["i32"]),
                 ("i32 deleted", lambda: self.n.attributeCollectionDel(FILTER, "i32"), []),
                 ("s8 on", entry("s8", True), ["s8"]),
                 ("i32 on", entry("i32", True), ["i32", "s8"]),
                 ("unfiltered", lambda: self.n.attributeSingletonIs(FILTERED, False), ["i32", "s8"])]
        for what, change, names in steps:
            change()
            self.assertEqual((what, self.touch(), self.touch()), (what, names, names))
        self.assertGreater(self.n.attributeVersion(FILTER), v0)

    def test_entries_read_iterate_and_delete(self):
        self.assertIs(self.n.attributeCollectionVal(FILTER, "absent"), False)
        self.assertRaises(KeyError, self.n.attributeCollection, FILTER, "absent")
        self.assertIs(self.n.attributeCollectionExist(FILTER, "absent"), False)
        names = ["n%02d" % i for i in range(40)]   # enough to make the map grow
        for i, name in enumerate(reversed(names)):
            self.n.attributeCollectionIs(FILTER, name, i % 2 == 0)
        self.assertEqual(self.n.attributeMembers(FILTER), 40)
        items = drain(self.n.attributeIter(FILTER, _Zel.IteratorModeItems))
        self.assertEqual([k for k, _ in items], names)
        self.assertEqual(dict(items), dict((n, self.n.attributeCollection(FILTER, n)) for n in names))
        self.assertEqual([self.n.attributeCollectionExist(FILTER, n) for n in ("n00", "n01")], [True, True])
        self.n.attributeCollectionDel(FILTER, "n05")
        self.assertIs(self.n.attributeCollectionExist(FILTER, "n05"), False)
        self.assertEqual(self.n.attributeMembers(FILTER), 39)
        self.n.attributeSingletonIs(FILTERED, True)
        self.n.attributeCollectionIs(FILTER, "i32", True)
        self.assertEqual(self.touch(), ["i32"])
        for name in drain(self.n.attributeIter(FILTER, _Zel.IteratorModeKeys)):
            self.n.attributeCollectionDel(FILTER, name)
        self.assertEqual(self.n.attributeMembers(FILTER), 0)
        self.assertEqual(self.touch(), [])


class Delivery(unittest.TestCase):
    def test_activity_defers_to_the_loop_in_order_and_dropped_notifiees_are_not_called(self):
        obj = _Zel.newGenericIf(ALL, ("deferred",))
        act = _Zel.newGenericIf(ACTIVITY, ("notify-act",))
        later, now, queued = Watch(obj, act), Watch(obj), Watch(obj, act)
        for v in (1, 2, 3):
            obj.attributeSingletonIs(ALL.attr("i32"), v)
        self.assertEqual((later.calls, len(now.calls)), ([], 3))
        del now.notifiee, queued.notifiee   # the latter with its calls queued
        obj.attributeSingletonIs(ALL.attr("i32"), 4)
        run_until_quiet()
        self.assertEqual(later.calls, [("i32", v) for v in (1, 2, 3, 4)])
        self.assertEqual((len(now.calls), queued.calls), (3, []))

    def test_every_kind_of_callable_gets_name_and_value(self):
        got = []

        class Receiver(object):
            def method(self, name, value):
                got.append((name, value))
            __call__ = method

        collecting = lambda *args: got.append(args)  # noqa: E731
        obj = _Zel.newGenericIf(ALL, ("kinds",))
        # Bound methods, defaults, *args and closures go without a tuple; the
        # rest through PyObject_Call.
        cases = [(Receiver().method, ("i32", 1)), (Receiver(), ("i32", 2)),
                 (lambda name, value, tag="d": got.append((name, value, tag)), ("i32", 3, "d")),
                 (collecting, ("i32", 4)),
                 (lambda name, value: got.append((name, value, len(got))), ("i32", 5, 0)),
                 (functools.partial(collecting, "p"), ("p", "i32", 6))]
        for value, (handler, expected) in enumerate(cases, 1):
            del got[:]
            notifiee = obj.newNotifiee(_Zel.handle(handler), None)  # noqa: F841 (kept for the set)
            obj.attributeSingletonIs(ALL.attr("i32"), value)
            self.assertEqual(got, [expected], handler)
            del notifiee


CN = _Zel.typeNode("Zel::PyClockNotifiee")
A = CN.attr
CLOCK = _Zel.singleton("Zel::Clock")
NOW = _Zel.typeNode("Zel::Clock").attr("now")


def past():
    return CLOCK.attributeSingleton(NOW) - 1.0


class Ticker(object):
    """Records its calls; each call takes the next wake time from `plan`."""

    def __init__(self, tag, log, plan=(), activity=None):
        self.plan = list(plan)
        me = weakref.ref(self)   # the handler must not keep its own notifiee alive

        def fire():
            log.append(tag)
            t = me()
            if t is not None and t.plan and hasattr(t, "n"):
                t.n.attributeSingletonIs(A("timeMinProxy"), t.plan.pop(0))
        self.handle = _Zel.handle(fire)
        self.n = _Zel.newGenericIf(CN, (activity, CLOCK, self.handle))


class Firing(unittest.TestCase):
    def test_creation_wake_times_in_order_reflection_and_drop(self):
        act = _Zel.newGenericIf(_Zel.typeNode("Zel::ActivityConfig"), ("clock-act",))
        log = []
        ts = [Ticker(tag, log) for tag in "xyz"] + [Ticker("d", log, activity=act)]
        self.assertEqual(log, ["x", "y", "z", "d"])   # the calls at creation, even the deferred one's
        self.assertEqual(ts[0].n.attributeSingleton(A("timeMinProxy")), 0.0)
        run_until_quiet()
        self.assertEqual(log, ["x", "y", "z", "d"])   # no wake time, no call
        del log[:]
        base = past()
        for t, offset in zip(ts, (0.3, 0.1, 0.2, 0.4)):
            t.n.attributeSingletonIs(A("timeMinProxy"), base + offset)
        run_until_quiet()
        self.assertEqual(log, ["y", "z", "x", "d"])
        # A handler that writes the next wake time is called at it, and
        # after its last one no more.
        del log[:]
        t = ts[0]
        t.plan = [past(), past()]
        t.n.attributeSingletonIs(A("timeMinProxy"), past())
        run_until_quiet()
        run_until_quiet()
        self.assertEqual(log, ["x"] * 3)
        self.assertEqual((t.n.typeName(), t.n.attributeSingleton(A("clock")).ptr,
                          t.n.attributeSingleton(A("notifier")).ptr), ("Zel::PyClockNotifiee", CLOCK.ptr, CLOCK.ptr))
        t.n.attributeFunction(A("handleTime"), ())
        t.n.attributeSingletonIs(A("notifier"), CLOCK)   # the same clock: no call
        self.assertEqual(log, ["x"] * 4)
        self.assertEqual((CN.baseType.fullTypeName, _Zel.typeNode("Zel::Clock::NotifieeConst").baseType.fullTypeName),
                         ("Zel::Entity::NotifieeConst", "Zel::Entity::NotifieeConst"))
        # Dropped notifiees stop at once, the deferred one too.
        for t in (ts[1], ts[3]):
            t.n.attributeSingletonIs(A("timeMinProxy"), past())
            del t.n
        run_until_quiet()
        self.assertEqual(log, ["x"] * 4)

    def test_operations_the_attributes_lack_are_not_supported(self):
        # The handle's and the clock notifiee's own attributes refuse what
        # they do not offer as not supported, not as not writable.
        t = Ticker("u", [])
        H = _Zel.typeNode("Zel::PyObjHandle").attr
        for obj, attr, op in [(t.handle, H("passedRef"), "set"), (t.handle, H("passedRef"), "del"),
                              (t.handle, H("handleInit"), "del"), (t.n, A("clock"), "set"),
                              (t.n, A("handler"), "set"), (t.n, A("timeMinProxy"), "del"),
                              (t.n, A("notifier"), "del"), (t.n, A("handleTime"), "del")]:
            stage = "mutator" if op == "set" else "del"
            with self.assertRaises(NotImplementedError) as caught:
                if op == "set":
                    obj.attributeSingletonIs(attr, obj.attributeSingleton(attr))
                else:
                    obj.attributeSingletonDel(attr)
            self.assertEqual(str(caught.exception),
                             '%s.%s: error in %s : Zel::OpNotSupportedException("attribute %s does not support %s")'
                             % (attr.scope.fullTypeName, attr.name, stage, attr.name, op))


ATTRIBUTE_CHILD = r"""
import Zel, ZelDemo, _Zel
T = _Zel.typeNode("Demo::AllTypes")
obj = _Zel.newGenericIf(T, ("boom",))
def handler(name, value):
    raise ValueError("bad value %r" % (value,))
n = obj.newNotifiee(_Zel.handle(handler), None)
def change():
    obj.attributeSingletonIs(T.attr("i32"), 5)
change()
print("not reached")
"""

CLOCK_CHILD = r"""
import Zel, _Zel
def handler():
    raise KeyError("tick")
n = _Zel.newGenericIf(_Zel.typeNode("Zel::PyClockNotifiee"), (None, _Zel.singleton("Zel::Clock"), _Zel.handle(handler)))
print("not reached")
"""


class Fatal(unittest.TestCase):
    def test_raising_handlers_abort_with_message_and_traceback(self):
        for name, child, message, error in (
                ("ATTRIBUTE_CHILD", ATTRIBUTE_CHILD,
                 "PyGenericIfNotifiee::onAttribute handler raised an exception\nTraceback", "ValueError: bad value 5\n"
                 ".*Python traceback \\(most recent call FIRST\\):\n  File \"<string>\", line 9, in change\n"
                 '  File "<string>", line 10, in <module>\n'),
                ("CLOCK_CHILD", CLOCK_CHILD,
                 "PyClockNotifiee::handleNotification's handler raised an exception\nTraceback", "KeyError: 'tick'")):
            rc, out, err = children.python(name, child)
            self.assertEqual((name, rc, out), (name, -6, ""), err)
            self.assertIn(message, err)
            self.assertTrue(re.search(error, err, re.S), err)

if __name__ == "__main__":
    unittest.main()
