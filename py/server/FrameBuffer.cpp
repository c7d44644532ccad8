// Request framing of a connection (see FrameBuffer.h).
#include "FrameBuffer.h"

#include <cstdio>
#include <cstring>
#include <utility>

namespace ZelServer {

namespace wire = Zel::wire;

namespace {
std::string printable(unsigned char c) {
    if (c >= 0x20 && c < 0x7f && c != '\\' && c != '\'') return std::string(1, char(c));
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", c);
    return text;
}

// The kind of a request's two header bytes; false for an unknown one.
bool requestKind(std::string_view kind, FrameKind& known) {
    static constexpr std::pair<char const*, FrameKind> kKinds[] = {
        {wire::kEvaluate, FrameKind::Eval},
        {wire::kExecute, FrameKind::Exec},
        {wire::kPart, FrameKind::Part},
        {wire::kConsole, FrameKind::Console},
        {wire::kComplete, FrameKind::Complete},
        {wire::kControl, FrameKind::Control},
        {wire::kWatch, FrameKind::Watch},
        {wire::kStacks, FrameKind::Stacks},
    };
    for (auto const& [name, k] : kKinds) {
        if (kind == name) {
            known = k;
            return true;
        }
    }
    return false;
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
    std::string_view kind(buf_, wire::kKindSize);
    FrameKind known = FrameKind::Eval;
    if (!requestKind(kind, known) || n > wire::kMaxCommand) {
        reason = "kind '" + printable(b[0]) + printable(b[1]) + "', length " + std::to_string(n);
        return Parse::Bad;
    }
    if (have_ < wire::kRequestHeader + n) return Parse::Incomplete;
    frame = Frame{known, std::string_view(buf_ + wire::kRequestHeader, n)};
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
