// zelc -i: the console. Lines are read from a terminal with line editing,
// history and completion, or plainly from anything else; the agent decides
// when they make a complete statement (the continuation prompt asks for
// more until then; an empty line ends a block), runs it in the
// connection's namespace and answers what it printed. Ctrl-C clears the
// line at the prompt and interrupts a running statement; Ctrl-D leaves.
#include <unistd.h>

#include <iostream>
#include <string>

#include "Client.h"
#include "ConsoleSession.h"
#include "CtrlC.h"
#include "ExitStatus.h"
#include "History.h"
#include "LineInput.h"

namespace zelc {

namespace {

constexpr char kPrompt[] = ">>> ";
constexpr char kContinuation[] = "... ";

int console(Options const& o, Zel::PyClient& client) {
    CtrlC ctrlC;
    ConsoleSession session(client, [&o] { return connectedClient(o, o.name); });
    bool terminal = ::isatty(0);
    std::unique_ptr<LineHistory> history;
    std::unique_ptr<LineInput> input;
    if (terminal) {
        std::cout << session.banner() << std::endl;
        history = std::make_unique<LineHistory>(LineHistory::defaultPath());
        input = terminalInput(ctrlC, *history, [&session](std::string_view line) {
            ConsoleSession::Completion c = session.complete(line);
            return std::make_pair(std::move(c.word), std::move(c.candidates));
        });
    } else {
        input = plainInput(ctrlC);
    }
    std::string block;   // the lines of a statement not yet complete
    for (;;) {
        Input in = input->read(block.empty() ? kPrompt : kContinuation);
        if (in.kind == Input::Kind::End) break;
        if (in.kind == Input::Kind::Interrupted) {
            block.clear();
            continue;
        }
        if (block.empty() && in.line.find_first_not_of(" \t") == std::string::npos) continue;
        std::string source = block.empty() ? in.line : block + '\n' + in.line;
        ConsoleSession::Outcome outcome;
        {
            WhileRunning interruptible(ctrlC, [&session] { session.interrupt(); });
            outcome = session.push(source);
        }
        switch (outcome.kind) {
        case ConsoleSession::Outcome::Kind::More: block = std::move(source); continue;
        case ConsoleSession::Outcome::Kind::Done: std::cout << outcome.text << std::flush; break;
        case ConsoleSession::Outcome::Kind::Raised: std::cerr << outcome.text << std::flush; break;
        }
        block.clear();
    }
    return kSuccess;
}

} // namespace

int runInteractive(Options const& o) {
    if (!o.args.empty() || !o.file.empty()) return usageError();
    std::unique_ptr<Zel::PyClient> client = makeClient(o, o.name);
    Output output;
    int status = connectClient(*client, agentLabel(o), output);
    if (status == kSuccess) {
        try {
            status = console(o, *client);
        } catch (...) {   // the connection lost, mid-statement too
            status = failure(output);
        }
    }
    output.flush();
    return status;
}

} // namespace zelc
