"""What differs between Python 2.7 and Python 3, for the project's Python
(the Zel package, PyServer, ZelWire, the tests and the benchmarks), which
is one source for both interpreters.

Text on the wire, in agent files and from child processes is UTF-8; on
Python 3 it is decoded and encoded with surrogateescape, so that bytes
that are not UTF-8 survive the round trip, as the _Zel module's strings
do. On 2.7 a str is already bytes and passes through unchanged.
"""
import sys
import time

PY3 = sys.version_info[0] >= 3

if PY3:
    import io

    TextIO = io.StringIO          # what a command's print() writes into
    irange = range
    intern = sys.intern
    cpuTime = time.process_time

    def toBytes(s):
        return s.encode('utf-8', 'surrogateescape') if isinstance(s, str) else s

    def toText(b):
        return b.decode('utf-8', 'surrogateescape') if isinstance(b, (bytes, bytearray)) else b
else:
    import __builtin__
    import cStringIO

    TextIO = cStringIO.StringIO
    irange = __builtin__.xrange
    intern = __builtin__.intern
    cpuTime = time.clock

    def toBytes(s):
        return s.encode('utf-8') if isinstance(s, unicode) else s   # noqa: F821 (2.7 only)

    def toText(b):
        return b
