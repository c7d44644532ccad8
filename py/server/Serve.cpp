// One connection's loop: receive into the connection's buffer and send
// the reply without the interpreter lock, take the lock only to run the
// command.
#include "Serve.h"

#include <sys/socket.h>

#include <cerrno>

#include "FrameBuffer.h"
#include "Reply.h"
#include "Running.h"
#include "support/Gil.h"

namespace ZelServer {

using Zel::HeldGil;
using Zel::ReleasedGil;

namespace {

// Bytes received, or 0 when the peer has closed or the socket failed.
size_t receive(int fd, char* buf, size_t room) {
    for (;;) {
        ssize_t n = ::recv(fd, buf, room, 0);
        if (n >= 0) return size_t(n);
        if (errno != EINTR) return 0;
    }
}

bool sendAll(int fd, char const* p, size_t n) {
    while (n > 0) {
        // No SIGPIPE for a peer that went away: that ends the connection.
        ssize_t sent = ::send(fd, p, n, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        p += sent;
        n -= size_t(sent);
    }
    return true;
}

} // namespace

void serveConnection(int fd, Commands& commands, std::string& bad) {
    FrameBuffer in;
    Reply reply;
    std::string longCommand;   // the parts of a long command so far
    Serving serving(fd);       // left with the lock held: declared before the lock goes
    ReleasedGil unlocked;
    for (;;) {
        Frame frame;
        FrameBuffer::Parse parsed;
        while ((parsed = in.parse(frame, bad)) == FrameBuffer::Parse::Incomplete) {
            size_t n = in.room() ? receive(fd, in.space(), in.room()) : 0;
            if (n == 0) return;   // the peer went, perhaps mid-frame, or stop() shut the socket down
            in.added(n);
        }
        if (parsed == FrameBuffer::Parse::Bad) return;
        if (frame.kind == FrameKind::Part) {
            if (longCommand.size() + frame.command.size() > Zel::wire::kMaxLongCommand) {
                bad = "a long command over " + std::to_string(Zel::wire::kMaxLongCommand) + " bytes";
                return;
            }
            longCommand += frame.command;
            in.consume();
            continue;   // no response until the request that ends it
        }
        if (frame.kind == FrameKind::Greeting) {
            reply.setRaw(Zel::wire::kGreetingReply);   // clients do not interpret it
        } else if (!longCommand.empty()) {
            longCommand += frame.command;
            HeldGil locked(unlocked);
            serving.commandStarts();
            commands.run(frame.kind, longCommand, reply, true);
            serving.commandEnds();
            std::string().swap(longCommand);   // its memory goes too
        } else {
            HeldGil locked(unlocked);
            serving.commandStarts();
            commands.run(frame.kind, frame.command, reply);
            serving.commandEnds();
        }
        in.consume();
        if (!sendAll(fd, reply.data(), reply.size())) return;
    }
}

} // namespace ZelServer
