// The connections being served and whether each is running a command, so
// that a command can be interrupted (PyServer.stop with a time limit) by
// raising an exception in the thread that runs it. Everything here is
// used with the interpreter lock held, which is what orders it.
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

// Raises `exception` in the thread running a command on `fd`; false when
// no command runs there.
bool interruptCommand(int fd, PyObject* exception);

} // namespace ZelServer
