"""The chaos test: while clients run commands through zelc (one command, a pattern over every agent, the console
path of -i, runaway commands), agents are killed at random moments with SIGKILL or SIGTERM and restarted at once.

    zelpython tests/python/chaos.py [SECONDS]     (default $ZEL_CHAOS_SECONDS, else 20)

It fails on a zelc that crashes (ends by a signal, or prints an abort), runs past its bound, prints a wrong reply
or ends with a status the documentation does not give for what happened; on an agent that, SIGTERM'd, takes over
2 s to go or leaves its agent file or socket behind; and on a restart that a stale file prevents. What each
client saw is counted and printed at the end; each failure is printed as it is found.
"""

import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

BIN = os.path.join(os.environ.get('ZEL_BUILD_DIR') or os.path.join(os.path.dirname(__file__), '..', '..', 'build'),
                   'bin')
AGENTS = ['chaos.a%d' % i for i in range(3)]
STOP_BOUND = 2.0        # a SIGTERM'd agent is gone, files and all
START_BOUND = 15.0      # a (re)started agent says it is ready
ZELC_BOUND = 30.0       # any zelc run ends; runaways end when their agent goes, at least every KILL_EVERY
KILL_EVERY = 6.0        # each agent is killed at least this often
LOST = 'may or may not have run'


def text(b):
    return b if isinstance(b, str) else b.decode('utf-8', 'replace')


class Chaos(object):
    def __init__(self, seconds):
        self.seconds = seconds
        self.dir = tempfile.mkdtemp(prefix='zelchaos')
        self.env = dict(os.environ, ZELC_AGENTS_DIR=self.dir)
        self.failures = []
        self.counts = {}
        self.lock = threading.Lock()
        self.agents = {}
        self.stop = threading.Event()

    def fail(self, what):
        with self.lock:
            self.failures.append(what)
        sys.stderr.write('chaos: FAILED: %s\n' % what)

    def count(self, key):
        with self.lock:
            self.counts[key] = self.counts.get(key, 0) + 1

    # ---- agents -------------------------------------------------------
    def startAgent(self, name):
        # Never holding another child's pipes: a zelc's output would not end while an agent lived.
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
        # Its standard error is drained so that it never blocks on a full pipe.
        threading.Thread(target=agent.stderr.read).start()
        self.count('starts')
        return agent

    def killAgent(self, name, agent):
        if random.random() < 0.5:
            agent.kill()
            agent.wait()
            self.count('SIGKILL')
            return
        started = time.time()
        agent.terminate()
        timer = threading.Timer(STOP_BOUND * 5, agent.kill)
        timer.start()
        rc = agent.wait()
        timer.cancel()
        took = time.time() - started
        left = [f for f in os.listdir(self.dir) if f in (name, name + '.sock')]
        if rc != 0 or took > STOP_BOUND or left:
            self.fail('%s on SIGTERM: exit %s after %.2f s, left %s' % (name, rc, took, left))
        self.count('SIGTERM')

    def supervise(self):
        last = dict((n, time.time()) for n in AGENTS)
        while not self.stop.wait(random.uniform(0.2, 1.5)):
            due = [n for n in AGENTS if time.time() - last[n] > KILL_EVERY]
            name = due[0] if due else random.choice(AGENTS)
            if self.agents.get(name) is not None:
                self.killAgent(name, self.agents[name])
            last[name] = time.time()
            self.agents[name] = self.startAgent(name)

    # ---- clients ------------------------------------------------------
    def zelc(self, args, stdin=None):
        """(status, out, err) of a zelc run, or None when it was over its bound (a failure)."""
        proc = subprocess.Popen([os.path.join(BIN, 'zelc')] + args, env=self.env, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, stdin=subprocess.PIPE if stdin else None, close_fds=True)
        hung = []
        timer = threading.Timer(ZELC_BOUND, lambda: (hung.append(1), proc.kill()))
        timer.start()
        out, err = proc.communicate(stdin.encode('utf-8') if stdin else None)
        timer.cancel()
        out, err = text(out), text(err)
        if hung:
            self.fail('zelc %s ran over %g s' % (args, ZELC_BOUND))
            return None
        if proc.returncode < 0 or 'terminate called' in err or 'Aborted' in err:
            self.fail('zelc %s crashed: status %d, %r' % (args, proc.returncode, err[-300:]))
            return None
        return proc.returncode, out, err

    def check(self, args, expected, rc, out, err):
        """Status 0 with exactly the reply, or 2 with no output and one failure line."""
        if rc == 0 and out == expected and err == '':
            self.count('replies')
        elif rc == 2 and out == '' and err.startswith('zelc: ') and err.count('\n') == 1 and err.endswith('\n'):
            self.count('unreachable' if LOST not in err else 'lost mid-command')
        else:
            self.fail('zelc %s: status %d, out %r, err %r (expected %r)' % (args, rc, out[:200], err[-300:],
                                                                             expected))

    def commands(self):
        while not self.stop.is_set():
            n = random.randrange(10 ** 6)
            name = random.choice(AGENTS)
            got = self.zelc([name, '%d * 3' % n])
            if got:
                self.check(name, '%d\n' % (n * 3), *got)

    def patterns(self):
        while not self.stop.is_set():
            n = random.randrange(10 ** 6)
            args = ['-x', 'chaos.*', 'print(%d)' % n]
            got = self.zelc(args)
            if got is None:
                continue
            rc, out, err = got
            lines = out.splitlines()
            # Every agent live when the pattern was read; one being restarted may be missing.
            answered = all(l in ['%s: %d' % (a, n) for a in AGENTS] for l in lines) and len(set(lines)) == len(lines)
            if rc == 0 and answered and lines and not err:
                self.count('replies')
            elif rc == 2 and answered and err:
                self.count('unreachable')
            else:
                self.fail('zelc %s: status %d, out %r, err %r' % (args, rc, out[:300], err[-300:]))

    def console(self):
        while not self.stop.is_set():
            name = random.choice(AGENTS)
            got = self.zelc(['-i', name], stdin='x = 7\nx * 6\n')
            if got:
                rc, out, err = got
                if rc == 2 and out in ('', '42\n') and err.startswith('zelc: ') and err.count('\n') == 1:
                    self.count('unreachable')   # the agent went before or between the lines
                elif rc == 0 and out == '' and "NameError: name 'x' is not defined" in err:
                    self.count('console reconnected')   # the agent restarted between the lines: a new namespace
                else:
                    self.check('-i ' + name, '42\n', rc, out, err)

    def runaways(self):
        while not self.stop.is_set():
            name = random.choice(AGENTS)
            cmd = random.choice(['while True: pass', 'import time\ntime.sleep(1000)', 'sum(iter(int, 1))'])
            got = self.zelc(['-x', name, cmd])
            if got is None:
                continue
            rc, out, err = got
            # It ends only with its agent: lost, never reached, or interrupted by the stop.
            if rc == 2 and out == '' and err.startswith('zelc: ') and err.count('\n') == 1:
                self.count('runaways ended')
            elif rc == 1 and 'KeyboardInterrupt' in err:
                self.count('runaways interrupted')
            else:
                self.fail('runaway %r in %s: status %d, out %r, err %r' % (cmd, name, rc, out[:200], err[-300:]))

    # ---- the run ------------------------------------------------------
    def run(self):
        threads = []
        try:
            for name in AGENTS:
                self.agents[name] = self.startAgent(name)
            clients = [self.commands, self.commands, self.patterns, self.console, self.runaways, self.runaways]
            threads = [threading.Thread(target=f, name=f.__name__) for f in [self.supervise] + clients]
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
        if not self.counts.get('replies') or not self.counts.get('SIGTERM', 0) + self.counts.get('SIGKILL', 0):
            self.fail('nothing happened')
        return 1 if self.failures else 0


def main(argv):
    seconds = float(argv[1] if len(argv) > 1 else os.environ.get('ZEL_CHAOS_SECONDS') or 20)
    return Chaos(seconds).run()


if __name__ == '__main__':
    sys.exit(main(sys.argv))
