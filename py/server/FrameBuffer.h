// A connection's receive buffer and the request framing on it: first the
// 2-byte greeting, then frames of a 2-byte kind ("?1" evaluate, "?2"
// execute), a 4-byte big-endian length and the command. One frame is at
// most 4095 bytes, so the buffer always has room for the frame it is
// waiting for; bytes of a following frame stay buffered.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ZelServer {

constexpr size_t kMaxFrame = 4095;
constexpr size_t kHeader = 6;
constexpr size_t kMaxCommand = kMaxFrame - kHeader;

enum class FrameKind { Greeting, Eval, Exec };

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
    char buf_[2 * (kMaxFrame + 1)];
    size_t have_ = 0;
    size_t frameSize_ = 0;
    bool greeted_ = false;
};

} // namespace ZelServer
