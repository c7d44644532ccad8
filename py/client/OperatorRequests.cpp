// The operator's requests beyond running commands (support/WireProtocol.h):
// every thread's stack ("?7") and the watch of an entity ("?6"), whose
// connection then carries the changes the agent pushes. Neither is
// retried: a stacks request is cheap to repeat by hand, and a watch that
// reconnected would miss the changes made in between without saying so.
#include <cstdlib>
#include <cstring>
#include <string>

#include "ClientTrace.h"
#include "support/WireProtocol.h"
#include "Zel/Exception.h"

namespace Zel {

namespace {

Exception::IdBitArray const kRefused(0x100000);   // as a command's traceback is reported

[[noreturn]] void gone(String8 const& why) {
    throw RpcConnectionException("Peer of PyClient shut down the socket" + (why.empty() ? String8() : ": " + why),
                                 Exception::IdBitArray());
}

} // namespace

void PyClient::sendRequest(char const* kind, std::string_view command) {
    if (sameProcess_) throw RpcException("Watching and stacks need an agent in another process", kRefused);
    if (command.size() > wire::kMaxCommand) {
        throw RangeException("Request of " + String8(std::to_string(command.size())) + " bytes over the limit of " +
                             String8(std::to_string(wire::kMaxCommand)));
    }
    char frame[wire::kMaxFrame];
    std::memcpy(frame, kind, wire::kKindSize);
    wire::writeLength(static_cast<uint32_t>(command.size()), frame + wire::kKindSize);
    std::memcpy(frame + wire::kRequestHeader, command.data(), command.size());
    try {
        socketSend(socket_.get(), frame, static_cast<int>(wire::kRequestHeader + command.size()), MSG_NOSIGNAL);
    } catch (ErrnoException const& e) {
        gone(e.message());
    }
}

std::string PyClient::readResponse(String8* payload) {
    try {
        char header[wire::kResponseHeader];
        if (socketRecv(socket_.get(), header, int(wire::kResponseHeader), true) < int(wire::kResponseHeader)) {
            gone(String8());
        }
        uint32_t len = wire::readLength(header);
        if (len < wire::kStatusSize) gone("a frame shorter than its status");
        std::string body(len - wire::kStatusSize, '\0');
        // socketRecv counts in int: a payload of 2 GiB or more is read in pieces.
        for (size_t got = 0; got < body.size();) {
            int want = static_cast<int>(std::min<size_t>(body.size() - got, 1u << 30));
            int n = socketRecv(socket_.get(), body.data() + got, want, true);
            if (n < want) gone(String8());
            got += size_t(n);
        }
        *payload = String8(std::move(body));
        return std::string(header + wire::kLengthSize, wire::kStatusSize);
    } catch (ErrnoException const& e) {
        gone(e.message());
    }
}

String8 PyClient::stacks() {
    PYCLIENT_TRACE(9, "stacks", "-> stacks");
    sendRequest(wire::kStacks, {});
    String8 text;
    if (readResponse(&text) != wire::kOk) throw RpcException(text, kRefused);
    return text;
}

String8 PyClient::watch(String8 const& fullName, std::vector<String8> const& attrs) {
    PYCLIENT_TRACE(9, "watch", "-> watch " << fullName);
    String8 command = fullName;
    for (String8 const& a : attrs) command += "\n" + a;
    sendRequest(wire::kWatch, command.view());
    String8 name;
    if (readResponse(&name) != wire::kOk) throw RpcException(name, kRefused);
    return name;
}

void PyClient::nextChange(WatchEvent* event) {
    String8 payload;
    std::string status = readResponse(&payload);
    if (status == wire::kDropped) {
        *event = WatchEvent{0.0, String8(), String8(), std::strtoull(payload.c_str(), nullptr, 10)};
        return;
    }
    if (status != wire::kChange) throw RpcException(payload, kRefused);   // the agent's watch failed
    // "SECONDS ATTR VALUE": the value is the rest, blanks included.
    std::string_view text = payload.view();
    size_t a = text.find(' ');
    size_t v = a == std::string_view::npos ? a : text.find(' ', a + 1);
    if (v == std::string_view::npos) gone("a change that reads \"" + payload + "\"");
    *event = WatchEvent{std::strtod(std::string(text.substr(0, a)).c_str(), nullptr), String8(text.substr(a + 1, v - a - 1)),
                        String8(text.substr(v + 1)), 0};
}

} // namespace Zel
