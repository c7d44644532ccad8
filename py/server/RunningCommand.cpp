// Running commands and their interruption (see RunningCommand.h).
#include "RunningCommand.h"

#include <pthread.h>
#include <pythread.h>
#include <signal.h>

#include <unordered_map>

namespace ZelServer {

namespace {

// The interpreter's thread ident type: long before Python 3.7, unsigned
// long since.
using Ident = decltype(PyThread_get_thread_ident());

struct Running {
    pthread_t thread;
    bool interrupted;
};

// Guarded by the interpreter lock.
std::unordered_map<unsigned long, Running>& running() {
    static auto* threads = new std::unordered_map<unsigned long, Running>();   // outlives every thread
    return *threads;
}

// Ignored by default, so a stray one does no harm; a handler (that does
// nothing) installed without SA_RESTART makes it end a blocking call with
// EINTR.
constexpr int kWakeSignal = SIGURG;

extern "C" void onWake(int) {}

bool wakeSignalHandled() {
    static bool const handled = [] {
        struct sigaction current;
        if (::sigaction(kWakeSignal, nullptr, &current) != 0) return false;
        if (current.sa_handler != SIG_DFL) return current.sa_handler != SIG_IGN;   // someone else's handler
        struct sigaction wake{};
        wake.sa_handler = onWake;
        sigemptyset(&wake.sa_mask);
        return ::sigaction(kWakeSignal, &wake, nullptr) == 0;
    }();
    return handled;
}

} // namespace

unsigned long RunningCommand::currentThread() { return static_cast<unsigned long>(PyThread_get_thread_ident()); }

RunningCommand::RunningCommand()
    : outermost_(running().emplace(currentThread(), Running{::pthread_self(), false}).second) {}

RunningCommand::~RunningCommand() {
    if (!outermost_) return;
    running().erase(currentThread());
    PyThreadState_SetAsyncExc(static_cast<Ident>(currentThread()), nullptr);
}

PyObject* RunningCommand::ended(PyObject* result) {
    if (!outermost_ || !result || !running()[currentThread()].interrupted) return result;
    Py_DECREF(result);
    PyErr_SetNone(PyExc_KeyboardInterrupt);
    return nullptr;
}

bool RunningCommand::interrupt(unsigned long ident) {
    auto found = running().find(ident);
    if (found == running().end()) return false;
    if (PyThreadState_SetAsyncExc(static_cast<Ident>(ident), PyExc_KeyboardInterrupt) != 1) return false;
    found->second.interrupted = true;
    // The thread is alive: it leaves running() only with the lock we hold.
    if (wakeSignalHandled()) ::pthread_kill(found->second.thread, kWakeSignal);
    return true;
}

} // namespace ZelServer
