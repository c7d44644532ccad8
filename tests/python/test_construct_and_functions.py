"""newGenericIf, nullGenericIf and function attributes of Demo::Switch."""
import unittest

import Zel
import ZelDemo  # noqa: F401
import _Zel

SWITCH = _Zel.typeNode("Demo::Switch")
POINT = _Zel.typeNode("Demo::Point")
A = SWITCH.attr


class Construction(unittest.TestCase):
    def test_with_and_without_arguments(self):
        self.assertEqual(_Zel.newGenericIf(POINT, (3, 4)).strRep(), _Zel.newGenericIf(POINT, (3, 4)).strRep())
        self.assertNotEqual(_Zel.newGenericIf(POINT, (3, 4)).strRep(), _Zel.newGenericIf(POINT, None).strRep())
        sw = _Zel.newGenericIf(SWITCH, ("made",))
        self.assertEqual(sw.typeName(), "Demo::Switch")
        self.assertIn("switch made:", sw.attributeFunction(A("describe"), ()))
        self.assertEqual(_Zel.newGenericIf(SWITCH, None).typeName(), "Demo::Switch")

    def test_refusals(self):
        cases = [(POINT, (), "expected 2 parameters: 0 passed in: ()"),
                 (POINT, (1, "x", None), "expected 2 parameters: 3 passed in: (int, str, NoneType)"),
                 (POINT, [1, 2], "expected tuple, got list"),
                 (SWITCH, (5,), None)]
        for t, args, text in cases:
            with self.assertRaises(TypeError) as cm:
                _Zel.newGenericIf(t, args)
            message = str(cm.exception)
            prefix = "Demo::Point: newGenericIf : " if t is POINT else "Demo::Switch: newGenericIf : "
            if text is None:   # the element conversion's own text, about constructor parameter 0
                self.assertTrue(message.startswith(prefix + "Error processing "), message)
                self.assertIn("constructor ", message)
            else:
                self.assertEqual(message, prefix + text)
        with self.assertRaises(TypeError) as cm:
            _Zel.newGenericIf("Demo::Point", None)
        self.assertEqual(str(cm.exception), "Expected a _Zel.ZelType")

    def test_null_handle(self):
        n = _Zel.nullGenericIf()
        self.assertIs(type(n), _Zel.GifPtr)
        self.assertEqual((str(n), repr(n)), ("<null>", "<null>"))
        # Operations that need an object refuse a null handle.
        for op in (n.typeName, n.isConst, n.hash, n.strRep, lambda: n.ptr):
            self.assertRaises(IndexError, op)


class FunctionCalls(unittest.TestCase):
    def setUp(self):
        self.sw = _Zel.newGenericIf(SWITCH, ("fn",))

    def test_results(self):
        self.assertEqual(self.sw.attributeFunction(A("add"), (2, 40)), 42)
        self.assertIsNone(self.sw.attributeFunction(A("reset"), ()))
        self.assertEqual(self.sw.attributeFunction(A("interfaceCount"), ()), 0)

    def test_argument_refusals(self):
        with self.assertRaises(TypeError) as cm:
            self.sw.attributeFunction(A("add"), (1, "2"))
        self.assertTrue(str(cm.exception).startswith("Demo::Switch.add: function args : "), str(cm.exception))
        with self.assertRaises(TypeError) as cm:
            self.sw.attributeFunction(A("add"), 1)
        self.assertTrue(str(cm.exception).startswith("Demo::Switch.add: function args : "), str(cm.exception))

    def test_every_failure_kind_reaches_its_python_exception(self):
        kinds = [("Exception", Exception), ("NoTypeNodeException", TypeError), ("TypeException", TypeError),
                 ("IllegalNameException", NameError), ("NameInUseException", NameError),
                 ("UnknownAttrException", AttributeError), ("ConstException", AttributeError),
                 ("NonwritableAttrException", AttributeError), ("NondeletableAttrException", AttributeError),
                 ("NoImplementationException", NotImplementedError), ("RpcException", RuntimeError),
                 ("RpcConnectionException", RuntimeError), ("RangeException", IndexError),
                 ("MemoryException", MemoryError), ("InternalException", SystemError),
                 ("PermissionException", Zel.PermissionError), ("OpNotSupportedException", NotImplementedError)]
        for kind, python in kinds:
            with self.assertRaises(python) as cm:
                self.sw.attributeFunction(A("fail"), (kind, "boom"))
            self.assertEqual(type(cm.exception), python, kind)
            self.assertEqual(str(cm.exception),
                             'Demo::Switch.fail: error in function call : Zel::%s("boom")' % kind)
        with self.assertRaises(OSError) as cm:
            self.sw.attributeFunction(A("fail"), ("ErrnoException", "ctx"))
        self.assertEqual(cm.exception.errno, 2)
        for kind, python, text in (("bad_alloc", SystemError, "std::bad_alloc"),
                                   ("int", Exception, "unknown C++ exception")):
            with self.assertRaises(python) as cm:
                self.sw.attributeFunction(A("fail"), (kind, ""))
            self.assertEqual(str(cm.exception), text)


if __name__ == "__main__":
    unittest.main()
