"""zelagent end to end with zelc; the client's framing, retries and discovery are the native client tests'."""

import encodings.idna  # noqa: F401  (Python 3 resolves host names with it; a child that is nobody cannot load it)
import errno
import fcntl
import os
import select
import socket
import unittest

import children
from ZelCompat import toBytes
from ZelWire import GREETING_REPLY, HEADER, KIND_EVAL, frame, packLength, recvExactly, unpackLength


# The agent publishes its switch under the global Dir; each zelc run is a
# new connection, so every command finds it again.
VLAN = "__import__('Zel').root().entity['sw1'].vlan"


def asNobody(fn, wait=True):
    """The exit status of a child that runs fn() as another user (without `wait`, its pid)."""
    child = os.fork()
    if child == 0:
        try:
            os.setuid(65534)
            os._exit(fn())
        except BaseException:
            os._exit(99)
    if not wait:
        return child
    status = os.waitpid(child, 0)[1]
    return os.WEXITSTATUS(status) if os.WIFEXITED(status) else -status


def asksOverTcp(port):
    """0: the server closed on us without an answer; 1: it answered."""
    s = socket.create_connection(('127.0.0.1', port))
    s.settimeout(children.SECONDS)
    try:
        s.sendall(b'ZR' + frame(KIND_EVAL, '1+1'))
        return 1 if s.recv(100) else 0
    except socket.error as e:
        # With our request still unread, the kernel turns the server's
        # close into a reset.
        return 0 if e.errno in (errno.ECONNRESET, errno.EPIPE) else 98


def connectsToUnixSocket(path):
    try:
        socket.socket(socket.AF_UNIX).connect(path)
        return 1
    except socket.error:
        return 0


def plantedAgent(shared, report):
    """An agent file, UNIX socket and TCP listener named demo.planted in `shared`, as a live agent
    has them; writes to `report` the port, then per connection the count of bytes it received
    (a line each), and answers every request 'planted' until the client closes."""
    path = os.path.join(shared, 'demo.planted')
    unix, tcp = socket.socket(socket.AF_UNIX), socket.socket()
    unix.bind(path + '.sock')
    tcp.bind(('127.0.0.1', 0))
    for s in unix, tcp:
        s.listen(4)
    fd = os.open(path, os.O_WRONLY | os.O_CREAT, 0o644)
    fcntl.flock(fd, fcntl.LOCK_EX)
    os.write(fd, toBytes('%d\n%d\n%s\n' % (os.getpid(), tcp.getsockname()[1], path + '.sock')))
    os.write(report, toBytes('%d\n' % tcp.getsockname()[1]))   # ready
    while True:
        conn = select.select([unix, tcp], [], [])[0][0].accept()[0]
        got = conn.recv(2)
        if got:
            conn.sendall(GREETING_REPLY)
        more = got
        while more:
            more = conn.recv(1)
            if more:
                header = more + recvExactly(conn, HEADER - 1)
                got += header + recvExactly(conn, unpackLength(header[2:]))
                conn.sendall(packLength(11) + b"OK'planted'")
        os.write(report, toBytes('%d\n' % len(got)))
        conn.close()


class AgentTest(children.AgentCase):
    def test_one_agent_by_name_socket_and_port(self):   # its stop: test_zelc_operator
        startup = os.path.join(self.dir, 'startup.py')
        with open(startup, 'w') as f:
            f.write('import os\nprint("startup in %d" % os.getpid())\n')
        self.env['ZELC_AGENTS_DIR'] = created = os.path.join(self.dir, 'created')   # the agent makes the directory
        agent = self.start('demo.sw1', '--tcp', '0', '--startup', startup)
        # The start-up file ran in the agent itself (same-process mode).
        self.assertIn('startup in %d\n' % agent.pid, agent.banner)
        with open(os.path.join(created, 'demo.sw1')) as f:
            pid, port, path = f.read().split('\n')[:3]
        self.assertEqual((int(pid), os.stat(path).st_mode & 0o777), (agent.pid, 0o600))
        for key, how in enumerate((['demo.sw1'], ['-s', path], ['-p', port])):
            cmd = '%s[%d] = "via %s"\nprint("set")' % (VLAN, key, how[0])
            self.assertEqual(self.zelc(*(['-x'] + how + [cmd])), (0, 'set\n', ''))
            self.assertEqual(self.zelc(*(how + ['%s[%d]' % (VLAN, key)])), (0, "'via %s'\n" % how[0], ''))
        if os.getuid() == 0:   # root can become another user
            self.assertEqual(asNobody(lambda: asksOverTcp(int(port))), 0)
            # The UNIX socket is owner-only: another user cannot even connect.
            self.assertEqual(asNobody(lambda: connectsToUnixSocket(path)), 0)
            self.assertEqual(self.zelc('-p', port, '3'), (0, '3\n', ''))

    @unittest.skipUnless(os.getuid() == 0, 'only root can become another user')
    def test_agents_of_other_users_only_when_trusted(self):
        shared = os.path.join(self.dir, 'shared')
        os.mkdir(shared)
        os.chmod(self.dir, 0o755)
        os.chmod(shared, 0o1777)
        self.env['ZELC_AGENTS_DIR'] = shared
        r, w = os.pipe()
        child = asNobody(lambda: plantedAgent(shared, w), wait=False)
        os.close(w)
        report = os.fdopen(r)
        try:
            port = report.readline().strip()
            sock = os.path.join(shared, 'demo.planted.sock')
            # A file of root's naming nobody's socket: each is trusted, but they differ.
            with open(os.path.join(shared, 'demo.mixed'), 'w') as mixed:
                mixed.write('1\n0\n%s\n' % sock)
                mixed.flush()
                os.fchmod(mixed.fileno(), 0o644)   # whatever the umask
                fcntl.flock(mixed, fcntl.LOCK_EX)
                nobody = 'is served by uid 65534 (nobody), not'
                for how, message in ((['demo.planted'], 'Agent file %s/demo.planted is owned by uid 65534 (nobody), '
                                      'not a trusted user' % shared),
                                     (['-s', sock], 'Socket %s %s a trusted user' % (sock, nobody)),
                                     (['-p', port], 'Port %s on 127.0.0.1 %s a trusted user' % (port, nobody)),
                                     (['--trust-user', 'nobody', 'demo.mixed'],
                                      "Socket %s %s by the agent file's owner uid 0 (root)" % (sock, nobody))):
                    self.assertEqual(self.zelc(*(how + ['1'])), (2, '', 'zelc: %s\n' % message))
                    if how != ['demo.planted']:   # the server saw a connection, and not a byte
                        self.assertEqual(report.readline(), '0\n')
            # Trusted by option or by variable: the greeting, the request for the connection's token
            # (which Ctrl-C needs) and the command arrive.
            self.assertEqual(self.zelc('--trust-user', 'nobody', 'demo.planted', '1'), (0, "'planted'\n", ''))
            self.env['ZELC_TRUSTED_USERS'] = 'daemon,nobody'
            self.assertEqual(self.zelc('-p', port, '1'), (0, "'planted'\n", ''))
            self.assertEqual(report.readline() + report.readline(), '20\n20\n')
        finally:
            report.close()
            os.kill(child, 9)
            os.waitpid(child, 0)


if __name__ == '__main__':
    unittest.main()
