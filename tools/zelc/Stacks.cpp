// zelc --stacks: the Python stack of every thread of one agent.
#include <iostream>

#include "Client.h"
#include "ExitStatus.h"

namespace zelc {

int runStacks(Options const& o) {
    if (!o.args.empty() || o.exec) return usageError();
    std::unique_ptr<Zel::PyClient> client = makeClient(o, o.name);
    Output output;
    int status = connectClient(*client, agentLabel(o), output);
    try {
        if (status == kSuccess) output.outMoved(std::string(client->stacks().view()));
    } catch (...) {
        status = failure(output);
    }
    if (!output.flush()) return fail(kLocal, "cannot write standard output");
    return status;
}

} // namespace zelc
