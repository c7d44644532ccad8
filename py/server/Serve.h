// The serving loop of one connection.
#pragma once

#include <string>

#include "Command.h"

namespace ZelServer {

// Serves requests on `fd` until the peer closes it, the socket fails or
// is shut down, or the peer sends a bad frame (then `bad` says what was
// wrong). Called and returns with the interpreter lock held; it is given
// up while waiting on the socket.
void serveConnection(int fd, Commands& commands, std::string& bad);

} // namespace ZelServer
