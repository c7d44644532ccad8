// Agent files, EINTR in the socket layer, and same-process mode.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <fstream>

#include "PyClientTestSupport.h"
#include "Zel/Exception.h"
#include "ZelPy/PyClient.h"
#include "ZelPy/PyObjHandle.h"

using namespace zeltest;

namespace {

unsigned const kNoRetry[] = {0};

// Points ZELC_AGENTS_DIR at a fresh directory for the test's life.
class AgentsDir {
public:
    AgentsDir() { ::setenv("ZELC_AGENTS_DIR", dir_.path().c_str(), 1); }
    ~AgentsDir() {
        for (int fd : held_) ::close(fd);
        ::unsetenv("ZELC_AGENTS_DIR");
    }
    std::string file(std::string const& name) const { return dir_.path() + "/" + name; }
    // Writes an agent file; with `lock`, holds its flock like a live agent.
    std::string write(std::string const& name, std::string const& text, bool lock = true) {
        std::string path = file(name);
        std::ofstream(path) << text;
        if (lock) {
            int fd = ::open(path.c_str(), O_RDONLY);
            ::flock(fd, LOCK_EX);
            held_.push_back(fd);
        }
        return path;
    }

private:
    TempDir dir_;
    std::vector<int> held_;
};

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

TEST(PyClientDiscovery, AgentFiles) {
    AgentsDir dir;
    Zel::PyClient client = demoClient("a");
    struct {
        char const* name;
        std::string text;
        int port;
        char const* socket;
    } const live[] = {
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

TEST(PyClientDiscovery, MissingDirectoryFindsNothing) {
    ::setenv("ZELC_AGENTS_DIR", "/nonexistent/zelpy-agents", 1);
    Zel::PyClient client = demoClient("a");
    EXPECT_EQ(lookup(client, "/nonexistent/zelpy-agents/demo.a").port, -1);
    EXPECT_EQ(Zel::PyClient::agentsDir(), "/nonexistent/zelpy-agents");
    ::unsetenv("ZELC_AGENTS_DIR");
    EXPECT_EQ(Zel::PyClient::agentsDir(), "/var/run/agents");
}

TEST(PyClientDiscovery, ConnectByNameFollowsTheAgentFile) {
    AgentsDir dir;
    ScriptedPeer peer([](int fd, int) {
        greet(fd);
        Request r;
        while (readRequest(fd, &r)) writeAll(fd, response("OK", "agent:" + r.command));
    });
    dir.write("demo.live", "1\n0\n" + peer.path() + "\n");
    ::setenv("SUBSYSTEMID", "sub7", 1);
    Zel::PyClient client = demoClient("live");
    ::unsetenv("SUBSYSTEMID");
    EXPECT_EQ(client.serverName(), "demo.live.sub7");
    client.connect();
    char buf[32];
    client.eval("7", buf, sizeof buf);
    EXPECT_STREQ(buf, "agent:7");

    Zel::PyClient absent = demoClient("gone");
    absent.retryProfileIs(kNoRetry);
    EXPECT_EQ(thrown<Zel::RpcConnectionException>([&] { absent.connect(); }).message(),
              "Unable to connect to demo.gone");
    absent.retryProfileIs(Zel::PyClient::kDefaultRetryProfile);
}

// ---- EINTR ---------------------------------------------------------------

std::atomic<int> interrupts{0};
extern "C" void countInterrupt(int) { ++interrupts; }

// SIGUSR1 without SA_RESTART: blocking calls fail with EINTR.
struct InterruptingSignal {
    InterruptingSignal() {
        struct sigaction sa{};
        sa.sa_handler = countInterrupt;
        sigemptyset(&sa.sa_mask);
        sigaction(SIGUSR1, &sa, &old);
    }
    ~InterruptingSignal() { sigaction(SIGUSR1, &old, nullptr); }
    struct sigaction old;
};

// Interrupts `t` until the handler has run `n` more times.
void interrupt(std::thread& t, int n) {
    for (int target = interrupts + n; interrupts < target; std::this_thread::yield())
        pthread_kill(t.native_handle(), SIGUSR1);
}

TEST(PyClientTransport, InterruptedCallsAreRepeated) {
    InterruptingSignal sig;
    int sv[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);

    // recv, in both modes.
    int got = -1;
    char buf[8] = {};
    std::thread reader([&] { got = socketRecv(sv[0], buf, 4, true); });
    interrupt(reader, 3);
    writeAll(sv[1], "ab");
    interrupt(reader, 2);
    writeAll(sv[1], "cd");
    reader.join();
    EXPECT_EQ(got, 4);
    EXPECT_EQ(std::string(buf, 4), "abcd");

    std::thread single([&] { got = socketRecv(sv[0], buf, 8, false); });
    interrupt(single, 3);
    writeAll(sv[1], "e");
    single.join();
    EXPECT_EQ(got, 1);   // returns after the first chunk

    // send, blocked on a full socket buffer; finishing at all is the check.
    int small = 4096;
    ::setsockopt(sv[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    ::fcntl(sv[0], F_SETFL, O_NONBLOCK);
    while (::send(sv[0], buf, sizeof buf, MSG_NOSIGNAL) > 0) {
    }
    ::fcntl(sv[0], F_SETFL, 0);
    std::atomic<bool> sent{false};
    std::thread writer([&] {
        socketSend(sv[0], "zz", 2, 0);
        sent = true;
    });
    interrupt(writer, 3);
    std::vector<char> drain(1 << 20);
    ::fcntl(sv[1], F_SETFL, O_NONBLOCK);
    for (; !sent; std::this_thread::yield()) (void)::recv(sv[1], drain.data(), drain.size(), 0);
    writer.join();
    ::close(sv[0]);
    ::close(sv[1]);

    // connect, blocked on a UNIX listener whose backlog is full until one
    // queued connection is accepted. An abstract address leaves no file.
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::string const name = "zelpy-eintr-" + std::to_string(::getpid());
    std::memcpy(addr.sun_path + 1, name.data(), name.size());
    auto const len = static_cast<unsigned>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&addr), len), 0);
    ASSERT_EQ(::listen(listener, 0), 0);
    std::vector<int> queued;
    for (;;) {   // fill the backlog without blocking
        int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
        if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), len) != 0) {
            ::close(fd);
            break;
        }
        queued.push_back(fd);
    }
    int client = ::socket(AF_UNIX, SOCK_STREAM, 0);
    std::atomic<bool> connected{false};
    std::thread connector([&] {
        socketConnect(client, reinterpret_cast<sockaddr*>(&addr), len);
        connected = true;
    });
    interrupt(connector, 3);
    EXPECT_FALSE(connected);
    int accepted = ::accept(listener, nullptr, nullptr);   // frees a slot
    connector.join();
    EXPECT_TRUE(connected);
    for (int fd : queued) ::close(fd);
    for (int fd : {accepted, client, listener}) ::close(fd);
}

TEST(PyClientTransport, PeerCloseAndErrors) {
    int sv[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
    writeAll(sv[1], "xyz");
    ::shutdown(sv[1], SHUT_WR);
    char buf[8];
    EXPECT_EQ(socketRecv(sv[0], buf, 8, true), 3);   // peer closed after 3 bytes
    EXPECT_EQ(socketRecv(sv[0], buf, 8, true), 0);
    ::close(sv[0]);
    ::close(sv[1]);
    auto e = thrown<Zel::ErrnoException>([&] { socketRecv(sv[0], buf, 8, true); });
    EXPECT_EQ(e.errnum(), EBADF);
    EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x20000000));
    EXPECT_EQ(e.message(), Zel::errnoString(EBADF));
    EXPECT_EQ(e.context(), "");
    EXPECT_THROW(socketSend(-1, "x", 1, 0), Zel::ErrnoException);
}

// ---- same-process mode -----------------------------------------------------

// One interpreter for the test binary, its lock released for the tests.
void ensurePython() {
    static bool const ready = [] {
        Py_Initialize();
        PyEval_InitThreads();
        PyEval_SaveThread();
        return true;
    }();
    (void)ready;
}

struct Gil {
    PyGILState_STATE state = PyGILState_Ensure();
    ~Gil() { PyGILState_Release(state); }
};

Py_ssize_t refcount(PyObject* o) {
    Gil g;
    return Py_REFCNT(o);
}

// Runs `code`, then reports whether a Python error is pending.
bool py(char const* code) {
    Gil g;
    PyRun_SimpleString(code);
    return PyErr_Occurred() != nullptr;
}

TEST(PyObjHandle, ReferenceCounts) {
    ensurePython();
    PyObject *o, *p;
    {
        Gil g;
        o = PyList_New(0);
        p = PyList_New(0);
    }
    Py_ssize_t base = refcount(o);
    {
        Zel::Ptr<Zel::PyObjHandle> own = Zel::pyObjHandleFactory(o, false);
        EXPECT_EQ(refcount(o), base + 1);
        EXPECT_FALSE(own->passedRef());
    }
    EXPECT_EQ(refcount(o), base);
    {
        Zel::Ptr<Zel::PyObjHandle> adopted = Zel::pyObjHandleFactory(o, true);
        EXPECT_EQ(refcount(o), base);
        // Adopting another object drops the old reference, takes none.
        {
            Gil g;
            Py_INCREF(o);
            Py_INCREF(p);
        }
        adopted->pyObjectIs(p);
        EXPECT_EQ(refcount(o), base);
        EXPECT_EQ(refcount(p), 2);
    }
    EXPECT_EQ(refcount(p), 1);
    EXPECT_FALSE(Zel::pyObjHandleFactory(nullptr, false)->pyObject());
    EXPECT_EQ(Zel::typeNode("Zel::PyObjHandle")->baseType(), &Zel::PtrInterface::_zelType);
    Gil g;
    Py_DECREF(o);
    Py_DECREF(p);
}

TEST(PyClientSameProcess, LocalServerPerClient) {
    ensurePython();
    AgentsDir dir;
    dir.write("demo.me", std::to_string(::getpid()) + "\n0\n/none\n");
    Zel::PyClient client = demoClient("me");
    client.connect();
    EXPECT_TRUE(client.sameProcess());
    EXPECT_TRUE(client.connected());
    EXPECT_EQ(client.socket(), -1);
    EXPECT_EQ(client.localServer(), nullptr);   // made on the first command

    char buf[64];
    EXPECT_EQ(client.eval("6*7", buf, sizeof buf), 2);
    EXPECT_STREQ(buf, "42");
    Zel::PyObjHandle* server = client.localServer();
    EXPECT_EQ(client.execute("kept = 'yes'\nprint kept", buf, sizeof buf), 4);
    EXPECT_STREQ(buf, "yes\n");
    EXPECT_EQ(client.eval("kept", buf, sizeof buf), 5);
    EXPECT_EQ(client.localServer(), server);

    // A result longer than the buffer: cut and terminated, full length returned.
    char small[4];
    EXPECT_EQ(client.eval("'abcdef'", small, sizeof small), 8);
    EXPECT_STREQ(small, "'ab");

    auto e = thrown<Zel::RpcException>([&] { client.eval("1/0", buf, sizeof buf); });
    EXPECT_EQ(e.message(), "Error calling doEval on _LocalServer instance");
    EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x100000));
    EXPECT_FALSE(py(""));

    // Another client gets its own _LocalServer and namespace.
    Zel::PyClient other = demoClient("me");
    other.connect();
    EXPECT_THROW(other.eval("kept", buf, sizeof buf), Zel::RpcException);
    EXPECT_NE(other.localServer(), client.localServer());
}

TEST(PyClientSameProcess, BrokenPythonSide) {
    ensurePython();
    AgentsDir dir;
    dir.write("demo.me", std::to_string(::getpid()) + "\n");
    Zel::PyClient client = demoClient("me");
    client.connect();
    char buf[32];
    py("import PyServer\n"
       "saved = PyServer._LocalServer\n"
       "class NoMethods(object): pass\n");
    struct {
        char const* setup;
        bool exec;
        char const* message;
    } const broken[] = {
        {"PyServer._LocalServer = 5\n", false, "PyServer._LocalServer is not a type"},
        {"del PyServer._LocalServer\n", false, "Error occurred instantiating _LocalServer"},
        {"PyServer._LocalServer = NoMethods\n", true, "doExec attribute not found on _LocalServer instance"},
    };
    for (auto const& b : broken) {
        py(b.setup);
        auto e = thrown<Zel::RpcException>(
            [&] { b.exec ? client.execute("x = 1", buf, sizeof buf) : client.eval("1", buf, sizeof buf); });
        EXPECT_EQ(e.message(), b.message);
    }
    py("class NotText(object):\n"
       "    def doEval(self, cmd): return 12345\n"
       "PyServer._LocalServer = NotText\n");
    Zel::PyClient fresh = demoClient("me");
    fresh.connect();
    EXPECT_EQ(fresh.eval("anything", buf, sizeof buf), 5);   // str() of a non-string
    EXPECT_STREQ(buf, "12345");
    EXPECT_FALSE(py("PyServer._LocalServer = saved\n"));
}

} // namespace
