"""Zel package proxies beyond the tour in docs/zel-package.md (run by
test_docs_examples): refusals passed through, proxies handed back to the
framework through ptr_, the dict and queue protocols' other methods,
methods, dir, identity and hashing."""
import unittest

import Zel
import ZelDemo  # noqa: F401


class Proxies(unittest.TestCase):
    def setUp(self):
        self.sw = Zel.new("Demo::Switch", "sw1")

    def test_singletons_and_proxies_passed_back(self):
        intf = self.sw.intf.newMember("et1")
        self.assertIsInstance(intf, Zel.Object)
        self.assertRaises(TypeError, setattr, intf, "mtu", "big")   # module error passes through
        self.assertRaises(AttributeError, getattr, intf, "nosuch")
        a, b = Zel.new("Demo::AllTypes", "a"), Zel.new("Demo::AllTypes", "b")
        a.peer = b
        self.assertEqual(a.peer.ptr_.ptr, b.ptr_.ptr)
        a.point = Zel.Type("Demo::Point")(3, 4)
        self.assertEqual((a.point.x, a.point.y), (3, 4))

    def test_collections(self):
        vlan = self.sw.vlan
        for k, v in ((30, "c"), (10, "a"), (20, "b")):
            vlan[k] = v
        self.assertEqual((sorted(vlan), sorted(vlan.values()), vlan.get(5, "none"), vlan.get(10)), ([10, 20, 30],
                         ["a", "b", "c"], "none", "a"))
        made = [self.sw.intf.newMember(n) for n in ("et1", "et2")]
        self.assertEqual(dict(self.sw.intf.items()), {"et1": made[0], "et2": made[1]})
        ev = self.sw.event.newMember("boot")
        self.assertEqual((self.sw.event[ev.seq], list(self.sw.event.values())), (ev, [ev]))
        self.assertEqual(self.sw.interfaceCount(), 2)
        for s in ("x", "y"):
            self.sw.log.add(s)
        self.assertEqual((len(self.sw.log), list(self.sw.log)), (2, ["x", "y"]))
        self.assertEqual([self.sw.log.remove() for _ in range(3)], ["x", "y", None])

    def test_methods_dir_repr_identity(self):
        self.sw.vlan[1] = "v"
        self.sw.reset()
        self.assertEqual(len(self.sw.vlan), 0)
        self.assertTrue({"intf", "vlan", "add", "fullName"} <= set(dir(self.sw)))
        other = Zel.new("Demo::Switch", "sw1")
        self.assertNotEqual(self.sw, other)
        e = self.sw.intf.newMember("e")
        self.assertEqual(len({self.sw, other, e, self.sw.intf["e"]}), 3)
        P = Zel.Type("Demo::Point")
        self.assertIs(P, Zel.Type("Demo::Point"))
        p = P(3, 4)
        self.assertEqual((p, hash(p)), (P(3, 4), hash(P(3, 4))))
        self.assertNotEqual(p, P(4, 3))
        self.assertIn("'x': 3", repr(p))
