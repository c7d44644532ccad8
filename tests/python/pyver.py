"""The expectations that differ between Python 2.7 and Python 3, in one place: every test module runs on both."""
import codeop
import sys
import traceback

from ZelCompat import PY3, intern  # noqa: F401

# The version host's interpreter claims to be 2.6 (py/tests/helper/VersionHost.cpp).
VERSION_REFUSAL = "This library requires Python %d.%d, not Python 2.6\n" % sys.version_info[:2]

if PY3:
    long = int   # the type of the integers 2.7 gives back as long
    # str() of a type in the error strings; the OSError made from errno 2; attribute names 2.7 refuses as unicode.
    KEY_ERROR_TYPE, ENOENT_ERROR, REFUSED_NAMES = "<class 'KeyError'>", FileNotFoundError, ()
    # Loads the module's library a second time under another file name.
    LOAD_AGAIN = ("import _Zel, sys, importlib.machinery as m, importlib.util as u\n"
                  "u.module_from_spec(u.spec_from_loader('_Zel', m.ExtensionFileLoader('_Zel', sys.argv[1])))")
    # (attribute, value set, value read back): str is sent as UTF-8 with surrogateescape, bytes as they are, and
    # what comes back is decoded so, which any bytes survive; a char is one byte, read back as that code point.
    TEXT_ROUND_TRIPS = [("s8", "\xe9t\xe9 \u20ac", "\xe9t\xe9 \u20ac"), ("s8", b"a\xc3\xa9", "a\xe9"),
                        ("s8", b"a\xff\0b", "a\udcff\0b"), ("s8", "a\udcffb", "a\udcffb"), ("s8", b"", ""),
                        ("ch", "\xff", "\xff"), ("ch", b"\xe9", "\xe9"), ("ch", "\0", "\0"),
                        ("s8", "\U0001f600\udcff", "\U0001f600\udcff"), ("label", b"h\xe9\0", "h\udce9\0"),
                        ("uriPath", "/h\udce9", "/h\udce9")]
    # (attribute, value, expected, got), as test_attr_singleton's refusal() words them.
    TEXT_REFUSALS = [("ch", "\u0100", "char", "str: '\u0100'"), ("ch", b"ab", "char", "bytes: b'ab'"),
                     ("ch", "", "char", "str: ''"), ("i32", b"1", "int", "bytes: b'1'"),
                     ("s8", bytearray(b"x"), "Zel::String", "bytearray: bytearray(b'x')"),
                     ("ch", b"", "char", "bytes: b''"), ("s8", "\ud800", "Zel::String", "str: '\\ud800'")]
    got_long = "int: %d".__mod__
    INT_DIVISION_BY_ZERO = "division by zero"   # ZeroDivisionError's text for 1/0
    # A future import a console keeps for its connection: (feature, source, answer with it, answer without).
    CONSOLE_FUTURE = ("annotations", "bool((lambda: 0).__code__.co_flags & __import__('__future__').annotations"
                      ".compiler_flag)", "True\n", "False\n")
else:
    long = long  # noqa: F821
    KEY_ERROR_TYPE, ENOENT_ERROR, REFUSED_NAMES = "<type 'exceptions.KeyError'>", OSError, (u"name",)
    LOAD_AGAIN = "import _Zel, imp, sys; imp.load_dynamic('_Zel', sys.argv[1])"
    TEXT_ROUND_TRIPS = [("s8", "a\xff\0b", "a\xff\0b"), ("ch", "\xff", "\xff")]
    TEXT_REFUSALS = [("s8", u"x", "Zel::String", "unicode: u'x'"), ("ch", u"a", "char", "unicode: u'a'"),
                     ("ch", bytearray(b"a"), "char", "bytearray: bytearray(b'a')")]
    got_long = "long: %dL".__mod__
    INT_DIVISION_BY_ZERO = "integer division or modulo by zero"
    CONSOLE_FUTURE = ("division", "1/2", "0.5\n", "0\n")


def console_error(source):
    """What the interactive interpreter's compiler says of `source`, as a console shows it (a null byte is worded
    differently by each interpreter)."""
    try:
        codeop.CommandCompiler()(source, "<console>", "single")
    except Exception as e:
        return "".join(traceback.format_exception_only(type(e), e))
    raise AssertionError("%r compiles" % source)


def compile_error(source):
    """The name of the exception compile() raises for `source` (a null byte: TypeError, ValueError or SyntaxError)."""
    try:
        compile(source, "<test>", "eval")
    except Exception as e:
        return type(e).__name__
    raise AssertionError("%r compiles" % source)
