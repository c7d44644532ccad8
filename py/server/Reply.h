// A connection's reply buffer: a response frame (see support/WireProtocol.h),
// sent with one send. It keeps its capacity from one reply to the next.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "support/WireProtocol.h"

namespace ZelServer {

class Reply {
public:
    // `status` is wire::kOk or wire::kError. Fails (false) only for
    // payloads the 4-byte length cannot express.
    bool set(std::string_view status, std::string_view payload) {
        using namespace Zel::wire;
        if (payload.size() > UINT32_MAX - kStatusSize) return false;
        bytes_.resize(kResponseHeader + payload.size());
        char* p = bytes_.data();
        writeLength(static_cast<uint32_t>(kStatusSize + payload.size()), p);
        std::memcpy(p + kLengthSize, status.data(), kStatusSize);
        if (!payload.empty()) std::memcpy(p + kResponseHeader, payload.data(), payload.size());
        return true;
    }
    void setRaw(std::string_view bytes) { bytes_.assign(bytes.begin(), bytes.end()); }
    // Nothing to send.
    void clear() { bytes_.clear(); }

    char const* data() const { return bytes_.data(); }
    size_t size() const { return bytes_.size(); }

private:
    std::vector<char> bytes_;
};

} // namespace ZelServer
