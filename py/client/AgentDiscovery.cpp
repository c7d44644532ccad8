// Agent discovery: an agent announces its PyServer with a three-line file
// "pid\nport\nsocket path\n" in the agents directory and holds an exclusive
// flock on it while it lives. A file nobody holds belongs to a dead agent
// and is removed. The file must belong to a user the client trusts
// (PeerTrust.cpp), whose server it then names.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "ClientTrace.h"
#include "Zel/Fd.h"
#include "Zel/Exception.h"

namespace Zel {

namespace {
constexpr int kAgentFileMax = 128;
constexpr size_t kSocketPathMax = 108;   // the path field of sockaddr_un

// Opens `path` for reading. A missing one is no error: it is traced and
// the descriptor returned is not valid.
Fd openIfPresent(String8 const& path, int flags = 0) {
    Fd fd(::open64(path.c_str(), O_RDONLY | flags));
    if (!fd.valid()) {
        int err = errno;
        if (err != ENOENT) throw ErrnoException(err, path);
        PYCLIENT_TRACE(1, "serverContacts", "Failed to open " << path);
    }
    return fd;
}

} // namespace

String8 PyClient::agentsDir() {
    char const* dir = std::getenv("ZELC_AGENTS_DIR");
    return String8(dir ? dir : "/var/run/agents");
}

void PyClient::serverContacts(String8 agentFile, PyServerContacts* contacts) {
    String8 dir = agentsDir();
    Fd dirFd = openIfPresent(dir);
    if (!dirFd.valid()) return;
    // Serialises lookups and agent start-ups across processes; released
    // when the descriptor closes.
    (void)::flock(dirFd.get(), LOCK_EX);

    // Declared after the directory's, so closed before it on every way out.
    // Not blocking: a FIFO planted under the agent's name must not hold the
    // lookup (nor the directory's lock) forever.
    Fd fileFd = openIfPresent(agentFile, O_NONBLOCK);
    if (!fileFd.valid()) return;

    if (::flock(fileFd.get(), LOCK_EX | LOCK_NB) == 0) {
        ::unlink(agentFile.c_str());
        PYCLIENT_TRACE(8, "serverContacts", "agent file was not flocked");
        return;
    }

    char buf[kAgentFileMax + 1];
    ssize_t n = ::read(fileFd.get(), buf, kAgentFileMax);
    if (n < 1) {
        PYCLIENT_TRACE(8, "serverContacts", "agent file was incomplete");
        return;
    }
    buf[n] = 0;   // strtol must stop inside what was read
    char const* end = buf + n;

    long agentPid = std::strtol(buf, nullptr, 10);
    long myPid = ::getpid();
    PYCLIENT_TRACE(8, "serverContacts", "My pid is " << myPid << ", pid in agent file is " << agentPid);
    if (agentPid == myPid) {
        PYCLIENT_TRACE(1, "serverContacts",
                       "Agent pid " << agentPid << " matches local pid; entering 'same process' mode");
        sameProcess_ = true;
        return;
    }
    // Commands leave the process only for a server named by a trusted file.
    uid_t owner = agentFileOwner(fileFd.get(), agentFile);

    char const* nl1 = static_cast<char const*>(std::memchr(buf, '\n', static_cast<size_t>(n)));
    if (!nl1) {
        // A pid line alone: no port to report.
        PYCLIENT_TRACE(8, "serverContacts", "agent file was incomplete");
        return;
    }
    char const* line2 = nl1 + 1;
    contacts->port = static_cast<int32_t>(std::strtol(line2, nullptr, 10));
    contacts->fileOwner = owner;
    char const* nl2 = static_cast<char const*>(std::memchr(line2, '\n', static_cast<size_t>(end - line2)));
    if (!nl2) return;

    char const* line3 = nl2 + 1;
    size_t span = std::min(kSocketPathMax, static_cast<size_t>(end - line3));
    char const* nl3 = static_cast<char const*>(std::memchr(line3, '\n', span));
    if (nl3) {
        contacts->socketName = String8(line3, static_cast<size_t>(nl3 - line3));
    } else {
        PYCLIENT_TRACE(8, "serverContacts", "no valid socket name found for the agent");
    }
}

} // namespace Zel
