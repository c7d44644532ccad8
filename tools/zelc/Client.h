// zelc's side of a connection: the client for an agent, connecting it, and
// what each failure prints and exits with.
#pragma once

#include <memory>
#include <string>

#include "Options.h"
#include "Output.h"
#include "ZelPy/PyClient.h"

namespace zelc {

// The client for the agent PREFIX.NAME `name`, or, when `name` is empty,
// for the socket or port `o` gives; with the trusted users of `o` and one
// short retry.
std::unique_ptr<Zel::PyClient> makeClient(Options const& o, std::string const& name);

// makeClient's client, connected (for a second connection to an agent
// already reached). Throws as PyClient::connect does.
std::unique_ptr<Zel::PyClient> connectedClient(Options const& o, std::string const& name);

// Connects `client` to the agent `label` names: kSuccess, or kUnreachable
// with the line in `output`.
int connectClient(Zel::PyClient& client, std::string const& label, Output& output);

// Called while handling an exception: its line (a command's traceback as
// the agent sent it) goes to `output`; returns its exit status.
int failure(Output& output);

} // namespace zelc
