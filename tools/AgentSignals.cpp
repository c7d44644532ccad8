#include "AgentSignals.h"

#include <pthread.h>
#include <signal.h>

namespace Zel {

namespace {
sigset_t stopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}
} // namespace

AgentSignals::AgentSignals() {
    sigset_t set = stopSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

AgentSignals::~AgentSignals() {
    if (waiter_.joinable()) {
        // Wake the waiter when the agent ends for another reason.
        if (!received_.load()) pthread_kill(waiter_.native_handle(), SIGTERM);
        waiter_.join();
    }
}

void AgentSignals::onSignalIs(std::function<void(int)> onSignal) {
    waiter_ = std::thread([this, onSignal = std::move(onSignal)] {
        sigset_t set = stopSignals();
        int sig = 0;
        while (sigwait(&set, &sig) != 0) {
        }
        received_.store(sig);
        onSignal(sig);
    });
}

} // namespace Zel
