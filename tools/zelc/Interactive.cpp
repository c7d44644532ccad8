// zelc -i: commands from standard input, one a line, on one connection.
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "Client.h"
#include "ExitStatus.h"
#include "Zel/Exception.h"

namespace zelc {

namespace {

constexpr int kResultSize = 256 * 1024;

// Executes `line`: 0 done, 1 it raised, 2 connection lost.
int executeLine(Zel::PyClient& client, std::string const& line, std::vector<char>& buf) {
    try {
        client.execute(line.c_str(), buf.data(), static_cast<int>(buf.size()));
        std::cout << buf.data() << std::flush;
        return kSuccess;
    } catch (...) {
        Output output;
        int status = failure(output);
        output.flush();
        return status;
    }
}

} // namespace

int runInteractive(Options const& o) {
    if (!o.args.empty() || !o.file.empty()) return usageError();
    std::unique_ptr<Zel::PyClient> client = makeClient(o, o.name);
    {
        Output output;
        int status = connectClient(*client, agentLabel(o), output);
        output.flush();
        if (status != kSuccess) return status;
    }
    std::vector<char> buf(kResultSize);
    bool tty = ::isatty(0);
    std::string line;
    for (;;) {
        if (tty) std::cout << ">>> " << std::flush;
        if (!std::getline(std::cin, line)) break;
        if (line.empty()) continue;
        // An expression is evaluated; a statement does not compile as one,
        // so nothing has run when eval refuses it, and it is executed.
        int rc;
        try {
            client->eval(line.c_str(), buf.data(), static_cast<int>(buf.size()));
            std::cout << buf.data() << std::endl;
            rc = kSuccess;
        } catch (Zel::RpcConnectionException const&) {
            Output output;
            rc = failure(output);
            output.flush();
        } catch (Zel::RpcException const& e) {
            if (e.message().view().find("SyntaxError") == std::string_view::npos) {
                std::cerr << e.message();
                rc = kRaised;
            } else {
                rc = executeLine(*client, line, buf);
            }
        } catch (...) {
            Output output;
            rc = failure(output);
            output.flush();
        }
        if (rc == kUnreachable) return kUnreachable;
    }
    if (tty) std::cout << std::endl;
    return kSuccess;
}

} // namespace zelc
