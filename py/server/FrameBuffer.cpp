// Request framing of a connection (see FrameBuffer.h).
#include "FrameBuffer.h"

#include <cstdio>
#include <cstring>
#include <optional>

namespace ZelServer {

namespace wire = Zel::wire;

namespace {
std::string printable(unsigned char c) {
    if (c >= 0x20 && c < 0x7f && c != '\\' && c != '\'') return std::string(1, char(c));
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", c);
    return text;
}

std::optional<FrameKind> kindOf(std::string_view kind) {
    if (kind == wire::kEvaluate) return FrameKind::Eval;
    if (kind == wire::kExecute) return FrameKind::Exec;
    if (kind == wire::kPart) return FrameKind::Part;
    if (kind == wire::kConsole) return FrameKind::Console;
    if (kind == wire::kComplete) return FrameKind::Complete;
    if (kind == wire::kControl) return FrameKind::Control;
    return std::nullopt;
}
} // namespace

FrameBuffer::Parse FrameBuffer::parse(Frame& frame, std::string& reason) {
    if (!greeted_) {
        // The client's mode character and 'R'; neither is interpreted.
        if (have_ < wire::kGreetingSize) return Parse::Incomplete;
        frame = Frame{FrameKind::Greeting, {}};
        frameSize_ = wire::kGreetingSize;
        return Parse::Complete;
    }
    if (have_ < wire::kRequestHeader) return Parse::Incomplete;
    auto const* b = reinterpret_cast<unsigned char const*>(buf_);
    uint32_t n = wire::readLength(b + wire::kKindSize);
    std::optional<FrameKind> kind = kindOf(std::string_view(buf_, wire::kKindSize));
    if (!kind || n > wire::kMaxCommand) {
        reason = "kind '" + printable(b[0]) + printable(b[1]) + "', length " + std::to_string(n);
        return Parse::Bad;
    }
    if (have_ < wire::kRequestHeader + n) return Parse::Incomplete;
    frame = Frame{*kind, std::string_view(buf_ + wire::kRequestHeader, n)};
    frameSize_ = wire::kRequestHeader + n;
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
