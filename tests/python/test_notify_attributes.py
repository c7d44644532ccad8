"""Attribute notifiees made by GifPtr.newNotifiee: their filter, the calls to every kind of callable, delivery
deferred to an activity, and the end of calls when the notifiee goes."""
import functools
import unittest

import Zel  # noqa: F401
import ZelDemo  # noqa: F401
import _Zel
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


if __name__ == "__main__":
    unittest.main()
