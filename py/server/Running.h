// The connections being served and whether each is running a command, so
// that a command can be interrupted (PyServer.stop with a time limit, a
// console's interrupt request) by raising an exception in the thread that
// runs it. Everything here is used with the interpreter lock held, which
// is what orders it.
//
// Only the command's own code is interruptible (InterruptibleCode scopes
// around it): an interruption that comes while the server's code runs
// (taking the stdout lock, swapping sys.stdout) waits for the command's
// code to start, and one that comes too late is taken back, so the
// exception never lands in the server's code, where it could leave a lock
// taken.
#pragma once

#include <Python.h>

#include <pythread.h>

namespace ZelServer {

using ThreadIdent = decltype(PyThread_get_thread_ident());

// Registers the calling thread as serving `fd` for the scope's life.
class Serving {
public:
    explicit Serving(int fd);
    ~Serving();
    Serving(Serving const&) = delete;
    Serving& operator=(Serving const&) = delete;

    // A command runs between these. The end takes back an interruption
    // that came too late to reach the command.
    void commandStarts();
    void commandEnds();

private:
    int fd_;
    ThreadIdent thread_;
};

// A command's own code runs in this scope (on a thread serving a
// connection; elsewhere it changes nothing). An interruption raises its
// exception in the code as an asynchronous exception, and a wake-up
// signal ends a wait in a system call (time.sleep, a select) so that it
// comes at once rather than when the wait ends.
class InterruptibleCode {
public:
    InterruptibleCode();
    ~InterruptibleCode();
    InterruptibleCode(InterruptibleCode const&) = delete;
    InterruptibleCode& operator=(InterruptibleCode const&) = delete;

    // Whether the code may start: false, with the exception set, when the
    // command was interrupted before its code started.
    bool mayStart() const;
    // What the code returned (a new reference, or null with an exception
    // set). Code that was interrupted but ended before the interpreter got
    // to raise the exception in it (Python 2 looks only every so many
    // instructions) ends with the exception all the same.
    PyObject* ended(PyObject* result) const;

private:
    struct Entry* entry_;
};

// Raises `exception` in the thread running a command on `fd`; false when
// no command runs there.
bool interruptCommand(int fd, PyObject* exception);

// time.sleep for a command's own code, which an interruption ends at once
// with its exception. The wake-up signal cannot do that everywhere: from
// Python 3.5 time.sleep goes back to sleep after a signal on any thread
// but the main one, and checks for the exception only once the whole time
// has passed. Called with the interpreter lock held; it is given up while
// sleeping. NotServing when the calling thread runs no interruptible code
// (the caller sleeps as time.sleep would), Interrupted with the exception
// set.
enum class Slept { NotServing, Done, Interrupted };
Slept sleepInterruptibly(double seconds);

} // namespace ZelServer
