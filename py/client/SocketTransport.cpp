// The socket layer of the client: EINTR is repeated, anything else becomes
// a Zel::ErrnoException carrying the system's text.
#include <cerrno>

#include "ClientTrace.h"
#include "Zel/Exception.h"

void socketSend(int fd, void const* buf, int len, int flags) {
    for (;;) {
        // One call: requests are small enough to leave in one piece.
        if (::send(fd, buf, static_cast<size_t>(len), flags) >= 0) return;
        int err = errno;
        if (err == EINTR) continue;
        PYCLIENT_TRACE(8, "socketSend", "send returned " << err);
        throw Zel::ErrnoException(err);
    }
}

void socketConnect(int fd, sockaddr* addr, unsigned int addrLen) {
    for (;;) {
        if (::connect(fd, addr, addrLen) == 0) return;
        int err = errno;
        if (err == EINTR) continue;
        PYCLIENT_TRACE(8, "socketConnect", "socketConnect returned " << err);
        throw Zel::ErrnoException(err);
    }
}

void socketConnect(int fd, sockaddr* addr) { socketConnect(fd, addr, 16); }

int socketRecv(int fd, char* buf, int len, bool all) {
    int got = 0;
    for (;;) {
        ssize_t n = ::recv(fd, buf + got, static_cast<size_t>(len - got), 0);
        if (n == 0) return got;
        if (n > 0) {
            got += static_cast<int>(n);
        } else if (errno != EINTR) {
            int err = errno;
            PYCLIENT_TRACE(8, "socketRecv", "socketRecv returned " << err);
            throw Zel::ErrnoException(err);
        }
        if (got == 0) continue;
        if (!all || got >= len) return got;
    }
}
