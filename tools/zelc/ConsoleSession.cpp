// The console's requests (see ConsoleSession.h).
#include "ConsoleSession.h"

#include <iostream>

#include "Output.h"
#include "support/WireProtocol.h"
#include "Zel/Exception.h"

namespace zelc {

namespace wire = Zel::wire;

ConsoleSession::ConsoleSession(Zel::PyClient& client, Connector connectAnother)
    : client_(client), connectAnother_(std::move(connectAnother)) {
    std::string hello(client_.commandWhole(wire::kControl, wire::kHello).view());
    size_t newline = hello.find('\n');
    token_ = hello.substr(0, newline);
    banner_ = newline == std::string::npos ? std::string() : hello.substr(newline + 1);
}

void ConsoleSession::connectionKept() const {
    if (client_.usable()) return;
    throw Zel::RpcConnectionException("The agent closed the console's connection (its namespace is gone)",
                                      Zel::Exception::IdBitArray(0x300000));
}

ConsoleSession::Outcome ConsoleSession::push(std::string const& source) {
    connectionKept();
    std::string status;
    std::string text(client_.requestWhole(wire::kConsole, source, status).view());
    if (status == wire::kMore) return {Outcome::Kind::More, std::move(text)};
    return {status == wire::kOk ? Outcome::Kind::Done : Outcome::Kind::Raised, std::move(text)};
}

ConsoleSession::Completion ConsoleSession::complete(std::string_view line) {
    connectionKept();
    std::string text(client_.commandWhole(wire::kComplete, line).view());
    Completion c;
    size_t at = text.find('\n');
    c.word = text.substr(0, at);
    while (at != std::string::npos) {
        size_t next = text.find('\n', at + 1);
        c.candidates.push_back(text.substr(at + 1, next == std::string::npos ? next : next - at - 1));
        at = next;
    }
    return c;
}

bool ConsoleSession::interrupt() const {
    std::string why;
    try {
        std::unique_ptr<Zel::PyClient> other = connectAnother_();
        std::string answer(other->commandWhole(wire::kControl, std::string(wire::kInterrupt) + token_).view());
        if (answer == wire::kInterrupted) return true;
        why = "the agent runs no statement of this console";
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
