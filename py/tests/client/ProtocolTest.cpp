// The client against scripted peers: greeting, framing, result buffer
// edges, server exceptions, reconnection, final failure, retry profile.
#include <netinet/in.h>
#include <signal.h>

#include "client/PyClientTestSupport.h"
#include "ZelPy/PyClient.h"

using namespace zeltest;

namespace {

unsigned const kNoRetry[] = {0};

struct IgnoreSigpipe {
    IgnoreSigpipe() { ::signal(SIGPIPE, SIG_IGN); }
} const ignoreSigpipe;

// A peer and a client connected to it.
struct Session {
    explicit Session(ScriptedPeer::Reply reply, char const* init = nullptr)
        : peer(std::move(reply)), client(Zel::String8(peer.path()), 'T', init) {
        client.connect();
    }
    ScriptedPeer peer;
    Zel::PyClient client;
};

std::string notice(std::string const& server) { return "[PyClient reconnecting to " + server + "]\n"; }

// Runs `f`, which must fail to talk to the server, with standard error captured into `*err`.
template <class F>
Zel::RpcConnectionException failing(F f, std::string* err) {
    struct Capture {
        std::string* err;
        ~Capture() { *err = testing::internal::GetCapturedStderr(); }
    };
    testing::internal::CaptureStderr();
    Capture capture{err};
    return thrown<Zel::RpcConnectionException>(f);
}

TEST(PyClientProtocol, GreetingFramingLimitAndServerException) {
    Session s(
        [](Request const& r, int) {
            if (r.command == "boom()") return response("EX", "Traceback: boom");
            return response("OK", r.command == "empty" ? "" : "<" + r.command.substr(0, 8) + ">");
        },
        "import os");
    EXPECT_TRUE(s.client.connected());
    char buf[64];
    EXPECT_EQ(s.client.eval("1+1", buf, sizeof buf), 5);
    EXPECT_STREQ(buf, "<1+1>");
    EXPECT_EQ(s.client.execute("empty", buf, sizeof buf), 0);   // L = 2
    EXPECT_STREQ(buf, "");
    std::string longest(4089, 'a'), tooLong(4090, 'b');
    s.client.eval(longest.c_str(), buf, sizeof buf);
    EXPECT_EQ(message<Zel::RangeException>([&] { s.client.eval(tooLong.c_str(), buf, sizeof buf); }),
              "Remote eval/exec command was too long: " + tooLong + ", request cannot exceed 4090 bytes");
    // A server exception is not retried: the connection stays.
    auto e = thrown<Zel::RpcException>([&] { s.client.eval("boom()", buf, sizeof buf); });
    EXPECT_EQ(e.message(), "Traceback: boom");
    EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x100000));
    EXPECT_GE(s.client.socket(), 0);
    s.client.connect();   // the init command runs after every connect

    EXPECT_EQ(s.peer.greetings, std::vector<std::string>(2, "TR"));
    ASSERT_EQ(s.peer.requests.size(), 6u);   // nothing was sent for the refused command
    std::string const kinds[] = {"?2", "?1", "?2", "?1", "?1", "?2"};
    std::string const commands[] = {"import os", "1+1", "empty", longest, "boom()", "import os"};
    for (size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(s.peer.requests[i].kind, kinds[i]) << i;
        EXPECT_EQ(s.peer.requests[i].command, commands[i]) << i;
    }
    EXPECT_EQ(s.peer.requests[1].header, std::string("?1\0\0\0\3", 6));
    EXPECT_EQ(s.peer.requests[3].header, std::string("?1\0\0\x0f\xf9", 6));
}

TEST(PyClientProtocol, ResultBufferEdges) {
    Session s([](Request const& r, int) {
        if (r.command == "raise-big") return response("EX", "0123456789");
        return response("OK", r.command == "w" ? "wxyz" : r.command);
    });
    char buf[8];
    EXPECT_EQ(s.client.eval("1234567", buf, 8), 7);   // bufSize - 1 bytes fit
    EXPECT_STREQ(buf, "1234567");
    // One byte more overflows, is retried on a new connection, and fails
    // again: the text keeps the overflow message.
    std::string err;
    auto e = failing([&] { s.client.eval("abcdefgh", buf, 8); }, &err);
    EXPECT_EQ(e.message().str().rfind("Cannot talk to server " + s.peer.path() +
                                          ", unrecoverable server failure:Buffer for PyClient result was too small."
                                          "  The original exception follows:\n", 0), 0u) << e.message();
    EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x300000));
    EXPECT_EQ(err, notice(s.peer.path()));
    EXPECT_EQ(s.client.socket(), -1);
    EXPECT_EQ(s.peer.requests.size(), 3u);   // the overflowing command went twice
    // A server exception that does not fit is an overflow too.
    s.client.connect();
    failing([&] { s.client.eval("raise-big", buf, 8); }, &err);
    // bufSize 1 stores only the terminator; the drain reads a byte at a
    // time, keeps all but the last chunk and leaves that in the buffer.
    s.client.connect();
    char one[1] = {'?'};
    std::string text = failing([&] { s.client.eval("w", one, 1); }, &err).message().str();
    std::string const tail = "The original exception follows:\nwxy";
    ASSERT_GE(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
    EXPECT_EQ(one[0], 'z');
}

TEST(PyClientProtocol, ReconnectsOnceThenGivesUp) {
    // The first connection takes a command and closes; later ones answer
    // all but "drop".
    ScriptedPeer peer([](Request const& r, int index) {
        return index == 0 || r.command == "drop" ? std::string() : response("OK", "done " + r.command);
    });
    Zel::PyClient client(Zel::String8(peer.path()), 'T', nullptr);
    client.connect();
    char buf[64];
    std::string err;
    testing::internal::CaptureStderr();
    EXPECT_EQ(client.execute("work()", buf, sizeof buf), 11);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), notice(peer.path()));
    EXPECT_STREQ(buf, "done work()");
    EXPECT_EQ(failing([&] { client.eval("drop", buf, sizeof buf); }, &err).message(),
              "Cannot talk to server " + peer.path() + ", unrecoverable server failure:Peer of PyClient shut down the socket");
    EXPECT_EQ(err, notice(peer.path()));
    ASSERT_EQ(peer.requests.size(), 4u);
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(peer.requests[i].command, i < 2 ? "work()" : "drop") << i;
}

TEST(PyClientProtocol, ConnectFailuresAndRetryProfile) {
    unsigned total = 0, waits = 0;
    for (unsigned const* p = Zel::PyClient::kDefaultRetryProfile; *p; ++p, ++waits) total += *p;
    EXPECT_EQ(waits, 12u);
    EXPECT_EQ(total, 32000u);   // the sum of the twelve waits listed
    EXPECT_EQ(Zel::PyClient::retryProfile(), Zel::PyClient::kDefaultRetryProfile);

    // A bound socket nobody listens on refuses connections.
    TempDir dir;
    std::string path = dir.path() + "/refusing.sock";
    int s = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    std::strncpy(a.sun_path, path.c_str(), sizeof a.sun_path - 1);
    ASSERT_EQ(::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    Zel::PyClient client(Zel::String8(path), 'T', nullptr);
    client.retryProfileIs(kNoRetry);
    std::string err;
    auto e = failing([&] { client.connect(); }, &err);
    EXPECT_EQ(e.message(), "Unable to connect to " + path);
    EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x300000));
    EXPECT_EQ(err, "");
    EXPECT_FALSE(client.connected());
    EXPECT_EQ(client.socket(), -1);
    // One wait in the profile: two attempts, then the same failure.
    unsigned const once[] = {1, 0};
    client.retryProfileIs(once);
    EXPECT_THROW(client.connect(), Zel::RpcConnectionException);

    // A client built with a port has no display name; its notice names the
    // port. Never connected, the send fails first; nothing listens there,
    // so the reconnection fails too.
    int probe = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in in{};
    in.sin_family = AF_INET;
    in.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(probe, reinterpret_cast<sockaddr*>(&in), sizeof in);   // reserve a port, never listen
    socklen_t len = sizeof in;
    ::getsockname(probe, reinterpret_cast<sockaddr*>(&in), &len);
    Zel::PyClient byPort(ntohs(in.sin_port), 'T', nullptr);
    client.retryProfileIs(kNoRetry);
    char buf[16];
    EXPECT_EQ(failing([&] { byPort.eval("x", buf, sizeof buf); }, &err).message(),
              "Unable to connect to ");
    EXPECT_EQ(err, notice("port " + std::to_string(ntohs(in.sin_port))));
    client.retryProfileIs(Zel::PyClient::kDefaultRetryProfile);
    for (int fd : {s, probe}) ::close(fd);
}

} // namespace
