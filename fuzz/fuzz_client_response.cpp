// Zel::PyClient reading whatever a server sends back. A scripted peer on a
// UNIX-domain socket greets the client, optionally takes its request, then
// writes the input's bytes as the response and closes.
//
// Input: byte 0 picks the call and the result buffer size; the rest is the
// server's bytes.
//   bit 7: remoteCmd (request, response, reconnect and resend on a broken
//          exchange) instead of result() alone
//   bits 0-6: buffer size 0..125; 126 means -1, 127 means 4096
// The buffer is a heap block of exactly that size, so that AddressSanitizer
// sees any write past it.
//
// The clear errors are the client's exceptions: RpcException (with its
// RpcConnectionException) and ErrnoException. Anything else escaping, a
// sanitizer report, a hang or a leak is a finding.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>

#include "support/WireProtocol.h"
#include "Zel/Exception.h"
#include "Zel/Fd.h"
#include "ZelPy/PyClient.h"

namespace {

namespace wire = Zel::wire;

// The peer's socket I/O. The client's tests have the like in
// py/tests/PyClientTestSupport.h; a fuzz target takes nothing from the
// tests, so it keeps its own.
bool readExact(int fd, char* p, size_t n) {
    while (n) {
        ssize_t r = ::recv(fd, p, n, 0);
        if (r <= 0) return false;
        p += r;
        n -= static_cast<size_t>(r);
    }
    return true;
}

void writeAll(int fd, char const* p, size_t n) {
    while (n) {
        ssize_t w = ::send(fd, p, n, MSG_NOSIGNAL);
        if (w <= 0) return;   // the client has gone: nothing more to say
        p += w;
        n -= static_cast<size_t>(w);
    }
}

[[noreturn]] void die(char const* what) {
    std::perror(what);
    std::abort();
}

// The server: one connection at a time, each answered with the current
// response. Made once and never destroyed (its thread waits in accept()
// until the process ends).
class Peer {
public:
    Peer() {
        char tmpl[] = "/tmp/zelfuzzXXXXXX";
        if (!::mkdtemp(tmpl)) die("mkdtemp");
        dir_ = tmpl;
        path_ = dir_ + "/peer.sock";
        listener_.reset(::socket(AF_UNIX, SOCK_STREAM, 0));
        sockaddr_un a{};
        a.sun_family = AF_UNIX;
        std::strncpy(a.sun_path, path_.c_str(), sizeof a.sun_path - 1);
        if (::bind(listener_.get(), reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) die("bind");
        if (::listen(listener_.get(), 4) != 0) die("listen");
        std::atexit([] {
            ::unlink(instance().path_.c_str());
            ::rmdir(instance().dir_.c_str());
        });
        std::thread([this] { serve(); }).detach();
    }
    static Peer& instance() {
        static Peer* const peer = new Peer;
        return *peer;
    }
    std::string const& path() const { return path_; }
    void responseIs(std::string response, bool takeRequest) {
        std::lock_guard<std::mutex> lock(mutex_);
        response_ = std::move(response);
        takeRequest_ = takeRequest;
    }

private:
    void serve() {
        for (;;) {
            Zel::Fd fd(::accept(listener_.get(), nullptr, nullptr));
            if (!fd.valid()) continue;
            std::string response;
            bool takeRequest;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                response = response_;
                takeRequest = takeRequest_;
            }
            char greeting[wire::kGreetingSize];
            if (readExact(fd.get(), greeting, sizeof greeting)) {
                writeAll(fd.get(), wire::kGreetingReply.data(), wire::kGreetingReply.size());
                char header[wire::kRequestHeader];
                bool ok = true;
                if (takeRequest && (ok = readExact(fd.get(), header, sizeof header))) {
                    std::string command(wire::readLength(header + wire::kKindSize), '\0');
                    ok = readExact(fd.get(), command.data(), command.size());
                }
                if (ok) writeAll(fd.get(), response.data(), response.size());
            }
        }
    }

    std::string dir_, path_;
    Zel::Fd listener_;
    std::mutex mutex_;
    std::string response_;
    bool takeRequest_ = false;
};

// The reconnection notice goes to std::cerr; silenced so that the fuzzer's
// own output stays readable.
class QuietCerr {
public:
    QuietCerr() : saved_(std::cerr.rdbuf(sink_.rdbuf())) {}
    ~QuietCerr() { std::cerr.rdbuf(saved_); }

private:
    std::ostringstream sink_;
    std::streambuf* saved_;
};

[[noreturn]] void finding(char const* what, int n, int bufSize) {
    std::fprintf(stderr, "fuzz_client_response: %s (returned %d, bufSize %d)\n", what, n, bufSize);
    std::abort();
}

unsigned const kNoRetry[] = {0};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    std::signal(SIGPIPE, SIG_IGN);
    Peer::instance();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size == 0) return 0;
    bool remote = data[0] & 0x80;
    int bufSize = data[0] & 0x7f;
    if (bufSize == 126) bufSize = -1;
    if (bufSize == 127) bufSize = 4096;
    std::string response(reinterpret_cast<char const*>(data) + 1, size - 1);

    Peer& peer = Peer::instance();
    peer.responseIs(response, remote);
    std::unique_ptr<char[]> buf(new char[bufSize > 0 ? bufSize : 0]);
    Zel::PyClient client(Zel::String8(peer.path()), 'T', nullptr);
    // A failed reconnection gives up at once instead of waiting 31 s.
    client.retryProfileIs(kNoRetry);
    QuietCerr quiet;
    int n;
    try {
        client.connect();
        n = remote ? client.remoteCmd("fuzz", wire::kEvaluate, buf.get(), bufSize) : client.result(buf.get(), bufSize);
    } catch (Zel::RpcException const&) {
        return 0;
    } catch (Zel::ErrnoException const&) {
        return 0;
    }
    // A success: an "OK" frame whose payload fitted, terminated, and
    // received as sent (L below 2 gives -1 or -2 by design). The response
    // layout is what is checked, so it is spelled out here rather than
    // read from support/WireProtocol.h, which the client reads it with.
    if (response.size() < 6 || response.compare(4, 2, "OK") != 0) finding("success without an OK frame", n, bufSize);
    if (n < -2 || (n >= 0 && n >= bufSize)) finding("count outside the buffer", n, bufSize);
    if (n >= 0 && bufSize > 0) {
        size_t got = std::strlen(buf.get());
        if (got > static_cast<size_t>(n) || response.compare(6, got, buf.get(), got) != 0) {
            finding("payload differs from what the server sent", n, bufSize);
        }
    }
    return 0;
}
