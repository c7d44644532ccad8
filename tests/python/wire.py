"""The agent server's wire protocol, as a test client speaks it over a
raw socket: request frames, exact reads and one request's answer."""
import struct


def frame(kind, cmd):
    return kind + struct.pack('>I', len(cmd)) + cmd


def recvExactly(s, n):
    data = ''
    while len(data) < n:
        more = s.recv(n - len(data))
        if not more:
            raise EOFError('connection closed after %d of %d bytes' % (len(data), n))
        data += more
    return data


def response(s):
    """(status, payload) of the next response."""
    head = recvExactly(s, 6)
    (n,) = struct.unpack('>I', head[:4])
    return head[4:], recvExactly(s, n - 2)


def request(s, kind, cmd):
    s.sendall(frame(kind, cmd))
    return response(s)
