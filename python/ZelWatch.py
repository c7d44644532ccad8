"""Watches: an entity's attribute changes pushed to a client as they happen.

A client's watch request names the entity by its full name (as its
`fullName` attribute reads, "/sw1/et1") and, optionally, the attributes to
report. The connection's thread then streams until the client goes:

- The changes reach a Zel.notifiee deferred to an activity of the watch's
  own, so the process's activity loop delivers them, one at a time and in
  the order they were made; the code that changes the entity never runs the
  watch's Python code.
- The handler only stamps the change and queues its line; the queue is
  bounded (MAX_QUEUED changes, MAX_QUEUED_BYTES bytes), so a client that
  reads too slowly never blocks the loop nor makes the agent grow: changes
  that do not fit are counted, and the count is sent in their place, in
  order, once there is room again (or once the queue is drained).
- The connection's thread waits without the interpreter lock for the
  queue's wake-up pipe or the client's socket, and sends what is queued.
  When the client closes (or the server stops), the notifiee, its activity
  and the pipe go with the watch.
"""

import collections
import errno
import fcntl
import os
import select
import socket
import threading
import time

import ZelWire
from ZelCompat import toBytes, toText

MAX_QUEUED = 4096
MAX_QUEUED_BYTES = 4 * 1024 * 1024

_open = set()   # the watches being streamed
_openLock = threading.Lock()


def _frame(status, payload):
    payload = toBytes(payload)
    return ZelWire.packLength(len(payload) + 2) + toBytes(status) + payload


def watching():
    """The number of watches being streamed in this process."""
    with _openLock:
        return len(_open)


def entityNamed(fullName):
    """The entity whose fullName is `fullName`, found from the global
    directory down; LookupError when there is none."""
    import Zel
    parts = fullName.split('/')
    if len(parts) < 2 or parts[0] or not all(parts[1:]):
        raise LookupError('no entity %s (a full name reads "/NAME/NAME...")' % fullName)
    found = Zel.root()
    for depth in range(1, len(parts)):
        found = _child(found, '/'.join(parts[:depth + 1]), parts[depth])
        if found is None:
            raise LookupError('no entity %s' % fullName)
    return found


def _child(parent, fullName, name):
    """The child of `parent`, in any of its collections of entities, that
    has this full name; None when there is none."""
    import Zel
    ptr = parent.ptr_
    for attr in sorted(parent._type_.attrs.values(), key=lambda a: a.attributeId):
        member = attr.memberType
        if (not attr.isCollection or attr.isQueueCollection or attr.isStackCollection or attr.isFunction or
                member is None or not member.isEntity):
            continue
        # Collections are mostly keyed by their members' names; a member
        # kept under another key is searched for.
        try:
            keyed = [Zel._wrap(ptr.attributeCollection(attr, name))] if ptr.attributeCollectionExist(attr, name) else []
        except (TypeError, ValueError, OverflowError):
            keyed = []
        for candidates in (keyed, Zel.Collection(ptr, attr).itervalues()):
            for c in candidates:
                if (isinstance(c, Zel.Object) and c._fullName_ is not None and
                        c.ptr_.attributeSingleton(c._fullName_) == fullName):
                    return c
    return None


class Watch(object):
    """The notifiee of one client's watch and the bounded queue of its lines."""

    def __init__(self, entity, attrs):
        import Zel
        # The bounds in force when the watch starts.
        self.maxQueued, self.maxBytes = MAX_QUEUED, MAX_QUEUED_BYTES
        self._lock = threading.Lock()
        self._queue = collections.deque()
        self._bytes = 0
        self._dropped = 0
        self._closed = False
        self._wakeR, self._wakeW = os.pipe()
        try:
            for fd in (self._wakeR, self._wakeW):
                fcntl.fcntl(fd, fcntl.F_SETFL, fcntl.fcntl(fd, fcntl.F_GETFL) | os.O_NONBLOCK)
            self._activity = Zel.new('Zel::ActivityConfig', 'watch')
            self._notifiee = Zel.notifiee(entity, self._changed, attrs, self._activity)
        except BaseException:
            self.close()
            raise

    def _changed(self, name, value):
        # Run by the activity loop: no blocking, no framework calls beyond
        # the value's repr().
        try:
            text = repr(value)
        except Exception:
            text = '<unprintable>'
        line = toBytes('%.6f %s ' % (time.time(), name)) + toBytes(text)
        with self._lock:
            if self._closed:
                return
            if len(self._queue) >= self.maxQueued or self._bytes + len(line) > self.maxBytes:
                self._dropped += 1
                return
            wake = not self._queue
            if self._dropped:
                self._queue.append(_frame(ZelWire.STATUS_DROPPED, str(self._dropped)))
                self._dropped = 0
            self._queue.append(_frame(ZelWire.STATUS_CHANGE, line))
            self._bytes += len(line)
            if wake:
                # Under the lock: close() may not take the pipe away meanwhile.
                try:
                    os.write(self._wakeW, b'x')
                except OSError as e:
                    if e.errno != errno.EAGAIN:
                        raise

    def take(self):
        """The frames queued so far, the count of dropped changes last."""
        with self._lock:
            frames, self._queue, self._bytes = self._queue, collections.deque(), 0
            if self._dropped:
                frames.append(_frame(ZelWire.STATUS_DROPPED, str(self._dropped)))
                self._dropped = 0
        return b''.join(frames)

    def pump(self, sock):
        """Sends queued changes until the client closes its end (or sends
        anything: a watching connection takes no further request)."""
        while True:
            try:
                ready = select.select([sock, self._wakeR], [], [])[0]
            except (select.error, OSError) as e:
                if e.args[0] == errno.EINTR:
                    continue
                raise
            if sock in ready:
                return
            try:
                os.read(self._wakeR, 4096)
            except OSError as e:
                if e.errno != errno.EAGAIN:
                    raise
            data = self.take()
            if data:
                sock.sendall(data)

    def close(self):
        with self._lock:
            self._closed = True
            self._queue.clear()
        notifiee = getattr(self, '_notifiee', None)
        if notifiee is not None:
            notifiee.close()
        self._notifiee = self._activity = None
        for fd in (self._wakeR, self._wakeW):
            if fd is not None:
                os.close(fd)
        self._wakeR = self._wakeW = None


def _open_watch(command):
    """(full name, Watch) of a watch request; LookupError or
    AttributeError for what it names wrongly."""
    lines = [line for line in toText(command).split('\n') if line]
    if not lines:
        raise LookupError('a watch names an entity')
    entity = entityNamed(lines[0])
    attrs = lines[1:] or None
    known = entity._type_.attrs
    for name in attrs or ():
        a = known.get(name)
        if a is None or a.isFunction:
            raise AttributeError('%s has no attribute %s' % (entity._type_.name, name))
    return lines[0], Watch(entity, attrs)


def serve(sock, command):
    """Serves a watch request on the connection `sock` until the client
    goes; the connection is done with when this returns."""
    try:
        fullName, watch = _open_watch(command)
    except Exception as e:
        try:
            sock.sendall(_frame(ZelWire.STATUS_EX, '%s: %s\n' % (type(e).__name__, e)))
        except socket.error:
            pass
        return
    with _openLock:
        _open.add(watch)
    try:
        sock.sendall(_frame(ZelWire.STATUS_OK, fullName))
        watch.pump(sock)
    except socket.error:
        pass   # the client went while a change was sent to it
    finally:
        with _openLock:
            _open.discard(watch)
        watch.close()
