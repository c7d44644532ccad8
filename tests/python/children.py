"""Child processes of the tests under a time limit (Python 2.7's subprocess has none): a hung one is killed.
Their input and output are text (UTF-8, see ZelCompat) on either interpreter."""
import contextlib
import os
import subprocess
import sys
import threading

from ZelCompat import toBytes, toText

# Generous: children run under valgrind and sanitizers too. It must stay
# below the test's own time limit for the message to be seen.
SECONDS = float(os.environ.get("ZEL_CHILD_SECONDS") or 120)


@contextlib.contextmanager
def watched(proc, name, seconds=SECONDS):
    """Kills `proc` should the block take over `seconds`, and fails naming it."""
    fired = []

    def kill():
        fired.append(True)
        try:
            proc.kill()
        except OSError:   # it ended meanwhile
            pass
    timer = threading.Timer(seconds, kill)
    timer.daemon = True
    timer.start()
    try:
        yield proc
    finally:
        timer.cancel()
        timer.join()
        if fired:
            proc.wait()
            raise AssertionError("child %s ran over %g s and was killed" % (name, seconds))


def run(name, args, input=None, seconds=SECONDS, **popen):
    """(exit status, standard output, standard error) of `args`."""
    proc = subprocess.Popen(args, stdin=subprocess.PIPE if input is not None else None,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, **popen)
    with watched(proc, name, seconds):
        out, err = proc.communicate(toBytes(input))
    return proc.returncode, toText(out), toText(err)


def python(name, code, *args, **popen):
    """run() of this interpreter on `code`."""
    return run(name, [sys.executable, "-c", code] + list(args), **popen)
