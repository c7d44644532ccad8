"""Builtin values take a direct path (no framework value object per call)
through attribute reads, writes, keyed look-ups, iteration, function calls
and the Zel package's attribute syntax; anything the direct path does not
take must fall back to the general path and be refused exactly as before.
These cases sit at the edges between the two."""
import unittest

import Zel
import ZelDemo  # noqa: F401
import _Zel

ALL = _Zel.typeNode("Demo::AllTypes")
SW = _Zel.typeNode("Demo::Switch")


def refusal(attr, expected, got):
    return 'Demo::AllTypes.%s: Zel::TypeException("expected %s, got %s")' % (attr, expected, got)


class Int(int):
    pass


class Str(str):
    pass


class SingletonEdges(unittest.TestCase):
    def setUp(self):
        self.obj = _Zel.newGenericIf(ALL, ("edges",))

    def test_range_limits_are_taken_and_one_beyond_refused_unchanged(self):
        accepted = [("i32", 2 ** 31 - 1), ("i32", -2 ** 31), ("i32", 7L), ("u32", 2 ** 32 - 1), ("u32", 5L),
                    ("i8", -128), ("u16", 65535), ("l", -2 ** 31), ("i64", 2 ** 63 - 1), ("u64", 2 ** 64 - 1),
                    ("f64", 3), ("f64", 2L ** 70), ("f32", 0.5), ("ch", "\0"), ("s8", Str("sub")), ("s8", "")]
        for name, value in accepted:
            self.obj.attributeSingletonIs(ALL.attr(name), value)
            self.assertEqual((name, self.obj.attributeSingleton(ALL.attr(name))), (name, value))
        refused = [("i32", 2 ** 31, "int: 2147483648"), ("i32", -2 ** 31 - 1, "int: -2147483649"),
                   ("i32", Int(3), "Int: 3"),
                   ("u64", 2 ** 64, "long: 18446744073709551616L"), ("i8", 128, "int: 128"),
                   ("flag", 1, "int: 1"), ("ch", "ab", "str: 'ab'"), ("f64", "1", "str: '1'")]
        types = {"i32": "int", "u64": "unsigned long long", "i8": "signed char", "flag": "bool", "ch": "char",
                 "f64": "double"}
        for name, value, got in refused:
            before = self.obj.attributeSingleton(ALL.attr(name))
            with self.assertRaises(TypeError) as cm:
                self.obj.attributeSingletonIs(ALL.attr(name), value)
            self.assertEqual(str(cm.exception), refusal(name, types[name], got))
            self.assertEqual(self.obj.attributeSingleton(ALL.attr(name)), before)

    def test_value_fields_and_accessors_of_value_handles(self):
        point = _Zel.newGenericIf(_Zel.typeNode("Demo::Point"), (1, 2))
        x = _Zel.typeNode("Demo::Point").attr("x")
        point.attributeSingletonIs(x, 40)
        self.assertEqual(point.attributeSingleton(x), 40)
        mac = self.obj.rawAttributeSingleton(ALL.attr("mac"))
        text = _Zel.typeNode("Demo::MacAddr").attr("stringValue")
        mac.attributeSingletonIs(text, "02:00:00:00:00:01")
        self.assertEqual(mac.attributeSingleton(text), "02:00:00:00:00:01")

    def test_attribute_syntax_reads_writes_deletes_and_wraps(self):
        a = Zel.new("Demo::AllTypes", "syntax")
        a.i32 = 12
        self.assertEqual(a.i32, 12)
        a.peer = a
        self.assertIsInstance(a.peer, Zel.Object)
        self.assertEqual(a.peer, a)
        del a.peer
        self.assertIsNone(a.peer)
        with self.assertRaises(TypeError) as cm:
            a.i32 = "12"
        self.assertEqual(str(cm.exception), refusal("i32", "int", "str: '12'"))
        with self.assertRaises(AttributeError) as cm:
            del a.i32
        self.assertTrue(str(cm.exception).startswith("Demo::AllTypes.i32: error in del : "), str(cm.exception))
        descriptor = type(a).__dict__["i32"]
        self.assertIs(type(a).i32, descriptor)
        with self.assertRaises(TypeError):
            descriptor.__get__(object(), object)


class CollectionEdges(unittest.TestCase):
    def setUp(self):
        self.sw = _Zel.newGenericIf(SW, ("edges",))
        self.vlan = SW.attr("vlan")
        for key in (1, 2, 3, 4):
            self.sw.attributeCollectionIs(self.vlan, key, "v%d" % key)

    def test_keys_of_other_python_types(self):
        self.assertEqual(self.sw.attributeCollection(self.vlan, 2L), "v2")
        for key, got in ((2 ** 40, "int: 1099511627776"), (True, "bool: True")):
            with self.assertRaises(TypeError) as cm:
                self.sw.attributeCollection(self.vlan, key)
            self.assertEqual(str(cm.exception),
                             'Demo::Switch.vlan: index type : Zel::TypeException("expected int, got %s")' % got)

    def test_iteration_sees_changes_made_between_steps(self):
        it = self.sw.attributeIter(self.vlan, _Zel.IteratorModeItems)
        self.assertEqual(next(it), (1, "v1"))
        self.sw.attributeCollectionDel(self.vlan, 2)      # the next member goes
        self.sw.attributeCollectionIs(self.vlan, 3, "w3")  # one ahead changes
        self.sw.attributeCollectionIs(self.vlan, 0, "v0")  # one behind appears
        self.assertEqual([next(it), next(it)], [(3, "w3"), (4, "v4")])
        self.assertRaises(StopIteration, next, it)

    def test_function_refusals_read_the_same_before_and_after_the_first_call(self):
        add = SW.attr("add")
        messages = []
        for _ in range(2):
            with self.assertRaises(TypeError) as cm:
                self.sw.attributeFunction(add, ("1", 2))
            messages.append(str(cm.exception))
            self.assertEqual(self.sw.attributeFunction(add, (2, 3)), 5)
        self.assertEqual(messages[0], messages[1])
        with self.assertRaises(TypeError) as cm:
            self.sw.attributeFunction(add, (1,))
        self.assertIn("expected 2 parameters: 1 passed in: (int)", str(cm.exception))
        with self.assertRaises(TypeError):
            self.sw.attributeFunction(add, [1, 2])


if __name__ == "__main__":
    unittest.main()
