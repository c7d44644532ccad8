"""PyServer over raw sockets, each scenario walked once: the protocol, the console's kinds (zelc -i in a terminal:
test_console_terminal), watches (delivered by the activity loop run here; zelc --watch: test_zelc_operator), and the
native serving loop; the fuzz target drives the framing with arbitrary streams, the soak many clients at once."""

import gc
import os
import shutil
import socket
import sys
import tempfile
import threading
import time
import unittest

import PyServer
import Zel
import ZelDemo  # noqa: F401
import ZelWatch
import ZelWire
import _ZelServer
import pyver
from snapshot import live
from zelsupport import run_until_quiet, until
from ZelWire import CONTROL_HELLO, CONTROL_INTERRUPT, KIND_COMPLETE as COMPLETE, KIND_CONSOLE as CONSOLE, \
    KIND_CONTROL as CONTROL, KIND_EVAL as EVAL, KIND_EXEC as EXEC, KIND_WATCH as WATCH, MAX_COMMAND, STATUS_MORE, \
    frame, frames, greet, packLength, request, response

KEPT = ('Zel::PyGenericIfNotifiee', 'Zel::ActivityConfig', 'Zel::PyObjHandle')   # a watch's


def changes(sock, count):
    """The next `count` pushed frames of a watch as (status, attribute or count, value)."""
    got = [response(sock) for _ in range(count)]
    return [(st,) + tuple(p.split(' ', 2)[1:]) if st == 'CH' else (st, p, None) for st, p in got]


class ServerTest(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp()
        self.server = PyServer.PyServer('t.srv', tcpPort=0, namespace={'seed': 10}, directory=self.dir).start()

    def tearDown(self):
        self.server.stop()
        shutil.rmtree(self.dir, ignore_errors=True)

    def connect(self, tcp=False, server=None):
        server = server or self.server
        s = socket.socket(socket.AF_INET if tcp else socket.AF_UNIX)
        s.connect(('127.0.0.1', server.tcpPort) if tcp else server.socketPath)
        self.assertEqual(greet(s), ZelWire.GREETING_REPLY)
        return s

    def switch(self):
        """A switch /wt with an interface et1, for watches (removed at the end)."""
        self.addCleanup(Zel.root().entity.__delitem__, 'wt')
        sw = Zel.root().newEntity('wt', 'Demo::Switch')
        return sw, sw.intf.newMember('et1')

    def watch(self, command):
        s = self.connect()
        s.settimeout(30)
        s.sendall(frame(WATCH, command))
        return s, response(s)

    def test_protocol_namespaces_limits_and_failing_commands(self):
        a, b = self.connect(), self.connect(tcp=True)
        self.assertEqual(request(a, EVAL, 'seed + 1'), ('OK', '11'))
        self.assertEqual(request(a, EXEC, 'v = "a"\nprint(v)'), ('OK', 'a\n'))
        self.assertEqual(request(a, EXEC, 'v = 1'), ('OK', ''))
        self.assertEqual(request(b, EVAL, 'seed'), ('OK', '10'))
        self.assertEqual(request(a, EVAL, 'v'), ('OK', '1'))
        # The same namespace from one command to the next, however many
        # were compiled before (past the cache's bound, then a first again).
        bump = 'count = globals().get("count", 0) + 1\nprint(count)'
        self.assertEqual([request(a, EXEC, bump)[1] for _ in range(3)], ['1\n', '2\n', '3\n'])
        self.assertEqual(request(b, EXEC, bump), ('OK', '1\n'))
        for i in range(300):
            self.assertEqual(request(a, EVAL, '%d + count' % i), ('OK', str(i + 3)))
        self.assertEqual(request(a, EVAL, '0 + count'), ('OK', '3'))
        # Requests cut anywhere and several in one send.
        two = frame(EXEC, 'n = 5') + frame(EVAL, 'n')
        a.sendall(two[:3])
        time.sleep(0.01)
        a.sendall(two[3:])
        self.assertEqual([response(a), response(a)], [('OK', ''), ('OK', '5')])
        longest = "'" + 'a' * (MAX_COMMAND - 2) + "'"   # the largest command: a 4095-byte frame
        self.assertEqual(len(frame(EVAL, longest)), 4095)
        self.assertEqual(request(a, EVAL, longest), ('OK', longest))
        # Bad input ends only its own connection: a command over the
        # limit, an unknown kind.
        for kind, n in ((EVAL, MAX_COMMAND + 1), (b'?0', 0), (b'?9', 1), (b'\0\0', 0)):
            bad = self.connect()
            bad.sendall(kind + packLength(n) + b'x' * min(n, 1))
            self.assertEqual(bad.recv(10), b'')
        self.assertEqual(request(a, EVAL, '6*7'), ('OK', '42'))
        # Results around the reply buffer's sizes.
        for size in (0, 4089, 4090, 65535, 65536, 3 * 1024 * 1024):
            self.assertEqual(request(a, EXEC, 'import sys; sys.stdout.write("x" * %d)' % size), ('OK', 'x' * size))
        self.assertEqual(len(request(a, EVAL, '"y" * 200000')[1]), 200002)
        self.assertEqual(request(a, EXEC, 'import sys; sys.stdout.write("\xe9")'), ('OK', '\xe9'))   # UTF-8 on 3
        # Failing commands answer EX with a traceback that ends in the command; b has its own namespace, and
        # a null byte is refused as compile() does.
        nul = pyver.compile_error('1\0+1')
        for kind, cmd, error in ((EVAL, 'v', "NameError: name 'v' is not defined"), (EVAL, '1/0', 'ZeroDivisionError'),
                                 (EXEC, 'def f():\n    raise KeyError(7)\nf()', 'KeyError: 7'),
                                 (EXEC, 'raise SystemExit(2)', 'SystemExit: 2'), (EVAL, '1 +', 'SyntaxError'),
                                 (EXEC, 'raise KeyboardInterrupt', 'KeyboardInterrupt'), (EVAL, '1\0+1', nul),
                                 (EVAL, 'print 1', 'SyntaxError'), (EVAL, '', 'SyntaxError')):
            status, text = request(b, kind, cmd)
            self.assertEqual((status, error in text, 'PyServer.py' in text), ('EX', True, False), cmd)
            if error not in ('SyntaxError', nul):
                self.assertTrue(text.startswith('Traceback (most recent call last):\n  File "<PyServer>", line '), text)
        # Longer than a frame: parts, then the request; run once as one command, in the connection's namespace.
        longer = 'v = %r\nprint("%%d %%d" %% (len(v), seed))' % ('z' * 3 * MAX_COMMAND)
        a.sendall(frames(EXEC, longer))
        self.assertEqual(response(a), ('OK', '%d 10\n' % (3 * MAX_COMMAND)))
        a.sendall(frames(EVAL, '1 +' + ' ' * MAX_COMMAND + '1'))
        self.assertEqual(response(a), ('OK', '2'))
        self.assertEqual(request(a, EVAL, 'len(v)'), ('OK', str(3 * MAX_COMMAND)))   # and the parts are gone
        # A namespace that lost its builtins gets them back, as eval() does.
        self.assertEqual(request(b, EXEC, 'del __builtins__'), ('OK', ''))
        self.assertEqual(request(b, EVAL, 'len("ab")'), ('OK', '2'))

    def test_agent_file_slow_and_busy_peers_and_stop(self):
        # The agent file's lines and its lock: zelc -l in test_zelc_operator.
        self.assertRaises(RuntimeError, PyServer.PyServer('t.srv', directory=self.dir,
                                                          socketPath=self.dir + '/other').start)
        idle, midFrame, busy = self.connect(), self.connect(tcp=True), self.connect()
        midFrame.sendall(b'?1\0\0\0\x05"a')   # and never the rest
        busy.sendall(frame(EXEC, 'import time; time.sleep(0.5)'))
        results = []

        def client(i):
            c = self.connect(tcp=i % 2 == 1)
            results.append([request(c, EVAL, 'seed + %d' % j) for j in (i, i + 1)])
            c.close()
        threads = [threading.Thread(target=client, args=(i,)) for i in range(20)]
        for t in threads:
            t.start()
        for t in threads:
            t.join()
        self.assertEqual(sorted(results), sorted([[('OK', str(10 + i)), ('OK', str(11 + i))] for i in range(20)]))
        self.assertEqual(response(busy), ('OK', ''))
        busy.sendall(frame(EXEC, 'import time; time.sleep(0.2)'))
        time.sleep(0.05)
        self.server.stop()
        self.assertEqual((idle.recv(10), midFrame.recv(10)), (b'', b''))
        self.assertFalse(os.path.exists(self.server.agentFile))
        self.assertFalse(os.path.exists(self.server.socketPath))
        self.assertEqual([t for t in threading.enumerate() if t.name.startswith('PyServer')], [])


    def test_stop_with_a_limit_interrupts_commands(self):
        # A loop and a sleep are interrupted; a wait for a lock is not (it goes on after a signal), and stop says
        # its thread is left running.
        held = 'import threading; l = threading.Lock(); l.acquire(); threading.Timer(1.5, l.release).start(); l.acquire()'
        for cmd, ended in (('any(False for _ in iter(int, 1))', True), ('import time; time.sleep(30)', True),
                           (held, False)):
            server = PyServer.PyServer('t.stop', directory=self.dir).start()
            s = self.connect(server=server)
            s.sendall(frame(EXEC, cmd))
            time.sleep(0.2)
            started = time.time()
            stopped, answer = server.stop(timeout=0.5), s.recv(64)
            self.assertEqual((stopped, os.listdir(self.dir)), (ended, ['t.srv', 't.srv.sock']))
            self.assertLess(time.time() - started, 1.0)
            # An interrupted command may still answer before its connection is closed.
            self.assertIn(answer[6:].decode(), ('', 'KeyboardInterrupt\n') if ended else ('',))
            for t in threading.enumerate():
                if t.name.startswith('PyServer t.stop'):
                    t.join(5)

    def test_stale_and_planted_agent_files_are_replaced(self):
        for planted in ('left\n', None):
            path = os.path.join(self.dir, 't.other')
            if planted:
                with open(path, 'w') as f:   # nobody holds it, and anyone may write it
                    f.write(planted)
                os.chmod(path, 0o666)
            else:
                os.symlink('/nonexistent', path)
            server = PyServer.PyServer('t.other', directory=self.dir).start()
            try:
                st = os.lstat(path)
                self.assertEqual((st.st_mode & 0o777, open(path).read()),
                                 (0o644, '%d\n0\n%s\n' % (os.getpid(), server.socketPath)))
            finally:
                server.stop()

    def test_statements_are_decided_and_shown_as_the_interactive_interpreter_does(self):
        a, b = self.connect(), self.connect()
        self.assertEqual(request(a, CONSOLE, 'total = 0'), ('OK', ''))
        block = ['for i in range(4):', '    if i % 2:', '        total += i', '']
        self.assertEqual([request(a, CONSOLE, '\n'.join(block[:n])) for n in range(1, 5)],
                         [(STATUS_MORE, '')] * 3 + [('OK', '')])
        for source, answer in (('total', ('OK', '4\n')), ('None', ('OK', '')), ('print(total); total * 2', ('OK', '4\n8\n')),
                               ('_', ('OK', '8\n')), ('seed', ('OK', '10\n')), ('"%s" % total', ('OK', "'4'\n"))):
            self.assertEqual(request(a, CONSOLE, source), answer, source)
        # One namespace per connection, shared with its other kinds; `_` lives in it, not in the agent's builtins.
        self.assertEqual(request(a, EVAL, 'total'), ('OK', '4'))
        self.assertEqual(request(b, CONSOLE, 'total'), ('EX', 'Traceback (most recent call last):\n  File "<console>", '
                                                         "line 1, in <module>\nNameError: name 'total' is not defined\n"))
        self.assertIn("NameError: name '_' is not defined", request(b, CONSOLE, '_')[1])
        # Errors: what ran printed first, the traceback from the statement; a syntax error without one.
        self.assertEqual(request(a, CONSOLE, 'print("half"); 1/0'),
                         ('EX', 'half\nTraceback (most recent call last):\n  File "<console>", line 1, in <module>\n'
                                'ZeroDivisionError: %s\n' % pyver.INT_DIVISION_BY_ZERO))
        self.assertEqual(request(a, CONSOLE, 'def f(:'), ('EX', pyver.console_error('def f(:')))
        self.assertEqual(request(a, CONSOLE, 'raise SystemExit(3)')[0], 'EX')
        self.assertEqual(request(a, CONSOLE, '1\0+1'), ('EX', pyver.console_error('1\0+1')))
        # A future import holds for the rest of its connection's console input, as it does at a prompt.
        feature, source, on, off = pyver.CONSOLE_FUTURE
        self.assertEqual(request(a, CONSOLE, 'from __future__ import ' + feature), ('OK', ''))
        self.assertEqual([request(a, CONSOLE, source), request(b, CONSOLE, source)], [('OK', on), ('OK', off)])
        self.assertEqual(request(a, CONTROL, CONTROL_HELLO)[1].split('\n')[1],
                         't.srv, pid %d, Python %s' % (os.getpid(), sys.version.split()[0]))

    def test_completion_from_the_live_namespace(self):
        a = self.connect()
        request(a, EXEC, 'import os, Zel\nsw = Zel.new("Demo::Switch", "sw1")\nvalue = 3\nvariable = 4\n')

        def complete(line):
            status, text = request(a, COMPLETE, line)
            self.assertEqual(status, 'OK')
            return text.split('\n')
        self.assertEqual(complete('x = va'), ['va', 'value', 'variable', 'vars'])
        self.assertEqual(complete('whi'), ['whi', 'while'])   # keywords, builtins above, and attributes:
        self.assertEqual(complete('print(len(os.pa'), ['os.pa', 'os.pardir', 'os.path', 'os.pathconf',
                                                        'os.pathconf_names', 'os.pathsep'])
        self.assertEqual(complete('os.path.jo'), ['os.path.jo', 'os.path.join'])
        self.assertIn('os.__file__', complete('os._'))      # '_' names only once one is typed
        self.assertFalse([n for n in complete('os.') if n.startswith('os._')])
        # A proxy offers its framework attributes.
        self.assertEqual(complete('sw.vl'), ['sw.vl', 'sw.vlan'])
        self.assertTrue(set(Zel.Type('Demo::Switch').attrs) <= set(n[3:] for n in complete('sw.')))
        for nothing in ('1.', 'x = 2.5', 'absent.x', 'value.real.nope', 'f(', ''):
            self.assertEqual(complete(nothing)[1:], [], nothing)
        self.assertEqual(complete('x = '), [''])

    def test_interrupting_a_running_command(self):
        a, other = self.connect(), self.connect()
        token = request(a, CONTROL, CONTROL_HELLO)[1].split('\n')[0]
        self.assertEqual(request(other, CONTROL, CONTROL_INTERRUPT + token), ('OK', 'idle'))
        self.assertEqual(request(a, EXEC, 'import time\nkept = 1\n'), ('OK', ''))   # no interrupt was left pending
        for kind, command in ((CONSOLE, 'time.sleep(30)'), (CONSOLE, 'while True:\n    kept += 1\n'),
                              (EVAL, 'any(x for x in iter(int, 1))')):
            a.sendall(frame(kind, command))
            time.sleep(0.2)
            started = time.time()
            self.assertEqual(request(other, CONTROL, CONTROL_INTERRUPT + token), ('OK', 'interrupted'))
            status, text = response(a)
            self.assertLess(time.time() - started, 5)
            self.assertEqual((status, text.splitlines()[-1]), ('EX', 'KeyboardInterrupt'), command)
            self.assertNotIn('.py"', text)   # raised in the command, not in the server's code
        # The connection, its namespace and the server's stdout lock are as they were.
        self.assertGreater(int(request(a, CONSOLE, 'kept')[1]), 1)
        self.assertEqual(request(other, EXEC, 'print(1)'), ('OK', '1\n'))
        for bad in ('interrupt ', 'interrupt 12x', 'stop'):
            self.assertEqual(request(other, CONTROL, bad)[0], 'EX')
        self.assertEqual(request(other, CONTROL, CONTROL_INTERRUPT + '1'), ('OK', 'idle'))

    def test_changes_in_order_and_only_those_asked_for_refusals_and_ends(self):
        sw, et = self.switch()
        gc.collect()
        before = live(*KEPT)
        for command, error in (('/wt/nope', 'LookupError: no entity /wt/nope\n'),
                               ('/wt\nreset', 'AttributeError: Demo::Switch has no attribute reset\n'),
                               ('/wt\nvlan\nnone', 'AttributeError: Demo::Switch has no attribute none\n')):
            refused, answer = self.watch(command)
            self.assertEqual((answer, refused.recv(10)), (('EX', error), b''))
        s, started = self.watch('/wt/et1\nmtu\ndescription')
        whole, wholeStarted = self.watch('/wt')
        self.assertEqual((started, wholeStarted), (('OK', '/wt/et1'), ('OK', '/wt')))
        self.assertEqual((ZelWatch.watching(), live(*KEPT)[:2]), (2, [before[0] + 2, before[1] + 2]))
        since = time.time()
        for i in range(2000):
            et.mtu = i
            et.adminUp = i % 2 == 0
        et.description = 'up'
        sw.vlan[10] = 'users'
        sw.intf.newMember('et2')
        run_until_quiet()
        self.assertEqual(changes(s, 2001), [('CH', 'mtu', '%d' % i) for i in range(2000)] +
                         [('CH', 'description', "'up'")])
        # The collections' changes name the key.
        self.assertEqual(changes(whole, 2), [('CH', 'vlan', '10'), ('CH', 'intf', "'et2'")])
        del sw.vlan[10]
        run_until_quiet()
        stamp, rest = response(whole)[1].split(' ', 1)
        self.assertEqual((rest, since <= float(stamp) <= time.time() + 0.001), ('vlan 10', True))
        whole.close()   # the client goes ...
        until(lambda: ZelWatch.watching() == 1)
        self.assertEqual((ZelWatch.watching(), live(*KEPT)[:2]), (1, [before[0] + 1, before[1] + 1]))
        et.mtu = 1
        run_until_quiet()
        self.assertEqual(changes(s, 1), [('CH', 'mtu', '1')])
        self.server.stop()   # ... or the server stops
        self.assertEqual((ZelWatch.watching(), s.recv(10)), (0, b''))
        self.assertEqual(live(*KEPT), before)

    def test_a_reader_too_slow_is_told_how_many_changes_were_dropped(self):
        sw, et = self.switch()
        limits = ZelWatch.MAX_QUEUED, ZelWatch.MAX_QUEUED_BYTES
        ZelWatch.MAX_QUEUED, ZelWatch.MAX_QUEUED_BYTES = 100, 4000
        try:
            s, _ = self.watch('/wt/et1\nmtu\ndescription')
        finally:
            ZelWatch.MAX_QUEUED, ZelWatch.MAX_QUEUED_BYTES = limits
        total = 30000
        for i in range(total):   # never read meanwhile: the loop must not wait for the reader
            et.mtu = i
            if i % 500 == 499:
                run_until_quiet()
        expected = dropped = 0
        while expected < total:
            status, payload = response(s)
            if status == 'DR':
                expected += int(payload)
                dropped += int(payload)
            else:
                # In order, and every change either sent or counted in its place.
                self.assertEqual((status, int(payload.split(' ')[2])), ('CH', expected))
                expected += 1
        self.assertEqual(expected, total)
        self.assertGreater(dropped, 0)
        # A value too large for the queue's bytes is dropped alone, and counted before the next change.
        et.description, et.mtu = 'x' * 5000, total
        run_until_quiet()
        self.assertEqual(changes(s, 2), [('DR', '1', None), ('CH', 'mtu', '%d' % total)])


class NativeServeTest(unittest.TestCase):
    """_ZelServer.serve on one end of a socket pair."""

    def serve(self, frames, replies=0, ns=None, formatter=PyServer._formatError):
        """(what serve() returned once the peer sent `frames` and shut down writing, the first `replies` replies)"""
        ours, theirs = socket.socketpair()
        out = []
        t = threading.Thread(target=lambda: out.append(_ZelServer.serve(theirs.fileno(), {} if ns is None else ns,
                                                                        PyServer._execCode, formatter)))
        t.start()
        self.assertEqual(greet(ours), ZelWire.GREETING_REPLY)
        ours.sendall(frames)
        ours.shutdown(socket.SHUT_WR)
        got = [response(ours) for _ in range(replies)]
        t.join()
        theirs.close()
        return out[0], got

    def test_returns_why_the_connection_ended(self):
        for frames, ended in ((frame(EVAL, '1'), None), (b'?x\0\0\0\0', "kind '?x', length 0"),
                              (b'?1\x7f\xff\xff\xff', "kind '?1', length 2147483647")):
            self.assertEqual(self.serve(frames)[0], ended)
        for args in (('x', {}, len, len), (0, [], len, len), (0, {}, None, len), (-1, {}, len, len)):
            self.assertRaises(TypeError, _ZelServer.serve, *args)

    def test_failing_formatter_still_answers_and_no_console(self):
        def brokenFormatter(*exc):
            raise RuntimeError('formatter broken')
        ns = {}
        before = [sys.getrefcount(o) for o in (ns, brokenFormatter, PyServer._execCode)]
        self.assertEqual(self.serve(frame(EVAL, '1/0') + frame(EVAL, '2') + frame(EXEC, 'print(3)'), 3, ns,
                                    brokenFormatter),
                         (None, [('EX', 'ZeroDivisionError (its traceback could not be formatted)\n'), ('OK', '2'),
                                 ('OK', '3\n')]))
        self.assertEqual([sys.getrefcount(o) for o in (ns, brokenFormatter, PyServer._execCode)], before)
        # A connection served without a console.
        self.assertEqual(self.serve(frame(CONSOLE, '1') + frame(CONTROL, CONTROL_INTERRUPT + '1'), 2),
                         (None, [('EX', 'RuntimeError: this connection has no console\n'), ('OK', 'idle')]))


if __name__ == '__main__':
    unittest.main()
