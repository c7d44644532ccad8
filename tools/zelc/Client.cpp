// Connecting zelc's client and mapping failures to exit statuses (see
// Client.h).
#include "Client.h"

#include <exception>

#include "ExitStatus.h"
#include "Zel/Exception.h"

namespace zelc {

namespace {
// One short wait: an absent agent is reported quickly.
unsigned const kShortRetry[] = {250, 0};
} // namespace

std::unique_ptr<Zel::PyClient> makeClient(Options const& o, std::string const& name) {
    std::unique_ptr<Zel::PyClient> client;
    if (!name.empty()) {
        size_t dot = name.find('.');
        client = std::make_unique<Zel::PyClient>(Zel::String8(name.substr(0, dot)),
                                                 Zel::String8(name.substr(dot + 1)), 'C', nullptr, nullptr);
    } else if (!o.socketPath.empty()) {
        client = std::make_unique<Zel::PyClient>(Zel::String8(o.socketPath), 'C', nullptr);
    } else {
        client = std::make_unique<Zel::PyClient>(o.port, 'C', nullptr);
    }
    client->retryProfileIs(kShortRetry);
    for (uid_t uid : o.trustedUsers) client->trustedUserIs(uid);
    return client;
}

std::unique_ptr<Zel::PyClient> connectedClient(Options const& o, std::string const& name) {
    std::unique_ptr<Zel::PyClient> client = makeClient(o, name);
    client->connect();
    return client;
}

int connectClient(Zel::PyClient& client, std::string const& label, Output& output) {
    try {
        client.connect();
    } catch (Zel::ErrnoException const& e) {   // the system's text alone: say of what
        output.errLine("cannot reach " + label + ": " + std::string(e.message().view()));
        return kUnreachable;
    } catch (...) {
        return failure(output);
    }
    if (client.sameProcess()) {
        output.errLine("the agent file names this process");
        return kUnreachable;
    }
    return kSuccess;
}

int failure(Output& output) {
    try {
        throw;
    } catch (Zel::RpcConnectionException const& e) {   // lost, or never reached
        output.errLine(e.message().view());
        return kUnreachable;
    } catch (Zel::PermissionException const& e) {   // not an agent to talk to
        output.errLine(e.message().view());
        return kUnreachable;
    } catch (Zel::ErrnoException const& e) {   // the socket layer, connecting
        output.errLine(e.message().view());
        return kUnreachable;
    } catch (Zel::RpcException const& e) {   // the command raised: the agent's traceback
        output.err(e.message().view());
        if (e.message().empty() || e.message().view().back() != '\n') output.err("\n");
        return kRaised;
    } catch (Zel::RangeException const& e) {   // a command too long to send
        output.errLine(e.message().view());
        return kUsage;
    } catch (Zel::Exception const& e) {
        output.errLine(e.message().view());
        return kUnreachable;
    } catch (std::bad_alloc const&) {
        output.errLine("out of memory");
        return kLocal;
    } catch (std::exception const& e) {
        output.errLine(e.what());
        return kLocal;
    } catch (...) {
        output.errLine("unexpected failure");
        return kLocal;
    }
}

} // namespace zelc
