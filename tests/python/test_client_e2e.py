"""zelagent reached through zelc by name, by socket and by TCP port; a
peer of another user is refused."""

import errno
import os
import shutil
import socket
import struct
import subprocess
import tempfile
import unittest

BIN = os.path.join(os.environ.get('ZEL_BUILD_DIR', ''), 'bin')


def zelc(env, *args):
    p = subprocess.Popen([os.path.join(BIN, 'zelc')] + list(args), env=env,
                         stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    out, err = p.communicate()
    return p.returncode, out, err


@unittest.skipUnless(os.path.exists(os.path.join(BIN, 'zelagent')), 'zelagent not built')
class AgentTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.mkdtemp()
        cls.env = dict(os.environ, ZELC_AGENTS_DIR=cls.dir)
        startup = os.path.join(cls.dir, 'startup.py')
        with open(startup, 'w') as f:
            f.write('import os\nprint "startup in", os.getpid()\n')
        cls.agent = subprocess.Popen(
            [os.path.join(BIN, 'zelagent'), 'demo.sw1', '--tcp', '0', '--startup', startup],
            env=cls.env, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        cls.banner = []
        while True:   # the agent says when it serves
            line = cls.agent.stdout.readline()
            if not line:
                raise AssertionError('zelagent ended: ' + cls.agent.stderr.read())
            cls.banner.append(line)
            if line.startswith('zelagent demo.sw1 ready'):
                break
        cls.agentFile = os.path.join(cls.dir, 'demo.sw1')
        with open(cls.agentFile) as f:
            pid, port, path = f.read().split('\n')[:3]
        cls.pid, cls.port, cls.socketPath = int(pid), int(port), path

    @classmethod
    def tearDownClass(cls):
        if cls.agent.poll() is None:
            cls.agent.terminate()
            cls.agent.wait()
        shutil.rmtree(cls.dir, ignore_errors=True)

    def test_agentFileAndStartup(self):
        self.assertEqual(self.pid, self.agent.pid)
        self.assertTrue(self.port > 0)
        self.assertEqual(os.stat(self.socketPath).st_mode & 0777, 0600)
        # The start-up file ran in the agent itself (same-process mode).
        self.assertIn('startup in %d\n' % self.agent.pid, self.banner)

    def test_evalAndExecuteThreeWays(self):
        for how in (['demo.sw1'], ['-s', self.socketPath], ['-p', str(self.port)]):
            self.assertEqual(zelc(self.env, *(how + ['6*7'])), (0, '42\n', ''))
            rc, out, err = zelc(self.env, *(['-x'] + how + ['print "hi"']))
            self.assertEqual((rc, out), (0, 'hi\n'))

    def test_demoSwitchChangedRemotelyReadsBack(self):
        # The agent publishes its switch under the global Dir; each zelc run
        # is a new connection, so every command finds it again.
        sw = ("__import__('_Zel').globalDir().attributeCollection("
              "__import__('_Zel').typeNode('Zel::Dir').attr('entity'), 'sw1')")
        vlan = "__import__('_Zel').typeNode('Demo::Switch').attr('vlan')"
        for key, how in enumerate((['demo.sw1'], ['-s', self.socketPath], ['-p', str(self.port)])):
            cmd = '%s.attributeCollectionIs(%s, %d, "via %s")' % (sw, vlan, key, how[0])
            self.assertEqual(zelc(self.env, *(['-x'] + how + [cmd]))[0], 0)
            read = '%s.attributeCollection(%s, %d)' % (sw, vlan, key)
            self.assertEqual(zelc(self.env, *(how + [read]))[1], "'via %s'\n" % how[0])

    def test_exceptionsAndAbsence(self):
        rc, out, err = zelc(self.env, 'demo.sw1', '1/0')
        self.assertEqual(rc, 1)
        self.assertIn('ZeroDivisionError', err)
        rc, out, err = zelc(self.env, 'demo.absent', '1')
        self.assertEqual(rc, 2)
        self.assertIn('Unable to connect to demo.absent', err)
        # The agent survived the exception.
        self.assertEqual(zelc(self.env, 'demo.sw1', '1')[0], 0)

    def test_interactiveKeepsOneNamespace(self):
        p = subprocess.Popen([os.path.join(BIN, 'zelc'), '-i', 'demo.sw1'], env=self.env,
                             stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err = p.communicate('x = 20\nx + 1\nundefined_name\n')
        self.assertEqual(p.returncode, 0)
        self.assertEqual(out, '21\n')
        self.assertIn('NameError', err)

    def test_badInputEndsOnlyThatConnection(self):
        s = socket.socket(socket.AF_UNIX)
        s.connect(self.socketPath)
        s.sendall('ZR' + '?1' + struct.pack('>I', 5000))   # over the limit
        s.recv(4)
        self.assertEqual(s.recv(10), '')   # closed
        s.close()
        s = socket.socket(socket.AF_UNIX)
        s.connect(self.socketPath)
        s.sendall('ZR?1' + struct.pack('>I', 10) + 'abc')   # vanish mid-command
        s.close()
        self.assertEqual(zelc(self.env, 'demo.sw1', '2+2')[:2], (0, '4\n'))

    @unittest.skipUnless(os.getuid() == 0, 'needs root to become another user')
    def test_otherUserIsRefused(self):
        r, w = os.pipe()
        child = os.fork()
        if child == 0:
            os.close(r)
            try:
                os.setuid(65534)
                s = socket.create_connection(('127.0.0.1', self.port))
                s.sendall('ZR?1' + struct.pack('>I', 3) + '1+1')
                got = s.recv(100)
                os.write(w, 'answered' if got else 'refused')
            except socket.error as e:
                # The server closes on a refused peer; with our request
                # still unread, the kernel turns that close into a reset.
                refused = e.errno in (errno.ECONNRESET, errno.EPIPE)
                os.write(w, 'refused' if refused else 'error %s' % e)
            except Exception as e:
                os.write(w, 'error %s' % e)
            os._exit(0)
        os.close(w)
        verdict = os.read(r, 100)
        os.close(r)
        os.waitpid(child, 0)
        self.assertEqual(verdict, 'refused')
        # The UNIX socket is owner-only: another user cannot even connect.
        child = os.fork()
        if child == 0:
            os.setuid(65534)
            try:
                socket.socket(socket.AF_UNIX).connect(self.socketPath)
                os._exit(1)
            except socket.error:
                os._exit(0)
        self.assertEqual(os.waitpid(child, 0)[1], 0)
        self.assertEqual(zelc(self.env, '-p', str(self.port), '3')[0], 0)


class StopTest(unittest.TestCase):
    @unittest.skipUnless(os.path.exists(os.path.join(BIN, 'zelagent')), 'zelagent not built')
    def test_termRemovesAgentFile(self):
        d = tempfile.mkdtemp()
        try:
            env = dict(os.environ, ZELC_AGENTS_DIR=os.path.join(d, 'created'))
            agent = subprocess.Popen([os.path.join(BIN, 'zelagent'), 'demo.stop'], env=env,
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            while not agent.stdout.readline().startswith('zelagent demo.stop ready'):
                self.assertIsNone(agent.poll())
            self.assertTrue(os.path.exists(os.path.join(d, 'created', 'demo.stop')))
            agent.terminate()
            self.assertEqual(agent.wait(), 0)
            self.assertEqual(os.listdir(os.path.join(d, 'created')), [])
        finally:
            shutil.rmtree(d, ignore_errors=True)


if __name__ == '__main__':
    unittest.main()
