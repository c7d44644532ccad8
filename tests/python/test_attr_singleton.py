"""Singleton attribute methods of _Zel.GifPtr on Demo::AllTypes."""
import unittest

import Zel  # noqa: F401  (defines PermissionError for the error translation)
import ZelDemo  # noqa: F401  (registers the Demo types)
import _Zel

T = _Zel.typeNode("Demo::AllTypes")
A = T.attr


def prefixed(attr, kind, text, stage=""):
    return 'Demo::AllTypes.%s: %s%s("%s")' % (attr, stage, kind, text)


class SingletonValues(unittest.TestCase):
    def setUp(self):
        self.obj = _Zel.newGenericIf(T, ("all",))

    def test_builtins_take_their_values_back(self):
        cases = [("s8", "a\0b"), ("i8", -128), ("u8", 255), ("i16", -32768), ("u16", 65535),
                 ("i32", -5), ("u32", 4000000000), ("i64", -(1 << 62)), ("u64", (1 << 64) - 1),
                 ("f64", 2.5), ("flag", True), ("flag", False)]
        for name, value in cases:
            self.obj.attributeSingletonIs(A(name), value)
            got = self.obj.attributeSingleton(A(name))
            self.assertEqual((name, got), (name, value))
            self.assertEqual(self.obj.rawAttributeSingleton(A(name)), value)

    def test_literal_holds_large_values_but_not_endless_ones(self):
        big = [range(1000), {"k": (1, 2)}] * 50
        self.obj.attributeSingletonIs(A("literal"), big)
        self.assertEqual(self.obj.attributeSingleton(A("literal")), big)
        # Past a million items as repr() meets them; then one list three
        # times, 40 deep, whose repr() would hold 3**40 items.
        shared = []
        for _ in range(40):
            shared = [shared] * 3
        for value in ([range(1000)] * 1001, shared):
            with self.assertRaises(TypeError) as cm:
                self.obj.attributeSingletonIs(A("literal"), value)
            self.assertIn("too large for a Python literal", str(cm.exception))
            self.assertEqual(self.obj.attributeSingleton(A("literal")), big)

    def test_refused_values_name_the_attribute_and_change_nothing(self):
        cases = [("i32", "7", "expected int, got str: '7'"),
                 ("i32", True, "expected int, got bool: True"),
                 ("u8", 256, "expected unsigned char, got int: 256"),
                 ("u32", -1, "expected unsigned int, got int: -1"),
                 ("s8", 3, "expected Zel::String, got int: 3"),
                 ("flag", 1, "expected bool, got int: 1")]
        for name, value, text in cases:
            before = self.obj.attributeSingleton(A(name))
            with self.assertRaises(TypeError) as cm:
                self.obj.attributeSingletonIs(A(name), value)
            self.assertEqual(str(cm.exception), prefixed(name, "Zel::TypeException", text))
            self.assertEqual(self.obj.attributeSingleton(A(name)), before)

    def test_read_only_attribute_refuses_the_mutator(self):
        with self.assertRaises(AttributeError) as cm:
            self.obj.attributeSingletonIs(A("readOnly"), 1)
        self.assertTrue(str(cm.exception).startswith("Demo::AllTypes.readOnly: error in mutator : "),
                        str(cm.exception))

    def test_delete_and_its_refusal(self):
        self.obj.attributeSingletonIs(A("peer"), self.obj)
        self.assertIsNone(self.obj.attributeSingletonDel(A("peer")))
        self.assertIsNone(self.obj.attributeSingleton(A("peer")))
        with self.assertRaises(AttributeError) as cm:
            self.obj.attributeSingletonDel(A("i32"))
        self.assertTrue(str(cm.exception).startswith("Demo::AllTypes.i32: error in del : "), str(cm.exception))

    def test_version_of_a_singleton_is_refused_with_its_prefix(self):
        with self.assertRaises(NotImplementedError) as cm:
            self.obj.attributeVersion(A("i32"))
        self.assertTrue(str(cm.exception).startswith("Demo::AllTypes.i32: error in version : "), str(cm.exception))

    def test_argument_errors(self):
        for method in (self.obj.attributeSingleton, self.obj.rawAttributeSingleton):
            with self.assertRaises(TypeError) as cm:
                method("i32")
            self.assertEqual(str(cm.exception), "Expected a _Zel.ZelAttr")
            with self.assertRaises(TypeError) as cm:
                method()
            self.assertIn("attributeSingleton()", str(cm.exception))
        with self.assertRaises(TypeError):
            self.obj.attributeVersion("i32")


if __name__ == "__main__":
    unittest.main()
