// The command protocol between Zel::PyClient and an agent's PyServer, as
// the native client and the native serving loop (_ZelServer) both speak
// it. Header-only and free of Python and the framework: _ZelServer links
// only Python.
//
//   greeting   client: its mode character, then 'R' (2 bytes);
//              server: "ZPS1" (4 bytes, which clients do not interpret)
//   request    kind ("?1" evaluate, "?2" execute), 4-byte big-endian
//              command length N, the command; a frame is at most 4095
//              bytes, so N is at most 4089
//   response   4-byte big-endian length (status + payload), status ("OK",
//              or "EX" with the traceback), payload
//   long       a command over N bytes goes as "?8" frames, each a part of
//              it, then the request with its last part; the parts get no
//              response. At most kMaxLongCommand bytes in all
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Zel::wire {

inline constexpr size_t kGreetingSize = 2;
inline constexpr char kGreetingSecond = 'R';   // after the client's mode character
inline constexpr std::string_view kGreetingReply = "ZPS1";

inline constexpr size_t kKindSize = 2;
// C strings: the client's calls take the kind as one.
inline constexpr char kEvaluate[] = "?1";
inline constexpr char kExecute[] = "?2";

// A part of a long command, which the next request completes.
inline constexpr char kPart[] = "?8";
inline constexpr size_t kMaxLongCommand = size_t(256) << 20;

inline constexpr size_t kLengthSize = 4;
inline constexpr size_t kRequestHeader = kKindSize + kLengthSize;
inline constexpr size_t kMaxFrame = 4095;
inline constexpr size_t kMaxCommand = kMaxFrame - kRequestHeader;

inline constexpr size_t kStatusSize = 2;
inline constexpr size_t kResponseHeader = kLengthSize + kStatusSize;
inline constexpr std::string_view kOk = "OK";
inline constexpr std::string_view kError = "EX";

// The 4-byte big-endian length at p.
constexpr uint32_t readLength(unsigned char const* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
}
inline uint32_t readLength(char const* p) { return readLength(reinterpret_cast<unsigned char const*>(p)); }

// Writes n as 4 big-endian bytes at p.
constexpr void writeLength(uint32_t n, char* p) {
    p[0] = static_cast<char>(n >> 24 & 0xff);
    p[1] = static_cast<char>(n >> 16 & 0xff);
    p[2] = static_cast<char>(n >> 8 & 0xff);
    p[3] = static_cast<char>(n & 0xff);
}

// Watching and stacks. A watch ("?6", the command "FULLNAME\nATTR\n...")
// is the last request of its connection: refused with "EX" and closed, or
// answered "OK" (payload: the entity's full name) and followed by frames
// the server pushes, response-framed, until the client closes: "CH"
// ("SECONDS ATTR VALUE") per change, "DR" (a decimal count) where changes
// were dropped for a slow reader. A stacks request ("?7", the command
// ignored) answers the Python stack of every thread.
inline constexpr char kWatch[] = "?6";
inline constexpr char kStacks[] = "?7";
inline constexpr std::string_view kChange = "CH";
inline constexpr std::string_view kDropped = "DR";
// The console's kinds (zelc -i), framed as the others:
//   "?3" console input: the lines typed so far, joined by newlines; the
//        agent compiles them as its interactive interpreter would and
//        answers "OK" with what running them printed, "EX" with the error,
//        or kMore when the input is an incomplete statement (nothing ran)
//   "?4" completion: the line up to the cursor; "OK" with the word
//        completed, then each candidate replacing it, one a line
//   "?5" control: "hello" answers "OK" with the connection's token, a
//        newline and the agent's one-line banner; "interrupt TOKEN" raises
//        KeyboardInterrupt in the command that connection is running and
//        answers "interrupted", or "idle" when it runs none
inline constexpr char kConsole[] = "?3";
inline constexpr char kComplete[] = "?4";
inline constexpr char kControl[] = "?5";
inline constexpr std::string_view kMore = "MO";
inline constexpr std::string_view kHello = "hello";
inline constexpr std::string_view kInterrupt = "interrupt ";
inline constexpr std::string_view kInterrupted = "interrupted";
inline constexpr std::string_view kIdle = "idle";

static_assert(kMaxCommand == 4089);
static_assert(sizeof kEvaluate - 1 == kKindSize && sizeof kExecute - 1 == kKindSize && sizeof kPart - 1 == kKindSize);

} // namespace Zel::wire
