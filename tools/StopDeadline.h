// The last resort of an agent's stop: a command can keep the interpreter
// lock for good (a loop inside one native call), and then the orderly stop,
// which needs that lock, never runs. Armed when the stop signal comes, the
// deadline removes the agent's socket and agent file itself and ends the
// process, unless the orderly stop has finished by then.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace Zel {

class StopDeadline {
public:
    // `agentFile`: the agent's file, whose third line names its socket.
    StopDeadline(std::string agentFile, std::chrono::milliseconds bound);
    // Cancels a deadline still running and joins its thread.
    ~StopDeadline();
    StopDeadline(StopDeadline const&) = delete;
    StopDeadline& operator=(StopDeadline const&) = delete;

    // Starts counting (once; from any thread).
    void arm();
    // The orderly stop is over: the deadline does nothing.
    void cancel();

private:
    void expire();

    std::string agentFile_;
    std::chrono::milliseconds bound_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool cancelled_ = false;
    std::thread thread_;
};

} // namespace Zel
