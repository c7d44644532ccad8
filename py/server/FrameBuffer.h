// A connection's receive buffer and the request framing on it (see
// support/WireProtocol.h): first the greeting, then request frames. The
// buffer holds two of the largest frames, so it always has room for the
// frame it is waiting for; bytes of a following frame stay buffered.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "support/WireProtocol.h"

namespace ZelServer {

enum class FrameKind { Greeting, Eval, Exec, Part, Console, Complete, Control, Watch, Stacks };

struct Frame {
    FrameKind kind;
    std::string_view command;   // into the buffer; valid until consume()
};

class FrameBuffer {
public:
    enum class Parse { Complete, Incomplete, Bad };

    // Looks at the buffered bytes. Complete fills `frame`; Bad fills
    // `reason` with what was wrong (for the server's notice).
    Parse parse(Frame& frame, std::string& reason);
    // Drops the frame parse() returned.
    void consume();

    char* space() { return buf_ + have_; }
    size_t room() const { return sizeof buf_ - have_; }
    void added(size_t n) { have_ += n; }

private:
    char buf_[2 * (Zel::wire::kMaxFrame + 1)];
    size_t have_ = 0;
    size_t frameSize_ = 0;
    bool greeted_ = false;
};

} // namespace ZelServer
