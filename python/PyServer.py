"""Python command server of an agent process.

PyServer.PyServer listens on a UNIX-domain socket (owner-only) and, when
asked, on a TCP port of 127.0.0.1, and runs the Python commands that
Zel::PyClient sends: "?1" evaluates an expression and answers its repr(),
"?2" executes statements and answers what they printed. It announces
itself with an agent file "pid\\nport\\nsocket path\\n" in the agents
directory, which it keeps flocked while it lives.

PyServer._LocalServer runs the same commands in the calling process; the
client uses it when the agent is the client's own process.

One thread serves every connection with a select loop: each connection
has its own namespace, input buffer and output buffer; commands run one
at a time on that thread.
"""

import cStringIO
import errno
import fcntl
import os
import select
import socket
import struct
import sys
import threading
import traceback

__all__ = ['PyServer', '_LocalServer', 'agentsDir']

KIND_EVAL = '?1'
KIND_EXEC = '?2'
MAX_FRAME = 4095            # kind + length + command
MAX_COMMAND = MAX_FRAME - 6
GREETING_REPLY = 'ZPS1'     # four bytes; clients do not interpret them
SO_PEERCRED = getattr(socket, 'SO_PEERCRED', 17)

# Commands that print are captured by swapping sys.stdout: one at a time
# per process.
_stdoutLock = threading.RLock()


def agentsDir():
    return os.environ.get('ZELC_AGENTS_DIR', '/var/run/agents')


def _tracing():
    return 'PyServer' in os.environ.get('ZELTRACE', '')


def _trace(text):
    if _tracing():
        _notice(text)


def _notice(text):
    try:
        sys.stderr.write('PyServer[%d]: %s\n' % (os.getpid(), text))
        sys.stderr.flush()
    except Exception:
        pass


def _evalIn(namespace, cmd):
    return repr(eval(compile(cmd, '<PyServer>', 'eval'), namespace))


def _execIn(namespace, cmd):
    code = compile(cmd, '<PyServer>', 'exec')
    out = cStringIO.StringIO()
    with _stdoutLock:
        saved = sys.stdout
        sys.stdout = out
        try:
            exec code in namespace
        finally:
            sys.stdout = saved
    return out.getvalue()


class _LocalServer(object):
    """Runs commands in this process, in one namespace of its own."""

    def __init__(self):
        self.namespace = {'__name__': '__pyserver__'}

    def doEval(self, cmd):
        return _evalIn(self.namespace, cmd)

    def doExec(self, cmd):
        return _execIn(self.namespace, cmd)


def _peerUidTcp(peer, local):
    """Owner uid of the socket at `peer` connected to `local`, from
    /proc/net/tcp; None when it is not listed."""
    def hexAddr(addr):
        ip, port = addr
        packed = socket.inet_aton(ip)
        # The kernel prints the address as a native-endian 32-bit word.
        return '%08X:%04X' % (struct.unpack('=I', packed)[0], port)
    want = (hexAddr(peer), hexAddr(local))
    try:
        with open('/proc/net/tcp') as f:
            lines = f.readlines()[1:]
    except IOError:
        return None
    for line in lines:
        fields = line.split()
        if len(fields) > 7 and (fields[1], fields[2]) == want:
            return int(fields[7])
    return None


class _Connection(object):
    def __init__(self, sock, namespace, peerName):
        self.sock = sock
        self.namespace = namespace
        self.peerName = peerName
        self.inbuf = ''
        self.outbuf = ''
        self.greeted = False
        self.closing = False    # close once outbuf is sent


class PyServer(object):
    """Serves Zel::PyClient commands until stop().

    name: the agent file name, "<prefix>.<agent>" (such as "demo.sw1").
    tcpPort: None for UNIX-domain only; 0 for any free port; else the port.
    namespace: dict copied into each connection's namespace.
    socketPath: defaults to <agents dir>/<name>.sock.
    """

    def __init__(self, name, tcpPort=None, namespace=None, socketPath=None, directory=None):
        self.name = name
        self.directory = directory or agentsDir()
        self.agentFile = os.path.join(self.directory, name)
        self.socketPath = socketPath or os.path.join(self.directory, name + '.sock')
        self.requestedTcpPort = tcpPort
        self.tcpPort = 0
        self.seed = dict(namespace or {})
        self.refused = 0
        self._unix = None
        self._tcp = None
        self._agentFd = None
        self._wakeR = self._wakeW = None
        self._thread = None
        self._conns = {}

    # ---- life cycle -------------------------------------------------
    def start(self):
        if not os.path.isdir(self.directory):
            try:
                os.makedirs(self.directory, 0755)
            except OSError as e:
                if e.errno != errno.EEXIST:
                    raise
        try:
            self._listen()
            self._announce()
        except Exception:
            self._closeListeners()
            raise
        self._wakeR, self._wakeW = os.pipe()
        self._thread = threading.Thread(target=self._serve, name='PyServer ' + self.name)
        self._thread.daemon = True
        self._thread.start()
        _trace('serving %s on %s, tcp port %d' % (self.name, self.socketPath, self.tcpPort))
        return self

    def stop(self):
        if self._thread is None:
            return
        os.write(self._wakeW, 'x')
        self._thread.join()
        self._thread = None
        for fd in (self._wakeR, self._wakeW):
            os.close(fd)
        self._wakeR = self._wakeW = None
        self._closeListeners()
        self._withdraw()
        _trace('stopped %s' % self.name)

    def _listen(self):
        if os.path.exists(self.socketPath):
            os.unlink(self.socketPath)    # left by an agent that died
        s = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        old = os.umask(0177)
        try:
            s.bind(self.socketPath)
        finally:
            os.umask(old)
        os.chmod(self.socketPath, 0600)
        s.listen(16)
        s.setblocking(False)
        self._unix = s
        if self.requestedTcpPort is not None:
            t = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
            t.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            t.bind(('127.0.0.1', self.requestedTcpPort))
            t.listen(16)
            t.setblocking(False)
            self._tcp = t
            self.tcpPort = t.getsockname()[1]

    def _closeListeners(self):
        for c in list(self._conns.values()):
            self._drop(c)
        if self._unix is not None:
            self._unix.close()
            self._unix = None
            try:
                os.unlink(self.socketPath)
            except OSError:
                pass
        if self._tcp is not None:
            self._tcp.close()
            self._tcp = None

    def _announce(self):
        dirFd = os.open(self.directory, os.O_RDONLY)
        try:
            fcntl.flock(dirFd, fcntl.LOCK_EX)
            fd = os.open(self.agentFile, os.O_WRONLY | os.O_CREAT, 0644)
            try:
                fcntl.flock(fd, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except IOError:
                os.close(fd)
                raise RuntimeError('agent %s is already running' % self.name)
            os.ftruncate(fd, 0)
            os.write(fd, '%d\n%d\n%s\n' % (os.getpid(), self.tcpPort, self.socketPath))
            self._agentFd = fd   # the lock lives as long as this descriptor
        finally:
            os.close(dirFd)

    def _withdraw(self):
        if self._agentFd is None:
            return
        dirFd = os.open(self.directory, os.O_RDONLY)
        try:
            fcntl.flock(dirFd, fcntl.LOCK_EX)
            try:
                os.unlink(self.agentFile)
            except OSError:
                pass
            os.close(self._agentFd)
            self._agentFd = None
        finally:
            os.close(dirFd)

    # ---- the loop ---------------------------------------------------
    def _serve(self):
        while True:
            listeners = [s for s in (self._unix, self._tcp) if s is not None]
            readers = [self._wakeR] + listeners + [c.sock for c in self._conns.values()]
            writers = [c.sock for c in self._conns.values() if c.outbuf]
            try:
                r, w, _ = select.select(readers, writers, [])
            except select.error as e:
                if e.args[0] == errno.EINTR:
                    continue
                raise
            if self._wakeR in r:
                return
            for s in w:
                c = self._conns.get(s)
                if c is not None:
                    self._flush(c)
            for s in r:
                if s in listeners:
                    self._accept(s)
                else:
                    c = self._conns.get(s)
                    if c is not None:
                        self._receive(c)

    def _accept(self, listener):
        try:
            sock, addr = listener.accept()
        except socket.error:
            return
        if listener is self._unix:
            creds = sock.getsockopt(socket.SOL_SOCKET, SO_PEERCRED, struct.calcsize('3i'))
            pid, uid, gid = struct.unpack('3i', creds)
            peerName = 'pid %d uid %d' % (pid, uid)
        else:
            uid = _peerUidTcp(addr, sock.getsockname())
            peerName = '%s:%d uid %s' % (addr[0], addr[1], uid)
        if uid is None or (uid != os.getuid() and uid != 0):
            self.refused += 1
            _notice('refused connection from %s' % peerName)
            sock.close()
            return
        sock.setblocking(False)
        c = _Connection(sock, dict(self.seed), peerName)
        self._conns[sock] = c
        _trace('accepted %s' % peerName)

    def _drop(self, c):
        self._conns.pop(c.sock, None)
        try:
            c.sock.close()
        except socket.error:
            pass
        _trace('closed %s' % c.peerName)

    def _receive(self, c):
        try:
            data = c.sock.recv(65536)
        except socket.error as e:
            if e.args[0] in (errno.EAGAIN, errno.EINTR):
                return
            data = ''
        if not data:
            self._drop(c)     # the peer went, perhaps in mid-command
            return
        if c.closing:
            return
        c.inbuf += data
        self._process(c)
        self._flush(c)

    def _process(self, c):
        while True:
            if not c.greeted:
                if len(c.inbuf) < 2:
                    return
                c.inbuf = c.inbuf[2:]
                c.greeted = True
                c.outbuf += GREETING_REPLY
                continue
            if len(c.inbuf) < 6:
                return
            kind = c.inbuf[:2]
            (n,) = struct.unpack('>I', c.inbuf[2:6])
            if kind not in (KIND_EVAL, KIND_EXEC) or n > MAX_COMMAND:
                _notice('bad request from %s (kind %r, length %d)' % (c.peerName, kind, n))
                c.inbuf = ''
                c.closing = True
                return
            if len(c.inbuf) < 6 + n:
                return
            cmd = c.inbuf[6:6 + n]
            c.inbuf = c.inbuf[6 + n:]
            c.outbuf += self._run(c, kind, cmd)

    def _run(self, c, kind, cmd):
        try:
            if kind == KIND_EVAL:
                result = _evalIn(c.namespace, cmd)
            else:
                result = _execIn(c.namespace, cmd)
            status = 'OK'
        except BaseException:
            # Whatever the command does, the server goes on. The traceback
            # starts at the command, not in the server.
            etype, value, tb = sys.exc_info()
            while tb is not None and tb.tb_frame.f_code.co_filename == _evalIn.__code__.co_filename:
                tb = tb.tb_next
            result = ''.join(traceback.format_exception(etype, value, tb))
            del tb
            status = 'EX'
        if isinstance(result, unicode):
            result = result.encode('utf-8', 'replace')
        return struct.pack('>I', len(result) + 2) + status + result

    def _flush(self, c):
        while c.outbuf:
            try:
                sent = c.sock.send(c.outbuf)
            except socket.error as e:
                if e.args[0] in (errno.EAGAIN, errno.EINTR):
                    return
                self._drop(c)
                return
            c.outbuf = c.outbuf[sent:]
        if c.closing:
            self._drop(c)


def main(argv):
    """PyServer.py NAME [--tcp PORT]: serve until SIGINT or SIGTERM."""
    import signal
    name = argv[1]
    port = None
    if len(argv) > 3 and argv[2] == '--tcp':
        port = int(argv[3])
    server = PyServer(name, tcpPort=port).start()
    sys.stdout.write('%s %d %s\n' % (server.agentFile, server.tcpPort, server.socketPath))
    sys.stdout.flush()
    stopped = threading.Event()
    signal.signal(signal.SIGTERM, lambda *a: stopped.set())
    signal.signal(signal.SIGINT, lambda *a: stopped.set())
    while not stopped.is_set():
        stopped.wait(0.5)
    server.stop()
    return 0


if __name__ == '__main__':
    sys.exit(main(sys.argv))
