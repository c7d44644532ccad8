// evalWhole/executeWhole against a scripted peer: results and tracebacks
// larger than any buffer, commands longer than a frame sent in parts, and a
// command never sent twice when the connection goes.
#include "client/PyClientTestSupport.h"
#include "ZelPy/PyClient.h"

using namespace zeltest;

namespace {

TEST(PyClientWholeResult, AnySizeEachCommandSentOnce) {
    std::string const big(5 << 20, 'r');
    ScriptedPeer peer([&](Request const& r, int) {
        if (r.command == "drop") return std::string();
        if (r.command == "big") return response("OK", big);
        if (r.command == "fail") return response("EX", "Traceback:" + big);
        return response("OK", r.kind + ":" + std::to_string(r.command.size()));
    });
    Zel::PyClient client(Zel::String8(peer.path()), 'T', nullptr);
    client.connect();
    EXPECT_EQ(client.evalWhole("big").view(), big);
    EXPECT_EQ(client.executeWhole("").view(), "?2:0");
    auto e = thrown<Zel::RpcException>([&] { client.executeWhole("fail"); });
    EXPECT_EQ(e.message().view(), "Traceback:" + big);
    EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x100000));

    // Longer than a frame: parts of 4089 bytes, then the request with the
    // rest; the peer sees the command whole, once.
    std::string longCommand(2 * 4089 + 5, 'c');
    longCommand[4089] = 'd';
    size_t before = peer.requests().size();
    EXPECT_EQ(client.evalWhole(longCommand).view(), "?1:5");
    std::vector<Request> sent = peer.requests();
    ASSERT_EQ(sent.size() - before, 3u);
    std::string joined;
    for (size_t i = before; i < sent.size(); ++i) joined += sent[i].command;
    EXPECT_EQ(joined, longCommand);
    EXPECT_EQ(sent[before].kind + sent[before + 1].kind + sent[before + 2].kind, "?8?8?1");
    EXPECT_EQ(client.evalWhole(std::string(4089, 'x')).view(), "?1:4089");   // one frame, the largest

    // The peer goes after the command arrived: the command may have run,
    // so it is not sent again, and the caller is told so.
    before = peer.requests().size();
    auto lost = thrown<Zel::RpcConnectionException>([&] { client.executeWhole("drop"); });
    EXPECT_NE(lost.message().view().find("may or may not have run"), std::string_view::npos);
    EXPECT_EQ(peer.requests().size() - before, 1u);
    EXPECT_EQ(client.socket(), -1);
    // The next command connects afresh.
    EXPECT_EQ(client.evalWhole("1").view(), "?1:1");
    EXPECT_EQ(peer.greetings().size(), 2u);
}

} // namespace
