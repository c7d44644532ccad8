// Eval round trips per second through Zel::PyClient against the project's
// own server (zelagent), over UNIX and TCP, beside a raw socket ping-pong
// of the same frame sizes; the ratio is printed as a counter.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

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

void clientRoundTrips(benchmark::State& state, bool tcp) {
    ::signal(SIGPIPE, SIG_IGN);
    Agent& a = agent();
    Zel::PyClient client = tcp ? Zel::PyClient(a.port, 'B', nullptr) : Zel::PyClient(Zel::String8(a.socketPath), 'B', nullptr);
    client.connect();
    char buf[64];
    for (auto _ : state) benchmark::DoNotOptimize(client.eval(kCmd, buf, sizeof buf));
    state.counters["round trips/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

// The floor: the same byte counts bounced between two threads.
void rawPingPong(benchmark::State& state) {
    int sv[2];
    ::socketpair(AF_UNIX, SOCK_STREAM, 0, sv);
    std::thread echo([fd = sv[1]] {
        char req[9];
        char const resp[7] = {0, 0, 0, 3, 'O', 'K', '2'};
        while (::recv(fd, req, sizeof req, MSG_WAITALL) == sizeof req) ::send(fd, resp, sizeof resp, 0);
    });
    char const req[9] = {'?', '1', 0, 0, 0, 3, '1', '+', '1'};
    char resp[7];
    for (auto _ : state) {
        ::send(sv[0], req, sizeof req, 0);
        ::recv(sv[0], resp, sizeof resp, MSG_WAITALL);
    }
    ::shutdown(sv[0], SHUT_RDWR);
    echo.join();
    ::close(sv[0]);
    ::close(sv[1]);
    state.counters["round trips/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_ClientEvalUnix(benchmark::State& state) { clientRoundTrips(state, false); }
void BM_ClientEvalTcp(benchmark::State& state) { clientRoundTrips(state, true); }
void BM_RawPingPong(benchmark::State& state) { rawPingPong(state); }

BENCHMARK(BM_RawPingPong);
BENCHMARK(BM_ClientEvalUnix);
BENCHMARK(BM_ClientEvalTcp);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    struct Rates : benchmark::ConsoleReporter {
        double raw = 0;
        void ReportRuns(std::vector<Run> const& runs) override {
            ConsoleReporter::ReportRuns(runs);
            for (Run const& r : runs) {
                double rate = r.GetAdjustedRealTime() > 0 ? 1.0 / r.GetAdjustedRealTime() : 0;
                if (r.benchmark_name() == "BM_RawPingPong") raw = rate;
                else if (raw > 0) std::printf("%s: %.1fx slower than the raw ping-pong\n", r.benchmark_name().c_str(), raw / rate);
            }
        }
    } reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
