// A file descriptor owned by one scope: closed when the scope ends unless
// released.
#pragma once

#include <unistd.h>

namespace Zel {

class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(Fd const&) = delete;
    Fd& operator=(Fd const&) = delete;

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release() { int f = fd_; fd_ = -1; return f; }
    void reset(int fd = -1) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

} // namespace Zel
