// Reading the agents directory (see Agents.h). An agent holds an exclusive
// lock on its file while it lives; a shared lock that can be taken at once
// shows the file has no live holder. The directory's lock, which agents
// take to announce themselves, is held while reading, so that no file is
// seen half-written.
#include "Agents.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "Zel/Fd.h"
#include "ZelPy/PyClient.h"

namespace zelc {

namespace {

constexpr size_t kAgentFileMax = 4096;

bool endsWith(std::string const& s, std::string const& end) {
    return s.size() >= end.size() && s.compare(s.size() - end.size(), end.size(), end) == 0;
}

// The entry of the agent file `name` in the directory `dirFd`, or none
// when it is not an agent file (not a regular file, or no name of one).
bool readEntry(int dirFd, std::string const& name, AgentEntry& e) {
    if (name.find('.') == std::string::npos || name[0] == '.' || endsWith(name, ".sock")) return false;
    Zel::Fd fd(::openat(dirFd, name.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    struct stat st;
    if (!fd.valid() || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
    e.name = name;
    e.live = ::flock(fd.get(), LOCK_SH | LOCK_NB) != 0;   // closing the descriptor lets a taken one go
    std::string text(kAgentFileMax, '\0');
    ssize_t n = ::read(fd.get(), text.data(), text.size());
    text.resize(n > 0 ? size_t(n) : 0);
    size_t nl1 = text.find('\n'), nl2 = nl1 == std::string::npos ? nl1 : text.find('\n', nl1 + 1);
    e.pid = std::strtol(text.c_str(), nullptr, 10);
    if (nl1 != std::string::npos) e.port = std::strtol(text.c_str() + nl1 + 1, nullptr, 10);
    if (nl2 != std::string::npos) {
        size_t nl3 = text.find('\n', nl2 + 1);
        if (nl3 != std::string::npos) e.socket = text.substr(nl2 + 1, nl3 - nl2 - 1);
    }
    return true;
}

} // namespace

bool isPattern(std::string const& name) { return name.find_first_of("*?[") != std::string::npos; }

std::vector<AgentEntry> agents() {
    std::vector<AgentEntry> found;
    Zel::Fd dirFd(::open(Zel::PyClient::agentsDir().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dirFd.valid()) return found;
    (void)::flock(dirFd.get(), LOCK_EX);
    // The listing reads through a descriptor of its own: closedir closes it.
    std::unique_ptr<DIR, int (*)(DIR*)> dir(::fdopendir(::dup(dirFd.get())), ::closedir);
    if (!dir) return found;
    while (dirent* d = ::readdir(dir.get())) {
        AgentEntry e;
        if (readEntry(dirFd.get(), d->d_name, e)) found.push_back(std::move(e));
    }
    std::sort(found.begin(), found.end(), [](AgentEntry const& a, AgentEntry const& b) { return a.name < b.name; });
    return found;
}

} // namespace zelc
