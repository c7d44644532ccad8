"""What differs between Python 2.7 and Python 3, for the project's Python
(the Zel package, PyServer, ZelWire, the tests and the benchmarks), which
is one source for both interpreters.

Text on the wire, in agent files and from child processes is UTF-8; on
Python 3 it is decoded and encoded with surrogateescape, so that bytes
that are not UTF-8 survive the round trip, as the _Zel module's strings
do. On 2.7 a str is already bytes and passes through unchanged.
"""
import sys
import threading
import time

PY3 = sys.version_info[0] >= 3

# Held while a traceback or stack is formatted (PyServer, ZelConsole,
# ZelStacks), so that one thread formats at a time. From Python 3.11
# formatting parses source lines (ast.parse, for the markers under an
# expression), and 3.11's parser keeps its depth count where every thread
# sees it: two threads formatting at once can make a parse fail (silently,
# inside the traceback module) and leak the tree it had built.
formatLock = threading.Lock()

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
