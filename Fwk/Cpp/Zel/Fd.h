// A file descriptor owned by one scope, closed when its owner goes unless
// released. Movable, so a connection's socket moves with the connection.
#pragma once

#include <unistd.h>

#include <utility>

namespace Zel {

class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(Fd&& o) noexcept : fd_(std::exchange(o.fd_, -1)) {}
    Fd& operator=(Fd&& o) noexcept {
        if (this != &o) reset(std::exchange(o.fd_, -1));
        return *this;
    }
    Fd(Fd const&) = delete;
    Fd& operator=(Fd const&) = delete;

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

} // namespace Zel
