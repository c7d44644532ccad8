"""Attribute notifiees made by GifPtr.newNotifiee: the filter reached through
the ordinary attribute methods, the (name, value) calls, delivery deferred to
an activity, the end of calls when the notifiee goes, and the fatal path."""
import functools
import unittest

import Zel  # noqa: F401
import ZelDemo  # noqa: F401
import _Zel

ALL = _Zel.typeNode("Demo::AllTypes")
BASE = _Zel.typeNode("Zel::PyGenericIfNotifieeBase")
FILTERED, FILTER, HANDLER = BASE.attr("filtered"), BASE.attr("filterAttr"), BASE.attr("handler")
MGR = _Zel.singleton("Zel::ActivityManagerConfig")
QUIESCE = _Zel.typeNode("Zel::ActivityManagerConfig").attr("stopOnQuiesce")


def run_until_quiet():
    MGR.attributeSingletonIs(QUIESCE, True)
    _Zel.activityManagerExecTimeIs(30.0)


def drain(it):
    out = []
    while True:
        try:
            out.append(next(it))
        except StopIteration:
            return out


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

    def test_new_notifiee_forwards_everything_with_values(self):
        self.assertEqual(self.n.typeName(), "Zel::PyGenericIfNotifieeBase")
        self.assertIs(self.n.attributeSingleton(FILTERED), False)
        self.assertEqual(self.n.attributeMembers(FILTER), 0)
        self.assertEqual(self.n.attributeSingleton(HANDLER).ptr, self.w.handle.ptr)
        self.assertEqual(self.touch(), ["i32", "s8"])
        self.assertEqual(self.w.calls, [("i32", 1), ("s8", "1")])

    def test_filtered_forwards_only_true_entries(self):
        self.n.attributeSingletonIs(FILTERED, True)
        self.assertEqual(self.touch(), [])
        v0 = self.n.attributeVersion(FILTER)
        self.n.attributeCollectionIs(FILTER, "i32", True)
        self.assertEqual(self.touch(), ["i32"])
        self.n.attributeCollectionIs(FILTER, "i32", False)
        self.assertEqual(self.n.attributeMembers(FILTER), 1)
        self.assertIs(self.n.attributeCollection(FILTER, "i32"), False)
        self.assertIs(self.n.attributeCollectionExist(FILTER, "i32"), True)
        self.assertEqual(self.touch(), [])
        self.n.attributeCollectionIs(FILTER, "s8", True)
        self.assertEqual(self.touch(), ["s8"])
        self.assertGreater(self.n.attributeVersion(FILTER), v0)
        self.n.attributeSingletonIs(FILTERED, False)
        self.assertEqual(self.touch(), ["i32", "s8"])

    def test_filter_changes_apply_to_the_next_call_for_the_same_attribute(self):
        i32 = ALL.attr("i32")

        def set_i32():
            self.value += 1
            del self.w.calls[:]
            self.obj.attributeSingletonIs(i32, self.value)
            return len(self.w.calls)
        self.n.attributeCollectionIs(FILTER, "i32", True)
        self.assertEqual(set_i32(), 1)
        self.n.attributeSingletonIs(FILTERED, True)
        steps = [(lambda: None, 1),
                 (lambda: self.n.attributeCollectionIs(FILTER, "i32", False), 0),   # an entry changed in place
                 (lambda: self.n.attributeCollectionIs(FILTER, "i32", True), 1),
                 (lambda: self.n.attributeCollectionDel(FILTER, "i32"), 0),
                 (lambda: self.n.attributeCollectionIs(FILTER, "i32", True), 1),
                 (lambda: self.n.attributeSingletonIs(FILTERED, False), 1)]
        for change, calls in steps:
            change()
            self.assertEqual((set_i32(), set_i32()), (calls, calls))

    def test_handler_names_are_the_interned_attribute_names(self):
        self.touch()
        first = [name for name, _ in self.w.calls]
        self.touch()
        for a, b in zip(first, [name for name, _ in self.w.calls]):
            self.assertIs(a, b)
            self.assertIs(a, intern(a))
        self.assertEqual(first, ["i32", "s8"])

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

    def test_tracked_entries_are_freed_with_the_notifiee(self):
        tracker = _Zel.singleton("Zel::AllocTracker")
        live = _Zel.typeNode("Zel::AllocTracker").attr("liveCount")

        def counts():
            return [tracker.attributeCollection(live, n) if tracker.attributeCollectionExist(live, n) else 0
                    for n in ("Zel::PyGenericIfNotifieeBase::ZelFilterAttr", "Zel::PyGenericIfNotifiee")]
        before = counts()
        w = Watch(self.obj)
        for i in range(10):
            w.notifiee.attributeCollectionIs(FILTER, "a%d" % i, True)
        self.assertEqual(counts(), [before[0] + 10, before[1] + 1])
        del w
        self.assertEqual(counts(), before)


class Delivery(unittest.TestCase):
    def test_activity_defers_to_the_loop_in_order(self):
        obj = _Zel.newGenericIf(ALL, ("deferred",))
        act = _Zel.newGenericIf(_Zel.typeNode("Zel::ActivityConfig"), ("notify-act",))
        w = Watch(obj, act)
        for v in (1, 2, 3):
            obj.attributeSingletonIs(ALL.attr("i32"), v)
        self.assertEqual(w.calls, [])
        run_until_quiet()
        self.assertEqual(w.calls, [("i32", 1), ("i32", 2), ("i32", 3)])

    def test_dropped_notifiee_is_not_called_even_with_queued_work(self):
        obj = _Zel.newGenericIf(ALL, ("dropped",))
        act = _Zel.newGenericIf(_Zel.typeNode("Zel::ActivityConfig"), ("drop-act",))
        now, queued = Watch(obj), Watch(obj, act)
        obj.attributeSingletonIs(ALL.attr("i32"), 1)
        self.assertEqual(len(now.calls), 1)
        now_calls, queued_calls = now.calls, queued.calls
        del now.notifiee, queued.notifiee
        obj.attributeSingletonIs(ALL.attr("i32"), 2)
        run_until_quiet()
        self.assertEqual((now_calls, queued_calls), ([("i32", 1)], []))

    def test_every_kind_of_callable_gets_name_and_value(self):
        got = []

        class Receiver(object):
            def method(self, name, value):
                got.append((name, value))

            def __call__(self, name, value):
                got.append((name, value))

        def with_default(name, value, tag="d"):
            got.append((name, value, tag))

        def collecting(*args):
            got.append(args)

        def closing(name, value):
            got.append((name, value, len(got)))
        obj = _Zel.newGenericIf(ALL, ("kinds",))
        # Bound methods, defaults, *args and closures go without a tuple; the
        # rest through PyObject_Call.
        cases = [(Receiver().method, ("i32", 1)), (Receiver(), ("i32", 2)), (with_default, ("i32", 3, "d")),
                 (collecting, ("i32", 4)), (closing, ("i32", 5, 0)),
                 (functools.partial(collecting, "p"), ("p", "i32", 6))]
        for value, (handler, expected) in enumerate(cases, 1):
            del got[:]
            notifiee = obj.newNotifiee(_Zel.handle(handler), None)  # noqa: F841 (kept for the set)
            obj.attributeSingletonIs(ALL.attr("i32"), value)
            self.assertEqual(got, [expected], handler)
            del notifiee

    def test_argument_checks(self):
        obj = _Zel.newGenericIf(ALL, ("args",))
        h = _Zel.handle(lambda *a: None)
        with self.assertRaises(TypeError) as cm:
            obj.newNotifiee(h, obj)
        self.assertIn("error in newNotifiee : ", str(cm.exception))
        self.assertIn("Expected a Zel::ActivityConfig", str(cm.exception))
        self.assertRaises(TypeError, obj.newNotifiee, h)
        self.assertRaises(TypeError, obj.newNotifiee, 5, None)


if __name__ == "__main__":
    unittest.main()
