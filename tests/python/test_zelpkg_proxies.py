"""Zel package proxies beyond the tour in docs/zel-package.md (run by
test_docs_examples, which shows attribute access, keyed, instantiating and
automatic-key collections, the queue, methods, Point equality and pointers):
values handed back to the framework, the dict and queue protocols' other
methods, dir, identity and hashing, and bulk reads of more members than
one batch."""
import threading
import unittest

import Zel
import ZelDemo  # noqa: F401


class Proxies(unittest.TestCase):
    def test_collections_and_values_passed_back(self):
        sw = Zel.new("Demo::Switch", "sw1")
        self.assertRaises(AttributeError, getattr, sw, "nosuch")
        for k, v in ((30, "c"), (10, "a"), (20, "b")):
            sw.vlan[k] = v
        self.assertEqual((list(sw.vlan), sw.vlan.values(), sw.vlan.get(5, "none"), sw.vlan.get(10)),
                         ([10, 20, 30], ["a", "b", "c"], "none", "a"))
        made = [sw.intf.newMember(n) for n in ("et1", "et2")]
        self.assertEqual(dict(sw.intf.items()), {"et1": made[0], "et2": made[1]})
        ev = sw.event.newMember("boot")
        self.assertEqual((sw.event[ev.seq], list(sw.event.values())), (ev, [ev]))
        for s in ("x", "y"):
            sw.log.add(s)
        self.assertEqual((len(sw.log), list(sw.log)), (2, ["x", "y"]))
        self.assertEqual([sw.log.remove() for _ in range(3)], ["x", "y", None])
        a = Zel.new("Demo::AllTypes", "a")
        a.point = Zel.Type("Demo::Point")(3, 4)
        self.assertEqual((a.point.x, a.point.y), (3, 4))

    def test_bulk_reads_span_batches_and_meet_changes(self):
        sw = Zel.new("Demo::Switch", "sw1")
        n = 2500   # more than two batches
        for k in range(n):
            sw.vlan[k] = "v%d" % k
        v, keys = sw.vlan, list(range(n))
        pairs = [(k, "v%d" % k) for k in keys]
        self.assertEqual((v.keys(), list(v), [k for k in v], list(v.iterkeys())), (keys, keys, keys, keys))
        self.assertEqual((v.items(), list(v.iteritems()), dict(v)), (pairs, pairs, dict(pairs)))
        self.assertEqual((v.values(), list(v.itervalues())), ([p[1] for p in pairs],) * 2)
        made = [sw.intf.newMember("e%04d" % i) for i in range(1100)]
        self.assertEqual((sw.intf.values(), [m for _, m in sw.intf.items()]), (made, made))
        self.assertTrue(all(isinstance(m, Zel.Object) for m in sw.intf.values()))
        # Another thread, between batches: a member removed ahead of the
        # position is not met, one added ahead is, one added behind is not.
        it = iter(v)
        first = next(it)
        change = threading.Thread(target=lambda: (sw.vlan.__delitem__(2000), sw.vlan.__setitem__(9000, "x"),
                                                  sw.vlan.__setitem__(-1, "y")))
        change.start()
        change.join()
        self.assertEqual([first] + list(it), [k for k in keys if k != 2000] + [9000])

    def test_dir_identity_and_hashing(self):
        sw, other = Zel.new("Demo::Switch", "sw1"), Zel.new("Demo::Switch", "sw1")
        self.assertTrue({"intf", "vlan", "add", "fullName"} <= set(dir(sw)))
        self.assertNotEqual(sw, other)
        e = sw.intf.newMember("e")
        self.assertEqual(len({sw, other, e, sw.intf["e"]}), 3)
        P = Zel.Type("Demo::Point")
        self.assertIs(P, Zel.Type("Demo::Point"))
        p = P(3, 4)
        self.assertEqual((p, hash(p)), (P(3, 4), hash(P(3, 4))))
        self.assertNotEqual(p, P(4, 3))
        self.assertIn("'x': 3", repr(p))
