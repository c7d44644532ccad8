// zelc's default mode: one command, evaluated or (-x) executed, its result
// printed.
#include <vector>

#include "Client.h"
#include "ExitStatus.h"

namespace zelc {

namespace {
constexpr int kResultSize = 256 * 1024;
} // namespace

int runCommand(Options const& o) {
    std::string cmd = o.joinedArgs();
    if (cmd.empty()) return usageError();
    Output output;
    std::unique_ptr<Zel::PyClient> client = makeClient(o, o.name);
    int status = connectClient(*client, agentLabel(o), output);
    if (status == kSuccess) {
        std::vector<char> buf(kResultSize);
        try {
            if (o.exec) {
                client->execute(cmd.c_str(), buf.data(), static_cast<int>(buf.size()));
                output.out(buf.data());
            } else {
                client->eval(cmd.c_str(), buf.data(), static_cast<int>(buf.size()));
                output.out(buf.data());
                output.out("\n");
            }
        } catch (...) {
            status = failure(output);
        }
    }
    if (!output.flush() && status == kSuccess) status = kLocal;
    return status;
}

} // namespace zelc
