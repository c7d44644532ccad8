"""Singleton attributes of handles and proxies, and newGenericIf: the tables hold values at the edges between
the direct path for builtin values and the general one, which refuses them exactly as before."""
import unittest

import Zel  # noqa: F401  (defines PermissionError for the error translation)
import ZelDemo  # noqa: F401  (registers the Demo types)
import _Zel
import pyver
from pyver import long
from zelsupport import raised

T = _Zel.typeNode("Demo::AllTypes")
A = T.attr
POINT, SWITCH = _Zel.typeNode("Demo::Point"), _Zel.typeNode("Demo::Switch")


def refusal(attr, expected, got):
    return 'Demo::AllTypes.%s: Zel::TypeException("expected %s, got %s")' % (attr, expected, got)


class Int(int):
    pass


class Str(str):
    pass


class SingletonValues(unittest.TestCase):
    def setUp(self):
        self.obj = _Zel.newGenericIf(T, ("all",))

    def test_values_in_range_are_taken_back_as_they_were(self):
        cases = [("s8", "a\0b"), ("s8", Str("sub")), ("s8", ""), ("ch", "\0"), ("i8", -128), ("u8", 255),
                 ("i16", -32768), ("u16", 65535), ("i32", -5), ("i32", 2 ** 31 - 1), ("i32", -2 ** 31),
                 ("i32", long(7)), ("l", -2 ** 31), ("u32", 4000000000), ("u32", 2 ** 32 - 1), ("u32", long(5)),
                 ("i64", -(1 << 62)), ("i64", 2 ** 63 - 1), ("u64", (1 << 64) - 1), ("f64", 2.5), ("f64", 3),
                 ("f64", long(2) ** 70), ("f32", 0.5), ("flag", True), ("flag", False)]
        for name, value in cases:
            self.obj.attributeSingletonIs(A(name), value)
            self.assertEqual((name, self.obj.attributeSingleton(A(name))), (name, value))
            self.assertEqual((name, self.obj.rawAttributeSingleton(A(name))), (name, value))

    def test_refused_values_name_the_attribute_and_change_nothing(self):
        cases = [("i32", "7", "int", "str: '7'"), ("i32", True, "int", "bool: True"), ("i32", Int(3), "int", "Int: 3"),
                 ("i32", 2 ** 31, "int", "int: 2147483648"), ("i32", -2 ** 31 - 1, "int", "int: -2147483649"),
                 ("u8", 256, "unsigned char", "int: 256"), ("i8", 128, "signed char", "int: 128"),
                 ("u32", -1, "unsigned int", "int: -1"),
                 ("u64", 2 ** 64, "unsigned long long", pyver.got_long(2 ** 64)),
                 ("s8", 3, "Zel::String", "int: 3"), ("flag", 1, "bool", "int: 1"), ("ch", "ab", "char", "str: 'ab'"),
                 ("f64", "1", "double", "str: '1'")]
        for name, value, expected, got in cases:
            before = self.obj.attributeSingleton(A(name))
            e = raised(self.obj.attributeSingletonIs, A(name), value)
            self.assertEqual((type(e), str(e)), (TypeError, refusal(name, expected, got)))
            self.assertEqual((name, self.obj.attributeSingleton(A(name))), (name, before))

    def test_strings_and_chars_of_this_interpreter(self):
        for name, value, back in pyver.TEXT_ROUND_TRIPS:
            self.obj.attributeSingletonIs(A(name), value)
            self.assertEqual((name, value, self.obj.attributeSingleton(A(name))), (name, value, back))
        for name, value, expected, got in pyver.TEXT_REFUSALS:
            e = raised(self.obj.attributeSingletonIs, A(name), value)
            self.assertEqual((type(e), str(e)), (TypeError, refusal(name, expected, got)))

    def test_literal_holds_large_values_but_not_endless_ones(self):
        big = [list(range(1000)), {"k": (1, 2)}] * 50
        self.obj.attributeSingletonIs(A("literal"), big)
        self.assertEqual(self.obj.attributeSingleton(A("literal")), big)
        # Past a million items as repr() meets them; then one list three
        # times, 40 deep, whose repr() would hold 3**40 items.
        shared = []
        for _ in range(40):
            shared = [shared] * 3
        for value in ([list(range(1000))] * 1001, shared):
            e = raised(self.obj.attributeSingletonIs, A("literal"), value)
            self.assertEqual((type(e), "too large for a Python literal" in str(e)), (TypeError, True))
            self.assertEqual(self.obj.attributeSingleton(A("literal")), big)

    def test_refused_operations_name_the_stage(self):
        a = Zel.new("Demo::AllTypes", "del")
        for call, cls, prefix in ((lambda: self.obj.attributeSingletonIs(A("readOnly"), 1), AttributeError,
                                   "Demo::AllTypes.readOnly: error in mutator : "),
                                  (lambda: self.obj.attributeSingletonDel(A("i32")), AttributeError,
                                   "Demo::AllTypes.i32: error in del : "),
                                  (lambda: delattr(a, "i32"), AttributeError, "Demo::AllTypes.i32: error in del : "),
                                  (lambda: self.obj.attributeVersion(A("i32")), NotImplementedError,
                                   "Demo::AllTypes.i32: error in version : ")):
            e = raised(call)
            self.assertEqual((type(e), str(e)[:len(prefix)]), (cls, prefix))

    # Pointers set, read and deleted, and values read and written by the
    # package's syntax, are in the tour of docs/zel-package.md.
    def test_the_package_syntax_refuses_as_the_handles_do(self):
        a = Zel.new("Demo::AllTypes", "syntax")
        e = raised(setattr, a, "i32", "12")
        self.assertEqual((type(e), str(e)), (TypeError, refusal("i32", "int", "str: '12'")))
        descriptor = type(a).__dict__["i32"]
        self.assertIs(type(a).i32, descriptor)
        self.assertRaises(TypeError, descriptor.__get__, object(), object)

    def test_value_fields_and_accessors_of_value_handles(self):
        point = _Zel.newGenericIf(POINT, (1, 2))
        point.attributeSingletonIs(POINT.attr("x"), 40)
        self.assertEqual(point.attributeSingleton(POINT.attr("x")), 40)
        mac = self.obj.rawAttributeSingleton(A("mac"))
        text = _Zel.typeNode("Demo::MacAddr").attr("stringValue")
        mac.attributeSingletonIs(text, "02:00:00:00:00:01")
        self.assertEqual(mac.attributeSingleton(text), "02:00:00:00:00:01")


class Construction(unittest.TestCase):
    def test_without_arguments_and_refusals(self):
        self.assertNotEqual(_Zel.newGenericIf(POINT, (3, 4)).strRep(), _Zel.newGenericIf(POINT, None).strRep())
        for t, args, text in [(POINT, (), "expected 2 parameters: 0 passed in: ()"),
                              (POINT, (1, "x", None), "expected 2 parameters: 3 passed in: (int, str, NoneType)"),
                              (POINT, [1, 2], "expected tuple, got list"),
                              (SWITCH, (5,), None)]:
            e = raised(_Zel.newGenericIf, t, args)
            message = str(e)
            self.assertIs(type(e), TypeError)
            prefix = "%s: newGenericIf : " % t.fullTypeName
            if text is None:   # the element conversion's own text, about constructor parameter 0
                self.assertTrue(message.startswith(prefix + "Error processing "), message)
                self.assertIn("constructor ", message)
            else:
                self.assertEqual(message, prefix + text)


if __name__ == "__main__":
    unittest.main()
