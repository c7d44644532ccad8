// Finding an agent's server through its agent file, and the names used.
#include <gmock/gmock.h>

#include "client/PyClientTestSupport.h"
#include "ZelPy/PyClient.h"

using namespace zeltest;

namespace {

bool exists(std::string const& p) { return ::access(p.c_str(), F_OK) == 0; }

Zel::PyServerContacts lookup(Zel::PyClient& client, std::string const& path) {
    Zel::PyServerContacts c;
    c.port = -1;
    c.socketName = "untouched";
    client.serverContacts(Zel::String8(path), &c);
    return c;
}

Zel::PyClient demoClient(char const* name) {
    return Zel::PyClient(Zel::String8("demo"), Zel::String8(name), 'T', nullptr, nullptr);
}

// Connecting by name through a live agent's file: test_client_e2e.
TEST(PyClientDiscovery, AgentFilesAndNames) {
    EXPECT_EQ(Zel::PyClient::agentsDir(), "/var/run/agents");
    AgentsDir dir;
    EXPECT_EQ(Zel::PyClient::agentsDir().str() + "/x", dir.file("x"));
    ::setenv("SUBSYSTEMID", "sub7", 1);
    EXPECT_EQ(demoClient("live").serverName(), "demo.live.sub7");
    ::unsetenv("SUBSYSTEMID");
    Zel::PyClient client = demoClient("a");
    struct { char const* name; std::string text; int port; char const* socket; } const live[] = {
        {"full", "1234\n4321\n/run/x.sock\n", 4321, "/run/x.sock"},
        {"nosock", "1234\n0\n", 0, "untouched"},
        // A third line without a newline in its first 108 bytes.
        {"long", "1234\n77\n" + std::string(110, 's') + "\n", 77, "untouched"},
        // One line without a newline, and a file filling the whole read
        // with no newline: nothing found, nothing read past the buffer.
        {"one", "1234", -1, "untouched"},
        {"nonl", std::string(300, '7'), -1, "untouched"},
        {"empty", "", -1, "untouched"},   // a live agent's empty file stays
    };
    for (auto const& c : live) {
        std::string path = dir.write(std::string("demo.") + c.name, c.text);
        auto found = lookup(client, path);
        EXPECT_EQ(found.port, c.port) << c.name;
        EXPECT_EQ(found.socketName, c.socket) << c.name;
        EXPECT_TRUE(exists(path)) << c.name;
    }
    // A file nobody holds belongs to a dead agent: removed.
    std::string dead = dir.write("demo.dead", "1234\n5\n/s\n", false);
    EXPECT_EQ(lookup(client, dead).port, -1);
    EXPECT_FALSE(exists(dead));
    EXPECT_EQ(lookup(client, dir.file("demo.none")).port, -1);   // missing file
    EXPECT_EQ(lookup(client, "/nonexistent/zelpy-agents/demo.a").port, -1);   // missing directory
    EXPECT_FALSE(client.sameProcess());
    // Another open failure is an error, with the path as context.
    std::string below = dir.file("demo.empty") + "/below-a-file";
    auto e = thrown<Zel::ErrnoException>([&] { lookup(client, below); });
    EXPECT_EQ(e.errnum(), ENOTDIR);
    EXPECT_EQ(e.context(), below);
    // This process's own pid: same-process mode, contacts untouched.
    auto self = lookup(client, dir.write("demo.self", std::to_string(::getpid()) + "\n99\n/s\n"));
    EXPECT_TRUE(client.sameProcess());
    EXPECT_EQ(self.port, -1);
    EXPECT_EQ(self.socketName, "untouched");
}

// A file others could have changed names no server. (A file and servers of
// another user, refused and then trusted by option or by variable:
// test_client_e2e.)
TEST(PyClientDiscovery, AgentFilesWritableByOthersAreRefused) {
    AgentsDir dir;
    Zel::PyClient client = demoClient("a");
    std::string const path = dir.write("demo.x", "1234\n0\n/s\n");
    auto refusal = [&] { return message<Zel::PermissionException>([&] { lookup(client, path); }); };
    for (mode_t mode : {0620, 0602}) {
        ::chmod(path.c_str(), mode);
        EXPECT_THAT(refusal(), testing::MatchesRegex("Agent file " + path +
                                                     " of uid [0-9]+.* is writable by others than its owner"));
    }
    ::chmod(path.c_str(), 0644);
    EXPECT_EQ(lookup(client, path).fileOwner, ::geteuid());
}

} // namespace
