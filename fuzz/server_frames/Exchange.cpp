#include "Exchange.h"

#include <poll.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

namespace zelfuzz::serverframes {

namespace {

constexpr size_t kChunkedBytes = 8192;   // chunked delivery covers this much, then the rest goes whole
constexpr int kWaitedChunks = 64;
constexpr size_t kByteByByte = 256;

// How far the connection may send now: to the end, or to a lock-step
// frame whose earlier replies have not all arrived.
size_t sendLimit(Conn& c) {
    auto const& gates = c.plan->gates;
    while (c.gate < gates.size() && c.replies >= gates[c.gate].second) ++c.gate;
    return c.gate < gates.size() ? std::min(gates[c.gate].first, c.plan->stream.size()) : c.plan->stream.size();
}

bool canWrite(Conn& c) { return !c.done && c.writing && !c.blocked && !c.waiting && c.sent < sendLimit(c); }

void write(Conn& c) {
    Plan const& p = *c.plan;
    size_t len = sendLimit(c) - c.sent;
    bool waited = false;
    switch (p.delivery) {
    case Delivery::Whole: break;
    case Delivery::Chunks:
    case Delivery::WaitedChunks:
        if (c.sent < kChunkedBytes) len = std::min(len, p.chunk);
        waited = p.delivery == Delivery::WaitedChunks && c.waits < kWaitedChunks;
        break;
    case Delivery::ByteByByte:
        if (c.sent < kByteByByte) {
            len = 1;
            waited = true;
        } else if (c.sent < kChunkedBytes) {
            len = std::min(len, p.chunk);
        }
        break;
    }
    ssize_t n = ::send(c.fd.get(), p.stream.data() + c.sent, len, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n > 0) {
        c.sent += size_t(n);
        if (waited && !c.waitNoMore) {
            ++c.waits;
            c.waiting = true;
            c.waitUntil = Clock::now() + 20ms;
        }
        if (c.sent == p.stream.size()) writesOver(c);
    } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        c.blocked = true;
        c.blockedSince = Clock::now();
    } else if (n < 0 && errno != EINTR) {
        writesOver(c);   // the server has closed the connection
    }
    settle(c);
}

void closedByServer(Conn& c) {
    Plan const& p = *c.plan;
    if (!c.in.empty()) finding(c.describe() + ": the server closed it in the middle of a reply: \"" + shown(c.in) + "\"");
    if (c.replies != p.replies()) finding(c.describe() + ": the server closed it before every reply was sent");
    if (p.bad.empty() && !c.halfClosed) finding(c.describe() + ": the server closed it, though it sent no bad header");
    c.fd.reset();
    c.done = true;
}

// The reply layout ("ZPS1", then a 4-byte big-endian length, the status and
// the payload) is what is checked here, so it is spelled out in this file
// rather than read from support/WireProtocol.h, which the server builds with.
void checkReplies(Conn& c) {
    Plan const& p = *c.plan;
    size_t used = 0;
    for (;;) {
        std::string_view left(c.in.data() + used, c.in.size() - used);
        if (left.empty()) break;
        if (!p.greeted) finding(c.describe() + ": the server answered an unfinished greeting: \"" + shown(left) + "\"");
        if (c.replies == 0) {
            if (left.size() < 4) break;
            if (left.substr(0, 4) != "ZPS1") finding(c.describe() + ": the greeting got \"" + shown(left) + "\"");
            used += 4;
            ++c.replies;
            continue;
        }
        if (left.size() < 4) break;
        auto const* b = reinterpret_cast<unsigned char const*>(left.data());
        uint32_t n = uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3];
        if (n < 2 || n > (16u << 20)) {
            finding(c.describe() + ": a reply of length " + std::to_string(n) + ": \"" + shown(left) + "\"");
        }
        if (left.size() < 4 + size_t(n)) break;
        size_t i = c.replies - 1;
        if (i >= p.commands.size()) {
            finding(c.describe() + ": a reply to nothing it should have run (past a bad header or a cut): \"" +
                    shown(left) + "\"");
        }
        std::string_view status = left.substr(4, 2), payload = left.substr(6, n - 2);
        Expected const& want = p.expected[i];
        bool same = status == want.status &&
                    (status == "OK" ? payload == want.text
                                    : lastLine(payload) == want.text && payload.find("PyServer.py") == payload.npos);
        if (!same) {
            finding(c.describe() + ": \"" + shown(p.commands[i].text) + "\" (?" + p.commands[i].kind +
                    ") was answered " + std::string(status) + " \"" + shown(payload, 600) + "\"; a fresh compile gives " +
                    want.status + " \"" + shown(want.text) + "\"");
        }
        used += 4 + n;
        ++c.replies;
    }
    c.in.erase(0, used);
}

void readFrom(Conn& c) {
    static char buf[1 << 16];
    bool closed = false;
    for (;;) {
        ssize_t n = ::recv(c.fd.get(), buf, sizeof buf, MSG_DONTWAIT);
        if (n > 0) {
            c.in.append(buf, size_t(n));
            continue;
        }
        // A socket closed with bytes still unread shows the peer a reset
        // after the data it had sent.
        if (n == 0 || errno == ECONNRESET) {
            closed = true;
            break;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) break;
        if (errno != EINTR) finding(c.describe() + ": recv failed: " + std::strerror(errno));
    }
    checkReplies(c);
    if (closed) {
        closedByServer(c);
    } else {
        settle(c);
    }
}

} // namespace

std::string Conn::describe() const {
        static char const* const deliveries[] = {"whole", "chunks", "waited chunks", "byte by byte"};
        static char const* const endings[] = {"read all", "half close", "close at once", "never read"};
        std::string s = "connection " + std::to_string(index) + " (" + deliveries[int(plan->delivery)] + ", chunk " +
                        std::to_string(plan->chunk) + ", " + endings[int(plan->ending)] + "): sent " +
                        std::to_string(sent) + " of " + std::to_string(plan->stream.size()) + " bytes \"" +
                        shown(plan->stream, 120) + "\"; " + std::to_string(replies) + " of " +
                        std::to_string(plan->replies()) + " replies";
        if (!plan->bad.empty()) s += "; bad header: " + plan->bad;
        return s;
    }

void writesOver(Conn& c) {
    c.writing = false;
    switch (c.plan->ending) {
    case Ending::ReadAll: break;
    case Ending::HalfClose:
        ::shutdown(c.fd.get(), SHUT_WR);
        c.halfClosed = true;
        break;
    case Ending::CloseAtOnce:
        c.fd.reset();
        c.done = true;
        break;
    case Ending::NeverRead: c.done = true; break;   // open until the input ends
    }
}

// A peer that reads everything closes once all replies are in, unless the
// server is to close first.
void settle(Conn& c) {
    Plan const& p = *c.plan;
    if (!c.done && p.ending == Ending::ReadAll && !c.writing && p.bad.empty() && c.replies == p.replies()) {
        c.fd.reset();
        c.done = true;
    }
}

void exchange(std::vector<Conn>& conns, Reader& schedule) {
    auto deadline = Clock::now() + 2500ms;
    unsigned turn = 0;
    for (;;) {
        auto now = Clock::now();
        bool waiting = false;
        for (Conn& c : conns) {
            if (c.done) continue;
            if (c.waiting) {
                // Unread bytes stay charged to the sender's queue.
                int queued = 0;
                if (::ioctl(c.fd.get(), SIOCOUTQ, &queued) != 0 || queued == 0) {
                    c.waiting = false;
                } else if (now >= c.waitUntil) {
                    c.waiting = false;
                    c.waitNoMore = true;   // the server is not reading (blocked on a reply): wait no more
                } else {
                    waiting = true;
                }
            }
            // A peer that never reads may block a server that is blocked on it.
            if (c.blocked && c.plan->ending == Ending::NeverRead && now - c.blockedSince > 30ms) c.done = true;
        }
        std::vector<Conn*> writers;
        bool open = false;
        for (Conn& c : conns) {
            open = open || !c.done;
            if (canWrite(c)) writers.push_back(&c);
        }
        if (!open) return;
        if (now > deadline) {
            std::string state;
            for (Conn const& c : conns) state += "\n  " + c.describe() + (c.done ? " (done)" : "");
            finding("the exchange did not end within 2.5 s:" + state);
        }
        if (!writers.empty()) {
            unsigned pick = schedule.more() ? schedule.byte() : turn++;
            write(*writers[pick % writers.size()]);
        }

        std::vector<pollfd> fds;
        std::vector<Conn*> polled;
        bool writable = false;
        waiting = false;
        for (Conn& c : conns) {
            writable = writable || canWrite(c);
            if (c.done) continue;
            waiting = waiting || c.waiting;
            short events = short((c.plan->reads() ? POLLIN : 0) | (c.blocked ? POLLOUT : 0));
            if (!events) continue;
            fds.push_back({c.fd.get(), events, 0});
            polled.push_back(&c);
        }
        int timeout = writable || waiting ? 0 : 20;
        if (::poll(fds.data(), fds.size(), timeout) < 0 && errno != EINTR) {
            finding(std::string("poll: ") + std::strerror(errno));
        }
        for (size_t i = 0; i < fds.size(); ++i) {
            Conn& c = *polled[i];
            short got = fds[i].revents;
            if (!got) continue;
            if (got & (POLLOUT | POLLERR | POLLHUP)) c.blocked = false;
            if (c.plan->reads() && (got & (POLLIN | POLLERR | POLLHUP))) readFrom(c);
        }
        if (waiting && !writable) std::this_thread::sleep_for(20us);
    }
}

} // namespace zelfuzz::serverframes
