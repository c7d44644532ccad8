// The registry of served connections (see Running.h).
#include "Running.h"

#include <unordered_map>

namespace ZelServer {

namespace {

struct Entry {
    ThreadIdent thread;
    bool running;
};

// Guarded by the interpreter lock.
std::unordered_map<int, Entry>& registry() {
    static auto* entries = new std::unordered_map<int, Entry>;   // outlives the threads that use it
    return *entries;
}

} // namespace

Serving::Serving(int fd) : fd_(fd), thread_(PyThread_get_thread_ident()) {
    registry()[fd_] = Entry{thread_, false};
}

Serving::~Serving() { registry().erase(fd_); }

void Serving::commandStarts() { registry()[fd_].running = true; }

void Serving::commandEnds() {
    registry()[fd_].running = false;
    PyThreadState_SetAsyncExc(thread_, nullptr);
}

bool interruptCommand(int fd, PyObject* exception) {
    auto found = registry().find(fd);
    if (found == registry().end() || !found->second.running) return false;
    return PyThreadState_SetAsyncExc(found->second.thread, exception) == 1;
}

} // namespace ZelServer
