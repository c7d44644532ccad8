"""Small helpers the tests share to drive the framework."""
import time

import _Zel


def drain(it):
    """Every item left in a _Zel iterator (which is not itself iterable)."""
    out = []
    while True:
        try:
            out.append(next(it))
        except StopIteration:
            return out


def raised(fn, *args):
    """The exception fn(*args) raises."""
    try:
        fn(*args)
    except BaseException as e:
        return e
    raise AssertionError("nothing raised by %r%r" % (fn, args))


def until(done, seconds=10):
    """Waits (at most `seconds`) until done() is true."""
    deadline = time.time() + seconds
    while not done() and time.time() < deadline:
        time.sleep(0.02)


def run_until_quiet(seconds=30.0):
    """Runs the activity loop until nothing is left for it to do."""
    # Looked up per call: a handle kept in this module would outlive the
    # test module and count as one it left behind.
    _Zel.singleton("Zel::ActivityManagerConfig").attributeSingletonIs(
        _Zel.typeNode("Zel::ActivityManagerConfig").attr("stopOnQuiesce"), True)
    _Zel.activityManagerExecTimeIs(seconds)
