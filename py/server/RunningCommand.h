// Commands' code running at this moment, by the thread running each, so
// that another connection can interrupt it: a KeyboardInterrupt raised in
// that thread (an asynchronous exception), and a wake-up signal to it,
// which ends a wait in a system call (time.sleep, a select) so that the
// exception comes at once rather than when the wait ends.
//
// Only the command's own code is interruptible: the scope is opened just
// around it, and an interrupt left pending when it closes is dropped,
// never raised in the server's code (where it could leave a lock taken or
// sys.stdout swapped). Everything here is used with the interpreter lock
// held, which also orders it.
#pragma once

#include <Python.h>

namespace ZelServer {

class RunningCommand {
public:
    // This thread runs a command's code until the scope ends.
    RunningCommand();
    ~RunningCommand();
    RunningCommand(RunningCommand const&) = delete;
    RunningCommand& operator=(RunningCommand const&) = delete;

    // What the code returned (a new reference, or null with an exception
    // set). Code that was interrupted but ended before the interpreter got
    // to raise the KeyboardInterrupt in it (Python 2 looks only every so
    // many instructions) ends with the KeyboardInterrupt all the same.
    PyObject* ended(PyObject* result);

    // The ident of the calling thread, which names its connection.
    static unsigned long currentThread();
    // Interrupts the code that thread `ident` runs; false when it runs
    // none.
    static bool interrupt(unsigned long ident);

private:
    bool outermost_;
};

} // namespace ZelServer
