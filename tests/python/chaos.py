# The chaos test: while zelc clients run commands (one agent, a pattern over all, -i, runaways) and watch, agents
# are killed at random (SIGKILL or SIGTERM) and restarted at once, for SECONDS (default $ZEL_CHAOS_SECONDS, else 20):
#     zelpython tests/python/chaos.py [SECONDS]
# It fails on a zelc that crashes, runs past its bound, prints a wrong reply or ends with a status the docs do not
# give for what happened; on a SIGTERM'd agent that takes over 2 s to go or leaves its file or socket; on a restart
# that a stale file prevents. Failures are printed as found, what the clients saw is counted at the end.

import os
import random
import shutil
import subprocess
import sys
import tempfile
import threading
import time

from ZelCompat import toText as text

BIN = os.path.join(os.environ.get('ZEL_BUILD_DIR') or os.path.join(os.path.dirname(__file__), '..', '..', 'build'),
                   'bin')
AGENTS = ['chaos.a%d' % i for i in range(3)]
STOP_BOUND = 2.0        # a SIGTERM'd agent is gone, files and all
START_BOUND = 15.0      # a (re)started agent says it is ready
ZELC_BOUND = 30.0       # any zelc run ends; a runaway's agent is killed at least every KILL_EVERY seconds
KILL_EVERY = 6.0
RUNAWAYS = ['while True: pass', 'import time\ntime.sleep(1000)', 'sum(iter(int, 1))']


def failed(rc, out, err):
    # Exit 2 with one failure line: the agent could not be reached, or was lost (mid-command, perhaps).
    if rc == 2 and out == '' and err.startswith('zelc: ') and err.count('\n') == 1:
        return 'lost mid-command' if 'may or may not have run' in err else 'unreachable'


def command(n):
    name = random.choice(AGENTS)
    return [name, '%d * 3' % n], None, lambda rc, out, err: (
        'replies' if (rc, out, err) == (0, '%d\n' % (n * 3), '') else failed(rc, out, err))


def pattern(n):
    def judge(rc, out, err):
        # The agents live when the pattern was read answer, each once; one being restarted may be missing.
        lines = out.splitlines()
        answered = set(lines) <= set('%s: %d' % (a, n) for a in AGENTS) and len(set(lines)) == len(lines)
        if answered and (rc, err) == (0, '') and lines:
            return 'replies'
        return 'unreachable' if answered and rc == 2 and err else None
    return ['-x', 'chaos.*', 'print(%d)' % n], None, judge


def console(n):
    def judge(rc, out, err):
        if (rc, out, err) == (0, '%d\n' % n, ''):
            return 'replies'
        if rc == 0 and out == '' and "NameError: name 'x' is not defined" in err:
            return 'console reconnected'   # the agent restarted between the lines: a new namespace
        return failed(rc, out if out != '%d\n' % n else '', err)
    return ['-i', random.choice(AGENTS)], 'x = %d\nx\n' % n, judge


def runaway(n):
    # It ends only with its agent: lost, never reached, or interrupted by the stop.
    return ['-x', random.choice(AGENTS), random.choice(RUNAWAYS)], None, lambda rc, out, err: (
        'runaways interrupted' if rc == 1 and 'KeyboardInterrupt' in err else failed(rc, out, err))


def watcher(n):
    # A watch of the agent's switch ends only with its agent: one line and exit 2, as a lost command's.
    name = random.choice(AGENTS)
    return ['--watch', name, '/' + name.split('.')[1]], None, lambda rc, out, err: (
        'watches ended with their agent' if failed(rc, out, err) else None)


class Chaos(object):
    def __init__(self, seconds):
        self.seconds = seconds
        self.dir = tempfile.mkdtemp(prefix='zelchaos')
        self.env = dict(os.environ, ZELC_AGENTS_DIR=self.dir)
        self.failures, self.counts, self.agents = [], {}, {}
        self.lock = threading.Lock()
        self.stop = threading.Event()

    def fail(self, what):
        with self.lock:
            self.failures.append(what)
        sys.stderr.write('chaos: FAILED: %s\n' % what)

    def count(self, key):
        with self.lock:
            self.counts[key] = self.counts.get(key, 0) + 1

    def spawn(self, args, seconds, stdin=None):
        # (status, out, err), killing the child after `seconds`; None, a failure, if it was.
        # close_fds: a child holding another's pipes would keep that one's output from ending.
        proc = subprocess.Popen(args, env=self.env, stdin=subprocess.PIPE if stdin else None, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, close_fds=True)
        timer = threading.Timer(seconds, proc.kill)
        timer.start()
        out, err = proc.communicate(stdin.encode('utf-8') if stdin else None)
        timer.cancel()
        if proc.returncode < 0:
            self.fail('%s ended by signal %d (over %g s?): %r' % (args, -proc.returncode, seconds, text(err)[-300:]))
            return None
        return proc.returncode, text(out), text(err)

    def startAgent(self, name):
        agent = subprocess.Popen([os.path.join(BIN, 'zelagent'), name], env=self.env, stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE, close_fds=True)
        timer = threading.Timer(START_BOUND, agent.kill)
        timer.start()
        line = text(agent.stdout.readline())
        timer.cancel()
        if line != 'zelagent %s ready\n' % name:
            agent.kill()
            self.fail('%s did not start (a stale file in the way?): %r %s' % (name, line, text(agent.stderr.read())))
            agent.wait()
            return None
        threading.Thread(target=agent.stderr.read).start()   # never blocked on a full pipe
        self.count('starts')
        return agent

    def killAgent(self, name, agent):
        sigkill = random.random() < 0.5
        started = time.time()
        agent.kill() if sigkill else agent.terminate()
        timer = threading.Timer(STOP_BOUND * 5, agent.kill)
        timer.start()
        rc = agent.wait()
        timer.cancel()
        self.count('SIGKILL' if sigkill else 'SIGTERM')
        left = [f for f in os.listdir(self.dir) if f in (name, name + '.sock')]
        if not sigkill and (rc != 0 or time.time() - started > STOP_BOUND or left):
            self.fail('%s on SIGTERM: exit %s after %.2f s, left %s' % (name, rc, time.time() - started, left))

    def supervise(self):
        last = dict((n, time.time()) for n in AGENTS)
        while not self.stop.wait(random.uniform(0.2, 1.5)):
            due = [n for n in AGENTS if time.time() - last[n] > KILL_EVERY]
            name = due[0] if due else random.choice(AGENTS)
            if self.agents.get(name) is not None:
                self.killAgent(name, self.agents[name])
            last[name] = time.time()
            self.agents[name] = self.startAgent(name)

    def client(self, make):
        while not self.stop.is_set():
            args, stdin, judge = make(random.randrange(10 ** 6))
            got = self.spawn([os.path.join(BIN, 'zelc')] + args, ZELC_BOUND, stdin)
            if got is None:
                continue
            if 'terminate called' in got[2] or judge(*got) is None:
                self.fail('zelc %s: status %d, out %r, err %r' % (args, got[0], got[1][:200], got[2][-300:]))
            else:
                self.count(judge(*got))

    def run(self):
        threads = []
        try:
            for name in AGENTS:
                self.agents[name] = self.startAgent(name)
            threads = [threading.Thread(target=self.supervise)] + [
                threading.Thread(target=self.client, args=(make,), name=make.__name__)
                for make in (command, command, pattern, console, runaway, runaway, watcher)]
            for t in threads:
                t.daemon = True
                t.start()
            time.sleep(self.seconds)
            self.stop.set()
            threads[0].join()   # the supervisor; then the agents go, and with them the runaways
        finally:
            for name, agent in self.agents.items():
                if agent is not None and agent.poll() is None:
                    self.killAgent(name, agent)
        for t in threads[1:]:
            t.join(ZELC_BOUND * 2)
            if t.is_alive():
                self.fail('client %s hung' % t.name)
        shutil.rmtree(self.dir, ignore_errors=True)
        sys.stderr.write('chaos %g s: %s\n' % (self.seconds, ', '.join('%s %d' % kv for kv in sorted(
            self.counts.items()))))
        if not self.counts.get('replies') or not self.counts.get('SIGTERM') or not self.counts.get('SIGKILL'):
            self.fail('too little happened')
        return 1 if self.failures else 0


if __name__ == '__main__':
    sys.exit(Chaos(float(sys.argv[1] if len(sys.argv) > 1 else os.environ.get('ZEL_CHAOS_SECONDS') or 20)).run())
