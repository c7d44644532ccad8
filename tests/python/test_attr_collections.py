"""Collection attribute methods and iteration of _Zel.GifPtr on Demo::Switch."""
import unittest

import Zel  # noqa: F401
import ZelDemo  # noqa: F401
import _Zel

T = _Zel.typeNode("Demo::Switch")
A = T.attr


def drain(it):
    out = []
    while True:
        try:
            out.append(next(it))
        except StopIteration:
            return out


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
        self.assertIsInstance(members, long)
        self.assertEqual(members, 3)
        for lookup in (self.sw.attributeCollection, self.sw.rawAttributeCollection, self.sw.attributeCollectionVal):
            self.assertEqual(lookup(vlan, 20), "twenty")
            with self.assertRaises(KeyError) as cm:
                lookup(vlan, 5)
            self.assertEqual(cm.exception.args, (5,))
        self.assertEqual([self.sw.attributeCollectionExist(vlan, k) for k in (10, 11)], [True, False])
        self.assertIsNone(self.sw.attributeCollectionDel(vlan, 10))
        self.assertEqual(self.sw.attributeMembers(vlan), 2)

    def test_key_of_the_wrong_type_is_refused_with_the_index_prefix(self):
        for call in (lambda: self.sw.attributeCollectionExist(A("vlan"), "5"),
                     lambda: self.sw.attributeCollection(A("vlan"), "5"),
                     lambda: self.sw.attributeCollectionDel(A("vlan"), "5"),
                     lambda: self.sw.attributeCollectionIs(A("vlan"), "5", "x")):
            with self.assertRaises(TypeError) as cm:
                call()
            self.assertEqual(str(cm.exception),
                             'Demo::Switch.vlan: index type : Zel::TypeException("expected int, got str: \'5\'")')
        with self.assertRaises(TypeError) as cm:
            self.sw.attributeCollectionIs(A("vlan"), 1, 2)
        self.assertEqual(str(cm.exception),
                         'Demo::Switch.vlan: Zel::TypeException("expected Zel::String, got int: 2")')
        self.assertEqual(self.sw.attributeMembers(A("vlan")), 0)
        with self.assertRaises(TypeError) as cm:
            self.sw.attributeCollection("vlan", 1)
        self.assertEqual(str(cm.exception), "Expected a _Zel.ZelAttr")
        with self.assertRaises(TypeError) as cm:
            self.sw.attributeCollectionExist(A("vlan"))
        self.assertIn("attributeCollection()", str(cm.exception))

    def test_instantiating_collections(self):
        intf = A("intf")
        made = self.sw.attributeCollectionIs(intf, None, ("eth0",))
        self.assertEqual(made.typeName(), "Demo::Interface")
        self.sw.attributeCollectionIs(intf, None, ("eth1",))
        self.assertEqual(self.sw.rawAttributeCollection(intf, "eth0").ptr, made.ptr)
        self.assertEqual(self.sw.attributeFunction(A("interfaceCount"), ()), 2)
        with self.assertRaises(AttributeError) as cm:
            self.sw.attributeCollectionIs(intf, "eth2", ("eth2",))
        self.assertEqual(str(cm.exception),
                         "Demo::Switch.intf: index type : expected None for the index type, got: str")
        with self.assertRaises(TypeError) as cm:
            self.sw.attributeAdd(intf, "eth3")
        self.assertEqual(str(cm.exception), 'Demo::Switch.intf: Zel::TypeException("expected tuple, got str")')
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
        with self.assertRaises(IndexError) as cm:
            self.sw.attributeCollectionVal(color, "nope")
        self.assertTrue(str(cm.exception).startswith("Demo::Switch.color: error in accessor : "), str(cm.exception))
        with self.assertRaises(KeyError) as cm:
            self.sw.attributeCollection(color, "nope")
        self.assertEqual(cm.exception.args, ("nope",))
        with self.assertRaises(TypeError) as cm:
            self.sw.attributeCollectionIs(color, "y", "mauve")
        self.assertTrue(str(cm.exception).startswith('Demo::Switch.color: Zel::TypeException("Demo::Color expected'),
                        str(cm.exception))
        self.assertFalse(self.sw.attributeCollectionExist(color, "y"))

    def test_items_of_entities_are_handles(self):
        self.sw.attributeCollectionIs(A("intf"), None, ("eth0",))
        (key, value), = drain(self.sw.attributeIter(A("intf"), _Zel.IteratorModeItems))
        self.assertEqual((key, type(value), value.typeName()), ("eth0", _Zel.GifPtr, "Demo::Interface"))

    def test_queue_removal_order(self):
        log = A("log")
        for text in ("a", "b", "c"):
            self.assertIsNone(self.sw.attributeAdd(log, text))
        self.assertEqual(self.sw.attributeMembers(log), 3)
        self.assertEqual([self.sw.attributeRemove(log) for _ in range(4)], ["a", "b", "c", None])

    def test_iteration_modes(self):
        vlan = A("vlan")
        for key, name in ((2, "two"), (1, "one")):
            self.sw.attributeCollectionIs(vlan, key, name)
        expected = {_Zel.IteratorModeKeys: [1, 2], _Zel.IteratorModeValues: ["one", "two"],
                    _Zel.IteratorModeItems: [(1, "one"), (2, "two")]}
        for mode, items in expected.items():
            it = self.sw.attributeIter(vlan, mode)
            self.assertEqual(type(it).__name__, "GenericIfIterator")
            self.assertEqual(drain(it), items)
            self.assertRaises(StopIteration, next, it)   # and after the end, again
        self.assertRaises(StopIteration, next, self.sw.attributeIter(A("log"), 0))
        for bad in (3, -1):
            with self.assertRaises(ValueError) as cm:
                self.sw.attributeIter(vlan, bad)
            self.assertEqual(str(cm.exception), "Invalid iterator mode")
        self.assertRaises(TypeError, iter, self.sw.attributeIter(vlan, 0))
        self.assertFalse(hasattr(_Zel, "GenericIfIterator"))
        self.assertEqual(type(self.sw.attributeIter(vlan, 0)).__doc__, "GenericIfIterator object")


if __name__ == "__main__":
    unittest.main()
