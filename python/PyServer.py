"""Python command server of an agent process.

PyServer.PyServer listens on a UNIX-domain socket (owner-only) and, when
asked, on a TCP port of 127.0.0.1, and runs the Python commands that
Zel::PyClient sends: "?1" evaluates an expression and answers its repr(),
"?2" executes statements and answers what they printed ("?6" streams an
entity's changes, "?7" answers every thread's stack). It announces
itself with an agent file "pid\\nport\\nsocket path\\n" in the agents
directory, which it keeps flocked while it lives.

PyServer._LocalServer runs the same commands in the calling process; the
client uses it when the agent is the client's own process.

One thread accepts connections; each connection then has a thread of its
own, which serves it natively (_ZelServer.serve: the framing, the wait
on the socket without the interpreter lock, compiled code kept per
command text) and runs its commands in the connection's namespace.
"""

import errno
import fcntl
import os
import select
import socket
import struct
import sys
import threading
import time
import traceback

# The protocol's constants, also read from this module; the native serving
# loop does the framing.
from ZelWire import GREETING_REPLY, KIND_EVAL, KIND_EXEC, MAX_COMMAND, MAX_FRAME  # noqa: F401
# A watch request ("?6") streams an entity's changes, a stacks request
# ("?7") answers every thread's stack.
import ZelStacks
import ZelWatch
# Each connection's console (zelc -i) is one of these.
from ZelConsole import Console
from ZelCompat import TextIO, formatLock, toBytes

__all__ = ['PyServer', '_LocalServer', 'agentsDir']

SO_PEERCRED = getattr(socket, 'SO_PEERCRED', 17)

# How long a stop on a signal waits for interrupted commands to end.
STOP_SECONDS = 1.0

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
    return _execCode(namespace, compile(cmd, '<PyServer>', 'exec'))


def _execCode(namespace, code):
    """Runs `code` in `namespace`; returns what it printed."""
    out = TextIO()
    with _stdoutLock:
        saved = sys.stdout
        sys.stdout = out
        try:
            _runCode(code, namespace)
        finally:
            sys.stdout = saved
    return out.getvalue()


def _runCode(code, namespace):
    """exec, but when serving, as the command's own code: where an interruption of its connection (zelc's
    Ctrl-C, stop()) reaches it, and nowhere in the server's lock or stdout swap."""
    run = getattr(sys.modules.get('_ZelServer'), 'runInterruptibly', None)
    if run is None:
        exec(code, namespace)
    else:
        run(code, namespace)


def _formatError(etype, value, tb):
    """The traceback of a failed command, starting at the command rather
    than in this module."""
    while tb is not None and tb.tb_frame.f_code.co_filename == _execCode.__code__.co_filename:
        tb = tb.tb_next
    with formatLock:   # one at a time, with the console's and the stacks' (see ZelCompat)
        return ''.join(traceback.format_exception(etype, value, tb))


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
        self.thread = None


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
        # Connections by socket. The lock orders adding a connection,
        # closing one, and stop() shutting them all down.
        self._conns = {}
        self._connsLock = threading.Lock()
        self._nativeServe = None
        self._nativeInterrupt = None

    # ---- life cycle -------------------------------------------------
    def start(self):
        # Imported here: _LocalServer's users need not have it built.
        import _ZelServer
        self._nativeServe = _ZelServer.serve
        self._nativeInterrupt = _ZelServer.interrupt
        # A sleeping command wakes to an interruption at once: Python 3's own
        # time.sleep sleeps on through the wake-up signal on any thread but
        # the main one. Elsewhere it is the time.sleep it stands in for.
        time.sleep = _ZelServer.sleep
        if not os.path.isdir(self.directory):
            try:
                os.makedirs(self.directory, 0o755)
            except OSError as e:
                if e.errno != errno.EEXIST:
                    raise
        self._announce()
        self._wakeR, self._wakeW = os.pipe()
        self._thread = threading.Thread(target=self._acceptLoop, name='PyServer ' + self.name)
        self._thread.daemon = True
        self._thread.start()
        _trace('serving %s on %s, tcp port %d' % (self.name, self.socketPath, self.tcpPort))
        return self

    def stop(self, timeout=None):
        """Stops accepting, ends every connection and withdraws the agent
        file. Without a timeout a command running on a connection finishes
        first. With one (seconds), running commands are interrupted (a
        KeyboardInterrupt in their threads) and the connections' threads
        are waited for that long at most; True when all of them ended,
        False when some still run (a command blocked in a call), left as
        daemon threads."""
        if self._thread is None:
            return True
        deadline = None if timeout is None else time.time() + timeout
        os.write(self._wakeW, b'x')
        self._thread.join()    # no connection is added after this
        self._thread = None
        with self._connsLock:
            conns = list(self._conns.values())
            for c in conns:
                # Wakes the connection's thread wherever it waits on the
                # socket; the thread closes it. Shut before the interruption,
                # so that an interrupted command's reply never goes out: its
                # client cannot tell it from one lost with the agent.
                try:
                    c.sock.shutdown(socket.SHUT_RDWR)
                except socket.error:
                    pass
                if deadline is not None:
                    self._nativeInterrupt(c.sock.fileno())
        for c in conns:
            c.thread.join(None if deadline is None else max(0.0, deadline - time.time()))
        for fd in (self._wakeR, self._wakeW):
            os.close(fd)
        self._wakeR = self._wakeW = None
        self._closeListeners()
        self._withdraw()
        running = [c.peerName for c in conns if c.thread.is_alive()]
        if running:
            _notice('stopped %s with commands still running for %s' % (self.name, ', '.join(running)))
        else:
            _trace('stopped %s' % self.name)
        return not running

    def _listen(self):
        if os.path.lexists(self.socketPath):
            os.unlink(self.socketPath)    # left by an agent that died
        s = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        old = os.umask(0o177)
        try:
            s.bind(self.socketPath)
        finally:
            os.umask(old)
        os.chmod(self.socketPath, 0o600)
        s.listen(64)
        s.setblocking(False)
        self._unix = s
        if self.requestedTcpPort is not None:
            t = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
            t.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            t.bind(('127.0.0.1', self.requestedTcpPort))
            t.listen(64)
            t.setblocking(False)
            self._tcp = t
            self.tcpPort = t.getsockname()[1]

    def _closeListeners(self):
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
        """Takes the name and listens, under the directory's lock, so that
        clients never see a file half-made: a fresh agent file,
        owner-writable only and locked for the agent's life, then the
        sockets (the name first: until the file is ours, its socket may be
        a live agent's), then the file's contents. A file of that name
        that nobody holds (left by an agent that died, or put there by
        anyone) is replaced, never reused; one that is held means the
        agent runs."""
        dirFd = os.open(self.directory, os.O_RDONLY)
        try:
            fcntl.flock(dirFd, fcntl.LOCK_EX)
            self._replaceStale()
            fd = os.open(self.agentFile, os.O_WRONLY | os.O_CREAT | os.O_EXCL | getattr(os, 'O_NOFOLLOW', 0), 0o644)
            try:
                os.fchmod(fd, 0o644)    # whatever the umask or the directory's default access lists
                fcntl.flock(fd, fcntl.LOCK_EX | fcntl.LOCK_NB)
                self._listen()
                os.write(fd, toBytes('%d\n%d\n%s\n' % (os.getpid(), self.tcpPort, self.socketPath)))
            except Exception:
                self._closeListeners()
                os.unlink(self.agentFile)
                os.close(fd)
                raise
            self._agentFd = fd   # the lock lives as long as this descriptor
        finally:
            os.close(dirFd)

    def _replaceStale(self):
        """Removes what is at the agent file's path unless a live agent holds
        it; called under the directory's lock."""
        try:
            fd = os.open(self.agentFile, os.O_RDONLY | os.O_NONBLOCK | getattr(os, 'O_NOFOLLOW', 0))
        except OSError as e:
            if e.errno == errno.ENOENT:
                return
            fd = None    # a link or something unreadable: not an agent's file
        if fd is not None:
            try:
                fcntl.flock(fd, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except (IOError, OSError):
                raise RuntimeError('agent %s is already running' % self.name)
            finally:
                os.close(fd)
        _trace('replacing the stale agent file %s' % self.agentFile)
        os.unlink(self.agentFile)

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

    # ---- accepting ---------------------------------------------------
    def _acceptLoop(self):
        listeners = [s for s in (self._unix, self._tcp) if s is not None]
        while True:
            try:
                r, _, _ = select.select([self._wakeR] + listeners, [], [])
            except select.error as e:
                if e.args[0] == errno.EINTR:
                    continue
                raise
            if self._wakeR in r:
                return
            for s in r:
                self._accept(s)

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
        sock.setblocking(True)    # the connection's thread waits in recv
        if listener is self._tcp:
            # A reply goes in one send; never hold its last segment back
            # waiting for the peer's acknowledgement.
            sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        c = _Connection(sock, dict(self.seed), peerName)
        c.thread = threading.Thread(target=self._serveConnection, args=(c,),
                                    name='PyServer %s %s' % (self.name, peerName))
        c.thread.daemon = True
        with self._connsLock:
            self._conns[sock] = c
        c.thread.start()
        _trace('accepted %s' % peerName)

    # ---- a connection's thread ----------------------------------------
    def _serveConnection(self, c):
        try:
            bad = self._nativeServe(c.sock.fileno(), c.namespace, _execCode, _formatError,
                                    Console(c.namespace, _stdoutLock, self.name),
                                    lambda command: ZelWatch.serve(c.sock, command), ZelStacks.text)
            if bad is not None:
                _notice('bad request from %s (%s)' % (c.peerName, bad))
        except Exception as e:
            _notice('connection from %s failed: %r' % (c.peerName, e))
        finally:
            with self._connsLock:
                self._conns.pop(c.sock, None)
                c.sock.close()
            _trace('closed %s' % c.peerName)


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
    server.stop(timeout=STOP_SECONDS)
    return 0


if __name__ == '__main__':
    sys.exit(main(sys.argv))
