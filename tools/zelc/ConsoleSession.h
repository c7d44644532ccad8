// The console's exchanges with its agent (zelc -i), on the client's
// connection: the agent decides whether the lines typed so far are a
// complete statement and runs it, completes names and attributes, and, on
// a second short connection, interrupts the statement running on the
// first (see docs/protocol.md, the console's requests).
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Interrupter.h"
#include "ZelPy/PyClient.h"

namespace zelc {

class ConsoleSession {
public:
    // Opens a connection to the same agent, for an interrupt request.
    using Connector = Interrupter::Connector;

    // Greets the agent's console on `client`'s connection. Throws as
    // PyClient does.
    ConsoleSession(Zel::PyClient& client, Connector connectAnother);

    // The agent's one-line banner: its name, pid and Python version.
    std::string const& banner() const { return interrupter_.banner(); }

    struct Outcome {
        enum class Kind { Done, Raised, More } kind;
        std::string text;   // what the statement printed, or the error
    };
    // Hands the lines typed so far (joined by newlines) to the agent:
    // More when they are not yet a complete statement (nothing ran).
    Outcome push(std::string const& source);

    struct Completion {
        std::string word;                     // the word being completed
        std::vector<std::string> candidates;  // each a replacement for it
    };
    Completion complete(std::string_view line);

    // From another thread while push() waits: asks the agent to interrupt
    // the statement. False, with a line on standard error, when it could
    // not be asked or ran none.
    bool interrupt() const;

private:
    // The console's requests go on the connection it greeted (its
    // namespace, the token that interrupts it): one the agent closed is
    // not replaced, it ends the console (RpcConnectionException).
    void connectionKept() const;

    Zel::PyClient& client_;
    Interrupter interrupter_;
};

} // namespace zelc
