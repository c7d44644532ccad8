// Scripted peers for the client's tests: a UNIX-domain listener on a
// temporary path that greets each connection, records what it receives and
// answers each request as the test's script says; and agent directories.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Support.h"

namespace zeltest {

inline bool readExact(int fd, void* buf, size_t n) {
    return n == 0 || ::recv(fd, buf, n, MSG_WAITALL) == static_cast<ssize_t>(n);
}

// The peer closes connections on purpose: a send into one fails rather
// than ending the binary.
inline struct IgnoreSigpipe {
    IgnoreSigpipe() { ::signal(SIGPIPE, SIG_IGN); }
} const ignoreSigpipe;

// Blocking UNIX-domain sends of these sizes go out whole.
inline void writeAll(int fd, std::string const& s) { (void)::send(fd, s.data(), s.size(), MSG_NOSIGNAL); }

// A response frame: length (status + payload), status, payload.
inline std::string response(std::string const& status, std::string const& payload) {
    uint32_t n = static_cast<uint32_t>(payload.size() + 2);
    return std::string{char(n >> 24), char(n >> 16), char(n >> 8), char(n)} + status + payload;
}

struct Request {
    std::string kind;
    std::string command;   // as long as the frame's big-endian length says
};

inline bool readRequest(int fd, Request* r) {
    char h[6];
    uint32_t n;
    if (!readExact(fd, h, 6)) return false;
    r->kind.assign(h, 2);
    std::memcpy(&n, h + 2, 4);
    r->command.assign(ntohl(n), '\0');
    return readExact(fd, r->command.data(), r->command.size());
}

// A fresh directory, removed with what it holds.
struct TempDir {
    char name[17] = "/tmp/zelpyXXXXXX";
    std::string const path = ::mkdtemp(name);
    ~TempDir() { std::system(("rm -rf " + path).c_str()); }
};

// A UNIX-domain stream socket bound to `path` (-1 if the bind fails).
inline int boundUnixSocket(std::string const& path) {
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    std::strncpy(a.sun_path, path.c_str(), sizeof a.sun_path - 1);
    return ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 ? fd : -1;
}

// Listens on <dir>/peer.sock and serves one connection after the other:
// answers the greeting, then each request with reply(request, connection
// index); an empty reply closes the connection instead.
class ScriptedPeer {
public:
    using Reply = std::function<std::string(Request const&, int index)>;

    explicit ScriptedPeer(Reply reply) : reply_(std::move(reply)) {
        ::listen(listener_, 8);
        thread_ = std::thread([this] {
            for (int i = 0;; ++i) {
                int fd = ::accept(listener_, nullptr, nullptr);
                if (fd >= 0 && !stopping_) serve(fd, i);
                if (fd >= 0) ::close(fd);
                if (fd < 0 || stopping_) return;
            }
        });
    }
    ~ScriptedPeer() {
        stopping_ = true;
        ::shutdown(listener_, SHUT_RDWR);
        thread_.join();
        ::close(listener_);
    }
    std::string const& path() const { return path_; }
    // What the peer has recorded so far (its thread records as it goes;
    // the socket orders that for the client, not for the thread checker).
    std::vector<std::string> greetings() const {
        std::lock_guard<std::mutex> hold(mutex_);
        return greetings_;
    }
    std::vector<Request> requests() const {
        std::lock_guard<std::mutex> hold(mutex_);
        return requests_;
    }

private:
    void serve(int fd, int index) {
        char g[2];
        if (!readExact(fd, g, 2)) return;
        record(greetings_, std::string(g, 2));
        writeAll(fd, "ZPS1");
        for (Request r; readRequest(fd, &r);) {
            record(requests_, r);
            if (r.kind == "?8") continue;   // a part of a long command: no response
            std::string answer = reply_(r, index);
            if (answer.empty()) return;
            writeAll(fd, answer);
        }
    }
    template <class T>
    void record(std::vector<T>& to, T const& what) {
        std::lock_guard<std::mutex> hold(mutex_);
        to.push_back(what);
    }
    mutable std::mutex mutex_;
    std::vector<std::string> greetings_;
    std::vector<Request> requests_;
    Reply reply_;
    TempDir dir_;
    std::string path_ = dir_.path + "/peer.sock";
    int listener_ = boundUnixSocket(path_);
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

// Points ZELC_AGENTS_DIR at a fresh directory for its life.
class AgentsDir {
public:
    AgentsDir() { ::setenv("ZELC_AGENTS_DIR", dir_.path.c_str(), 1); }
    ~AgentsDir() {
        for (int fd : held_) ::close(fd);
        ::unsetenv("ZELC_AGENTS_DIR");
    }
    std::string file(std::string const& name) const { return dir_.path + "/" + name; }
    // Writes an agent file; with `lock`, holds its flock like a live agent.
    std::string write(std::string const& name, std::string const& text, bool lock = true) {
        std::string path = file(name);
        std::ofstream(path) << text;
        ::chmod(path.c_str(), 0644);   // as an agent writes it, whatever the umask
        if (lock) {
            held_.push_back(::open(path.c_str(), O_RDONLY));
            ::flock(held_.back(), LOCK_EX);
        }
        return path;
    }

private:
    TempDir dir_;
    std::vector<int> held_;
};

} // namespace zeltest
