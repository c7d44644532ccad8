// zelc --watch: one line per change, "DATE TIME ENTITY ATTR VALUE", until
// Ctrl-C (see ZelcOperator.h).
#include <poll.h>
#include <signal.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>

#include "ZelcOperator.h"
#include "Zel/Exception.h"

namespace Zelc {

namespace {

volatile sig_atomic_t interrupted = 0;

void onInterrupt(int) { interrupted = 1; }

// Ctrl-C ends the wait for the next change; the previous handling comes
// back with the scope.
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

// True when a frame can be read; false once Ctrl-C was pressed.
bool waitForFrame(int fd) {
    pollfd p{fd, POLLIN, 0};
    while (!interrupted) {
        if (::poll(&p, 1, -1) > 0) return true;
        if (errno != EINTR) return true;   // let the read report what is wrong
    }
    return false;
}

} // namespace

int watchMode(Zel::PyClient& client, std::string const& fullName, std::vector<std::string> const& attrs) {
    InterruptScope scope;
    std::string entity;
    try {
        std::vector<Zel::String8> names(attrs.begin(), attrs.end());
        entity = std::string(client.watch(Zel::String8(fullName), names).view());
        Zel::PyClient::WatchEvent e;
        while (waitForFrame(client.socket())) {
            client.nextChange(&e);
            if (e.attr.empty()) {
                std::cout << localTime(std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count()) << ' ' << entity << " (" << e.dropped
                          << " changes dropped: read too slowly)\n";
            } else {
                std::cout << localTime(e.time) << ' ' << entity << ' ' << e.attr << ' ' << e.value << '\n';
            }
            std::cout.flush();
        }
        return 0;
    } catch (Zel::RpcConnectionException const& e) {
        std::cerr << "zelc: the agent ended the watch of " << (entity.empty() ? fullName : entity) << ": "
                  << e.message() << std::endl;
        return 2;
    } catch (Zel::RpcException const& e) {
        std::cerr << e.message();
        if (e.message().empty() || e.message().view().back() != '\n') std::cerr << '\n';
        return 1;
    } catch (Zel::RangeException const& e) {
        std::cerr << "zelc: " << e.message() << std::endl;
        return 3;
    }
}

} // namespace Zelc
