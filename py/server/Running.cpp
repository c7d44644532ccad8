// The registry of served connections (see Running.h).
#include "Running.h"

#include <pthread.h>
#include <signal.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <unordered_map>

#include "support/Gil.h"
#include "support/PyCompat.h"

namespace ZelServer {

struct Entry {
    ThreadIdent thread;
    pthread_t handle;
    bool running;
    bool inCode;                 // in an InterruptibleCode scope
    PyObject* interruption;      // the exception to raise (borrowed: a built-in class), or null
    bool woken;                  // interrupted while in code: ends sleepInterruptibly (under wakeMutex)
};

namespace {

// Guarded by the interpreter lock.
std::unordered_map<int, Entry>& registry() {
    static auto* entries = new std::unordered_map<int, Entry>;   // outlives the threads that use it
    return *entries;
}

// The entry of the connection this thread serves, if it serves one.
thread_local Entry* current = nullptr;

// Ignored by default, so a stray one does no harm; a handler (that does
// nothing) installed without SA_RESTART makes it end a blocking call with
// EINTR.
constexpr int kWakeSignal = SIGURG;

extern "C" void onWake(int) {}

// What a sleeping command waits on; `woken` is written under the mutex.
std::mutex& wakeMutex() {
    static auto* m = new std::mutex;   // outlives the threads that use it
    return *m;
}

std::condition_variable& wakeCondition() {
    static auto* c = new std::condition_variable;
    return *c;
}

void setWoken(Entry& e, bool woken) {
    {
        std::lock_guard<std::mutex> lock(wakeMutex());
        e.woken = woken;
    }
    if (woken) wakeCondition().notify_all();
}

bool wakeSignalHandled() {
    static bool const handled = [] {
        struct sigaction now;
        if (::sigaction(kWakeSignal, nullptr, &now) != 0) return false;
        if (now.sa_handler != SIG_DFL) return now.sa_handler != SIG_IGN;   // someone else's handler
        struct sigaction wake{};
        wake.sa_handler = onWake;
        sigemptyset(&wake.sa_mask);
        return ::sigaction(kWakeSignal, &wake, nullptr) == 0;
    }();
    return handled;
}

void raiseIn(Entry& e) {
    setWoken(e, true);
    if (PyThreadState_SetAsyncExc(e.thread, e.interruption) != 1) return;
    Zel::compat::checkAsyncExceptionsSoon();
    // The thread is alive: it leaves the registry only with the lock we hold.
    if (wakeSignalHandled()) ::pthread_kill(e.handle, kWakeSignal);
}

} // namespace

Serving::Serving(int fd) : fd_(fd), thread_(PyThread_get_thread_ident()) {
    current = &(registry()[fd_] = Entry{thread_, ::pthread_self(), false, false, nullptr, false});
}

Serving::~Serving() {
    registry().erase(fd_);
    current = nullptr;
}

void Serving::commandStarts() {
    Entry& e = registry()[fd_];
    e.running = true;
    setWoken(e, false);
}

void Serving::commandEnds() {
    Entry& e = registry()[fd_];
    e.running = false;
    e.interruption = nullptr;
    setWoken(e, false);
    PyThreadState_SetAsyncExc(thread_, nullptr);
}

InterruptibleCode::InterruptibleCode() : entry_(current && !current->inCode ? current : nullptr) {
    if (entry_) entry_->inCode = true;
}

InterruptibleCode::~InterruptibleCode() {
    if (!entry_) return;
    entry_->inCode = false;
    PyThreadState_SetAsyncExc(entry_->thread, nullptr);
}

bool InterruptibleCode::mayStart() const {
    if (!entry_ || !entry_->interruption) return true;
    PyErr_SetNone(entry_->interruption);
    return false;
}

PyObject* InterruptibleCode::ended(PyObject* result) const {
    if (!entry_ || !result || !entry_->interruption) return result;
    Py_DECREF(result);
    PyErr_SetNone(entry_->interruption);
    return nullptr;
}

bool interruptCommand(int fd, PyObject* exception) {
    auto found = registry().find(fd);
    if (found == registry().end() || !found->second.running) return false;
    Entry& e = found->second;
    e.interruption = exception;
    if (e.inCode) raiseIn(e);
    return true;
}

Slept sleepInterruptibly(double seconds) {
    Entry* e = current && current->inCode ? current : nullptr;
    if (!e) return Slept::NotServing;
    // Longer than a clock's nanoseconds hold is as good as for ever: 30 years.
    double const bounded = seconds < 1e9 ? seconds : 1e9;
    auto const deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(bounded));
    bool woken;
    {
        Zel::ReleasedGil released;
        std::unique_lock<std::mutex> lock(wakeMutex());
        woken = wakeCondition().wait_until(lock, deadline, [e] { return e->woken; });
    }
    if (!woken) return Slept::Done;
    // Raised here rather than by the pending asynchronous exception, which
    // would come again in whatever handles this one.
    setWoken(*e, false);
    PyThreadState_SetAsyncExc(e->thread, nullptr);
    PyErr_SetNone(e->interruption ? e->interruption : PyExc_KeyboardInterrupt);
    return Slept::Interrupted;
}

} // namespace ZelServer
