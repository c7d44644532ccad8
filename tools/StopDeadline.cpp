// An agent's stop deadline (see StopDeadline.h).
#include "StopDeadline.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "Zel/Fd.h"

namespace Zel {

namespace {

// Writes `text` to standard error without the stream library, whose
// state another thread may hold.
void say(char const* text) { (void)!::write(2, text, std::strlen(text)); }

// Removes the socket and the agent file when the file still names this
// process: once the orderly stop has removed it, a new agent of the name
// may own what is there. Under the directory's lock when it can be had
// soon; the orderly stop may hold it, stalled.
void withdraw(std::string const& agentFile) {
    std::string dir = agentFile.substr(0, agentFile.rfind('/') + 1);
    Fd dirFd(::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_CLOEXEC));
    for (int i = 0; dirFd.valid() && i < 20 && ::flock(dirFd.get(), LOCK_EX | LOCK_NB) != 0; ++i) ::usleep(10000);
    Fd file(::open(agentFile.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    char text[4096] = {};
    if (!file.valid() || ::read(file.get(), text, sizeof text - 1) <= 0) return;
    if (std::strtol(text, nullptr, 10) != long(::getpid())) return;
    char* line2 = std::strchr(text, '\n');
    char* line3 = line2 ? std::strchr(line2 + 1, '\n') : nullptr;
    char* end = line3 ? std::strchr(line3 + 1, '\n') : nullptr;
    if (end) {
        *end = 0;
        ::unlink(line3 + 1);
    }
    ::unlink(agentFile.c_str());
}

} // namespace

StopDeadline::StopDeadline(std::string agentFile, std::chrono::milliseconds bound)
    : agentFile_(std::move(agentFile)), bound_(bound) {}

StopDeadline::~StopDeadline() {
    cancel();
    if (thread_.joinable()) thread_.join();
}

void StopDeadline::arm() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (thread_.joinable() || cancelled_) return;
    thread_ = std::thread([this] { expire(); });
}

void StopDeadline::cancel() {
    std::lock_guard<std::mutex> lock(mutex_);
    cancelled_ = true;
    changed_.notify_all();
}

void StopDeadline::expire() {
    std::unique_lock<std::mutex> lock(mutex_);
    if (changed_.wait_for(lock, bound_, [this] { return cancelled_; })) return;
    say("zelagent: the stop did not finish in time (a command holds the interpreter); leaving now\n");
    withdraw(agentFile_);
    ::_exit(0);
}

} // namespace Zel
