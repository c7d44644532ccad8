"""Zel package reactions: attribute notifiees with proxied values and
filters, timers without their creation call, and close()."""
import unittest

import Zel
import ZelDemo  # noqa: F401


class Reactions(unittest.TestCase):
    def test_notifiee_wraps_values_filters_and_closes(self):
        a, b = Zel.new("Demo::AllTypes", "a"), Zel.new("Demo::AllTypes", "b")
        every, some = [], []
        n = Zel.notifiee(a, lambda name, v: every.append((name, v)))
        f = Zel.notifiee(a, lambda name, v: some.append(name), attrs=["s8"])
        a.i32, a.s8, a.peer = 5, "q", b
        self.assertEqual(every, [("i32", 5), ("s8", "q"), ("peer", b)])
        self.assertIsInstance(every[-1][1], Zel.Object)
        self.assertEqual(some, ["s8"])
        keep = n.notifiee   # even a notifiee still held elsewhere stops calling
        n.close()
        f.close()
        a.i32, a.s8 = 6, "r"
        self.assertEqual((len(every), some), (3, ["s8"]))
        self.assertIsNotNone(keep)

    def test_timer_hides_creation_call_and_fires_at_set_times(self):
        fired = []
        eager = Zel.timer(lambda: fired.append("eager"))
        self.assertEqual(fired, ["eager"])
        t = Zel.timer(lambda: fired.append(Zel.now()), at=Zel.now() + 0.05)
        start = Zel.now()
        self.assertEqual(fired, ["eager"])
        Zel.run(0.3)
        self.assertEqual(len(fired), 2)
        self.assertGreaterEqual(fired[1] - start, 0.04)
        t.after(0.02)
        Zel.run(0.2)
        self.assertEqual(len(fired), 3)
        t.after(0.02)
        t.close()
        eager.close()
        self.assertRaises(ValueError, t.after, 0)
        Zel.run(0.2)
        self.assertEqual(len(fired), 3)
