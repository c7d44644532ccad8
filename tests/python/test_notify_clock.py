"""Clock notifiees: the call at creation, calls at each wake time written to
timeMinProxy and at no other time, reflection, deferral to an activity, and
the end of calls when the notifiee goes."""
import unittest
import weakref

import Zel  # noqa: F401
import ZelDemo  # noqa: F401
import _Zel
from zelsupport import run_until_quiet

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
    def test_once_at_creation_then_per_wake_time(self):
        log = []
        t = Ticker("a", log)
        self.assertEqual(log, ["a"])
        self.assertEqual(t.n.attributeSingleton(A("timeMinProxy")), 0.0)
        run_until_quiet()
        self.assertEqual(log, ["a"])
        t.plan = [past(), past()]
        t.n.attributeSingletonIs(A("timeMinProxy"), past())
        run_until_quiet()
        self.assertEqual(log, ["a"] * 4)
        run_until_quiet()
        self.assertEqual(log, ["a"] * 4)

    def test_wake_times_fire_in_order_the_last_deferred_to_an_activity(self):
        act = _Zel.newGenericIf(_Zel.typeNode("Zel::ActivityConfig"), ("clock-act",))
        log = []
        ts = [Ticker(tag, log) for tag in "xyz"] + [Ticker("d", log, activity=act)]
        self.assertEqual(log, ["x", "y", "z", "d"])   # the calls at creation, even the deferred one's
        del log[:]
        base = past()
        for t, offset in zip(ts, (0.3, 0.1, 0.2, 0.4)):
            t.n.attributeSingletonIs(A("timeMinProxy"), base + offset)
        run_until_quiet()
        self.assertEqual(log, ["y", "z", "x", "d"])

    def test_reflection(self):
        log = []
        t = Ticker("r", log)
        self.assertEqual(t.n.typeName(), "Zel::PyClockNotifiee")
        self.assertEqual(t.n.attributeSingleton(A("clock")).ptr, CLOCK.ptr)
        self.assertEqual(t.n.attributeSingleton(A("notifier")).ptr, CLOCK.ptr)
        t.n.attributeFunction(A("handleTime"), ())
        self.assertEqual(log, ["r", "r"])
        t.n.attributeSingletonIs(A("notifier"), CLOCK)   # the same clock: no call
        self.assertEqual(log, ["r", "r"])
        self.assertEqual(CN.baseType.fullTypeName, "Zel::Entity::NotifieeConst")
        self.assertEqual(_Zel.typeNode("Zel::Clock::NotifieeConst").baseType.fullTypeName,
                         "Zel::Entity::NotifieeConst")

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

    def test_dropped_notifiee_stops_at_once(self):
        log = []
        for activity in (None, _Zel.newGenericIf(_Zel.typeNode("Zel::ActivityConfig"), ("drop-act",))):
            t = Ticker("gone", log, activity=activity)
            t.n.attributeSingletonIs(A("timeMinProxy"), past())
            del t.n
        run_until_quiet()
        self.assertEqual(log, ["gone"] * 2)


if __name__ == "__main__":
    unittest.main()
