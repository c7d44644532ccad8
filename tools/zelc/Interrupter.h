// Interrupting what one connection to an agent runs, from a second short
// connection: the agent names each connection by a token, which "hello"
// (?5) asks for, and "interrupt TOKEN" raises KeyboardInterrupt in the
// command that connection runs (see docs/protocol.md, the console's
// requests). Used by the console and by plain commands on Ctrl-C.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "ZelPy/PyClient.h"

namespace zelc {

class Interrupter {
public:
    // Opens a connection to the same agent, for an interrupt request.
    using Connector = std::function<std::unique_ptr<Zel::PyClient>()>;

    // Asks the agent for the token of `client`'s connection. `idle` says
    // why nothing was interrupted when the connection runs no command.
    // Throws as PyClient does.
    Interrupter(Zel::PyClient& client, Connector connectAnother, std::string idle);

    // What the agent's hello answered after the token: its one-line banner.
    std::string const& banner() const { return banner_; }

    // From another thread while the connection runs a command: asks the
    // agent to interrupt it. False, with a line on standard error, when it
    // could not be asked or ran none.
    bool interrupt() const;

private:
    Connector connectAnother_;
    std::string idle_;
    std::string token_;
    std::string banner_;
};

} // namespace zelc
