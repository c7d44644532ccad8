// A connection's reply buffer: a 4-byte big-endian length (2 + payload),
// the 2-byte status and the payload, sent with one send. It keeps its
// capacity from one reply to the next.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace ZelServer {

class Reply {
public:
    // Fails (false) only for payloads the 4-byte length cannot express.
    bool set(char const status[2], std::string_view payload) {
        if (payload.size() > UINT32_MAX - 2) return false;
        uint32_t n = static_cast<uint32_t>(payload.size() + 2);
        bytes_.resize(6 + payload.size());
        char* p = bytes_.data();
        p[0] = static_cast<char>(n >> 24);
        p[1] = static_cast<char>(n >> 16);
        p[2] = static_cast<char>(n >> 8);
        p[3] = static_cast<char>(n);
        p[4] = status[0];
        p[5] = status[1];
        if (!payload.empty()) std::memcpy(p + 6, payload.data(), payload.size());
        return true;
    }
    void setRaw(std::string_view bytes) { bytes_.assign(bytes.begin(), bytes.end()); }

    char const* data() const { return bytes_.data(); }
    size_t size() const { return bytes_.size(); }

private:
    std::vector<char> bytes_;
};

} // namespace ZelServer
