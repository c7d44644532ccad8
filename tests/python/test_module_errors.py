"""Failures reach Python as the mapped exceptions with their exact texts:
framework exceptions thrown natively (with the native backtrace) and by an
attribute function, standard and foreign ones, the message helpers and
refused arguments; the module's set-up, and the backtrace printer."""
import errno
import os
import tempfile
import unittest

import Zel
import ZelDemo  # noqa: F401
import _Zel
import _ZelTestHelper as helper
import children
import pyver
from zelsupport import raised

SW = _Zel.typeNode("Demo::Switch")

# (kind thrown natively, Python class expected), in translation order.
KINDS = [
    ("NoTypeNode", TypeError), ("Type", TypeError), ("IllegalName", NameError), ("NameInUse", NameError),
    ("UnknownAttr", AttributeError), ("Const", AttributeError), ("NonwritableAttr", AttributeError),
    ("NondeletableAttr", AttributeError), ("NoImplementation", NotImplementedError), ("Rpc", RuntimeError),
    ("RpcConnection", RuntimeError), ("Range", IndexError), ("Parse", IndexError), ("Memory", MemoryError),
    ("Internal", SystemError), ("Permission", Zel.PermissionError), ("OpNotSupported", NotImplementedError),
    ("Exception", Exception),
]


class Translation(unittest.TestCase):
    def test_each_kind_thrown_natively_or_by_a_function(self):
        sw = _Zel.newGenericIf(SW, ("fails",))
        fn = lambda kind, message: sw.attributeFunction(SW.attr("fail"), (kind, message))  # noqa: E731
        for kind, cls in KINDS:
            e = raised(helper.fail, kind, "m-" + kind)
            self.assertEqual((kind, type(e), e.args), (kind, cls, ("m-" + kind,)))
            if kind != "Parse":   # Demo::Switch.fail throws every other kind
                name = "Zel::" + kind + ("Exception" if kind != "Exception" else "")
                e = raised(fn, name[5:], "boom")
                self.assertEqual((kind, type(e), str(e)),
                                 (kind, cls, 'Demo::Switch.fail: error in function call : %s("boom")' % name))
        # Framework kinds carry the native backtrace, cut in its repr; standard and foreign ones none.
        bt = raised(helper.fail, "UnknownAttr", "no such attr").backtrace
        self.assertEqual((type(bt), bt.what, repr(bt)[:35]),
                         (_Zel.Backtrace, "no such attr", '<backtrace for "no such attr" with '))
        self.assertTrue(all(isinstance(f, str) for f in bt.frames()))
        self.assertEqual(len(repr(raised(helper.fail, "Type", "x" * 1000).backtrace)), 299)
        for call, kind, cls, text in ((helper.fail, "bad_alloc", SystemError, "std::bad_alloc"),
                                    (fn, "bad_alloc", SystemError, "std::bad_alloc"),
                                    (helper.fail, "runtime_error", SystemError, "boom"),
                                    (helper.fail, "not a C++ exception class", Exception, "unknown C++ exception"),
                                    (fn, "int", Exception, "unknown C++ exception")):
            e = raised(call, kind, "boom")
            self.assertEqual((kind, type(e), e.args, hasattr(e, "backtrace")), (kind, cls, (text,), False))
        # An errno exception becomes OSError with number, text and context.
        e = raised(helper.fail, "Errno", "the context")
        text = os.strerror(errno.ENOENT)
        self.assertEqual((type(e), e.errno, e.strerror, e.filename, e.backtrace.what),
                         (pyver.ENOENT_ERROR, errno.ENOENT, text, "the context", text))
        self.assertEqual(raised(fn, "ErrnoException", "ctx").errno, errno.ENOENT)


class Messages(unittest.TestCase):
    def test_update_exception_and_error_strings(self):
        e = raised(helper.updated, "cannot set", "m")
        self.assertEqual((type(e), e.args), (TypeError, ('Zel::Entity.name: cannot setZel::TypeException("m")',)))
        self.assertEqual(helper.errStrings(KeyError("k")), (pyver.KEY_ERROR_TYPE, "'k'", "unset"))

    def test_type_mismatch_shows_only_a_small_repr(self):
        class BadRepr(object):
            def __repr__(self):
                raise ValueError()
        loop = [1]
        loop.append(loop)
        deep = []
        for _ in range(199):
            deep = [deep]
        # Lists holding one list three times, 40 deep: a repr of 3**40 items
        # that would never be finished.
        shared = []
        for _ in range(40):
            shared = [shared] * 3
        # Small values, a cycle and a dict show in full; past 10000 items
        # counted as repr() meets them, or 200 levels, only the type.
        for value, shown in (([1], "[1]"), (BadRepr(), "[error getting repr]"),
                             ([1, (2,), set([3])], "[1, (2,), %r]" % set([3])), (loop, "[1, [...]]"),
                             ({1: [2]}, "{1: [2]}"), (list(range(9999)), repr(list(range(9999)))),
                             (deep, repr(deep)), (list(range(10000)), "[too large to show]"),
                             ({1: list(range(9998))}, "[too large to show]"),
                             ([deep], "[too large to show]"), (shared, "[too large to show]")):
            e = raised(helper.typeMismatch, value, "int")
            text = "expected int, got %s: %s" % (type(value).__name__, shown)
            self.assertEqual((type(e), e.args), (TypeError, (text,)))
        e = raised(helper.typeMismatch, helper.intValue(3), "Zel::Entity")
        self.assertTrue(e.args[0].startswith("expected Zel::Entity, got int: "), e.args)

    def test_refused_arguments_say_what_was_expected(self):
        sw, e = _Zel.newGenericIf(SW, ("args",)), helper.entity("args")
        entity, vlan = _Zel.typeNode("Zel::Entity"), SW.attr("vlan")
        # (exception, exact text, a text ending "()" that the message contains, or None: calls)
        cases = [(TypeError, "Expected a _Zel.ZelAttr", [lambda: sw.attributeSingleton("vlan"),
                                                         lambda: sw.rawAttributeSingleton("vlan"),
                                                         lambda: sw.attributeCollection("vlan", 1)]),
                 (TypeError, "Expected a _Zel.ZelType", [lambda: _Zel.newGenericIf("Demo::Point", None),
                                                         lambda: entity.isDerived("Zel::Entity")]),
                 (TypeError, "Expected a Zel::PtrInterface or None", [lambda: _Zel.traceLineSuppressed(1, 9),
                                                                      lambda: helper.convert("x"),
                                                                      lambda: helper.convert(helper.intValue(1))]),
                 (TypeError, "Expected a str, int or long", [lambda k=k: entity.attr(k)
                                                             for k in (1.0, True) + pyver.REFUSED_NAMES]),
                 (TypeError, "Type No::SuchType not found", [lambda: _Zel.singleton("No::SuchType")]),
                 (TypeError, 'Zel::TypeException: error in newNotifiee : Zel::TypeException("Expected a '
                             'Zel::ActivityConfig")', [lambda: sw.newNotifiee(_Zel.handle(len), sw)]),
                 (TypeError, "Cannot access the ptr for this type", [lambda: helper.intValue(7).ptr]),
                 (ValueError, "Invalid iterator mode", [lambda m=m: sw.attributeIter(vlan, m) for m in (3, -1)]),
                 (TypeError, "attributeSingleton()", [sw.attributeSingleton, sw.rawAttributeSingleton]),
                 (TypeError, "attributeCollection()", [lambda: sw.attributeCollectionExist(vlan)]),
                 (OverflowError, None, [lambda: entity.attr(1 << 80)]),
                 (TypeError, None, [lambda: entity.attr(None), lambda: sw.attributeVersion("vlan"),
                                    lambda: _Zel.singleton(5), lambda: _Zel.typeNode("No::SuchType"),
                                    lambda: _Zel.activityManagerExecTimeIs("x"), lambda: sw.newNotifiee(5, None),
                                    lambda: sw.newNotifiee(_Zel.handle(len)),
                                    lambda: sw.attributeFunction(SW.attr("add"), [1, 2])])]
        for cls, text, calls in cases:
            for i, call in enumerate(calls):
                got = raised(call)
                self.assertIs(type(got), cls, "%s, call %d: %r" % (text, i, got))
                if text is not None and text.endswith("()"):
                    self.assertIn(text, str(got), i)
                elif text is not None:
                    self.assertEqual(str(got), text, i)
        self.assertIsNone(entity.attr("noSuchAttribute"))
        self.assertIsNone(helper.convert(None))
        self.assertEqual(helper.convert(e), e.ptr)


class ModuleSetUp(unittest.TestCase):
    def test_wrong_interpreter_version_exits_and_a_second_initialisation_aborts(self):
        host = os.path.join(os.environ["ZEL_BUILD_DIR"], "bin", "zelpy_version_host")
        rc, out, err = children.run("zelpy_version_host", [host])
        self.assertEqual(rc, 1, err)
        self.assertIn(pyver.VERSION_REFUSAL, err)
        # The same library under its other file name is initialised again.
        rc, out, err = children.python("loading _Zel twice", pyver.LOAD_AGAIN, os.path.realpath(_Zel.__file__))
        self.assertLess(rc, 0)
        self.assertIn("!printBacktraceFn", err)


class Backtraces(unittest.TestCase):
    def dump(self, native):
        with tempfile.TemporaryFile("w+") as f:
            helper.printBacktrace(f.fileno(), native)
            f.seek(0)
            return f.read()

    def test_empty_and_grabbed(self):
        b = _Zel.Backtrace()
        self.assertEqual((repr(b), b.frames(), b.what),
                         ('<backtrace for "<unknown exception>" with 0 frames>', [], None))
        b.grab()
        self.assertGreater(len(b.frames()), 0)
        self.assertEqual(repr(b), '<backtrace for "<unknown exception>" with %d frames>' % len(b.frames()))
        with self.assertRaises((AttributeError, TypeError)):
            b.what = "x"

    # The Python stack, innermost first: test_notify's Fatal, in the report of a raising handler.
    def test_printer_shows_the_python_side(self):
        self.assertEqual(self.dump(1), "\nNo Python traceback available\n")   # a native thread
        try:
            raise ValueError("bad value")
        except ValueError:
            text = self.dump(0)
        self.assertIn("Current Python exception (most recent call LAST):\n", text)
        self.assertIn("ValueError: bad value\n", text)


if __name__ == "__main__":
    unittest.main()
