// SIGINT and SIGTERM, blocked in every thread and taken by one waiting
// thread, so the agent stops in an orderly way instead of in a handler.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace Zel {

class AgentSignals {
public:
    // Blocks SIGINT and SIGTERM on the calling thread; threads created
    // later inherit the mask. Call before any other thread starts.
    AgentSignals();
    // Joins the waiting thread (waking it first if no signal came).
    ~AgentSignals();
    AgentSignals(AgentSignals const&) = delete;
    AgentSignals& operator=(AgentSignals const&) = delete;

    // Starts the thread that waits for the first signal and then calls
    // `onSignal` (from that thread).
    void onSignalIs(std::function<void(int)> onSignal);
    // The signal received, 0 if none yet.
    int received() const { return received_.load(); }

private:
    std::thread waiter_;
    // Written by the waiting thread, read by the agent's: volatile would
    // not order the two threads' accesses.
    std::atomic<int> received_{0};
};

} // namespace Zel
