// Ctrl-C in zelc's console and plain commands: SIGINT is caught for the console's life (no
// restarted calls: a read waiting at the prompt ends with EINTR) and each
// one becomes a byte on a pipe, which whoever waits can poll. While a
// command runs, a thread of WhileRunning's takes them and asks the agent
// to interrupt the command.
#pragma once

#include <signal.h>

#include <functional>
#include <thread>

#include "Zel/Fd.h"

namespace zelc {

class CtrlC {
public:
    CtrlC();
    ~CtrlC();
    CtrlC(CtrlC const&) = delete;
    CtrlC& operator=(CtrlC const&) = delete;

    // Whether Ctrl-C was pressed since the last call.
    bool taken();
    // Readable once Ctrl-C was pressed.
    int fd() const { return read_.get(); }
    // From now on Ctrl-C does what it did before this CtrlC (by default,
    // ends the process): for a second press while the first is handled.
    void letNextEnd();
    // Whether Ctrl-C is ignored now (as in a command a shell started in
    // the background): then nothing should catch it.
    static bool ignored();

private:
    Zel::Fd read_, write_;
    struct sigaction saved_;
};

// For its scope, each Ctrl-C calls `onPress` on a thread of its own.
class WhileRunning {
public:
    WhileRunning(CtrlC& ctrlC, std::function<void()> onPress);
    ~WhileRunning();
    WhileRunning(WhileRunning const&) = delete;
    WhileRunning& operator=(WhileRunning const&) = delete;

private:
    Zel::Fd stopRead_, stopWrite_;
    std::thread thread_;
};

} // namespace zelc
