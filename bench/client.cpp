// Eval round trips of "1+1" through Zel::PyClient against the project's
// own server (zelagent), over UNIX and TCP, beside the floor F4: a raw
// ping-pong of the same message sizes (a 9-byte request, a 7-byte
// response) between this process and a forked echo process, over the
// same kind of socket. The agent and the echo process are forked from
// this one, so they inherit its CPU affinity (run the program under
// `taskset -c 0` to measure both ends on one CPU).
//
// Each BM_ClientEval run also reports x_F4, its time per round trip over
// that of the BM_PingPong run of the same transport (when that ran first,
// as it does in registration order).
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "Zel/Fd.h"
#include "ZelPy/PyClient.h"

namespace {

struct Agent {
    std::string dir;
    pid_t pid = -1;
    int port = 0;
    std::string socketPath;

    Agent() {
        char tmpl[] = "/tmp/zelbenchXXXXXX";
        dir = ::mkdtemp(tmpl);
        ::setenv("ZELC_AGENTS_DIR", dir.c_str(), 1);
        char const* build = std::getenv("ZEL_BUILD_DIR");
        std::string bin = std::string(build ? build : ".") + "/bin/zelagent";
        int pipefd[2];
        if (::pipe(pipefd) != 0) std::abort();
        pid = ::fork();
        if (pid == 0) {
            ::dup2(pipefd[1], 1);
            ::execl(bin.c_str(), "zelagent", "bench.agent", "--tcp", "0", static_cast<char*>(nullptr));
            std::_Exit(127);
        }
        ::close(pipefd[1]);
        FILE* out = ::fdopen(pipefd[0], "r");
        char line[256];
        while (std::fgets(line, sizeof line, out) && std::string(line).rfind("zelagent bench.agent ready", 0) != 0) {
        }
        std::ifstream f(dir + "/bench.agent");
        int agentPid;
        f >> agentPid >> port >> socketPath;
    }
    ~Agent() {
        ::kill(pid, SIGTERM);
        ::waitpid(pid, nullptr, 0);
        std::system(("rm -rf " + dir).c_str());
    }
};

Agent& agent() {
    static Agent a;
    return a;
}

char const kCmd[] = "1+1";   // answer "2": a 9-byte request, a 7-byte response
char const kRequest[9] = {'?', '1', 0, 0, 0, 3, '1', '+', '1'};
char const kResponse[7] = {0, 0, 0, 3, 'O', 'K', '2'};

// Nanoseconds per round trip of the last BM_PingPong run, by transport.
double floorNs[2];

// Times the benchmark's loop as Google Benchmark does (wall clock), to
// relate one run to another.
class LoopClock {
public:
    LoopClock() : start_(std::chrono::steady_clock::now()) {}
    double nsPer(benchmark::IterationCount n) const {
        std::chrono::duration<double, std::nano> d = std::chrono::steady_clock::now() - start_;
        return n ? d.count() / double(n) : 0;
    }

private:
    std::chrono::steady_clock::time_point start_;
};

bool recvAll(int fd, char* buf, size_t n) {
    for (size_t got = 0; got < n;) {
        ssize_t r = ::recv(fd, buf + got, n - got, 0);
        if (r <= 0) return false;
        got += size_t(r);
    }
    return true;
}

// Two connected stream sockets: a UNIX-domain pair, or both ends of a TCP
// connection over 127.0.0.1 with Nagle off on the answering end, as the
// server has it.
bool connectedPair(bool tcp, Zel::Fd fds[2]) {
    if (!tcp) {
        int pair[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) return false;
        fds[0].reset(pair[0]);
        fds[1].reset(pair[1]);
        return true;
    }
    Zel::Fd listener(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    bool ok = listener.valid() && ::bind(listener.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
              ::listen(listener.get(), 1) == 0 &&
              ::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&addr), &len) == 0;
    if (ok) fds[0].reset(::socket(AF_INET, SOCK_STREAM, 0));
    ok = ok && fds[0].valid() && ::connect(fds[0].get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    if (ok) fds[1].reset(::accept(listener.get(), nullptr, nullptr));
    int one = 1;
    return ok && fds[1].valid() && ::setsockopt(fds[1].get(), IPPROTO_TCP, TCP_NODELAY, &one, sizeof one) == 0;
}

void BM_PingPong(benchmark::State& state, bool tcp) {
    Zel::Fd fds[2];
    if (!connectedPair(tcp, fds)) {
        state.SkipWithError("cannot make a connected socket pair");
        return;
    }
    pid_t echo = ::fork();
    if (echo == 0) {
        fds[0].reset();
        char req[sizeof kRequest];
        while (recvAll(fds[1].get(), req, sizeof req) &&
               ::send(fds[1].get(), kResponse, sizeof kResponse, 0) == sizeof kResponse) {
        }
        std::_Exit(0);
    }
    fds[1].reset();
    char resp[sizeof kResponse];
    LoopClock clock;
    for (auto _ : state) {
        ::send(fds[0].get(), kRequest, sizeof kRequest, 0);
        recvAll(fds[0].get(), resp, sizeof resp);
    }
    floorNs[tcp] = clock.nsPer(state.iterations());
    fds[0].reset();   // the echo process sees the end and exits
    ::waitpid(echo, nullptr, 0);
}

void BM_ClientEval(benchmark::State& state, bool tcp) {
    ::signal(SIGPIPE, SIG_IGN);
    Agent& a = agent();
    Zel::PyClient client = tcp ? Zel::PyClient(a.port, 'B', nullptr) : Zel::PyClient(Zel::String8(a.socketPath), 'B', nullptr);
    client.connect();
    char buf[64];
    LoopClock clock;
    for (auto _ : state) benchmark::DoNotOptimize(client.eval(kCmd, buf, sizeof buf));
    double ns = clock.nsPer(state.iterations());
    if (floorNs[tcp] > 0) state.counters["x_F4"] = ns / floorNs[tcp];
}

BENCHMARK_CAPTURE(BM_PingPong, unix, false);
BENCHMARK_CAPTURE(BM_PingPong, tcp, true);
BENCHMARK_CAPTURE(BM_ClientEval, unix, false);
BENCHMARK_CAPTURE(BM_ClientEval, tcp, true);

} // namespace

BENCHMARK_MAIN();
