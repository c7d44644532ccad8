"""The agent server's wire protocol, written once for Python.

A connection starts with a greeting: the client sends two bytes (its mode
character, then 'R'), the server answers GREETING_REPLY. Then each request
is a frame of HEADER bytes (the 2-byte kind, KIND_EVAL or KIND_EXEC, and
the command's length) and the command, at most MAX_FRAME bytes in all;
each response is HEADER bytes (the length of what follows, then the
2-byte status, STATUS_OK or STATUS_EX) and the payload. Lengths are
4-byte big-endian unsigned numbers.

A command longer than MAX_COMMAND goes in parts: KIND_PART frames, each
with a part of it, and then the request with its last part, which the
server runs as one command (at most MAX_LONG_COMMAND bytes); the parts get
no response.

PyServer takes its constants from here (the native serving loop does the
framing); the functions are a client's side of an exchange over a
blocking socket, as the tests speak it. Kinds and the greeting are bytes;
a command may be given as text (sent as UTF-8), and statuses and payloads
come back as text (see ZelCompat).
"""

import struct

from ZelCompat import toBytes, toText

KIND_EVAL = b'?1'           # evaluate an expression; the answer is its repr()
KIND_EXEC = b'?2'           # execute statements; the answer is what they printed
KIND_PART = b'?8'           # a part of a long command, completed by the next request
GREETING_REPLY = b'ZPS1'    # four bytes; clients do not interpret them
HEADER = 6                  # kind + length of a request; length + status of a response
MAX_FRAME = 4095            # kind + length + command
MAX_COMMAND = MAX_FRAME - HEADER
MAX_LONG_COMMAND = 256 << 20
STATUS_OK = 'OK'            # statuses, as response() returns them
STATUS_EX = 'EX'            # the payload is the command's traceback

# Watching and stacks. A watch request ("FULLNAME\nATTR\n...") is the last
# request of its connection: refused with STATUS_EX (then closed), or
# answered STATUS_OK with the entity's full name and followed by pushed
# frames, response-framed, until the client closes: STATUS_CHANGE with
# "SECONDS ATTR VALUE" (time of day, the attribute, repr() of the new value
# or of the collection key), STATUS_DROPPED with the count of changes that
# did not fit a slow client's queue. A stacks request (any command) answers
# the Python stack of every thread.
KIND_WATCH = b'?6'
KIND_STACKS = b'?7'
STATUS_CHANGE = 'CH'
STATUS_DROPPED = 'DR'
# The console's kinds (zelc -i; see py/support/WireProtocol.h).
KIND_CONSOLE = b'?3'        # lines typed so far; OK output, EX error, or STATUS_MORE
KIND_COMPLETE = b'?4'       # the line up to the cursor; the word, then its candidates
KIND_CONTROL = b'?5'        # CONTROL_HELLO, or CONTROL_INTERRUPT + a connection's token
STATUS_MORE = 'MO'          # the console input is an incomplete statement
CONTROL_HELLO = 'hello'
CONTROL_INTERRUPT = 'interrupt '

_LENGTH = struct.Struct('>I')


def packLength(n):
    return _LENGTH.pack(n)


def unpackLength(data):
    return _LENGTH.unpack(data)[0]


def frame(kind, cmd):
    """The bytes of one request."""
    cmd = toBytes(cmd)
    return kind + packLength(len(cmd)) + cmd


def frames(kind, cmd):
    """The bytes of one request of any length: parts, then the request."""
    cmd = toBytes(cmd)   # cut by bytes, as the lengths count them
    cut = max(0, len(cmd) - 1) // MAX_COMMAND * MAX_COMMAND
    parts = [frame(KIND_PART, cmd[i:i + MAX_COMMAND]) for i in range(0, cut, MAX_COMMAND)]
    return b''.join(parts) + frame(kind, cmd[cut:])


def recvExactly(sock, n):
    data = b''
    while len(data) < n:
        more = sock.recv(n - len(data))
        if not more:
            raise EOFError('connection closed after %d of %d bytes' % (len(data), n))
        data += more
    return data


def greet(sock, mode='C'):
    """Sends the greeting; returns the server's four bytes."""
    sock.sendall(toBytes(mode) + b'R')
    return recvExactly(sock, len(GREETING_REPLY))


def response(sock):
    """(status, payload) of the next response, as text."""
    head = recvExactly(sock, HEADER)
    return toText(head[4:]), toText(recvExactly(sock, unpackLength(head[:4]) - 2))


def request(sock, kind, cmd):
    sock.sendall(frame(kind, cmd))
    return response(sock)
