// The socket layer: EINTR repeats the call, a closed peer ends a receive,
// other failures are errno exceptions. (Connecting over TCP: zelc -p in
// test_client_e2e.)
#include <pthread.h>
#include <signal.h>

#include <cstddef>

#include "client/PyClientTestSupport.h"
#include "ZelPy/PyClient.h"

using namespace zeltest;

namespace {

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

// Runs `call` on a thread, interrupts it three times while it blocks, then
// runs `release(poke)`, which unblocks it (poke(n) interrupts it n more
// times), and waits for it.
template <class Call, class Release>
void interrupted(Call call, Release release) {
    std::atomic<bool> done{false};
    std::thread t([&] {
        call();
        done = true;
    });
    auto poke = [&](int n) {
        for (int target = interrupts + n; interrupts < target; std::this_thread::yield()) pthread_kill(t.native_handle(), SIGUSR1);
    };
    poke(3);
    EXPECT_FALSE(done);
    release(poke);
    t.join();
}

TEST(PyClientTransport, InterruptedCallsAreRepeated) {
    InterruptingSignal sig;
    int sv[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
    // recv, in both modes: all of it, or the first chunk.
    int got = -1;
    char buf[8] = {};
    interrupted([&] { got = socketRecv(sv[0], buf, 4, true); }, [&](auto poke) {
        writeAll(sv[1], "ab");
        poke(2);
        writeAll(sv[1], "cd");
    });
    EXPECT_EQ(got, 4);
    EXPECT_EQ(std::string(buf, 4), "abcd");
    interrupted([&] { got = socketRecv(sv[0], buf, 8, false); }, [&](auto) { writeAll(sv[1], "e"); });
    EXPECT_EQ(got, 1);

    // send, blocked on a full socket buffer; finishing at all is the check.
    int small = 4096;
    ::setsockopt(sv[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    ::fcntl(sv[0], F_SETFL, O_NONBLOCK);
    while (::send(sv[0], buf, sizeof buf, MSG_NOSIGNAL) > 0) {
    }
    ::fcntl(sv[0], F_SETFL, 0);
    std::vector<char> drain(1 << 20);
    interrupted([&] { socketSend(sv[0], "zz", 2, 0); }, [&](auto) {
        while (::recv(sv[1], drain.data(), drain.size(), MSG_DONTWAIT) > 0) {
        }
    });
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
    for (int fd; (fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)) >= 0; queued.push_back(fd)) {
        if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), len) != 0) {   // the backlog is full
            ::close(fd);
            break;
        }
    }
    int client = ::socket(AF_UNIX, SOCK_STREAM, 0);
    interrupted([&] { socketConnect(client, reinterpret_cast<sockaddr*>(&addr), len); },
                [&](auto) { queued.push_back(::accept(listener, nullptr, nullptr)); });   // frees a slot
    for (int fd : queued) ::close(fd);
    for (int fd : {client, listener}) ::close(fd);
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
    EXPECT_EQ(e.errnum(), EBADF);   // its ids and text: the runtime's ExceptionTest
    EXPECT_EQ(e.context(), "");
    EXPECT_THROW(socketSend(-1, "x", 1, 0), Zel::ErrnoException);
}

} // namespace
