// The console's history (see History.h).
#include "History.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdlib>

#include "Zel/Fd.h"

namespace zelc {

LineHistory::LineHistory(std::string path) : path_(std::move(path)), history_(::history_init()) {
    HistEvent event;
    ::history(history_, &event, H_SETSIZE, kEntries);
    ::history(history_, &event, H_SETUNIQUE, 1);   // a line entered again is not kept twice in a row
    if (!path_.empty()) ::history(history_, &event, H_LOAD, path_.c_str());   // none yet is no error
}

LineHistory::~LineHistory() { ::history_end(history_); }

std::string LineHistory::defaultPath() {
    char const* home = std::getenv("HOME");
    return home && *home ? std::string(home) + "/.zelc_history" : std::string();
}

void LineHistory::add(std::string const& line) {
    HistEvent event;
    ::history(history_, &event, H_ENTER, line.c_str());
    if (path_.empty()) return;
    // libedit writes the file with the umask's mode: made owner-only first.
    Zel::Fd made(::open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (made.valid()) ::history(history_, &event, H_SAVE, path_.c_str());
}

} // namespace zelc
