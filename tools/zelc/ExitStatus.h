// zelc's exit statuses, as `zelc --help`, the README and docs/protocol.md
// give them. With several agents, the worst (highest) of their statuses.
#pragma once

namespace zelc {

enum ExitStatus : int {
    kSuccess = 0,
    kRaised = 1,        // the command raised; its traceback is on standard error
    kUnreachable = 2,   // no agent, not trusted, or the connection lost (mid-command too)
    kUsage = 3,         // bad arguments, or a command over 256 MiB
    kLocal = 4,         // a file or standard input unreadable, standard output unwritable
};

} // namespace zelc
