// Commands of any length with results of any size (evalWhole,
// executeWhole, commandWhole, requestWhole). Unlike eval and execute, which resend a
// command after a broken exchange, these send it at most once: a command
// must not run twice for its answer.
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "ClientTrace.h"
#include "support/WireProtocol.h"
#include "Zel/Exception.h"

namespace Zel {

namespace {

// True when the peer has closed the connection, or sent something no
// request asked for: either way it is not one to send a command on.
bool unusable(int fd) {
    pollfd p{fd, POLLIN, 0};
    int n;
    while ((n = ::poll(&p, 1, 0)) < 0 && errno == EINTR) {
    }
    return n != 0;
}

// The frames of a request of any length: parts, then the request itself.
std::string requestFrames(char const* kind, std::string_view cmd) {
    std::string frames;
    size_t partsEnd = cmd.empty() ? 0 : (cmd.size() - 1) / wire::kMaxCommand * wire::kMaxCommand;
    frames.reserve(cmd.size() + (partsEnd / wire::kMaxCommand + 1) * wire::kRequestHeader);
    for (size_t at = 0; at <= partsEnd; at += wire::kMaxCommand) {
        std::string_view piece = cmd.substr(at, at < partsEnd ? wire::kMaxCommand : std::string_view::npos);
        char header[wire::kRequestHeader];
        std::memcpy(header, at < partsEnd ? wire::kPart : kind, wire::kKindSize);
        wire::writeLength(static_cast<uint32_t>(piece.size()), header + wire::kKindSize);
        frames.append(header, sizeof header).append(piece);
    }
    return frames;
}

} // namespace

bool PyClient::usable() const { return socket_.valid() && !unusable(socket_.get()); }

String8 PyClient::evalWhole(std::string_view cmd) { return commandWhole(wire::kEvaluate, cmd); }

String8 PyClient::executeWhole(std::string_view cmd) { return commandWhole(wire::kExecute, cmd); }

String8 PyClient::commandWhole(char const* kind, std::string_view cmd) {
    std::string status;
    String8 r = requestWhole(kind, cmd, status);
    if (status != wire::kOk) {
        PYCLIENT_TRACE(1, "result", "Server threw some exception");
        throw RpcException(std::move(r), Exception::IdBitArray(0x100000));
    }
    return r;
}

String8 PyClient::requestWhole(char const* kind, std::string_view cmd, std::string& status) {
    PYCLIENT_TRACE(9, "commandWhole", "-> " << kind << " (" << cmd.size() << " bytes)");
    if (cmd.size() > wire::kMaxLongCommand) {
        throw RangeException("Remote eval/exec command of " + std::to_string(cmd.size()) +
                             " bytes was too long: the most is " + std::to_string(wire::kMaxLongCommand));
    }
    if (sameProcess_) return localResult(std::string(cmd).c_str(), kind);
    // Nothing has gone yet: a connection that cannot carry the command is
    // made afresh, once.
    if (!socket_.valid() || unusable(socket_.get())) connect();
    if (!sendWhole(kind, cmd)) {
        PYCLIENT_TRACE(1, "commandWhole", "The connection was closed; reconnecting");
        connect();
        if (!sendWhole(kind, cmd)) {
            throw RpcConnectionException("Cannot talk to server " + serverName_ + ": the connection closed",
                                         Exception::IdBitArray(0x300000));
        }
    }
    String8 r = wholeResponse(status);
    PYCLIENT_TRACE(9, "commandWhole", "<- result (" << r.size() << " bytes)");
    return r;
}

bool PyClient::sendWhole(char const* kind, std::string_view cmd) {
    std::string frames = requestFrames(kind, cmd);
    size_t sent = 0;
    while (sent < frames.size()) {
        ssize_t n = ::send(socket_.get(), frames.data() + sent, frames.size() - sent, MSG_NOSIGNAL);
        if (n >= 0) {
            sent += size_t(n);
            continue;
        }
        if (errno == EINTR) continue;
        int err = errno;
        closeSocket();
        // A failed first call took no byte of the command.
        if (sent == 0) return false;
        throw RpcConnectionException(lostMessage(String8(std::strerror(err))), Exception::IdBitArray(0x300000));
    }
    return true;
}

String8 PyClient::wholeResponse(std::string& status) {
    std::string header(wire::kResponseHeader, '\0');
    std::string payload;
    try {
        Expect expect(Exception::idErrno);
        if (socketRecv(socket_.get(), header.data(), int(header.size()), true) < int(header.size())) {
            throw ErrnoException(ECONNRESET);
        }
        uint32_t len = wire::readLength(header.data());
        if (len < wire::kStatusSize) throw ErrnoException(EPROTO);
        payload.resize(len - wire::kStatusSize);
        for (size_t got = 0; got < payload.size();) {
            size_t want = std::min(payload.size() - got, size_t(1) << 30);
            int n = socketRecv(socket_.get(), payload.data() + got, static_cast<int>(want), true);
            if (n == 0) throw ErrnoException(ECONNRESET);
            got += size_t(n);
        }
    } catch (ErrnoException const& e) {
        closeSocket();
        throw RpcConnectionException(lostMessage(e.message()), Exception::IdBitArray(0x300000));
    }
    status.assign(header.data() + wire::kLengthSize, wire::kStatusSize);
    return String8(std::move(payload));
}

String8 PyClient::lostMessage(String8 const& why) const {
    String8 who = serverName_.empty() ? String8("port " + std::to_string(port_)) : serverName_;
    return "Lost the connection to " + who + " (" + why + ") after the command was sent: it may or may not have run";
}

} // namespace Zel
