// Scripted peers for the client's tests: a UNIX-domain listener on a
// temporary path whose connections run a script on their own thread.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "Zel/Exception.h"

namespace zeltest {

inline bool readExact(int fd, void* buf, size_t n) {
    char* p = static_cast<char*>(buf);
    while (n) {
        ssize_t r = ::recv(fd, p, n, 0);
        if (r <= 0) return false;
        p += r;
        n -= static_cast<size_t>(r);
    }
    return true;
}

inline void writeAll(int fd, std::string const& s) {
    size_t off = 0;
    while (off < s.size()) {
        ssize_t w = ::send(fd, s.data() + off, s.size() - off, MSG_NOSIGNAL);
        if (w <= 0) return;
        off += static_cast<size_t>(w);
    }
}

inline std::string be32(uint32_t v) {
    return std::string{char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
}

// A response frame: length (status + payload), status, payload.
inline std::string response(std::string const& status, std::string const& payload) {
    return be32(static_cast<uint32_t>(payload.size() + 2)) + status + payload;
}

struct Request {
    std::string kind;
    std::string header;   // the 6 bytes as sent
    std::string command;
};

// Reads the greeting and answers it; returns the two greeting bytes.
inline std::string greet(int fd) {
    char g[2];
    if (!readExact(fd, g, 2)) return "";
    writeAll(fd, "ZPS1");
    return std::string(g, 2);
}

inline bool readRequest(int fd, Request* r) {
    char h[6];
    if (!readExact(fd, h, 6)) return false;
    r->header.assign(h, 6);
    r->kind.assign(h, 2);
    uint32_t n = uint32_t(uint8_t(h[2])) << 24 | uint32_t(uint8_t(h[3])) << 16 | uint32_t(uint8_t(h[4])) << 8 |
                 uint8_t(h[5]);
    r->command.assign(n, '\0');
    return n == 0 || readExact(fd, r->command.data(), n);
}

class TempDir {
public:
    TempDir() {
        char tmpl[] = "/tmp/zelpyXXXXXX";
        path_ = ::mkdtemp(tmpl);
    }
    ~TempDir() { std::system(("rm -rf " + path_).c_str()); }
    std::string const& path() const { return path_; }

private:
    std::string path_;
};

// Listens on <dir>/peer.sock; each accepted connection gets `script(fd,
// connectionIndex)` on the accepting thread, one after the other.
class ScriptedPeer {
public:
    using Script = std::function<void(int fd, int index)>;

    explicit ScriptedPeer(Script script) : script_(std::move(script)) {
        path_ = dir_.path() + "/peer.sock";
        listener_ = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un a{};
        a.sun_family = AF_UNIX;
        std::strncpy(a.sun_path, path_.c_str(), sizeof a.sun_path - 1);
        ::bind(listener_, reinterpret_cast<sockaddr*>(&a), sizeof a);
        ::listen(listener_, 8);
        thread_ = std::thread([this] {
            for (int i = 0;; ++i) {
                int fd = ::accept(listener_, nullptr, nullptr);
                if (fd < 0 || stopping_) {
                    if (fd >= 0) ::close(fd);
                    return;
                }
                script_(fd, i);
                ::close(fd);
                accepted_ = i + 1;
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
    int accepted() const { return accepted_; }

private:
    TempDir dir_;
    std::string path_;
    int listener_ = -1;
    Script script_;
    std::atomic<bool> stopping_{false};
    std::atomic<int> accepted_{0};
    std::thread thread_;
};

// Runs `f`, which must throw an E (for a plain RpcException, not a
// connection failure), and returns a copy of it.
template <class E, class F>
E thrown(F f) {
    try {
        f();
    } catch (E const& e) {
        if constexpr (std::is_same_v<E, Zel::RpcException>) {
            EXPECT_EQ(dynamic_cast<Zel::RpcConnectionException const*>(&e), nullptr) << "a connection failure";
        }
        return e;
    }
    throw std::logic_error("the expected exception was not thrown");
}

} // namespace zeltest
