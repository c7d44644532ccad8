// The client against a scripted peer, one session walked through: greeting,
// framing, the command limit, server exceptions, result buffer edges,
// reconnection and the final failure; then connect failures and the retry
// profile.
#include <netinet/in.h>

#include "client/PyClientTestSupport.h"
#include "ZelPy/PyClient.h"

using namespace zeltest;

namespace {

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

TEST(PyClientProtocol, OneSessionThroughEveryEdge) {
    // "flaky" closes the connection the first time only, "drop" always.
    int flaky = 0;
    ScriptedPeer peer([&](Request const& r, int) {
        if (r.command == "drop" || (r.command == "flaky" && flaky++ == 0)) return std::string();
        if (r.command == "boom()") return response("EX", "Traceback: boom");
        if (r.command == "raise-big") return response("EX", "0123456789");
        if (r.command == "w") return response("OK", "wxyz");
        return response("OK", r.command == "empty" ? "" : r.command.substr(0, 8));
    });
    Zel::PyClient client(Zel::String8(peer.path()), 'T', "import os");
    client.connect();
    EXPECT_TRUE(client.connected());
    char buf[64];
    EXPECT_EQ(client.eval("1+1", buf, sizeof buf), 3);
    EXPECT_STREQ(buf, "1+1");
    EXPECT_EQ(client.execute("empty", buf, sizeof buf), 0);   // L = 2
    EXPECT_STREQ(buf, "");
    std::string longest(4089, 'a'), tooLong(4090, 'b');
    client.eval(longest.c_str(), buf, sizeof buf);
    EXPECT_EQ(message<Zel::RangeException>([&] { client.eval(tooLong.c_str(), buf, sizeof buf); }),
              "Remote eval/exec command was too long: " + tooLong + ", request cannot exceed 4090 bytes");
    // A server exception is not retried: the connection stays.
    auto e = thrown<Zel::RpcException>([&] { client.eval("boom()", buf, sizeof buf); });
    EXPECT_EQ(e.message(), "Traceback: boom");
    EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x100000));
    EXPECT_GE(client.socket(), 0);
    EXPECT_EQ(peer.greetings(), std::vector<std::string>(1, "TR"));
    EXPECT_EQ(peer.requests()[3].command, longest);   // a length using two bytes of the frame's four

    // bufSize - 1 bytes fit; one more overflows, is retried on a new
    // connection (the init command first), and fails again keeping the text.
    EXPECT_EQ(client.eval("1234567", buf, 8), 7);
    EXPECT_STREQ(buf, "1234567");
    std::string err;
    e = failing([&] { client.eval("abcdefgh", buf, 8); }, &err);
    EXPECT_EQ(e.message().str().rfind("Cannot talk to server " + peer.path() +
                                          ", unrecoverable server failure:Buffer for PyClient result was too small."
                                          "  The original exception follows:\n", 0), 0u) << e.message();
    EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x300000));
    EXPECT_EQ(err, notice(peer.path()));
    EXPECT_EQ(client.socket(), -1);
    // A server exception that does not fit is an overflow too.
    client.connect();
    failing([&] { client.eval("raise-big", buf, 8); }, &err);
    // bufSize 1 stores only the terminator; the drain reads a byte at a
    // time, keeps all but the last chunk and leaves that in the buffer.
    client.connect();
    char one[1] = {'?'};
    std::string text = failing([&] { client.eval("w", one, 1); }, &err).message().str();
    std::string const tail = "The original exception follows:\nwxy";
    ASSERT_GE(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
    EXPECT_EQ(one[0], 'z');

    // A closed connection is reconnected once and the command sent again.
    client.connect();
    testing::internal::CaptureStderr();
    EXPECT_EQ(client.execute("flaky", buf, sizeof buf), 5);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), notice(peer.path()));
    EXPECT_EQ(failing([&] { client.eval("drop", buf, sizeof buf); }, &err).message(),
              "Cannot talk to server " + peer.path() + ", unrecoverable server failure:Peer of PyClient shut down the socket");
    EXPECT_EQ(err, notice(peer.path()));
    std::vector<std::string> sent;
    for (Request const& r : peer.requests()) sent.push_back(r.kind + r.command.substr(0, 9));
    EXPECT_EQ(sent, (std::vector<std::string>{
                        "?2import os", "?11+1", "?2empty", "?1aaaaaaaaa", "?1boom()", "?11234567", "?1abcdefgh",
                        "?2import os", "?1abcdefgh", "?2import os", "?1raise-big", "?2import os", "?1raise-big",
                        "?2import os", "?1w", "?2import os", "?1w", "?2import os", "?2flaky", "?2import os", "?2flaky",
                        "?1drop", "?2import os", "?1drop"}));
    EXPECT_EQ(peer.greetings().size(), 9u);
}

TEST(PyClientProtocol, ConnectFailuresAndRetryProfile) {
    EXPECT_EQ(Zel::PyClient::retryProfile(), Zel::PyClient::kDefaultRetryProfile);

    // A bound socket nobody listens on refuses connections.
    TempDir dir;
    std::string path = dir.path + "/refusing.sock";
    int s = boundUnixSocket(path);
    ASSERT_GE(s, 0);
    Zel::PyClient client(Zel::String8(path), 'T', nullptr);
    unsigned const noRetry[] = {0}, once[] = {1, 0};
    client.retryProfileIs(noRetry);
    std::string err;
    auto e = failing([&] { client.connect(); }, &err);
    EXPECT_EQ(e.message(), "Unable to connect to " + path);
    EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x300000));
    EXPECT_EQ(err, "");
    EXPECT_FALSE(client.connected());
    EXPECT_EQ(client.socket(), -1);
    // One wait in the profile: two attempts, then the same failure.
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
    client.retryProfileIs(noRetry);
    char buf[16];
    EXPECT_EQ(failing([&] { byPort.eval("x", buf, sizeof buf); }, &err).message(), "Unable to connect to ");
    EXPECT_EQ(err, notice("port " + std::to_string(ntohs(in.sin_port))));
    client.retryProfileIs(Zel::PyClient::kDefaultRetryProfile);
    for (int fd : {s, probe}) ::close(fd);
}

} // namespace
