// Decoding an input into what each connection sends, and what the server
// should make of it: the commands it runs, their replies, the bad header
// it stops at. The layout is described in fuzz_server_frames.cpp.
#pragma once

#include "Support.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace zelfuzz::serverframes {

// The command table. No underscores, no "**", no name of a builtin that
// reaches files, processes, modules or standard input; an entry starting
// with a digit has a non-digit next, and no filler is a digit, so glue
// lengthens a number by one digit at most. Glued, cut or padded, they stay
// cheap: the largest value made is 'a' * 700001.
inline constexpr std::string_view kCommands[] = {
    "1+1"sv, "x=1"sv, "x"sv, "print 1"sv, "print x"sv, "1/0"sv, "1 +"sv, "def f(:"sv,
    "u'\\xe9'"sv, "u'\xc3\xa9'"sv, "print u'\\u20ac'"sv, "1\0+1"sv, ""sv, "\n"sv, "'a'*70000"sv, "[x]*3"sv,
    "len('ab')"sv, "if 1:\n x=2\nprint x"sv, "raise SystemExit(3)"sv, "raise KeyboardInterrupt"sv, "x+=1"sv,
    "'\xff'"sv, "y=u'\\xe9'\nprint y.encode('utf-8')"sv, "("sv, "1e308*10"sv, "repr(x)"sv, "True"sv,
    "\t1"sv, "x=1;print x,"sv, "None"sv, "print"sv, "ValueError('v')"sv,
};

// The input, byte by byte; past its end, zeros.
class Reader {
public:
    Reader(uint8_t const* p, size_t n) : p_(p), n_(n) {}
    uint8_t byte() { return pos_ < n_ ? p_[pos_++] : 0; }
    bool more() const { return pos_ < n_; }

private:
    uint8_t const* p_;
    size_t n_;
    size_t pos_ = 0;
};

enum class Delivery { Whole, Chunks, WaitedChunks, ByteByByte };
enum class Ending { ReadAll, HalfClose, CloseAtOnce, NeverRead };

struct Command {
    char kind;   // '1' evaluate, '2' execute ('8', a part of a long command, only while reading the plan)
    std::string text;
};

struct Expected {
    std::string status;
    std::string text;   // OK: the payload; EX: the last line of the traceback
};

struct Plan {
    Delivery delivery;
    Ending ending;
    size_t chunk;
    std::string stream;                            // what is sent (after the cut)
    bool greeted = false;                          // the stream holds a whole greeting
    std::vector<Command> commands;                 // the frames the server runs, in order
    std::vector<Expected> expected;                // their replies
    std::string bad;                               // the reason the server stops at, or empty
    std::vector<std::pair<size_t, size_t>> gates;  // (offset, replies that must have arrived)

    bool reads() const { return ending == Ending::ReadAll || ending == Ending::HalfClose; }
    size_t replies() const { return (greeted ? 1 : 0) + commands.size(); }
};

// One connection's plan, from the input's next bytes.
Plan readPlan(Reader& in);
// What each command should answer, computed afresh in a namespace of its
// own per connection. Needs the interpreter lock.
void computeExpected(Plan& p);

} // namespace zelfuzz::serverframes
