"""Collection and function attributes of _Zel.GifPtr handles on Demo::Switch, with the refusals at the edges of
the direct path for builtin keys and arguments."""
import unittest

import Zel  # noqa: F401
import ZelDemo  # noqa: F401
import _Zel
from pyver import long
from zelsupport import drain, raised

T = _Zel.typeNode("Demo::Switch")
A = T.attr


class Collections(unittest.TestCase):
    def setUp(self):
        self.sw = _Zel.newGenericIf(T, ("sw",))

    def test_keyed_values_lookups_counts_and_versions(self):
        vlan = A("vlan")
        v0 = self.sw.attributeVersion(vlan)
        for key, name in ((30, "thirty"), (10, "ten"), (20, "twenty")):
            self.assertIsNone(self.sw.attributeCollectionIs(vlan, key, name))
        self.assertIsInstance(v0, long)
        self.assertGreater(self.sw.attributeVersion(vlan), v0)
        members = self.sw.attributeMembers(vlan)
        self.assertEqual((type(members), members), (long, 3))
        for lookup in (self.sw.attributeCollection, self.sw.rawAttributeCollection, self.sw.attributeCollectionVal):
            self.assertEqual(lookup(vlan, 20), "twenty")
            self.assertEqual(lookup(vlan, long(20)), "twenty")
            self.assertEqual((type(raised(lookup, vlan, 5)), raised(lookup, vlan, 5).args), (KeyError, (5,)))
        self.assertEqual([self.sw.attributeCollectionExist(vlan, k) for k in (10, 11)], [True, False])
        self.assertIsNone(self.sw.attributeCollectionDel(vlan, 10))
        self.assertEqual(self.sw.attributeMembers(vlan), 2)

    def test_keys_and_values_of_the_wrong_type_are_refused(self):
        vlan = A("vlan")
        for call in (self.sw.attributeCollectionExist, self.sw.attributeCollection, self.sw.attributeCollectionDel,
                     lambda a, k: self.sw.attributeCollectionIs(a, k, "x")):
            for key, got in (("5", "str: '5'"), (2 ** 40, "int: 1099511627776"), (True, "bool: True")):
                e = raised(call, vlan, key)
                self.assertEqual((type(e), str(e)), (TypeError, 'Demo::Switch.vlan: index type : '
                                                     'Zel::TypeException("expected int, got %s")' % got))
        e = raised(self.sw.attributeCollectionIs, vlan, 1, 2)
        self.assertEqual((type(e), str(e)),
                         (TypeError, 'Demo::Switch.vlan: Zel::TypeException("expected Zel::String, got int: 2")'))
        self.assertEqual(self.sw.attributeMembers(vlan), 0)

    def test_instantiating_collections(self):
        intf = A("intf")
        made = self.sw.attributeCollectionIs(intf, None, ("eth0",))   # the README's tour uses what it returns
        self.sw.attributeCollectionIs(intf, None, ("eth1",))
        self.assertEqual(self.sw.rawAttributeCollection(intf, "eth0").ptr, made.ptr)
        (key, value), _ = drain(self.sw.attributeIter(intf, _Zel.IteratorModeItems))
        self.assertEqual((key, type(value), value.typeName()), ("eth0", _Zel.GifPtr, "Demo::Interface"))
        for e, cls, text in ((raised(self.sw.attributeCollectionIs, intf, "eth2", ("eth2",)), AttributeError,
                              "Demo::Switch.intf: index type : expected None for the index type, got: str"),
                             (raised(self.sw.attributeAdd, intf, "eth3"), TypeError,
                              'Demo::Switch.intf: Zel::TypeException("expected tuple, got str")')):
            self.assertEqual((type(e), str(e)), (cls, text))
        self.assertEqual(self.sw.attributeMembers(intf), 2)
        # automatic keys: the framework supplies the key argument
        first = self.sw.attributeAdd(A("event"), ("up",))
        second = self.sw.attributeAdd(A("event"), ("down",))
        self.assertNotEqual(first.ptr, second.ptr)
        self.assertEqual(len(set(drain(self.sw.attributeIter(A("event"), _Zel.IteratorModeKeys)))), 2)

    def test_direct_lookup_reads_without_the_key_probe(self):
        color = A("color")
        self.sw.attributeCollectionIs(color, "x", "red")
        self.assertEqual(self.sw.attributeCollectionVal(color, "x"), "red")
        for e, cls, start in ((raised(self.sw.attributeCollectionVal, color, "nope"), IndexError,
                               "Demo::Switch.color: error in accessor : "),
                              (raised(self.sw.attributeCollection, color, "nope"), KeyError, "'nope'"),
                              (raised(self.sw.attributeCollectionIs, color, "y", "mauve"), TypeError,
                               'Demo::Switch.color: Zel::TypeException("Demo::Color expected')):
            self.assertEqual((type(e), str(e)[:len(start)]), (cls, start))
        self.assertFalse(self.sw.attributeCollectionExist(color, "y"))


class Iteration(unittest.TestCase):
    def setUp(self):
        self.sw = _Zel.newGenericIf(T, ("it",))
        self.vlan = A("vlan")
        for key in (2, 1):
            self.sw.attributeCollectionIs(self.vlan, key, "v%d" % key)

    def test_modes(self):
        for mode, items in ((_Zel.IteratorModeKeys, [1, 2]), (_Zel.IteratorModeValues, ["v1", "v2"]),
                            (_Zel.IteratorModeItems, [(1, "v1"), (2, "v2")])):
            it = self.sw.attributeIter(self.vlan, mode)
            self.assertEqual(type(it).__name__, "GenericIfIterator")
            self.assertEqual(drain(it), items)
            self.assertRaises(StopIteration, next, it)   # and after the end, again
        self.assertRaises(StopIteration, next, self.sw.attributeIter(A("log"), 0))
        self.assertRaises(TypeError, iter, self.sw.attributeIter(self.vlan, 0))

    def test_changes_made_between_steps_are_seen(self):
        for key in (3, 4):
            self.sw.attributeCollectionIs(self.vlan, key, "v%d" % key)
        it = self.sw.attributeIter(self.vlan, _Zel.IteratorModeItems)
        self.assertEqual(next(it), (1, "v1"))
        self.sw.attributeCollectionDel(self.vlan, 2)      # the next member goes
        self.sw.attributeCollectionIs(self.vlan, 3, "w3")  # one ahead changes
        self.sw.attributeCollectionIs(self.vlan, 0, "v0")  # one behind appears
        self.assertEqual(drain(it), [(3, "w3"), (4, "v4")])


class Functions(unittest.TestCase):
    def setUp(self):
        self.sw = _Zel.newGenericIf(T, ("fn",))

    # The queue's order is test_zelpkg's (the package's log is this queue).
    def test_results_and_refusals_read_the_same_before_and_after_the_first_call(self):
        self.assertIsNone(self.sw.attributeFunction(A("reset"), ()))
        self.assertEqual(self.sw.attributeFunction(A("interfaceCount"), ()), 0)
        self.sw.attributeCollectionIs(A("intf"), None, ("eth0",))
        self.assertEqual(self.sw.attributeFunction(A("interfaceCount"), ()), 1)
        messages = []
        for _ in range(2):
            for args in (("1", 2), (1, "2"), 1, (1,)):
                messages.append(str(raised(self.sw.attributeFunction, A("add"), args)))
            self.assertEqual(self.sw.attributeFunction(A("add"), (2, 3)), 5)
        self.assertEqual(messages[:4], messages[4:])
        for text in messages[:3]:
            self.assertTrue(text.startswith("Demo::Switch.add: function args : "), text)
        self.assertIn("expected 2 parameters: 1 passed in: (int)", messages[3])


if __name__ == "__main__":
    unittest.main()
