"""Lock order under load: Python threads change attributes and read
collections while another thread runs the activity loop, which delivers
deferred attribute notifications and clock firings to Python handlers."""
import threading
import unittest

import Zel  # noqa: F401
import ZelDemo  # noqa: F401
import _Zel

ALL = _Zel.typeNode("Demo::AllTypes")
SW = _Zel.typeNode("Demo::Switch")
CN = _Zel.typeNode("Zel::PyClockNotifiee")
CLOCK = _Zel.singleton("Zel::Clock")
NOW = _Zel.typeNode("Zel::Clock").attr("now")
MGR = _Zel.singleton("Zel::ActivityManagerConfig")
QUIESCE = _Zel.typeNode("Zel::ActivityManagerConfig").attr("stopOnQuiesce")
TRACKER = _Zel.singleton("Zel::AllocTracker")
LIVE = _Zel.typeNode("Zel::AllocTracker").attr("liveCount")
TYPES = ("Zel::PyGenericIfNotifiee", "Zel::PyClockNotifiee", "Zel::PyObjHandle", "Demo::AllTypes",
         "Demo::Switch", "Zel::ActivityConfig")

WRITERS, SETS, FIRINGS = 4, 1500, 200


def live_counts():
    return [TRACKER.attributeCollection(LIVE, n) if TRACKER.attributeCollectionExist(LIVE, n) else 0 for n in TYPES]


def drain(it):
    return [x for x in iter(lambda: next(it, None), None)]


class Stress(unittest.TestCase):
    def test_writers_readers_and_loop_finish_with_every_call_once(self):
        before = live_counts()
        self.run_once()
        self.assertEqual(live_counts(), before)

    def run_once(self):
        act = _Zel.newGenericIf(_Zel.typeNode("Zel::ActivityConfig"), ("stress-act",))
        sw = _Zel.newGenericIf(SW, ("stress-sw",))
        for k in range(20):
            sw.attributeCollectionIs(SW.attr("vlan"), k, "v%d" % k)
        objs = [_Zel.newGenericIf(ALL, ("stress%d" % i,)) for i in range(WRITERS)]
        deferred = [[] for _ in objs]
        at_once = [[] for _ in objs]
        keep = []
        for obj, d, a in zip(objs, deferred, at_once):
            keep.append(obj.newNotifiee(_Zel.handle(lambda name, v, d=d: d.append(v)), act))
            keep.append(obj.newNotifiee(_Zel.handle(lambda name, v, a=a: a.append(v)), None))
        ticks = []
        holder = []

        def tick():
            ticks.append(len(ticks))
            if holder and len(ticks) <= FIRINGS:
                holder[0].attributeSingletonIs(CN.attr("timeMinProxy"), CLOCK.attributeSingleton(NOW) - 1.0)
        clock_n = _Zel.newGenericIf(CN, (act, CLOCK, _Zel.handle(tick)))
        holder.append(clock_n)
        clock_n.attributeSingletonIs(CN.attr("timeMinProxy"), CLOCK.attributeSingleton(NOW) - 1.0)

        errors = []
        done = threading.Event()

        def writer(obj):
            try:
                for i in range(SETS):
                    obj.attributeSingletonIs(ALL.attr("i32"), i + 1)   # 0 is the initial value
                    if i % 10 == 0:
                        assert len(drain(sw.attributeIter(SW.attr("vlan"), _Zel.IteratorModeKeys))) == 20
                        assert sw.attributeCollection(SW.attr("vlan"), i % 20) == "v%d" % (i % 20)
            except Exception as e:  # reported by the main thread
                errors.append(e)

        def looper():
            try:
                while not done.is_set():
                    _Zel.activityManagerExecTimeIs(0.01)
                MGR.attributeSingletonIs(QUIESCE, True)
                _Zel.activityManagerExecTimeIs(30.0)
            except Exception as e:
                errors.append(e)

        loop = threading.Thread(target=looper)
        writers = [threading.Thread(target=writer, args=(o,)) for o in objs]
        loop.start()
        for w in writers:
            w.start()
        for w in writers:
            w.join(120)
        done.set()
        loop.join(120)
        self.assertFalse(any(t.is_alive() for t in writers + [loop]), "deadlock")
        self.assertEqual(errors, [])
        expected = list(range(1, SETS + 1))
        # A change made while the loop is calling the deferred handler (its
        # activity lock released) reaches that notifiee at once, on the
        # writer's thread, so arrival order may differ; each arrives once.
        self.assertEqual([sorted(d) for d in deferred], [expected] * WRITERS)
        self.assertEqual(at_once, [expected] * WRITERS)
        self.assertEqual(ticks, list(range(FIRINGS + 1)))
        del holder[:]   # the clock handler refers to its own notifiee through it


if __name__ == "__main__":
    unittest.main()
