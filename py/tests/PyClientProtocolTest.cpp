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

// A peer that answers every request of every connection with `reply`, and
// records what it received.
struct Recorder {
    std::vector<std::string> greetings;
    std::vector<Request> requests;
};

ScriptedPeer::Script answering(Recorder* rec, std::function<std::string(Request const&)> reply) {
    return [rec, reply](int fd, int) {
        rec->greetings.push_back(greet(fd));
        Request r;
        while (readRequest(fd, &r)) {
            rec->requests.push_back(r);
            writeAll(fd, reply(r));
        }
    };
}

TEST(PyClientProtocol, GreetingFramingAndEmptyResult) {
    Recorder rec;
    ScriptedPeer peer(answering(&rec, [](Request const& r) {
        return r.command == "empty" ? response("OK", "") : response("OK", "<" + r.command + ">");
    }));
    Zel::PyClient client(Zel::String8(peer.path()), 'T', nullptr);
    client.connect();
    EXPECT_TRUE(client.connected());
    char buf[64];
    EXPECT_EQ(client.eval("1+1", buf, sizeof buf), 5);
    EXPECT_STREQ(buf, "<1+1>");
    EXPECT_EQ(client.execute("empty", buf, sizeof buf), 0);   // L = 2
    EXPECT_STREQ(buf, "");
    ASSERT_EQ(rec.greetings.size(), 1u);
    EXPECT_EQ(rec.greetings[0], std::string("TR"));
    ASSERT_EQ(rec.requests.size(), 2u);
    EXPECT_EQ(rec.requests[0].header, std::string("?1\0\0\0\3", 6));
    EXPECT_EQ(rec.requests[1].kind, "?2");
}

TEST(PyClientProtocol, CommandLengthLimit) {
    Recorder rec;
    ScriptedPeer peer(answering(&rec, [](Request const&) { return response("OK", "x"); }));
    Zel::PyClient client(Zel::String8(peer.path()), 'T', nullptr);
    client.connect();
    char buf[16];
    std::string longest(4089, 'a');
    client.eval(longest.c_str(), buf, sizeof buf);
    std::string tooLong(4090, 'b');
    try {
        client.eval(tooLong.c_str(), buf, sizeof buf);
        FAIL() << "a 4090-byte command was accepted";
    } catch (Zel::RangeException const& e) {
        EXPECT_EQ(e.message(), "Remote eval/exec command was too long: " + tooLong +
                                   ", request cannot exceed 4090 bytes");
    }
    client.eval("next", buf, sizeof buf);
    ASSERT_EQ(rec.requests.size(), 2u);   // nothing was sent for the refused one
    EXPECT_EQ(rec.requests[0].header, std::string("?1\0\0\x0f\xf9", 6));
    EXPECT_EQ(rec.requests[0].command, longest);
    EXPECT_EQ(rec.requests[1].command, "next");
}

TEST(PyClientProtocol, ResultBufferEdges) {
    Recorder rec;
    ScriptedPeer peer(answering(&rec, [](Request const& r) {
        if (r.command == "raise-big") return response("EX", "0123456789");
        return response("OK", r.command);
    }));
    Zel::PyClient client(Zel::String8(peer.path()), 'T', nullptr);
    client.connect();
    char buf[8];
    EXPECT_EQ(client.eval("1234567", buf, 8), 7);   // bufSize - 1 bytes fit
    EXPECT_STREQ(buf, "1234567");

    // One byte more overflows, is retried on a new connection, and fails
    // again: the text keeps the overflow message.
    testing::internal::CaptureStderr();
    try {
        client.eval("abcdefgh", buf, 8);
        FAIL() << "overflow not reported";
    } catch (Zel::RpcConnectionException const& e) {
        EXPECT_EQ(e.message().str().rfind("Cannot talk to server " + peer.path() +
                                              ", unrecoverable server failure:Buffer for PyClient result was too small."
                                              "  The original exception follows:\n",
                                          0),
                  0u)
            << e.message();
        EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x300000));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[PyClient reconnecting to " + peer.path() + "]\n");
    EXPECT_EQ(client.socket(), -1);
    EXPECT_EQ(rec.requests.size(), 3u);   // the overflowing command went twice

    // A server exception that does not fit is an overflow too, not a
    // server exception.
    client.connect();
    testing::internal::CaptureStderr();
    EXPECT_THROW(client.eval("raise-big", buf, 8), Zel::RpcConnectionException);
    testing::internal::GetCapturedStderr();
}

TEST(PyClientProtocol, OverflowDrainWithOneByteBuffer) {
    // bufSize 1 stores only the terminator; the drain reads a byte at a
    // time and keeps all but the last chunk.
    Recorder rec;
    ScriptedPeer peer(answering(&rec, [](Request const&) { return response("OK", "wxyz"); }));
    Zel::PyClient client(Zel::String8(peer.path()), 'T', nullptr);
    client.connect();
    char one[1] = {'?'};
    testing::internal::CaptureStderr();
    try {
        client.eval("w", one, 1);
        FAIL();
    } catch (Zel::RpcConnectionException const& e) {
        std::string const tail = "The original exception follows:\nwxy";
        ASSERT_GE(e.message().size(), tail.size());
        EXPECT_EQ(e.message().str().substr(e.message().size() - tail.size()), tail);
    }
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(one[0], 'z');   // the buffer holds the last drained chunk
}

TEST(PyClientProtocol, ServerExceptionIsNotRetried) {
    Recorder rec;
    ScriptedPeer peer(answering(&rec, [](Request const&) { return response("EX", "Traceback: boom"); }));
    Zel::PyClient client(Zel::String8(peer.path()), 'T', nullptr);
    client.connect();
    char buf[64];
    try {
        client.eval("boom()", buf, sizeof buf);
        FAIL();
    } catch (Zel::RpcConnectionException const&) {
        FAIL() << "a server exception is not a connection failure";
    } catch (Zel::RpcException const& e) {
        EXPECT_EQ(e.message(), "Traceback: boom");
        EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x100000));
    }
    EXPECT_EQ(rec.requests.size(), 1u);
    EXPECT_GE(client.socket(), 0);
}

TEST(PyClientProtocol, ReconnectsOnceAndResends) {
    Recorder rec;
    // The first connection takes the command and closes; later ones answer.
    ScriptedPeer peer([&rec](int fd, int index) {
        greet(fd);
        Request r;
        while (readRequest(fd, &r)) {
            rec.requests.push_back(r);
            if (index == 0) return;
            writeAll(fd, response("OK", "done " + r.command));
        }
    });
    Zel::PyClient client(Zel::String8(peer.path()), 'T', nullptr);
    client.connect();
    char buf[64];
    testing::internal::CaptureStderr();
    EXPECT_EQ(client.execute("work()", buf, sizeof buf), 11);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[PyClient reconnecting to " + peer.path() + "]\n");
    EXPECT_STREQ(buf, "done work()");
    ASSERT_EQ(rec.requests.size(), 2u);
    EXPECT_EQ(rec.requests[1].command, "work()");
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
    testing::internal::CaptureStderr();
    try {
        client.eval("x", buf, sizeof buf);
        FAIL();
    } catch (Zel::RpcConnectionException const& e) {
        EXPECT_EQ(e.message(), "Cannot talk to server " + peer.path() +
                                   ", unrecoverable server failure:Peer of PyClient shut down the socket");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[PyClient reconnecting to " + peer.path() + "]\n");
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
    testing::internal::CaptureStderr();
    try {
        client.eval("x", buf, sizeof buf);   // never connected: the send fails first
        FAIL();
    } catch (Zel::RpcConnectionException const& e) {
        EXPECT_EQ(e.message(), "Unable to connect to ");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[PyClient reconnecting to port " + std::to_string(port) + "]\n");
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
    testing::internal::CaptureStderr();
    try {
        client.connect();
        FAIL();
    } catch (Zel::RpcConnectionException const& e) {
        EXPECT_EQ(e.message(), "Unable to connect to " + path);
        EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x300000));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
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
    Recorder rec;
    ScriptedPeer peer(answering(&rec, [](Request const&) { return response("OK", "ignored"); }));
    Zel::PyClient client(Zel::String8(peer.path()), 'T', "import os");
    client.connect();
    client.connect();
    ASSERT_EQ(rec.requests.size(), 2u);
    EXPECT_EQ(rec.requests[0].kind, "?2");
    EXPECT_EQ(rec.requests[1].command, "import os");
}

} // namespace
