"""PyServer over raw sockets: the wire protocol, namespaces, and the
agent file; _LocalServer."""

import fcntl
import os
import shutil
import socket
import struct
import tempfile
import unittest

import PyServer


def request(s, kind, cmd):
    s.sendall(kind + struct.pack('>I', len(cmd)) + cmd)
    head = ''
    while len(head) < 6:
        head += s.recv(6 - len(head))
    (n,) = struct.unpack('>I', head[:4])
    body = ''
    while len(body) < n - 2:
        body += s.recv(n - 2 - len(body))
    return head[4:], body


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


class LocalServerTest(unittest.TestCase):
    def test_evalExecAndExceptions(self):
        one, two = PyServer._LocalServer(), PyServer._LocalServer()
        self.assertEqual(one.doExec('x = [1]\nprint x'), '[1]\n')
        self.assertEqual(one.doEval('x'), '[1]')
        self.assertRaises(NameError, two.doEval, 'x')
        self.assertRaises(ZeroDivisionError, one.doExec, '1/0')


if __name__ == '__main__':
    unittest.main()
