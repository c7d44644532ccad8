// zelc -l: the agents of the agents directory, one a line: name, pid, TCP
// port (0: none), socket ("-": none), live or stale.
#include <iostream>

#include "Agents.h"
#include "ExitStatus.h"
#include "Options.h"
#include "Output.h"

namespace zelc {

int runList(Options const& o) {
    if (!o.args.empty()) return usageError();
    Output output;
    for (AgentEntry const& e : agents()) {
        output.out(e.name + ' ' + std::to_string(e.pid) + ' ' + std::to_string(e.port) + ' ' +
                   (e.socket.empty() ? "-" : e.socket) + (e.live ? " live\n" : " stale\n"));
    }
    return output.flush() ? kSuccess : kLocal;
}

} // namespace zelc
