"""PyServer over raw sockets: the wire protocol, namespaces, and the
agent file; the native serving loop at the edges of its framing, with
many and misbehaving peers, and while the server stops; _LocalServer."""

import fcntl
import os
import shutil
import socket
import struct
import sys
import tempfile
import threading
import time
import unittest

import PyServer
import _ZelServer
from wire import frame, recvExactly, request, response


class ServerTest(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp()
        self.server = PyServer.PyServer('t.srv', tcpPort=0, namespace={'seed': 10},
                                        directory=self.dir).start()

    def tearDown(self):
        self.server.stop()
        shutil.rmtree(self.dir, ignore_errors=True)

    def connect(self, tcp=False):
        if tcp:
            s = socket.create_connection(('127.0.0.1', self.server.tcpPort))
        else:
            s = socket.socket(socket.AF_UNIX)
            s.connect(self.server.socketPath)
        s.sendall('CR')
        self.assertEqual(len(s.recv(4)), 4)
        return s

    def test_protocolAndNamespaces(self):
        a, b = self.connect(), self.connect(tcp=True)
        self.assertEqual(request(a, '?1', 'seed + 1'), ('OK', '11'))
        self.assertEqual(request(a, '?2', 'v = "a"\nprint v'), ('OK', 'a\n'))
        self.assertEqual(request(a, '?2', 'v = 1'), ('OK', ''))
        status, text = request(b, '?1', 'v')   # b has its own namespace
        self.assertEqual(status, 'EX')
        self.assertTrue(text.startswith('Traceback'))
        self.assertIn("NameError: name 'v' is not defined", text)
        self.assertNotIn('PyServer.py', text)
        self.assertEqual(request(b, '?1', 'seed'), ('OK', '10'))
        self.assertEqual(request(a, '?2', 'raise SystemExit(3)')[0], 'EX')
        self.assertEqual(request(a, '?1', 'v'), ('OK', '1'))

    def test_agentFileHeldAndRemoved(self):
        with open(self.server.agentFile) as f:
            self.assertEqual(f.read(), '%d\n%d\n%s\n' % (os.getpid(), self.server.tcpPort,
                                                         self.server.socketPath))
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

    def test_badKindClosesOnlyThatConnection(self):
        bad, good = self.connect(), self.connect()
        bad.sendall('?9' + struct.pack('>I', 1) + 'x')
        self.assertEqual(bad.recv(10), '')
        self.assertEqual(request(good, '?1', '1'), ('OK', '1'))


    def test_framingEdges(self):
        s = self.connect()
        for byte in frame('?1', '6*7'):   # a request in pieces
            s.sendall(byte)
            time.sleep(0.001)
        self.assertEqual(response(s), ('OK', '42'))
        s.sendall(frame('?2', 'n = 5') + frame('?1', 'n') + frame('?1', ''))   # several in one send
        replies = [response(s) for _ in range(3)]
        self.assertEqual(replies[:2], [('OK', ''), ('OK', '5')])
        self.assertEqual(replies[2][0], 'EX')
        longest = "'" + 'a' * 4087 + "'"   # the largest command: a 4095-byte frame
        self.assertEqual(request(s, '?1', longest), ('OK', longest))
        status, text = request(s, '?1', '1\0+1')   # a null byte: refused as compile() does
        self.assertIn('TypeError', text)
        for kind, n in (('?1', 4090), ('?3', 0), ('\0\0', 0)):
            bad = self.connect()
            bad.sendall(kind + struct.pack('>I', n))
            self.assertEqual(bad.recv(10), '')
        for cut in ('C', '?1\0\0', '?1\0\0\0\x09?1'):   # peers that vanish mid-frame
            c = socket.socket(socket.AF_UNIX)
            c.connect(self.server.socketPath)
            c.sendall(cut if cut == 'C' else 'CR' + cut)
            c.close()
        self.assertEqual(request(s, '?1', 'n'), ('OK', '5'))

    def test_resultsAroundFrameSizes(self):
        s = self.connect(tcp=True)
        for size in (0, 4089, 4090, 65535, 65536, 3 * 1024 * 1024):
            self.assertEqual(request(s, '?2', 'import sys; sys.stdout.write("x" * %d)' % size),
                             ('OK', 'x' * size))
        status, text = request(s, '?1', '"y" * 200000')
        self.assertEqual((status, len(text)), ('OK', 200002))

    def test_failingCommandsAnswerEX(self):
        s = self.connect()
        for kind, cmd, error in (('?1', '1/0', 'ZeroDivisionError'),
                                 ('?2', 'def f():\n    raise KeyError(7)\nf()', 'KeyError: 7'),
                                 ('?2', 'raise SystemExit(2)', 'SystemExit: 2'),
                                 ('?2', 'raise KeyboardInterrupt', 'KeyboardInterrupt'),
                                 ('?1', '1 +', 'SyntaxError'),
                                 ('?1', 'print 1', 'SyntaxError'),
                                 ('?1', '', 'SyntaxError')):
            status, text = request(s, kind, cmd)
            self.assertEqual(status, 'EX', cmd)
            self.assertIn(error, text)
            self.assertNotIn('PyServer.py', text)
            if 'SyntaxError' not in error:
                self.assertTrue(text.startswith('Traceback (most recent call last):\n  File "<PyServer>", line '), text)
        # A namespace that lost its builtins gets them back, as eval() does.
        self.assertEqual(request(s, '?2', 'del __builtins__'), ('OK', ''))
        self.assertEqual(request(s, '?1', 'len("ab")'), ('OK', '2'))

    def test_repeatedCommandsKeepNamespaceSemantics(self):
        a, b = self.connect(), self.connect()
        bump = 'count = globals().get("count", 0) + 1\nprint count'
        self.assertEqual([request(a, '?2', bump)[1] for _ in range(3)], ['1\n', '2\n', '3\n'])
        self.assertEqual(request(b, '?2', bump), ('OK', '1\n'))
        for i in range(300):   # past the compiled code bound, then a first command again
            self.assertEqual(request(a, '?1', '%d + count' % i), ('OK', str(i + 3)))
        self.assertEqual(request(a, '?1', '0 + count'), ('OK', '3'))

    def test_manyConnectionsAndASlowPeer(self):
        slow = self.connect()
        slow.sendall('?1\0\0\0\x05"a')   # and never the rest
        busy = self.connect()
        busy.sendall(frame('?2', 'import time; time.sleep(0.5)'))
        results = []

        def client(i):
            c = self.connect(tcp=i % 2 == 1)
            results.append([request(c, '?1', 'seed + %d' % j) for j in (i, i + 1)])
            c.close()
        threads = [threading.Thread(target=client, args=(i,)) for i in range(40)]
        for t in threads:
            t.start()
        for t in threads:
            t.join()
        self.assertEqual(sorted(results), sorted([[('OK', str(10 + i)), ('OK', str(11 + i))]
                                                  for i in range(40)]))
        self.assertEqual(response(busy), ('OK', ''))

    def test_stopEndsConnectedClients(self):
        idle, midFrame, busy = self.connect(), self.connect(tcp=True), self.connect()
        midFrame.sendall('?1\0\0')
        busy.sendall(frame('?2', 'import time; time.sleep(0.2)'))
        time.sleep(0.05)
        self.server.stop()
        self.assertEqual(idle.recv(10), '')
        self.assertEqual(midFrame.recv(10), '')
        self.assertFalse(os.path.exists(self.server.agentFile))
        self.assertEqual([t for t in threading.enumerate() if t.name.startswith('PyServer')], [])


class NativeServeTest(unittest.TestCase):
    """_ZelServer.serve on one end of a socket pair."""

    def serve(self, *args):
        ours, theirs = socket.socketpair()
        out = []
        t = threading.Thread(target=lambda: out.append(
            _ZelServer.serve(theirs.fileno(), {}, PyServer._execCode, PyServer._formatError)))
        t.start()
        return ours, theirs, t, out

    def test_returnsWhyTheConnectionEnded(self):
        for sent, ended in (('CR' + frame('?1', '1'), None),
                            ('CR?x\0\0\0\0', "kind '?x', length 0"),
                            ('CR?1\x7f\xff\xff\xff', "kind '?1', length 2147483647")):
            ours, theirs, t, out = self.serve()
            ours.sendall(sent)
            ours.shutdown(socket.SHUT_WR)
            t.join()
            self.assertEqual(out, [ended])
            theirs.close()

    def test_refusesBadArguments(self):
        for args in (('x', {}, len, len), (0, [], len, len), (0, {}, None, len), (-1, {}, len, len)):
            self.assertRaises(TypeError, _ZelServer.serve, *args)

    def test_failingFormatterStillAnswers(self):
        ours, theirs = socket.socketpair()

        def brokenFormatter(*exc):
            raise RuntimeError('formatter broken')
        ns = {}
        before = [sys.getrefcount(o) for o in (ns, brokenFormatter, PyServer._execCode)]
        t = threading.Thread(target=_ZelServer.serve,
                             args=(theirs.fileno(), ns, PyServer._execCode, brokenFormatter))
        t.start()
        ours.sendall('CR')
        recvExactly(ours, 4)
        self.assertEqual(request(ours, '?1', '1/0'),
                         ('EX', 'ZeroDivisionError (its traceback could not be formatted)\n'))
        self.assertEqual(request(ours, '?1', '2'), ('OK', '2'))
        self.assertEqual(request(ours, '?2', 'print 3'), ('OK', '3\n'))
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
