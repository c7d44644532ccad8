// The client's side of the command protocol (support/WireProtocol.h): one
// request frame out, one response frame back. A broken exchange is retried
// once on a fresh connection.
#include <unistd.h>

#include <cstring>
#include <iostream>

#include "ClientTrace.h"
#include "support/WireProtocol.h"
#include "Zel/Exception.h"

namespace Zel {

int PyClient::eval(char const* cmd, char* result, int resultSize) {
    PYCLIENT_TRACE(9, "eval", "-> eval '" << cmd << "'");
    int n = doCmd(cmd, wire::kEvaluate, result, resultSize);
    PYCLIENT_TRACE(9, "eval", "<- result (" << n << " bytes) - " << result);
    return n;
}

int PyClient::execute(char const* cmd, char* result, int resultSize) {
    PYCLIENT_TRACE(9, "execute", "-> execute '" << cmd << "'");
    int n = doCmd(cmd, wire::kExecute, result, resultSize);
    PYCLIENT_TRACE(9, "execute", "<- result (" << n << " bytes) - " << result);
    return n;
}

int PyClient::doCmd(char const* cmd, char const* kind, char* result, int resultSize) {
    if (sameProcess_) return localCmd(cmd, kind, result, resultSize);
    return remoteCmd(cmd, kind, result, resultSize);
}

int PyClient::remoteCmd(char const* cmd, char const* kind, char* resultBuf, int resultSize) {
    size_t n = std::strlen(cmd);
    if (n > wire::kMaxCommand) {
        // The text names one byte more than the limit; it stays as callers know it.
        throw RangeException(String8("Remote eval/exec command was too long: ") + cmd +
                             ", request cannot exceed 4090 bytes");
    }
    // `kind` is one of the two-byte request kinds.
    char frame[wire::kMaxFrame];
    std::memcpy(frame, kind, wire::kKindSize);
    wire::writeLength(static_cast<uint32_t>(n), frame + wire::kKindSize);
    std::memcpy(frame + wire::kRequestHeader, cmd, n);
    int frameLen = static_cast<int>(wire::kRequestHeader + n);

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
    char header[wire::kResponseHeader];
    if (socketRecv(socket_.get(), header, int(wire::kResponseHeader), true) < int(wire::kResponseHeader)) {
        // Nothing, or a header cut short: either way the peer has gone.
        throw RpcConnectionException("Peer of PyClient shut down the socket", Exception::IdBitArray());
    }
    int64_t len = wire::readLength(header);   // status and payload
    constexpr int64_t kStatus = int64_t(wire::kStatusSize);
    bool ok = std::string_view(header + wire::kLengthSize, wire::kStatusSize) == wire::kOk;

    int n = 0;
    if (len - 1 <= bufSize) {
        if (len > kStatus) {
            n = socketRecv(socket_.get(), buf, static_cast<int>(len - kStatus), true);
            buf[n] = 0;
        } else if (bufSize > 0) {
            buf[0] = 0;
        }
        if (ok) return static_cast<int>(len - kStatus);
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
