// The command protocol: a request frame "?1"/"?2", a 4-byte big-endian
// length and the command; a response of a 4-byte big-endian length, a
// 2-byte status ("OK" or not) and the payload. A broken exchange is
// retried once on a fresh connection.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iostream>

#include "ClientTrace.h"
#include "Zel/Exception.h"

namespace Zel {

namespace {
constexpr size_t kFrameBuffer = 4096;
constexpr size_t kMaxCommand = kFrameBuffer - 7;   // kind, length, terminator
} // namespace

int PyClient::eval(char const* cmd, char* result, int resultSize) {
    PYCLIENT_TRACE(9, "eval", "-> eval '" << cmd << "'");
    int n = doCmd(cmd, "?1", result, resultSize);
    PYCLIENT_TRACE(9, "eval", "<- result (" << n << " bytes) - " << result);
    return n;
}

int PyClient::execute(char const* cmd, char* result, int resultSize) {
    PYCLIENT_TRACE(9, "execute", "-> execute '" << cmd << "'");
    int n = doCmd(cmd, "?2", result, resultSize);
    PYCLIENT_TRACE(9, "execute", "<- result (" << n << " bytes) - " << result);
    return n;
}

int PyClient::doCmd(char const* cmd, char const* kind, char* result, int resultSize) {
    if (sameProcess_) return localCmd(cmd, kind, result, resultSize);
    return remoteCmd(cmd, kind, result, resultSize);
}

int PyClient::remoteCmd(char const* cmd, char const* kind, char* resultBuf, int resultSize) {
    size_t n = std::strlen(cmd);
    if (n > kMaxCommand) {
        throw RangeException(String8("Remote eval/exec command was too long: ") + cmd +
                             ", request cannot exceed 4090 bytes");
    }
    char frame[kFrameBuffer];
    std::snprintf(frame, sizeof frame, "%s%c%c%c%c%s", kind, static_cast<char>(n >> 24 & 0xff),
                  static_cast<char>(n >> 16 & 0xff), static_cast<char>(n >> 8 & 0xff),
                  static_cast<char>(n & 0xff), cmd);
    int frameLen = static_cast<int>(n + 6);

    String8 lastMessage;
    Exception::IdBitArray lastIds;
    for (int attempts = 2;;) {
        try {
            Expect expect(Exception::idRpcConnection, Exception::idErrno);
            socketSend(socket_.get(), frame, frameLen, 0);
            return result(resultBuf, resultSize);
        } catch (ErrnoException const& e) {
            lastMessage = e.message();
            lastIds = e.ids();
        } catch (RpcConnectionException const& e) {
            lastMessage = e.message();
            lastIds = e.ids();
        }
        closeSocket();
        if (attempts-- == 1) break;
        PYCLIENT_TRACE(0, "remoteCmd", "Reconnecting to" << serverName_ << " / port " << port_);
        std::cerr << "[PyClient reconnecting to ";
        if (serverName_.empty()) {
            std::cerr << "port " << port_;
        } else {
            std::cerr << serverName_;
        }
        std::cerr << "]" << std::endl;
        connect();
    }
    PYCLIENT_TRACE(1, "remoteCmd", "remoteCmd error " << lastMessage);
    PYCLIENT_TRACE(0, "remoteCmd", "Failed to communicate with server");
    throw RpcConnectionException(
        "Cannot talk to server " + serverName_ + ", unrecoverable server failure:" + lastMessage, lastIds);
}

int PyClient::result(char* buf, int bufSize) {
    unsigned char header[6];
    if (socketRecv(socket_.get(), reinterpret_cast<char*>(header), 6, true) < 6) {
        // Nothing, or a header cut short: either way the peer has gone.
        throw RpcConnectionException("Peer of PyClient shut down the socket", Exception::IdBitArray());
    }
    int64_t len = int64_t(header[0]) << 24 | int64_t(header[1]) << 16 | int64_t(header[2]) << 8 | header[3];
    bool ok = header[4] == 'O' && header[5] == 'K';

    int n = 0;
    if (len - 1 <= bufSize) {
        if (len > 2) {
            n = socketRecv(socket_.get(), buf, static_cast<int>(len - 2), true);
            buf[n] = 0;
        } else if (bufSize > 0) {
            buf[0] = 0;
        }
        if (ok) return static_cast<int>(len - 2);
    } else {
        // Too large: keep what fits for the message and empty the socket so
        // the next command starts on a frame boundary.
        char scratch[1];
        if (bufSize < 1) {
            // No room even for a terminator: drain through a byte of our own.
            buf = scratch;
            bufSize = 1;
        }
        int64_t remaining = len - bufSize - 1;
        if (bufSize > 1) {
            n = socketRecv(socket_.get(), buf, bufSize - 1, true);
            buf[n] = 0;
        } else {
            buf[0] = 0;
            n = 0;
        }
        PYCLIENT_TRACE(1, "result", "Client buffer overflowed!");
        std::ostringstream message;
        message << "Buffer for PyClient result was too small.  "
                << "The original exception follows:\n";
        while (remaining > 0) {
            message.write(buf, n);
            n = socketRecv(socket_.get(), buf, bufSize, false);
            if (n == 0) break;
            // The chunk that empties the socket is not appended.
            remaining -= n;
        }
        throw RpcConnectionException(String8(message.str()), Exception::IdBitArray(0x300000));
    }
    PYCLIENT_TRACE(1, "result", "Server threw some exception");
    throw RpcException(String8(buf, static_cast<size_t>(n)), Exception::IdBitArray(0x100000));
}

} // namespace Zel
