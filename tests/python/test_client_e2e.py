"""zelagent reached through zelc by name, by socket and by TCP port; a
peer of another user is refused; SIGTERM withdraws the agent file."""

import errno
import os
import shutil
import socket
import subprocess
import tempfile
import unittest

import children
from ZelWire import KIND_EVAL, frame

BIN = os.path.join(os.environ.get('ZEL_BUILD_DIR', ''), 'bin')
BUILT = os.path.exists(os.path.join(BIN, 'zelagent'))


def startAgent(name, env, *args):
    """A zelagent serving `name`, and the lines it printed until it said so."""
    agent = subprocess.Popen([os.path.join(BIN, 'zelagent'), name] + list(args), env=env,
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    banner = []
    with children.watched(agent, 'zelagent %s, starting' % name):
        while not banner or not banner[-1].startswith('zelagent %s ready' % name):
            banner.append(agent.stdout.readline())
            if not banner[-1]:
                raise AssertionError('zelagent ended: ' + agent.stderr.read())
    return agent, banner


def stopAgent(agent, name):
    with children.watched(agent, 'zelagent %s, stopping' % name):
        if agent.poll() is None:
            agent.terminate()
        return agent.wait()


@unittest.skipUnless(BUILT, 'zelagent not built')
class AgentTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.mkdtemp()
        cls.env = dict(os.environ, ZELC_AGENTS_DIR=cls.dir)
        startup = os.path.join(cls.dir, 'startup.py')
        with open(startup, 'w') as f:
            f.write('import os\nprint "startup in", os.getpid()\n')
        cls.agent, cls.banner = startAgent('demo.sw1', cls.env, '--tcp', '0', '--startup', startup)
        with open(os.path.join(cls.dir, 'demo.sw1')) as f:
            pid, port, path = f.read().split('\n')[:3]
        cls.pid, cls.port, cls.socketPath = int(pid), int(port), path
        cls.ways = (['demo.sw1'], ['-s', cls.socketPath], ['-p', port])

    @classmethod
    def tearDownClass(cls):
        stopAgent(cls.agent, 'demo.sw1')
        shutil.rmtree(cls.dir, ignore_errors=True)

    def zelc(self, *args, **kw):
        return children.run('zelc %s' % ' '.join(args), [os.path.join(BIN, 'zelc')] + list(args), env=self.env, **kw)

    def test_agentFileAndStartup(self):
        self.assertEqual(self.pid, self.agent.pid)
        self.assertTrue(self.port > 0)
        self.assertEqual(os.stat(self.socketPath).st_mode & 0777, 0600)
        # The start-up file ran in the agent itself (same-process mode).
        self.assertIn('startup in %d\n' % self.agent.pid, self.banner)

    def test_evalExecuteAndChangeTheSwitchThreeWays(self):
        # The agent publishes its switch under the global Dir; each zelc run
        # is a new connection, so every command finds it again.
        sw = ("__import__('_Zel').globalDir().attributeCollection("
              "__import__('_Zel').typeNode('Zel::Dir').attr('entity'), 'sw1')")
        vlan = "__import__('_Zel').typeNode('Demo::Switch').attr('vlan')"
        for key, how in enumerate(self.ways):
            self.assertEqual(self.zelc(*(how + ['6*7'])), (0, '42\n', ''))
            self.assertEqual(self.zelc(*(['-x'] + how + ['print "hi"']))[:2], (0, 'hi\n'))
            cmd = '%s.attributeCollectionIs(%s, %d, "via %s")' % (sw, vlan, key, how[0])
            self.assertEqual(self.zelc(*(['-x'] + how + [cmd]))[0], 0)
            read = '%s.attributeCollection(%s, %d)' % (sw, vlan, key)
            self.assertEqual(self.zelc(*(how + [read]))[1], "'via %s'\n" % how[0])

    def test_exceptionsAbsenceAndInteractive(self):
        rc, out, err = self.zelc('demo.sw1', '1/0')
        self.assertEqual(rc, 1)
        self.assertIn('ZeroDivisionError', err)
        rc, out, err = self.zelc('demo.absent', '1')
        self.assertEqual(rc, 2)
        self.assertIn('Unable to connect to demo.absent', err)
        # One namespace for the session; the agent survived the exception.
        rc, out, err = self.zelc('-i', 'demo.sw1', input='x = 20\nx + 1\nundefined_name\n')
        self.assertEqual((rc, out), (0, '21\n'))
        self.assertIn('NameError', err)

    @unittest.skipUnless(os.getuid() == 0, 'needs root to become another user')
    def test_otherUserIsRefused(self):
        r, w = os.pipe()
        child = os.fork()
        if child == 0:
            os.close(r)
            try:
                os.setuid(65534)
                s = socket.create_connection(('127.0.0.1', self.port))
                s.settimeout(children.SECONDS)
                s.sendall('ZR' + frame(KIND_EVAL, '1+1'))
                os.write(w, 'answered' if s.recv(100) else 'refused')
            except socket.error as e:
                # The server closes on a refused peer; with our request
                # still unread, the kernel turns that close into a reset.
                os.write(w, 'refused' if e.errno in (errno.ECONNRESET, errno.EPIPE) else 'error %s' % e)
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
        self.assertEqual(self.zelc('-p', str(self.port), '3')[0], 0)


@unittest.skipUnless(BUILT, 'zelagent not built')
class StopTest(unittest.TestCase):
    def test_termRemovesAgentFile(self):
        d = tempfile.mkdtemp()
        try:
            env = dict(os.environ, ZELC_AGENTS_DIR=os.path.join(d, 'created'))
            agent, _ = startAgent('demo.stop', env)
            self.assertTrue(os.path.exists(os.path.join(d, 'created', 'demo.stop')))
            self.assertEqual(stopAgent(agent, 'demo.stop'), 0)
            self.assertEqual(os.listdir(os.path.join(d, 'created')), [])
        finally:
            shutil.rmtree(d, ignore_errors=True)


if __name__ == '__main__':
    unittest.main()
