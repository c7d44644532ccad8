"""Framework exceptions thrown natively surface as the mapped Python
exceptions, with the native backtrace attached."""
import errno
import os
import subprocess
import sys
import tempfile
import unittest

import _Zel
import _ZelTestHelper as helper
import Zel

# (kind thrown natively, Python class expected), in translation order.
ROWS = [
    ("NoTypeNode", TypeError),
    ("Type", TypeError),
    ("IllegalName", NameError),
    ("NameInUse", NameError),
    ("UnknownAttr", AttributeError),
    ("Const", AttributeError),
    ("NonwritableAttr", AttributeError),
    ("NondeletableAttr", AttributeError),
    ("NoImplementation", NotImplementedError),
    ("Rpc", RuntimeError),
    ("RpcConnection", RuntimeError),
    ("Range", IndexError),
    ("Parse", IndexError),
    ("Memory", MemoryError),
    ("Internal", SystemError),
    ("Permission", Zel.PermissionError),
    ("OpNotSupported", NotImplementedError),
    ("Exception", Exception),
]


def raised(kind, message="the message"):
    try:
        helper.fail(kind, message)
    except BaseException as e:
        return e
    raise AssertionError("nothing raised for " + kind)


class TranslationTable(unittest.TestCase):
    def test_each_framework_kind_maps_to_its_exact_python_class(self):
        for kind, cls in ROWS:
            e = raised(kind, "m-" + kind)
            self.assertIs(type(e), cls, kind)
            self.assertEqual(e.args, ("m-" + kind,), kind)

    def test_backtrace_travels_with_framework_kinds(self):
        e = raised("UnknownAttr", "no such attr")
        bt = e.backtrace
        self.assertIsInstance(bt, _Zel.Backtrace)
        self.assertEqual(bt.what, "no such attr")
        self.assertTrue(repr(bt).startswith('<backtrace for "no such attr" with '))
        self.assertTrue(all(isinstance(f, str) for f in bt.frames()))

    def test_errno_exception_becomes_oserror_with_number_text_and_context(self):
        e = raised("Errno", "the context")
        self.assertIs(type(e), OSError)
        self.assertEqual(e.errno, errno.ENOENT)
        self.assertEqual(e.strerror, os.strerror(errno.ENOENT))
        self.assertEqual(e.filename, "the context")
        self.assertEqual(e.backtrace.what, os.strerror(errno.ENOENT))

    def test_standard_and_foreign_exceptions(self):
        e = raised("bad_alloc")
        self.assertIs(type(e), SystemError)
        self.assertEqual(e.args, ("std::bad_alloc",))
        self.assertFalse(hasattr(e, "backtrace"))
        e = raised("runtime_error", "boom")
        self.assertIs(type(e), SystemError)
        self.assertEqual(e.args, ("boom",))
        e = raised("not a C++ exception class")
        self.assertIs(type(e), Exception)
        self.assertEqual(e.args, ("unknown C++ exception",))


class MessageHelpers(unittest.TestCase):
    def test_update_exception_joins_attribute_text_and_old_exception(self):
        e = raised_by(helper.updated, "cannot set", "m")
        self.assertIs(type(e), TypeError)
        self.assertEqual(e.args, ('Zel::Entity.name: cannot setZel::TypeException("m")',))

    def test_type_mismatch_names_expected_and_passed(self):
        e = raised_by(helper.typeMismatch, [1], "int")
        self.assertIs(type(e), TypeError)
        self.assertEqual(e.args, ("expected int, got list: [1]",))
        e = raised_by(helper.typeMismatch, helper.intValue(3), "Zel::Entity")
        self.assertEqual(e.args[0][:len("expected Zel::Entity, got int: ")], "expected Zel::Entity, got int: ")

        class BadRepr(object):
            def __repr__(self):
                raise ValueError()
        e = raised_by(helper.typeMismatch, BadRepr(), "int")
        self.assertEqual(e.args, ("expected int, got BadRepr: [error getting repr]",))

    def test_type_mismatch_shows_only_a_small_repr(self):
        # Small values, a cycle and a dict show in full; past 10000 items
        # counted as repr() meets them, or 200 levels, only the type.
        loop = [1]
        loop.append(loop)
        for value, shown in (([1, (2,), set([3])], "[1, (2,), set([3])]"), (loop, "[1, [...]]"),
                             ({1: [2]}, "{1: [2]}"), (range(9999), repr(range(9999))),
                             (range(10000), "[too large to show]"), ({1: range(9998)}, "[too large to show]")):
            e = raised_by(helper.typeMismatch, value, "int")
            self.assertEqual(e.args, ("expected int, got %s: %s" % (type(value).__name__, shown),))
        deep = []
        for _ in range(199):
            deep = [deep]
        self.assertEqual(raised_by(helper.typeMismatch, deep, "int").args[0][-4:], "]]]]")
        self.assertEqual(raised_by(helper.typeMismatch, [deep], "int").args,
                         ("expected int, got list: [too large to show]",))
        # Lists holding one list three times, 40 deep: a repr of 3**40 items
        # that would never be finished.
        shared = []
        for _ in range(40):
            shared = [shared] * 3
        e = raised_by(helper.typeMismatch, shared, "int")
        self.assertEqual(e.args, ("expected int, got list: [too large to show]",))

    def test_error_strings_drain_the_pending_error(self):
        t, v, tb = helper.errStrings(KeyError("k"))
        self.assertEqual((t, v, tb), ("<type 'exceptions.KeyError'>", "'k'", "unset"))


def raised_by(fn, *args):
    try:
        fn(*args)
    except BaseException as e:
        return e
    raise AssertionError("nothing raised")


class ModuleInitialisation(unittest.TestCase):
    def test_public_names(self):
        self.assertTrue(hasattr(_Zel, "GifPtr"))
        self.assertTrue(hasattr(_Zel, "Backtrace"))
        for hidden in ("ZelType", "ZelAttr", "GenericIfIterator"):
            self.assertFalse(hasattr(_Zel, hidden), hidden)
        self.assertEqual((_Zel.IteratorModeKeys, _Zel.IteratorModeValues, _Zel.IteratorModeItems), (0, 1, 2))
        self.assertEqual(_Zel.__doc__, "Module providing access to Zel types")
        self.assertEqual(_Zel.typeNode.__doc__, "Return the Zel::ZelType object with the specified name")

    def test_wrong_interpreter_version_exits_with_status_1(self):
        host = os.path.join(os.environ["ZEL_BUILD_DIR"], "bin", "zelpy_version_host")
        p = subprocess.Popen([host], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err = p.communicate()
        self.assertEqual(p.returncode, 1, err)
        self.assertIn("This library requires Python 2.7, not Python 2.6\n", err)

    def test_second_initialisation_aborts(self):
        # The same library under its other file name is initialised again.
        code = "import _Zel, imp, sys; imp.load_dynamic('_Zel', sys.argv[1])"
        lib = os.path.realpath(_Zel.__file__)
        p = subprocess.Popen([sys.executable, "-c", code, lib],
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err = p.communicate()
        self.assertLess(p.returncode, 0)
        self.assertIn("!printBacktraceFn", err)


class Backtraces(unittest.TestCase):
    def test_empty_and_grabbed(self):
        b = _Zel.Backtrace()
        self.assertEqual(repr(b), '<backtrace for "<unknown exception>" with 0 frames>')
        self.assertEqual(b.frames(), [])
        self.assertIsNone(b.what)
        b.grab()
        frames = b.frames()
        self.assertGreater(len(frames), 0)
        self.assertEqual(repr(b), '<backtrace for "<unknown exception>" with %d frames>' % len(frames))
        with self.assertRaises((AttributeError, TypeError)):
            b.what = "x"

    def test_repr_is_cut_at_299_characters(self):
        e = raised("Type", "x" * 1000)
        self.assertEqual(len(repr(e.backtrace)), 299)


class PythonBacktraceHook(unittest.TestCase):
    def dump(self, native):
        with tempfile.TemporaryFile() as f:
            helper.printBacktrace(f.fileno(), native)
            f.seek(0)
            return f.read()

    def test_native_thread_has_no_python_traceback(self):
        self.assertEqual(self.dump(1), "\nNo Python traceback available\n")

    def test_python_thread_prints_its_frames(self):
        text = self.dump(0)
        self.assertIn("\nPython traceback (most recent call FIRST):\n", text)
        self.assertIn(", in dump\n", text)
        self.assertLess(text.index("in dump"), text.index("in test_python_thread_prints_its_frames"))

    def test_pending_exception_is_printed(self):
        try:
            raise ValueError("bad value")
        except ValueError:
            text = self.dump(0)
        self.assertIn("Current Python exception (most recent call LAST):\n", text)
        self.assertIn("ValueError: bad value\n", text)


if __name__ == "__main__":
    unittest.main()
