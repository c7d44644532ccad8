"""The console's request kinds (zelc -i) against a PyServer: statements decided and run as the interactive
interpreter does, completion from the live namespace, and interrupting a running command from a second
connection. zelc's side, in a real terminal, is test_console_terminal's."""

import shutil
import socket
import tempfile
import time
import unittest

import PyServer
import pyver
import Zel
import ZelDemo  # noqa: F401
import ZelWire
from ZelWire import (CONTROL_HELLO, CONTROL_INTERRUPT, KIND_COMPLETE as COMPLETE, KIND_CONSOLE as CONSOLE,
                     KIND_CONTROL as CONTROL, KIND_EVAL as EVAL, KIND_EXEC as EXEC, STATUS_MORE, frame, greet, request,
                     response)


class ConsoleTest(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp()
        self.server = PyServer.PyServer('t.console', namespace={'seed': 10}, directory=self.dir).start()

    def tearDown(self):
        self.server.stop()
        shutil.rmtree(self.dir, ignore_errors=True)

    def connect(self):
        s = socket.socket(socket.AF_UNIX)
        s.connect(self.server.socketPath)
        greet(s)
        return s

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
                         't.console, pid %d, Python %s' % (__import__('os').getpid(), __import__('sys').version.split()[0]))

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


if __name__ == '__main__':
    unittest.main()
