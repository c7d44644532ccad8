"""Zel package proxies: attribute syntax, the dict and queue protocols,
instantiating collections, methods, identity, and proxies handed back to
the framework through ptr_."""
import unittest

import Zel
import ZelDemo  # noqa: F401


class Proxies(unittest.TestCase):
    def setUp(self):
        self.sw = Zel.new("Demo::Switch", "sw1")

    def test_singletons_and_proxies_passed_back(self):
        intf = self.sw.intf.newMember("et1")
        self.assertIsInstance(intf, Zel.Object)
        intf.mtu = 9000
        self.assertEqual(self.sw.intf["et1"].mtu, 9000)
        self.assertRaises(TypeError, setattr, intf, "mtu", "big")   # module error passes through
        self.assertRaises(AttributeError, getattr, intf, "nosuch")
        a, b = Zel.new("Demo::AllTypes", "a"), Zel.new("Demo::AllTypes", "b")
        a.peer = b
        self.assertEqual(a.peer, b)
        self.assertEqual(a.peer.ptr_.ptr, b.ptr_.ptr)
        del a.peer
        self.assertIsNone(a.peer)
        a.point = Zel.Type("Demo::Point")(3, 4)
        self.assertEqual((a.point.x, a.point.y), (3, 4))

    def test_keyed_collection_is_a_dict(self):
        vlan = self.sw.vlan
        for k, v in ((30, "c"), (10, "a"), (20, "b")):
            vlan[k] = v
        self.assertEqual((len(vlan), 10 in vlan, 11 in vlan), (3, True, False))
        self.assertEqual(sorted(vlan), [10, 20, 30])
        self.assertEqual(sorted(vlan.values()), ["a", "b", "c"])
        self.assertEqual(dict(vlan.items()), {10: "a", 20: "b", 30: "c"})
        self.assertEqual(vlan.get(5, "none"), "none")
        del vlan[10]
        with self.assertRaises(KeyError):
            vlan[10]
        self.assertEqual(sorted(vlan.keys()), [20, 30])

    def test_instantiating_collections_and_iteration_yield_proxies(self):
        made = [self.sw.intf.newMember(n) for n in ("et1", "et2")]
        self.assertEqual(dict(self.sw.intf.items()), {"et1": made[0], "et2": made[1]})
        ev = self.sw.event.newMember("boot")
        self.assertEqual((ev.text, self.sw.event[ev.seq]), ("boot", ev))
        self.assertEqual(list(self.sw.event.values()), [ev])
        self.assertEqual(self.sw.interfaceCount(), 2)

    def test_queue(self):
        for s in ("x", "y"):
            self.sw.log.add(s)
        self.assertEqual((len(self.sw.log), list(self.sw.log)), (2, ["x", "y"]))
        self.assertEqual([self.sw.log.remove() for _ in range(3)], ["x", "y", None])

    def test_methods_dir_repr_identity(self):
        self.assertEqual(self.sw.add(2, 3), 5)
        self.sw.vlan[1] = "v"
        self.sw.reset()
        self.assertEqual(len(self.sw.vlan), 0)
        self.assertTrue({"intf", "vlan", "add", "fullName"} <= set(dir(self.sw)))
        self.assertEqual(repr(self.sw), "<Demo::Switch sw1>")
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
