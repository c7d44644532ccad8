// Driving the connections of one input: each sends its plan's stream as
// its delivery says, the replies are checked as they arrive, and each ends
// as its plan says.
#pragma once

#include "Plan.h"

#include <string>
#include <vector>

namespace zelfuzz::serverframes {

struct Conn {
    int index;
    Plan* plan;
    Fd fd;
    size_t sent = 0;
    bool writing = true;   // bytes left to send and the server still there
    bool blocked = false;  // the socket took nothing last time
    Clock::time_point blockedSince;
    int waits = 0;         // chunks waited for
    bool waitNoMore = false;
    bool waiting = false;  // until the server has read the last chunk
    Clock::time_point waitUntil;
    size_t gate = 0;
    std::string in;
    size_t replies = 0;
    bool halfClosed = false;
    bool done = false;

    std::string describe() const;
};

// All is sent, or the server is gone: the peer ends as its plan says.
void writesOver(Conn& c);
// A peer that reads everything closes once all replies are in, unless the
// server is to close first.
void settle(Conn& c);
// Sends, reads and checks until every connection is done; `schedule`
// picks which one writes next. A finding past 2.5 s.
void exchange(std::vector<Conn>& conns, Reader& schedule);

} // namespace zelfuzz::serverframes
