// Whom the client talks to. In an agents directory shared between users
// (world-writable with the sticky bit, or $ZELC_AGENTS_DIR in a temporary
// folder), another user could put an agent file, a socket or a TCP
// listener under an agent's name before the agent starts, and receive
// every command meant for it. So before anything is sent, the agent file
// and the server must belong to a user this client trusts, and the server
// to the file's owner; a refusal is an error, never an absent agent.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "ClientTrace.h"
#include "Zel/Exception.h"

namespace Zel {

namespace {

// "uid 65534 (nobody)", or "uid N" for a uid without a name.
String8 ownerText(uid_t uid) {
    std::string text = "uid " + std::to_string(uid);
    passwd entry;
    passwd* found = nullptr;
    char buf[4096];
    if (::getpwuid_r(uid, &entry, buf, sizeof buf, &found) == 0 && found) {
        text += std::string(" (") + found->pw_name + ")";
    }
    return String8(text);
}

[[noreturn]] void refuse(String8 const& message) {
    PYCLIENT_TRACE(0, "connect", message);
    throw PermissionException(message);
}

// An IPv4 address as /proc/net/tcp prints it: the address as a native
// 32-bit word, then the port, in hexadecimal.
std::string procAddress(sockaddr_in const& a) {
    char text[16];
    std::snprintf(text, sizeof text, "%08X:%04X", a.sin_addr.s_addr, unsigned(ntohs(a.sin_port)));
    return text;
}

// The owner of the server's end of the TCP connection `fd` (which is the
// listening socket's owner), found as the server finds its peers' owners:
// the /proc/net/tcp line of that end's local and remote address.
bool tcpServerOwner(int fd, uid_t* uid) {
    sockaddr_in mine{}, server{};
    socklen_t n = sizeof mine, m = sizeof server;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&mine), &n) != 0 ||
        ::getpeername(fd, reinterpret_cast<sockaddr*>(&server), &m) != 0) {
        throw ErrnoException(errno, "getpeername");
    }
    std::string const wantLocal = procAddress(server), wantRemote = procAddress(mine);
    // The kernel lists the table in pieces; an entry that moves while it is
    // read (the server's end of a connection being completed) can be
    // missed by one pass.
    for (int pass = 0; pass < 3; ++pass) {
        std::ifstream table("/proc/net/tcp");
        std::string line;
        std::getline(table, line);   // the heading
        while (std::getline(table, line)) {
            char local[32], remote[32];
            unsigned owner;
            if (std::sscanf(line.c_str(), "%*s %31s %31s %*s %*s %*s %*s %u", local, remote, &owner) == 3 &&
                wantLocal == local && wantRemote == remote) {
                *uid = owner;
                return true;
            }
        }
    }
    return false;
}

} // namespace

void PyClient::trustedUserIs(uid_t uid) { trustedUsers_.push_back(uid); }

bool PyClient::trusted(uid_t uid) const {
    if (uid == ::geteuid() || uid == 0) return true;
    for (uid_t t : trustedUsers_) {
        if (t == uid) return true;
    }
    // Read on every check, as the agents directory is on every lookup.
    char const* env = std::getenv("ZELC_TRUSTED_USERS");
    std::string names = env ? env : "";
    for (size_t start = 0; start <= names.size();) {
        size_t end = names.find(',', start);
        if (end == std::string::npos) end = names.size();
        uid_t named;
        if (userId(names.substr(start, end - start).c_str(), &named) && named == uid) return true;
        start = end + 1;
    }
    return false;
}

bool PyClient::userId(char const* name, uid_t* uid) {
    passwd entry;
    passwd* found = nullptr;
    char buf[4096];
    if (::getpwnam_r(name, &entry, buf, sizeof buf, &found) == 0 && found) {
        *uid = found->pw_uid;
        return true;
    }
    if (*name < '0' || *name > '9') return false;
    char* end = nullptr;
    errno = 0;
    unsigned long n = std::strtoul(name, &end, 10);
    if (*end || errno || n >= uid_t(-1)) return false;
    *uid = static_cast<uid_t>(n);
    return true;
}

uid_t PyClient::agentFileOwner(int fd, String8 const& path) const {
    struct stat st;
    if (::fstat(fd, &st) != 0) throw ErrnoException(errno, path);
    if (!trusted(st.st_uid)) {
        refuse("Agent file " + path + " is owned by " + ownerText(st.st_uid) + ", not a trusted user");
    }
    // Whoever may write it may point the client anywhere.
    if (st.st_mode & (S_IWGRP | S_IWOTH)) {
        refuse("Agent file " + path + " of " + ownerText(st.st_uid) + " is writable by others than its owner");
    }
    return st.st_uid;
}

void PyClient::checkServer(int fd, PyServerContacts const& contacts) const {
    String8 what;
    uid_t uid;
    if (!contacts.socketName.empty()) {
        ucred cred;
        socklen_t n = sizeof cred;
        if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &n) != 0) {
            throw ErrnoException(errno, contacts.socketName);
        }
        what = "Socket " + contacts.socketName;
        uid = cred.uid;
    } else {
        what = "Port " + String8(std::to_string(contacts.port)) + " on 127.0.0.1";
        if (!tcpServerOwner(fd, &uid)) refuse(what + " has no owner listed in /proc/net/tcp");
    }
    if (!trusted(uid)) refuse(what + " is served by " + ownerText(uid) + ", not a trusted user");
    if (contacts.fileOwner != uid_t(-1) && uid != contacts.fileOwner) {
        refuse(what + " is served by " + ownerText(uid) + ", not by the agent file's owner " +
               ownerText(contacts.fileOwner));
    }
}

} // namespace Zel
