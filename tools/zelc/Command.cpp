// zelc's default mode: one command (its words, standard input for "-", or
// -f FILE), evaluated or executed in one agent, or in every live agent
// whose name matches a pattern, at once. Ctrl-C interrupts the command in
// each agent, as the console's Ctrl-C does (Interrupter.h), so that it ends
// with the agent's KeyboardInterrupt instead of running on; a second one
// ends zelc.
#include <fnmatch.h>
#include <signal.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <optional>
#include <sstream>
#include <thread>
#include <vector>

#include "Agents.h"
#include "Client.h"
#include "CtrlC.h"
#include "ExitStatus.h"
#include "Interrupter.h"

namespace zelc {

namespace {

// The whole of `in`; false when it could not be read.
bool readAll(std::istream& in, std::string& text) {
    std::ostringstream all;
    all << in.rdbuf();
    text = all.str();
    return !in.bad();
}

// The command `o` gives: kSuccess with it in `cmd`, or the status to end
// with, its line written.
int commandText(Options const& o, std::string& cmd) {
    if (!o.file.empty()) {
        if (!o.args.empty()) return usageError();
        std::ifstream in(o.file, std::ios::binary);
        if (!in || !readAll(in, cmd)) return fail(kLocal, "cannot read " + o.file + ": " + std::strerror(errno));
        return kSuccess;
    }
    if (o.args.size() == 1 && o.args[0] == "-") {
        if (!readAll(std::cin, cmd)) return fail(kLocal, "cannot read standard input");
        return kSuccess;
    }
    cmd = o.joinedArgs();
    return cmd.empty() ? usageError() : kSuccess;
}

// The commands running now, one per agent, for Ctrl-C to interrupt.
class Running {
public:
    // For its scope, `interrupter`'s command is running.
    class Entry {
    public:
        Entry(Running& running, Interrupter const& interrupter) : running_(running), interrupter_(interrupter) {
            std::lock_guard<std::mutex> lock(running_.mutex_);
            running_.interrupters_.push_back(&interrupter_);
        }
        ~Entry() {
            std::lock_guard<std::mutex> lock(running_.mutex_);
            std::erase(running_.interrupters_, &interrupter_);
        }
        Entry(Entry const&) = delete;
        Entry& operator=(Entry const&) = delete;

    private:
        Running& running_;
        Interrupter const& interrupter_;
    };

    // Interrupts every running command; false when none was interrupted.
    // The lock is held throughout, so that none ends (its Interrupter
    // gone) meanwhile.
    bool interruptAll() {
        std::lock_guard<std::mutex> lock(mutex_);
        bool any = false;
        for (Interrupter const* i : interrupters_) any = i->interrupt() || any;
        return any;
    }

private:
    std::mutex mutex_;
    std::vector<Interrupter const*> interrupters_;
};

// Runs `cmd` in the agent `name` (or the one `o` addresses by socket or
// port when `name` is empty), where `running` can interrupt it; what it
// prints goes to `output`.
int runIn(Options const& o, std::string const& name, bool exec, std::string const& cmd, Running& running,
          Output& output) {
    std::unique_ptr<Zel::PyClient> client = makeClient(o, name);
    int status = connectClient(*client, name.empty() ? agentLabel(o) : name, output);
    if (status != kSuccess) return status;
    try {
        Interrupter interrupter(*client, [&o, &name] { return connectedClient(o, name); },
                                "the command had ended");
        Running::Entry entry(running, interrupter);
        Zel::String8 result = exec ? client->executeWhole(cmd) : client->evalWhole(cmd);
        output.outMoved(std::string(result.view()));
        if (!exec) output.out("\n");
        return kSuccess;
    } catch (...) {
        return failure(output);
    }
}

// Runs `cmd` in every live agent matching `pattern`, each on a thread of
// its own; each agent's lines go out when it is done. The worst status.
int runEverywhere(Options const& o, bool exec, std::string const& cmd, Running& running) {
    std::vector<std::string> names;
    for (AgentEntry const& e : agents()) {
        if (e.live && ::fnmatch(o.name.c_str(), e.name.c_str(), 0) == 0) names.push_back(e.name);
    }
    if (names.empty()) return fail(kUnreachable, "no live agent matches " + o.name);
    std::mutex writing;
    int worst = kSuccess;
    std::vector<std::thread> runs;
    for (std::string const& name : names) {
        runs.emplace_back([&, name] {
            Output output(name);
            int status;
            try {
                status = runIn(o, name, exec, cmd, running, output);
            } catch (...) {   // nothing leaves a thread
                status = failure(output);
            }
            std::lock_guard<std::mutex> lock(writing);
            if (!output.flush() && status == kSuccess) status = kLocal;
            worst = std::max(worst, status);
        });
    }
    for (std::thread& t : runs) t.join();
    return worst;
}

} // namespace

int runCommand(Options const& o) {
    std::string cmd;
    if (int status = commandText(o, cmd); status != kSuccess) return status;
    bool exec = o.exec || !o.file.empty();
    Running running;
    std::optional<CtrlC> ctrlC;
    std::optional<WhileRunning> interruptible;
    if (!CtrlC::ignored()) {
        ctrlC.emplace();
        // The first Ctrl-C interrupts; one while that is asked, or with no
        // command running yet, ends zelc as Ctrl-C would have.
        interruptible.emplace(*ctrlC, [&ctrlC, &running] {
            ctrlC->letNextEnd();
            if (!running.interruptAll()) ::raise(SIGINT);
        });
    }
    if (!o.name.empty() && isPattern(o.name)) return runEverywhere(o, exec, cmd, running);
    Output output;
    int status = runIn(o, o.name, exec, cmd, running, output);
    if (!output.flush() && status == kSuccess) status = kLocal;
    return status;
}

} // namespace zelc
