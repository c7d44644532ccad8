"""Memory per handle, for bench/run.py; measured, not computed from sizes.

- The GifPtr alone: what the interpreter says the object takes
  (sys.getsizeof: its basic size, plus a collector header if it had one).
- A handle to an int value, in all: the growth of the process's heap per
  handle while `count` handles to distinct framework int values are made
  and kept. The heap figure (_ZelBench.heapInUse) is malloc's blocks in
  use plus the interpreter's small-object arenas, which it maps itself: the
  GifPtr's share is counted as well as the framework value's.
"""
import gc
import sys

import _Zel
import _ZelBench
from ZelCompat import irange

INT = _Zel.typeNode("int")


def gifptr_bytes():
    return sys.getsizeof(_Zel.newGenericIf(INT, None))


def int_handle_bytes(count):
    make = _Zel.newGenericIf
    args = None              # the default int; every handle still gets its own value
    handles = [None] * count  # the list itself is allocated before the first reading
    gc.collect()
    before = _ZelBench.heapInUse()
    for i in irange(count):
        handles[i] = make(INT, args)
    after = _ZelBench.heapInUse()
    if handles[-1].typeName() != "int":
        raise RuntimeError("expected a handle to an int, got " + handles[-1].typeName())
    return (after - before) / float(count)


def samples(repeats, count):
    return [int_handle_bytes(count) for _ in range(repeats)]
