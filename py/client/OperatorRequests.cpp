// The operator's requests beyond running commands (support/WireProtocol.h):
// every thread's stack ("?7") and the watch of an entity ("?6"), whose
// connection then carries the changes the agent pushes. A watch is never
// resumed on a new connection: that would hide the changes made in between.
#include <cstdlib>
#include <string>

#include "ClientTrace.h"
#include "support/WireProtocol.h"
#include "Zel/Exception.h"

namespace Zel {

namespace {

Exception::IdBitArray const kRefused(0x100000);   // as a command's traceback is reported

void needAgent(bool sameProcess) {
    if (sameProcess) throw RpcException("Watching and stacks need an agent in another process", kRefused);
}

} // namespace

String8 PyClient::stacks() {
    needAgent(sameProcess_);
    return commandWhole(wire::kStacks, {});
}

String8 PyClient::watch(String8 const& fullName, std::vector<String8> const& attrs) {
    PYCLIENT_TRACE(9, "watch", "-> watch " << fullName);
    needAgent(sameProcess_);
    String8 command = fullName;
    for (String8 const& a : attrs) command += "\n" + a;
    return commandWhole(wire::kWatch, command.view());
}

void PyClient::nextChange(WatchEvent* event) {
    std::string status;
    std::string payload;
    try {
        payload = std::string(wholeResponse(status).view());
    } catch (RpcConnectionException const&) {
        // Its text is a command's ("may or may not have run"); a watch has
        // nothing left to run.
        throw RpcConnectionException("the connection was lost", Exception::IdBitArray(0x300000));
    }
    if (status == wire::kDropped) {
        *event = WatchEvent{0.0, String8(), String8(), std::strtoull(payload.c_str(), nullptr, 10)};
        return;
    }
    // Anything else is the agent's watch failing, as a command's traceback.
    if (status != wire::kChange) throw RpcException(String8(std::move(payload)), kRefused);
    // "SECONDS ATTR VALUE": the value is the rest, blanks included.
    size_t a = payload.find(' ');
    size_t v = a == std::string::npos ? a : payload.find(' ', a + 1);
    if (v == std::string::npos) {
        throw RpcConnectionException("a change that reads \"" + String8(payload) + "\"",
                                     Exception::IdBitArray(0x300000));
    }
    *event = WatchEvent{std::strtod(payload.c_str(), nullptr), String8(payload.substr(a + 1, v - a - 1)),
                        String8(payload.substr(v + 1)), 0};
}

} // namespace Zel
