// zelc --watch: the changes of one entity as the agent pushes them, a line
// each ("DATE TIME ENTITY ATTR VALUE"), until Ctrl-C, which ends the watch
// with kSuccess.
#include <poll.h>
#include <signal.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>

#include "Client.h"
#include "ExitStatus.h"
#include "Zel/Exception.h"

namespace zelc {

namespace {

volatile sig_atomic_t interrupted = 0;

void onInterrupt(int) { interrupted = 1; }

// Ctrl-C ends the wait for the next change; the handling before comes back
// with the scope.
class InterruptScope {
public:
    InterruptScope() {
        struct sigaction sa {};
        sa.sa_handler = onInterrupt;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = 0;   // no restart: poll() returns at once
        ::sigaction(SIGINT, &sa, &saved_);
    }
    ~InterruptScope() { ::sigaction(SIGINT, &saved_, nullptr); }
    InterruptScope(InterruptScope const&) = delete;
    InterruptScope& operator=(InterruptScope const&) = delete;

private:
    struct sigaction saved_ {};
};

// "2026-11-23 19:30:01.123456" in local time, as trace lines have it.
std::string localTime(double seconds) {
    time_t whole = static_cast<time_t>(seconds);
    long micros = static_cast<long>((seconds - static_cast<double>(whole)) * 1e6);
    if (micros < 0 || micros > 999999) micros = 0;
    tm parts{};
    ::localtime_r(&whole, &parts);
    char text[64];
    size_t n = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    std::snprintf(text + n, sizeof text - n, ".%06ld", micros);
    return text;
}

double now() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// True when a frame can be read; false once Ctrl-C was pressed.
bool waitForFrame(int fd) {
    pollfd p{fd, POLLIN, 0};
    while (!interrupted) {
        if (::poll(&p, 1, -1) > 0) return true;
        if (errno != EINTR) return true;   // the read reports what is wrong
    }
    return false;
}

} // namespace

int runWatch(Options const& o) {
    if (o.args.empty() || o.exec) return usageError();
    InterruptScope scope;
    std::unique_ptr<Zel::PyClient> client = makeClient(o, o.name);
    Output output;
    int status = connectClient(*client, agentLabel(o), output);
    std::string entity = o.args[0];
    try {
        if (status == kSuccess) {
            entity = std::string(client->watch(Zel::String8(entity), {o.args.begin() + 1, o.args.end()}).view());
        }
    } catch (...) {
        status = failure(output);
    }
    output.flush();
    if (status != kSuccess) return status;
    try {
        Zel::PyClient::WatchEvent e;
        while (waitForFrame(client->socket())) {
            client->nextChange(&e);
            if (e.attr.empty()) {
                std::cout << localTime(now()) << ' ' << entity << " (" << e.dropped
                          << " changes dropped: read too slowly)\n";
            } else {
                std::cout << localTime(e.time) << ' ' << entity << ' ' << e.attr << ' ' << e.value << '\n';
            }
            if (!std::cout.flush()) return fail(kLocal, "cannot write standard output");
        }
        return kSuccess;
    } catch (Zel::RpcConnectionException const& e) {
        return fail(kUnreachable, "the agent ended the watch of " + entity + ": " + std::string(e.message().view()));
    } catch (...) {
        Output failed;
        status = failure(failed);
        failed.flush();
        return status;
    }
}

} // namespace zelc
