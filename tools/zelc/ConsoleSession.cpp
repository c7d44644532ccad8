// The console's requests (see ConsoleSession.h).
#include "ConsoleSession.h"

#include "support/WireProtocol.h"
#include "Zel/Exception.h"

namespace zelc {

namespace wire = Zel::wire;

ConsoleSession::ConsoleSession(Zel::PyClient& client, Connector connectAnother)
    : client_(client), interrupter_(client, std::move(connectAnother), "the agent runs no statement of this console") {}

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

bool ConsoleSession::interrupt() const { return interrupter_.interrupt(); }

} // namespace zelc
