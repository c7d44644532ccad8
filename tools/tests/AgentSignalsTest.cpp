// The agent's signal waiter: the signal it took is read by the agent's own
// thread while the waiter may be writing it.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "../AgentSignals.h"

using namespace Zel;

TEST(AgentSignals, TheSignalTakenIsSeenByTheAgentThread) {
    AgentSignals signals;   // blocks SIGTERM here before the waiter starts
    std::atomic<int> called{0};
    signals.onSignalIs([&](int sig) { called.store(sig); });
    EXPECT_EQ(signals.received(), 0);
    ::kill(::getpid(), SIGTERM);
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    // Polled while the waiter writes it, as the agent does.
    while (signals.received() == 0 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(signals.received(), SIGTERM);
}

TEST(AgentSignals, EndingWithoutASignalWakesAndJoinsTheWaiter) {
    std::atomic<int> called{0};
    {
        AgentSignals signals;
        signals.onSignalIs([&](int sig) { called.store(sig); });
    }
    EXPECT_EQ(called.load(), SIGTERM) << "the destructor wakes the waiter with SIGTERM";
}
