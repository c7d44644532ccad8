"""zelc -i, the console: in a real terminal (tmux) as an operator uses it, and with a script piped in. What the agent
answers to each request is test_server_pyserver's."""

import os
import re
import stat
import subprocess
import time
import sys
import unittest

import children
import pyver
from children import BIN
from ZelCompat import toText

TMUX = '/usr/bin/tmux'
# Generous for slow machines; a console that works answers in well under a second.
WAIT = 20


class ConsoleTest(children.AgentCase):
    def setUp(self):
        children.AgentCase.setUp(self)
        self.env['HOME'] = self.home = os.path.join(self.dir, '.home')
        os.mkdir(self.home)
        self.agent = self.start('demo.sw1')

    def piped(self, stdin):
        return self.zelc('-i', 'demo.sw1', input=stdin)

    def test_a_script_piped_in(self):
        rc, out, err = self.piped('total = 0\nfor i in range(4):\n    total += i\n\nNone\ntotal\nprint("x");1/0\n'
                                 'def f():\n    return total * 7\n\nf()')   # the last line without its newline
        self.assertEqual((rc, out), (0, '6\n42\n'))
        # What a failing statement printed comes with its traceback.
        self.assertEqual(err, 'x\nTraceback (most recent call last):\n  File "<console>", line 1, in <module>\n'
                              'ZeroDivisionError: %s\n' % pyver.INT_DIVISION_BY_ZERO)
        # The connection lost mid-statement: it may or may not have run, and zelc says so.
        rc, out, err = self.piped('import os\nos.kill(os.getpid(), 9)\n1\n')
        self.agent.wait()
        self.assertEqual((rc, out), (2, ''))
        self.assertIn('may or may not have run', err)
        # The agent gone (and back) while the console waits for a line: the console ends rather than go on in a
        # new namespace, where its Ctrl-C would name a connection that is not its own.
        self.agent = self.start('demo.sw1')
        console = self.background('-i', 'demo.sw1', stdin=subprocess.PIPE)
        with children.watched(console, 'zelc -i'):
            console.stdin.write(b'kept = 1\nkept\n')
            console.stdin.flush()
            self.assertEqual(console.stdout.readline(), b'1\n')
            self.agent.terminate()
            self.agent.wait()
            self.start('demo.sw1')
            out, err = console.communicate(b'kept\n')
        self.assertEqual((console.returncode, toText(out), toText(err)),
                         (2, '', "zelc: The agent closed the console's connection (its namespace is gone)\n"))

    @unittest.skipUnless(os.path.exists(TMUX), 'tmux not installed')
    def test_a_session_at_the_terminal(self):
        history = os.path.join(self.home, '.zelc_history')
        # An earlier session's lines, more than the history keeps.
        with open(history, 'w') as f:
            f.write('_HiStOrY_V2_\n' + ''.join('old%d\n' % i for i in range(1500)) + "earlier='recalled'\n")
        tmux = [TMUX, '-S', os.path.join(self.dir, 'tmux')]
        env = ' '.join("%s='%s'" % kv for kv in sorted(self.env.items()) if kv[0] in ('HOME', 'ZELC_AGENTS_DIR'))
        subprocess.check_call(tmux + ['new-session', '-d', '-x', '120', '-y', '60',
                                      "env %s %s -i demo.sw1; echo zelc ended $?; sleep 600" %
                                      (env, os.path.join(BIN, 'zelc'))])
        try:
            def keys(*k):
                subprocess.check_call(tmux + ['send-keys'] + list(k))

            def screen():
                return toText(subprocess.check_output(tmux + ['capture-pane', '-p', '-S', '-100']))

            def waitFor(text, prompted=True):
                """Until `text` is on the screen, and (`prompted`) the console waits at a prompt: keys typed
                before would be echoed by the terminal, not the line editor, and garble the screen."""
                deadline = time.time() + WAIT
                while True:
                    shown = screen()
                    lines = [line for line in shown.splitlines() if line.strip()]
                    if text in shown and (not prompted or lines[-1] in ('>>>', '...')):
                        return
                    self.assertLess(time.time(), deadline, 'no %r on the screen:\n%s' % (text, shown))
                    time.sleep(0.05)

            def typed(line, shows, prompted=True):
                keys(line, 'Enter')
                waitFor(shows, prompted)
            waitFor('demo.sw1, pid %d, Python %d.' % (self.agent.pid, sys.version_info[0]))
            # The arrow keys recall the earlier session's last line.
            keys('Up')
            waitFor(">>> earlier='recalled'", prompted=False)
            typed('', ">>> earlier='recalled'\n>>>")
            typed('earlier', "'recalled'")
            # A block: "... " until the empty line ends it.
            typed('total = 0', '>>> total = 0')
            typed('for i in range(4):', '>>> for i in range(4):\n...')   # the screen shows no trailing blank
            typed('    total += i', '...     total += i')
            typed('', '...     total += i\n...\n>>>')
            typed('total', '\n6\n')
            # Tab completes a proxy's framework attribute, from the agent.
            typed('import Zel', '>>> import Zel')
            typed("sw = Zel.root().entity['sw1']", ">>> sw = Zel.root().entity['sw1']")
            keys('sw.vl', 'Tab')
            waitFor('>>> sw.vlan', prompted=False)
            typed('', '<Demo::Switch.vlan collection of 0>')
            # Ctrl-C interrupts a long statement in the agent; the console goes on, connected.
            typed('import time', '>>> import time')
            typed('time.sleep(30)', '>>> time.sleep(30)', prompted=False)
            time.sleep(0.5)
            started = time.time()
            keys('C-c')
            # Raised in the statement, or (Python 2 looks for it only every so many instructions) as it ended.
            waitFor('KeyboardInterrupt\n>>>')
            self.assertLess(time.time() - started, 10)
            # Ctrl-C at the prompt drops what was typed.
            keys('never = 1')
            waitFor('>>> never = 1', prompted=False)
            keys('C-c')
            waitFor('>>> never = 1\n>>>')
            typed('total * 7 if "never" not in dir() else 0', '\n42\n')
            keys('C-d')
            waitFor('zelc ended 0', prompted=False)
            shown = screen()
        finally:
            subprocess.call(tmux + ['kill-server'])
        self.assertLessEqual(shown.count('Traceback'), 1, shown)   # the interrupted statement's alone
        # The history kept this session's lines after the earlier ones (the recalled one once), bounded, and is
        # the user's alone.
        with open(history) as f:
            saved = [re.sub(r'\\([0-7]{3})', lambda m: chr(int(m.group(1), 8)), line) for line in f.read().splitlines()]
        self.assertEqual(saved[-13:], ['old1499', "earlier='recalled'", 'earlier', 'total = 0', 'for i in range(4):',
                                       '    total += i', 'total', 'import Zel', "sw = Zel.root().entity['sw1']",
                                       'sw.vlan', 'import time', 'time.sleep(30)',
                                       'total * 7 if "never" not in dir() else 0'])
        self.assertEqual((saved[0], len(saved)), ('_HiStOrY_V2_', 1 + 1000))
        self.assertEqual(stat.S_IMODE(os.stat(history).st_mode), 0o600)

if __name__ == '__main__':
    unittest.main()
