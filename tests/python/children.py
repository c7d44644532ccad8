"""Child processes of the tests under a time limit (Python 2.7's subprocess has none): a hung one is killed.
Their input and output are text (UTF-8, see ZelCompat) on either interpreter."""
import contextlib
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from ZelCompat import toBytes, toText

# The tools: zelagent, zelc.
BIN = os.path.join(os.environ.get("ZEL_BUILD_DIR", ""), "bin")
needs_agent = unittest.skipUnless(os.path.exists(os.path.join(BIN, "zelagent")), "zelagent not built")
# Generous: children run under valgrind and sanitizers too. It must stay
# below the test's own time limit for the message to be seen.
SECONDS = float(os.environ.get("ZEL_CHILD_SECONDS") or 120)


# The limits in force: [deadline, process, fired].
_limits = []


def _expire(signum=None, frame=None):
    now = time.time()
    for limit in _limits:
        if limit[0] <= now and not limit[2]:
            limit[2] = True
            try:
                limit[1].kill()
            except OSError:   # it ended meanwhile
                pass
    pending = [limit[0] for limit in _limits if not limit[2]]
    signal.setitimer(signal.ITIMER_REAL, max(min(pending) - now, 0.001) if pending else 0)


@contextlib.contextmanager
def watched(proc, name, seconds=SECONDS):
    """Kills `proc` should the block take over `seconds`, and fails naming it.

    The limit is an interval timer, not a thread: a thread alive when the
    block forks (or one just ending, still freeing its memory) can hold the
    allocator's lock in the child, which then never reaches exec (seen under
    AddressSanitizer, whose allocator takes no care of fork)."""
    if not _limits:
        signal.signal(signal.SIGALRM, _expire)
    limit = [time.time() + seconds, proc, False]
    _limits.append(limit)
    _expire()
    try:
        yield proc
    finally:
        _limits.remove(limit)
        _expire()
        if not _limits:
            signal.signal(signal.SIGALRM, signal.SIG_DFL)
        if limit[2]:
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


def agent(name, env, *args):
    """A zelagent publishing demo switch `name` (ZELC_AGENTS_DIR of `env` says where), once it says it is ready;
    its `banner`: the lines it wrote until then."""
    proc = subprocess.Popen([os.path.join(BIN, "zelagent"), name] + list(args), env=env, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE)
    proc.banner = [""]
    with watched(proc, "zelagent " + name):
        while proc.banner[-1] != "zelagent %s ready\n" % name:
            proc.banner.append(toText(proc.stdout.readline()))
            if not proc.banner[-1]:
                proc.kill()
                raise AssertionError("zelagent %s ended: %s" % (name, toText(proc.communicate()[1])))
    return proc


def zelc(env, *args, **kw):
    """run() of zelc with `args`."""
    return run("zelc " + " ".join(args), [os.path.join(BIN, "zelc")] + list(args), env=env, **kw)


@needs_agent
class AgentCase(unittest.TestCase):
    """Each test with a fresh agents directory (ZELC_AGENTS_DIR of `env`); the agents it started (`agents`, by
    name) are killed and the directory removed at its end."""

    def setUp(self):
        self.dir = tempfile.mkdtemp()
        self.env = dict(os.environ, ZELC_AGENTS_DIR=self.dir)
        self.agents = {}

    def tearDown(self):
        for proc in self.agents.values():
            if proc.poll() is None:
                proc.kill()
            proc.wait()
        shutil.rmtree(self.dir, ignore_errors=True)

    def start(self, name, *args):
        self.agents[name] = agent(name, self.env, *args)
        return self.agents[name]

    def zelc(self, *args, **kw):
        return zelc(self.env, *args, **kw)

    def background(self, *args, **popen):
        """zelc with `args`, running on (its output and error are pipes)."""
        return subprocess.Popen([os.path.join(BIN, "zelc")] + list(args), env=self.env, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, close_fds=True, **popen)
