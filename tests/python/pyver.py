"""The expectations that differ between Python 2.7 and Python 3, in one place: every test module runs on both."""
import sys

from ZelCompat import PY3, intern  # noqa: F401

MAJOR_MINOR = "%d.%d" % sys.version_info[:2]
# What the version host's interpreter claims to be (py/tests/helper/VersionHost.cpp).
VERSION_REFUSAL = "This library requires Python %s, not Python 2.6\n" % MAJOR_MINOR

if PY3:
    long = int                                     # the type of the integers 2.7 gives back as long
    KEY_ERROR_TYPE = "<class 'KeyError'>"          # str() of the type, as the error strings show it
    REFUSED_NAMES = ()                             # attribute names 2.7 refuses (unicode) but 3 takes
    ENOENT_ERROR = FileNotFoundError               # the OSError made from errno 2
    # Loads the module's library a second time under another file name.
    LOAD_AGAIN = ("import _Zel, sys, importlib.machinery as m, importlib.util as u\n"
                  "l = m.ExtensionFileLoader('_Zel', sys.argv[1])\n"
                  "u.module_from_spec(u.spec_from_loader('_Zel', l))")

    def got_long(n):
        return "int: %d" % n
    # (attribute, value set, value read back): str is sent as UTF-8 with surrogateescape, bytes as they are, and
    # what comes back is decoded so, which any bytes survive; a char is one byte, read back as that code point.
    TEXT_ROUND_TRIPS = [("s8", "\xe9t\xe9 \u20ac", "\xe9t\xe9 \u20ac"), ("s8", b"a\xc3\xa9", "a\xe9"),
                        ("s8", b"a\xff\0b", "a\udcff\0b"), ("s8", "a\udcffb", "a\udcffb"), ("s8", b"", ""),
                        ("ch", "\xff", "\xff"), ("ch", b"\xe9", "\xe9"), ("ch", "\0", "\0")]
    # (attribute, value, expected, got): refused as test_attr_singleton's refusal() words it.
    TEXT_REFUSALS = [("ch", "\u0100", "char", "str: '\u0100'"), ("ch", b"ab", "char", "bytes: b'ab'"),
                     ("ch", "", "char", "str: ''"), ("s8", bytearray(b"x"), "Zel::String", "bytearray: bytearray(b'x')"),
                     ("i32", b"1", "int", "bytes: b'1'")]
else:
    long = long                                    # noqa: F821
    KEY_ERROR_TYPE = "<type 'exceptions.KeyError'>"
    REFUSED_NAMES = (u"name",)
    ENOENT_ERROR = OSError
    LOAD_AGAIN = "import _Zel, imp, sys; imp.load_dynamic('_Zel', sys.argv[1])"

    def got_long(n):
        return "long: %dL" % n
    TEXT_ROUND_TRIPS = [("s8", "a\xff\0b", "a\xff\0b"), ("ch", "\xff", "\xff")]
    TEXT_REFUSALS = [("s8", u"x", "Zel::String", "unicode: u'x'"), ("ch", u"a", "char", "unicode: u'a'"),
                     ("ch", bytearray(b"a"), "char", "bytearray: bytearray(b'a')")]


def compile_error(source):
    """The name of the exception compile() raises for `source` (a null byte: TypeError, ValueError or
    SyntaxError, by version)."""
    try:
        compile(source, "<test>", "eval")
    except Exception as e:
        return type(e).__name__
    raise AssertionError("%r compiles" % source)
