"""zelc as an operator's tool against live zelagents: results and commands of any size, the agents directory and
patterns, watches and stacks, and the faults it must survive with one line and a documented exit status."""

import os
import re
import signal
import time
import unittest

import children
import pyver
from ZelCompat import toText
from zelsupport import until

BIG = 100 * 1000 * 1000
LOST = 'after the command was sent: it may or may not have run\n'


class ZelcOperatorTest(children.AgentCase):
    def runaway(self, *args, **kw):
        """zelc running the command (the last of `args`) in the background, once `agents` (default 1) agents have
        begun it: the command first leaves a mark, so a slow start is never taken for a command in progress."""
        marks = os.path.join(self.dir, 'marks')
        if not os.path.isdir(marks):
            os.mkdir(marks)
        prefix = os.path.join(marks, '%d-' % len(os.listdir(marks)))
        touch = "open(%r + str(__import__('os').getpid()), 'w').close()" % prefix
        command = args[-1]
        zelc = self.background(*args[:-1] + (touch + '\n' + command if '-x' in args else
                                              '(%s, %s)[1]' % (touch, command),))
        begun = lambda: sum(m.startswith(os.path.basename(prefix)) for m in os.listdir(marks))
        until(lambda: begun() >= kw.get('agents', 1) or zelc.poll() is not None, children.SECONDS)
        return zelc

    def test_results_and_commands_of_any_size_once(self):
        self.start('demo.sw1')
        # Sent once however long, and tracebacks of any size: PyClientWholeResult.AnySizeEachCommandSentOnce.
        rc, out, err = self.zelc('demo.sw1', "'x' * %d" % BIG)
        self.assertEqual((rc, len(out), out[:3], out[-4:], err), (0, BIG + 3, "'xx", "xx'\n", ''))
        del out
        # Commands over the frame limit: a file, and standard input.
        script = os.path.join(self.dir, 'long.py')
        with open(script, 'w') as f:
            f.write('total = 0\n' + ''.join('total += %d\n' % i for i in range(5000)) + 'print(total)\n')
        self.assertEqual(self.zelc('-f', script, 'demo.sw1'), (0, '%d\n' % sum(range(5000)), ''))
        self.assertEqual(self.zelc('demo.sw1', '-', input='len(%r)' % ('s' * 9000)), (0, '9000\n', ''))
        self.assertEqual(self.zelc('-f', os.path.join(self.dir, 'absent.py'), 'demo.sw1'),
                         (4, '', 'zelc: cannot read %s/absent.py: No such file or directory\n' % self.dir))

    def test_listing_patterns_and_usage(self):
        a1, a2 = self.start('demo.a1'), self.start('demo.a2')
        with open(os.path.join(self.dir, 'demo.gone'), 'w') as f:   # a dead agent's, held by nobody
            f.write('99999\n0\n%s/demo.gone.sock\n' % self.dir)
        self.assertEqual(self.zelc('-l'), (0, 'demo.a1 %d 0 %s/demo.a1.sock live\n' % (a1.pid, self.dir) +
                                           'demo.a2 %d 0 %s/demo.a2.sock live\n' % (a2.pid, self.dir) +
                                           'demo.gone 99999 0 %s/demo.gone.sock stale\n' % self.dir, ''))
        # Every live match at once, lines prefixed, the worst status: a2 raises.
        rc, out, err = self.zelc('demo.*', '__import__("os").getpid() if __import__("os").getpid() == %d else 1/0'
                                 % a1.pid)
        self.assertEqual((rc, out), (1, 'demo.a1: %d\n' % a1.pid))
        self.assertTrue(err.startswith('demo.a2: Traceback') and
                        err.endswith('demo.a2: ZeroDivisionError: %s\n' % pyver.INT_DIVISION_BY_ZERO), err)
        self.assertEqual(self.zelc('-x', 'demo.a[2]', 'print("one\\ntwo")'), (0, 'demo.a2: one\ndemo.a2: two\n', ''))
        self.assertEqual(self.zelc('nothing.*', '1'), (2, '', 'zelc: no live agent matches nothing.*\n'))
        for args in (['--help'], ['--version']):
            rc, out, err = self.zelc(*args)
            self.assertEqual((rc, err), (0, ''))
            self.assertTrue(out.startswith('Usage: zelc ') if args == ['--help'] else out.startswith('zelc '), out)
        for args in ([], ['demo.a1'], ['-q', 'demo.a1', '1'], ['-l', 'demo.a1'], ['-f', 'x', 'demo.a1', '1']):
            rc, out, err = self.zelc(*args)
            self.assertEqual((rc, out, err.startswith('usage: zelc ')), (3, '', True), args)

    # What the server sends a watch, and that it drops the watch with its connection: test_server_pyserver.
    def test_watch_until_ctrl_c_then_stacks(self):
        self.start('demo.sw1')
        sw = 'import Zel\nsw = Zel.root().entity["sw1"]\n'
        self.assertEqual(self.zelc('-x', 'demo.sw1', sw + 'sw.intf.newMember("et1")'), (0, '', ''))
        watcher = self.background('--watch', 'demo.sw1', '/sw1/et1', 'mtu')
        with children.watched(watcher, 'zelc --watch'):
            until(lambda: self.zelc('demo.sw1', "__import__('ZelWatch').watching()")[1] == '1\n', children.SECONDS)
            self.assertEqual(self.zelc('-x', 'demo.sw1', sw + 'for i in 1, 2, 3: sw.intf["et1"].mtu = 9000 + i; '
                                       'sw.intf["et1"].adminUp = i == 2'), (0, '', ''))
            lines = [watcher.stdout.readline() for _ in range(3)]
            watcher.send_signal(signal.SIGINT)
            rest = watcher.communicate()
        for i, line in enumerate(lines):
            self.assertTrue(re.match(br'\d{4}-\d\d-\d\d [\d:]{8}\.\d{6} /sw1/et1 mtu %d\n$' % (9001 + i), line), line)
        self.assertEqual((watcher.returncode, rest), (0, (b'', b'')))
        self.assertEqual(self.zelc('--watch', 'demo.sw1', '/sw2'), (1, '', 'LookupError: no entity /sw2\n'))
        rc, out, err = self.zelc('--stacks', 'demo.sw1')
        self.assertEqual((rc, err, out.startswith('Thread MainThread (ident ')), (0, '', True), out)
        # The server's accepting thread, waiting for connections, by its name and with its frames.
        self.assertTrue(re.search(r'\n\nThread PyServer demo\.sw1 \(ident \d+\)\n(  File .*\n    .*\n)*'
                                  r'  File ".*PyServer\.py", line \d+, in _acceptLoop\n', out), out)

    def test_agents_dying_and_stopping_mid_command(self):
        agent = self.start('demo.sw1')
        waiting = self.runaway('-x', 'demo.sw1', 'import time; time.sleep(30)')
        agent.kill()
        out, err = map(toText, waiting.communicate())
        self.assertEqual((waiting.returncode, out), (2, ''))
        self.assertTrue(err.startswith('zelc: Lost the connection to demo.sw1 (') and err.endswith(LOST), err)
        self.assertEqual(err.count('\n'), 1)
        # Its files are left; the next agent of that name starts all the same.
        self.assertEqual(sorted(os.listdir(self.dir)), ['demo.sw1', 'demo.sw1.sock', 'marks'])
        # A loop and a sleep are interrupted; a loop within one call keeps the interpreter from the stop.
        # (An evaluation, unlike an execution, waits for no other command's output.)
        for sig, commands in ((signal.SIGTERM, [('-x', 'while True: pass'), ('__import__("time").sleep(60)',)]),
                              (signal.SIGINT, [('-x', 'sum(iter(int, 1))')])):
            agent = self.start('demo.sw1')
            runaway = [self.runaway(*cmd[:-1] + ('demo.sw1', cmd[-1])) for cmd in commands]
            started = time.time()
            agent.send_signal(sig)
            with children.watched(agent, 'stopping zelagent', 10):
                self.assertEqual(agent.wait(), 0)
            self.assertLess(time.time() - started, 2.0)
            self.assertEqual(os.listdir(self.dir), ['marks'])
            for zelc in runaway:
                out, err = map(toText, zelc.communicate())
                self.assertEqual((zelc.returncode, out, err.endswith(LOST)), (2, '', True))
        self.assertEqual(self.zelc('demo.sw1', '1'), (2, '', 'zelc: Unable to connect to demo.sw1\n'))

    def test_ctrl_c_interrupts_the_command_in_each_agent(self):
        self.start('demo.sw1')
        self.start('demo.sw2')
        for target, count in (('demo.sw1', 1), ('demo.*', 2)):
            zelc = self.runaway('-x', target, 'while True: pass', agents=count)
            started = time.time()
            zelc.send_signal(signal.SIGINT)
            with children.watched(zelc, 'interrupted zelc', 10):
                out, err = zelc.communicate()
            self.assertLess(time.time() - started, 5.0)
            self.assertEqual((zelc.returncode, out, err.count(b'KeyboardInterrupt')), (1, b'', count), err)
        # Within one C call the interruption waits; a second Ctrl-C ends zelc as Ctrl-C ends a program.
        zelc = self.runaway('demo.sw1', 'sum(iter(int, 1))')
        zelc.send_signal(signal.SIGINT)
        time.sleep(0.5)
        self.assertIsNone(zelc.poll())
        zelc.send_signal(signal.SIGINT)
        with children.watched(zelc, 'zelc given two Ctrl-C', 10):
            zelc.communicate()
        self.assertEqual(zelc.returncode, -signal.SIGINT)


if __name__ == '__main__':
    unittest.main()
