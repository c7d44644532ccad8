// Request framing of a connection (see FrameBuffer.h).
#include "FrameBuffer.h"

#include <cstdio>
#include <cstring>

namespace ZelServer {

namespace {
std::string printable(unsigned char c) {
    if (c >= 0x20 && c < 0x7f && c != '\\' && c != '\'') return std::string(1, char(c));
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", c);
    return text;
}
} // namespace

FrameBuffer::Parse FrameBuffer::parse(Frame& frame, std::string& reason) {
    if (!greeted_) {
        // The client's mode character and 'R'; neither is interpreted.
        if (have_ < 2) return Parse::Incomplete;
        frame = Frame{FrameKind::Greeting, {}};
        frameSize_ = 2;
        return Parse::Complete;
    }
    if (have_ < kHeader) return Parse::Incomplete;
    auto const* b = reinterpret_cast<unsigned char const*>(buf_);
    uint32_t n = uint32_t(b[2]) << 24 | uint32_t(b[3]) << 16 | uint32_t(b[4]) << 8 | b[5];
    bool eval = buf_[0] == '?' && buf_[1] == '1';
    bool exec = buf_[0] == '?' && buf_[1] == '2';
    if ((!eval && !exec) || n > kMaxCommand) {
        reason = "kind '" + printable(b[0]) + printable(b[1]) + "', length " + std::to_string(n);
        return Parse::Bad;
    }
    if (have_ < kHeader + n) return Parse::Incomplete;
    frame = Frame{eval ? FrameKind::Eval : FrameKind::Exec, std::string_view(buf_ + kHeader, n)};
    frameSize_ = kHeader + n;
    return Parse::Complete;
}

void FrameBuffer::consume() {
    if (frameSize_ == 0) return;
    greeted_ = true;   // the first frame is always the greeting
    have_ -= frameSize_;
    // Usually nothing follows: one request is outstanding per connection.
    if (have_ > 0) std::memmove(buf_, buf_ + frameSize_, have_);
    frameSize_ = 0;
}

} // namespace ZelServer
