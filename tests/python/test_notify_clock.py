"""Clock notifiees: calls at creation and at each wake time only, reflection, deferral, the end of calls."""
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


if __name__ == "__main__":
    unittest.main()
