// Interrupting a connection's command (see Interrupter.h).
#include "Interrupter.h"

#include <iostream>

#include "Output.h"
#include "support/WireProtocol.h"
#include "Zel/Exception.h"

namespace zelc {

namespace wire = Zel::wire;

Interrupter::Interrupter(Zel::PyClient& client, Connector connectAnother, std::string idle)
    : connectAnother_(std::move(connectAnother)), idle_(std::move(idle)) {
    std::string hello(client.commandWhole(wire::kControl, wire::kHello).view());
    size_t newline = hello.find('\n');
    token_ = hello.substr(0, newline);
    banner_ = newline == std::string::npos ? std::string() : hello.substr(newline + 1);
}

bool Interrupter::interrupt() const {
    std::string why;
    try {
        std::unique_ptr<Zel::PyClient> other = connectAnother_();
        std::string answer(other->commandWhole(wire::kControl, std::string(wire::kInterrupt) + token_).view());
        if (answer == wire::kInterrupted) return true;
        why = idle_;
    } catch (Zel::Exception const& e) {
        why = std::string(e.message().view());
    } catch (std::exception const& e) {
        why = e.what();
    } catch (...) {   // on the Ctrl-C thread, where nothing may escape
        why = "unexpected failure";
    }
    std::cerr << failureLine("cannot interrupt: " + why) << std::flush;
    return false;
}

} // namespace zelc
