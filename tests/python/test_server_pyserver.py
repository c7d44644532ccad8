"""PyServer over raw sockets: the wire protocol, namespaces, and the
agent file; the native serving loop at the edges of its framing, with
many and misbehaving peers, and while the server stops; _LocalServer."""

import fcntl
import os
import shutil
import socket
import sys
import tempfile
import threading
import time
import unittest

import PyServer
import ZelWire
import _ZelServer
from ZelWire import KIND_EVAL as EVAL, KIND_EXEC as EXEC, MAX_COMMAND, frame, greet, packLength, request, response


class ServerTest(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp()
        self.server = PyServer.PyServer('t.srv', tcpPort=0, namespace={'seed': 10}, directory=self.dir).start()

    def tearDown(self):
        self.server.stop()
        shutil.rmtree(self.dir, ignore_errors=True)

    def connect(self, tcp=False, greeting=True):
        if tcp:
            s = socket.create_connection(('127.0.0.1', self.server.tcpPort))
        else:
            s = socket.socket(socket.AF_UNIX)
            s.connect(self.server.socketPath)
        if greeting:
            self.assertEqual(greet(s), ZelWire.GREETING_REPLY)
        return s

    def test_protocolAndNamespaces(self):
        a, b = self.connect(), self.connect(tcp=True)
        self.assertEqual(request(a, EVAL, 'seed + 1'), ('OK', '11'))
        self.assertEqual(request(a, EXEC, 'v = "a"\nprint v'), ('OK', 'a\n'))
        self.assertEqual(request(a, EXEC, 'v = 1'), ('OK', ''))
        status, text = request(b, EVAL, 'v')   # b has its own namespace
        self.assertEqual(status, 'EX')
        self.assertTrue(text.startswith('Traceback'))
        self.assertIn("NameError: name 'v' is not defined", text)
        self.assertEqual(request(b, EVAL, 'seed'), ('OK', '10'))
        self.assertEqual(request(a, EXEC, 'raise SystemExit(3)')[0], 'EX')
        self.assertEqual(request(a, EVAL, 'v'), ('OK', '1'))
        # The same namespace from one command to the next, however many
        # were compiled before (past the cache's bound, then a first again).
        bump = 'count = globals().get("count", 0) + 1\nprint count'
        self.assertEqual([request(a, EXEC, bump)[1] for _ in range(3)], ['1\n', '2\n', '3\n'])
        self.assertEqual(request(b, EXEC, bump), ('OK', '1\n'))
        for i in range(300):
            self.assertEqual(request(a, EVAL, '%d + count' % i), ('OK', str(i + 3)))
        self.assertEqual(request(a, EVAL, '0 + count'), ('OK', '3'))

    def test_agentFileHeldAndRemoved(self):
        with open(self.server.agentFile) as f:
            self.assertEqual(f.read(), '%d\n%d\n%s\n' % (os.getpid(), self.server.tcpPort, self.server.socketPath))
        fd = os.open(self.server.agentFile, os.O_RDONLY)
        try:
            self.assertRaises(IOError, fcntl.flock, fd, fcntl.LOCK_EX | fcntl.LOCK_NB)
        finally:
            os.close(fd)
        self.assertRaises(RuntimeError, PyServer.PyServer('t.srv', directory=self.dir,
                                                          socketPath=self.dir + '/other').start)
        self.server.stop()
        self.assertFalse(os.path.exists(self.server.agentFile))
        self.assertFalse(os.path.exists(self.server.socketPath))

    def test_framingEdges(self):
        s = self.connect()
        for byte in frame(EVAL, '6*7'):   # a request in pieces
            s.sendall(byte)
            time.sleep(0.001)
        self.assertEqual(response(s), ('OK', '42'))
        s.sendall(frame(EXEC, 'n = 5') + frame(EVAL, 'n') + frame(EVAL, ''))   # several in one send
        replies = [response(s) for _ in range(3)]
        self.assertEqual(replies[:2], [('OK', ''), ('OK', '5')])
        self.assertEqual(replies[2][0], 'EX')
        longest = "'" + 'a' * (MAX_COMMAND - 2) + "'"   # the largest command: a 4095-byte frame
        self.assertEqual(len(frame(EVAL, longest)), 4095)
        self.assertEqual(request(s, EVAL, longest), ('OK', longest))
        status, text = request(s, EVAL, '1\0+1')   # a null byte: refused as compile() does
        self.assertIn('TypeError', text)
        # Bad input ends only its own connection: a command over the
        # limit, an unknown kind, a peer that vanishes mid-frame.
        for kind, n in ((EVAL, MAX_COMMAND + 1), ('?3', 0), ('?9', 1), ('\0\0', 0)):
            bad = self.connect()
            bad.sendall(kind + packLength(n) + 'x' * min(n, 1))
            self.assertEqual(bad.recv(10), '')
        for cut in ('C', '?1\0\0', '?1\0\0\0\x09?1'):
            c = self.connect(greeting=False)
            c.sendall(cut if cut == 'C' else 'CR' + cut)
            c.close()
        self.assertEqual(request(s, EVAL, 'n'), ('OK', '5'))

    def test_resultsAroundFrameSizes(self):
        s = self.connect(tcp=True)
        for size in (0, 4089, 4090, 65535, 65536, 3 * 1024 * 1024):
            self.assertEqual(request(s, EXEC, 'import sys; sys.stdout.write("x" * %d)' % size), ('OK', 'x' * size))
        status, text = request(s, EVAL, '"y" * 200000')
        self.assertEqual((status, len(text)), ('OK', 200002))

    def test_failingCommandsAnswerEX(self):
        s = self.connect()
        for kind, cmd, error in ((EVAL, '1/0', 'ZeroDivisionError'),
                                 (EXEC, 'def f():\n    raise KeyError(7)\nf()', 'KeyError: 7'),
                                 (EXEC, 'raise SystemExit(2)', 'SystemExit: 2'),
                                 (EXEC, 'raise KeyboardInterrupt', 'KeyboardInterrupt'),
                                 (EVAL, '1 +', 'SyntaxError'), (EVAL, 'print 1', 'SyntaxError'),
                                 (EVAL, '', 'SyntaxError')):
            status, text = request(s, kind, cmd)
            self.assertEqual(status, 'EX', cmd)
            self.assertIn(error, text)
            self.assertNotIn('PyServer.py', text)
            if 'SyntaxError' not in error:
                self.assertTrue(text.startswith('Traceback (most recent call last):\n  File "<PyServer>", line '), text)
        # A namespace that lost its builtins gets them back, as eval() does.
        self.assertEqual(request(s, EXEC, 'del __builtins__'), ('OK', ''))
        self.assertEqual(request(s, EVAL, 'len("ab")'), ('OK', '2'))

    def test_manyConnectionsAndASlowPeer(self):
        slow = self.connect()
        slow.sendall('?1\0\0\0\x05"a')   # and never the rest
        busy = self.connect()
        busy.sendall(frame(EXEC, 'import time; time.sleep(0.5)'))
        results = []

        def client(i):
            c = self.connect(tcp=i % 2 == 1)
            results.append([request(c, EVAL, 'seed + %d' % j) for j in (i, i + 1)])
            c.close()
        threads = [threading.Thread(target=client, args=(i,)) for i in range(40)]
        for t in threads:
            t.start()
        for t in threads:
            t.join()
        self.assertEqual(sorted(results), sorted([[('OK', str(10 + i)), ('OK', str(11 + i))] for i in range(40)]))
        self.assertEqual(response(busy), ('OK', ''))

    def test_stopEndsConnectedClients(self):
        idle, midFrame, busy = self.connect(), self.connect(tcp=True), self.connect()
        midFrame.sendall('?1\0\0')
        busy.sendall(frame(EXEC, 'import time; time.sleep(0.2)'))
        time.sleep(0.05)
        self.server.stop()
        self.assertEqual((idle.recv(10), midFrame.recv(10)), ('', ''))
        self.assertFalse(os.path.exists(self.server.agentFile))
        self.assertEqual([t for t in threading.enumerate() if t.name.startswith('PyServer')], [])


class NativeServeTest(unittest.TestCase):
    """_ZelServer.serve on one end of a socket pair."""

    def test_returnsWhyTheConnectionEnded(self):
        for sent, ended in (('CR' + frame(EVAL, '1'), None), ('CR?x\0\0\0\0', "kind '?x', length 0"),
                            ('CR?1\x7f\xff\xff\xff', "kind '?1', length 2147483647")):
            ours, theirs = socket.socketpair()
            out = []
            t = threading.Thread(target=lambda: out.append(
                _ZelServer.serve(theirs.fileno(), {}, PyServer._execCode, PyServer._formatError)))
            t.start()
            ours.sendall(sent)
            ours.shutdown(socket.SHUT_WR)
            t.join()
            self.assertEqual(out, [ended])
            theirs.close()
        for args in (('x', {}, len, len), (0, [], len, len), (0, {}, None, len), (-1, {}, len, len)):
            self.assertRaises(TypeError, _ZelServer.serve, *args)

    def test_failingFormatterStillAnswers(self):
        ours, theirs = socket.socketpair()

        def brokenFormatter(*exc):
            raise RuntimeError('formatter broken')
        ns = {}
        before = [sys.getrefcount(o) for o in (ns, brokenFormatter, PyServer._execCode)]
        t = threading.Thread(target=_ZelServer.serve, args=(theirs.fileno(), ns, PyServer._execCode, brokenFormatter))
        t.start()
        greet(ours)
        self.assertEqual(request(ours, EVAL, '1/0'),
                         ('EX', 'ZeroDivisionError (its traceback could not be formatted)\n'))
        self.assertEqual(request(ours, EVAL, '2'), ('OK', '2'))
        self.assertEqual(request(ours, EXEC, 'print 3'), ('OK', '3\n'))
        ours.close()
        t.join()
        theirs.close()
        del t   # its target arguments
        self.assertEqual([sys.getrefcount(o) for o in (ns, brokenFormatter, PyServer._execCode)], before)


class LocalServerTest(unittest.TestCase):
    def test_evalExecAndExceptions(self):
        one, two = PyServer._LocalServer(), PyServer._LocalServer()
        self.assertEqual(one.doExec('x = [1]\nprint x'), '[1]\n')
        self.assertEqual(one.doEval('x'), '[1]')
        self.assertRaises(NameError, two.doEval, 'x')
        self.assertRaises(ZeroDivisionError, one.doExec, '1/0')


if __name__ == '__main__':
    unittest.main()
