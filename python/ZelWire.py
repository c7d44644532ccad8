"""The agent server's wire protocol, written once for Python.

A connection starts with a greeting: the client sends two bytes (its mode
character, then 'R'), the server answers GREETING_REPLY. Then each request
is a frame of HEADER bytes (the 2-byte kind, KIND_EVAL or KIND_EXEC, and
the command's length) and the command, at most MAX_FRAME bytes in all;
each response is HEADER bytes (the length of what follows, then the
2-byte status, STATUS_OK or STATUS_EX) and the payload. Lengths are
4-byte big-endian unsigned numbers.

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
GREETING_REPLY = b'ZPS1'    # four bytes; clients do not interpret them
HEADER = 6                  # kind + length of a request; length + status of a response
MAX_FRAME = 4095            # kind + length + command
MAX_COMMAND = MAX_FRAME - HEADER
STATUS_OK = 'OK'            # statuses, as response() returns them
STATUS_EX = 'EX'            # the payload is the command's traceback

_LENGTH = struct.Struct('>I')


def packLength(n):
    return _LENGTH.pack(n)


def unpackLength(data):
    return _LENGTH.unpack(data)[0]


def frame(kind, cmd):
    """The bytes of one request."""
    cmd = toBytes(cmd)
    return kind + packLength(len(cmd)) + cmd


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
