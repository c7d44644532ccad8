// Ctrl-C in zelc (see CtrlC.h).
#include "CtrlC.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "Zel/Exception.h"

namespace zelc {

namespace {

// The write end of the pipe of the live CtrlC, for the handler.
volatile sig_atomic_t pressedFd = -1;

extern "C" void onInterrupt(int) {
    int saved = errno;
    char byte = 'c';
    if (pressedFd >= 0) (void)!::write(pressedFd, &byte, 1);   // a full pipe has enough presses already
    errno = saved;
}

void makePipe(Zel::Fd& readEnd, Zel::Fd& writeEnd) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) throw Zel::ErrnoException(errno);
    readEnd.reset(ends[0]);
    writeEnd.reset(ends[1]);
}

bool readable(pollfd& p) { return p.revents & (POLLIN | POLLHUP | POLLERR); }

} // namespace

CtrlC::CtrlC() {
    makePipe(read_, write_);
    pressedFd = write_.get();
    struct sigaction caught{};
    caught.sa_handler = onInterrupt;
    sigemptyset(&caught.sa_mask);
    ::sigaction(SIGINT, &caught, &saved_);
}

CtrlC::~CtrlC() {
    ::sigaction(SIGINT, &saved_, nullptr);
    pressedFd = -1;
}

void CtrlC::letNextEnd() { ::sigaction(SIGINT, &saved_, nullptr); }

bool CtrlC::ignored() {
    struct sigaction now{};
    ::sigaction(SIGINT, nullptr, &now);
    return now.sa_handler == SIG_IGN;
}

bool CtrlC::taken() {
    char bytes[64];
    bool any = false;
    ssize_t n;
    while ((n = ::read(read_.get(), bytes, sizeof bytes)) > 0 || (n < 0 && errno == EINTR)) any = any || n > 0;
    return any;
}

WhileRunning::WhileRunning(CtrlC& ctrlC, std::function<void()> onPress) {
    makePipe(stopRead_, stopWrite_);
    thread_ = std::thread([&ctrlC, onPress = std::move(onPress), stop = stopRead_.get()] {
        for (;;) {
            pollfd p[2] = {{stop, POLLIN, 0}, {ctrlC.fd(), POLLIN, 0}};
            if (::poll(p, 2, -1) < 0) continue;   // EINTR: this thread may take the SIGINT itself
            if (readable(p[0])) return;
            if (readable(p[1]) && ctrlC.taken()) onPress();
        }
    });
}

WhileRunning::~WhileRunning() {
    char byte = 's';
    (void)!::write(stopWrite_.get(), &byte, 1);
    thread_.join();
}

} // namespace zelc
