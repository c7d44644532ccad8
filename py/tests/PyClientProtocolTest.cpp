// The client against scripted peers: greeting, framing, result buffer
// edges, server exceptions, reconnection, final failure, retry profile.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>

#include "PyClientTestSupport.h"
#include "Zel/Exception.h"
#include "ZelPy/PyClient.h"

using namespace zeltest;

namespace {

unsigned const kNoRetry[] = {0};

struct IgnoreSigpipe {
    IgnoreSigpipe() { ::signal(SIGPIPE, SIG_IGN); }
} const ignoreSigpipe;

// A peer that answers every request of every connection with `reply` and
// records what it received, and a client connected to it.
struct Session {
    explicit Session(std::function<std::string(Request const&)> reply, char const* init = nullptr)
        : peer([this, reply](int fd, int) {
              greetings.push_back(greet(fd));
              Request r;
              while (readRequest(fd, &r)) {
                  requests.push_back(r);
                  writeAll(fd, reply(r));
              }
          }),
          client(Zel::String8(peer.path()), 'T', init) {
        client.connect();
    }
    std::vector<std::string> greetings;
    std::vector<Request> requests;
    ScriptedPeer peer;
    Zel::PyClient client;
};

std::string notice(std::string const& server) { return "[PyClient reconnecting to " + server + "]\n"; }

// Runs `f`, which must fail to talk to the server, with standard error
// captured into `*err`.
template <class F>
Zel::RpcConnectionException failing(F f, std::string* err) {
    struct Capture {
        std::string* err;
        Capture(std::string* e) : err(e) { testing::internal::CaptureStderr(); }
        ~Capture() { *err = testing::internal::GetCapturedStderr(); }
    } capture(err);
    return thrown<Zel::RpcConnectionException>(f);
}

TEST(PyClientProtocol, GreetingFramingAndEmptyResult) {
    Session s([](Request const& r) { return response("OK", r.command == "empty" ? "" : "<" + r.command + ">"); });
    EXPECT_TRUE(s.client.connected());
    char buf[64];
    EXPECT_EQ(s.client.eval("1+1", buf, sizeof buf), 5);
    EXPECT_STREQ(buf, "<1+1>");
    EXPECT_EQ(s.client.execute("empty", buf, sizeof buf), 0);   // L = 2
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(s.greetings, std::vector<std::string>{"TR"});
    ASSERT_EQ(s.requests.size(), 2u);
    EXPECT_EQ(s.requests[0].header, std::string("?1\0\0\0\3", 6));
    EXPECT_EQ(s.requests[1].kind, "?2");
}

TEST(PyClientProtocol, CommandLengthLimit) {
    Session s([](Request const&) { return response("OK", "x"); });
    char buf[16];
    std::string longest(4089, 'a'), tooLong(4090, 'b');
    s.client.eval(longest.c_str(), buf, sizeof buf);
    EXPECT_EQ(thrown<Zel::RangeException>([&] { s.client.eval(tooLong.c_str(), buf, sizeof buf); }).message(),
              "Remote eval/exec command was too long: " + tooLong + ", request cannot exceed 4090 bytes");
    s.client.eval("next", buf, sizeof buf);
    ASSERT_EQ(s.requests.size(), 2u);   // nothing was sent for the refused one
    EXPECT_EQ(s.requests[0].header, std::string("?1\0\0\x0f\xf9", 6));
    EXPECT_EQ(s.requests[0].command, longest);
    EXPECT_EQ(s.requests[1].command, "next");
}

TEST(PyClientProtocol, ResultBufferEdges) {
    Session s([](Request const& r) {
        return r.command == "raise-big" ? response("EX", "0123456789") : response("OK", r.command);
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
                                          "  The original exception follows:\n",
                                      0),
              0u)
        << e.message();
    EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x300000));
    EXPECT_EQ(err, notice(s.peer.path()));
    EXPECT_EQ(s.client.socket(), -1);
    EXPECT_EQ(s.requests.size(), 3u);   // the overflowing command went twice

    // A server exception that does not fit is an overflow too, not a
    // server exception.
    s.client.connect();
    failing([&] { s.client.eval("raise-big", buf, 8); }, &err);
}

TEST(PyClientProtocol, OverflowDrainWithOneByteBuffer) {
    // bufSize 1 stores only the terminator; the drain reads a byte at a
    // time and keeps all but the last chunk.
    Session s([](Request const&) { return response("OK", "wxyz"); });
    char one[1] = {'?'};
    std::string err, message = failing([&] { s.client.eval("w", one, 1); }, &err).message().str();
    std::string const tail = "The original exception follows:\nwxy";
    ASSERT_GE(message.size(), tail.size());
    EXPECT_EQ(message.substr(message.size() - tail.size()), tail);
    EXPECT_EQ(one[0], 'z');   // the buffer holds the last drained chunk
}

TEST(PyClientProtocol, ServerExceptionIsNotRetried) {
    Session s([](Request const&) { return response("EX", "Traceback: boom"); });
    char buf[64];
    auto e = thrown<Zel::RpcException>([&] { s.client.eval("boom()", buf, sizeof buf); });
    EXPECT_EQ(e.message(), "Traceback: boom");
    EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x100000));
    EXPECT_EQ(s.requests.size(), 1u);
    EXPECT_GE(s.client.socket(), 0);
}

TEST(PyClientProtocol, ReconnectsOnceAndResends) {
    std::vector<std::string> commands;
    // The first connection takes the command and closes; later ones answer.
    ScriptedPeer peer([&commands](int fd, int index) {
        greet(fd);
        Request r;
        while (readRequest(fd, &r)) {
            commands.push_back(r.command);
            if (index == 0) return;
            writeAll(fd, response("OK", "done " + r.command));
        }
    });
    Zel::PyClient client(Zel::String8(peer.path()), 'T', nullptr);
    client.connect();
    char buf[64];
    testing::internal::CaptureStderr();
    EXPECT_EQ(client.execute("work()", buf, sizeof buf), 11);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), notice(peer.path()));
    EXPECT_STREQ(buf, "done work()");
    EXPECT_EQ(commands, (std::vector<std::string>{"work()", "work()"}));
}

TEST(PyClientProtocol, FinalFailureText) {
    ScriptedPeer peer([](int fd, int) {
        greet(fd);
        Request r;
        readRequest(fd, &r);   // then close without an answer
    });
    Zel::PyClient client(Zel::String8(peer.path()), 'T', nullptr);
    client.connect();
    char buf[16];
    std::string err;
    EXPECT_EQ(failing([&] { client.eval("x", buf, sizeof buf); }, &err).message(),
              "Cannot talk to server " + peer.path() +
                  ", unrecoverable server failure:Peer of PyClient shut down the socket");
    EXPECT_EQ(err, notice(peer.path()));
}

TEST(PyClientProtocol, ReconnectNoticeNamesThePortWithoutADisplayName) {
    // A client built with a port has no display name; its notice names the
    // port. Nothing listens there, so the reconnection itself fails.
    int probe = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(probe, reinterpret_cast<sockaddr*>(&a), sizeof a);   // reserve a port, never listen
    socklen_t len = sizeof a;
    ::getsockname(probe, reinterpret_cast<sockaddr*>(&a), &len);
    int port = ntohs(a.sin_port);
    Zel::PyClient client(port, 'T', nullptr);
    client.retryProfileIs(kNoRetry);
    char buf[16];
    std::string err;
    // Never connected: the send fails first.
    EXPECT_EQ(failing([&] { client.eval("x", buf, sizeof buf); }, &err).message(), "Unable to connect to ");
    EXPECT_EQ(err, notice("port " + std::to_string(port)));
    client.retryProfileIs(Zel::PyClient::kDefaultRetryProfile);
    ::close(probe);
}

TEST(PyClientProtocol, ExhaustedProfileGivesUpWithoutWaiting) {
    TempDir dir;
    // A bound socket nobody listens on refuses connections.
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
    client.retryProfileIs(Zel::PyClient::kDefaultRetryProfile);
    ::close(s);
}

TEST(PyClientProtocol, DefaultRetryProfile) {
    unsigned total = 0, waits = 0;
    for (unsigned const* p = Zel::PyClient::kDefaultRetryProfile; *p; ++p, ++waits) total += *p;
    EXPECT_EQ(waits, 12u);
    EXPECT_EQ(total, 32000u);   // the sum of the twelve waits listed
    EXPECT_EQ(Zel::PyClient::retryProfile(), Zel::PyClient::kDefaultRetryProfile);
}

TEST(PyClientProtocol, InitCommandRunsAfterEveryConnect) {
    Session s([](Request const&) { return response("OK", "ignored"); }, "import os");
    s.client.connect();
    ASSERT_EQ(s.requests.size(), 2u);
    EXPECT_EQ(s.requests[0].kind, "?2");
    EXPECT_EQ(s.requests[1].command, "import os");
}

} // namespace
