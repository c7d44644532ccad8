// The embedded interpreter and the PyServer under test: the glue run in
// __main__, the checked stand-in for _ZelServer.serve, starting and
// stopping the server, and a client that checks it still serves.
#pragma once

#include "Support.h"

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

namespace zelfuzz::serverframes {

// The harness runs on the thread that started the interpreter. Past
// startEnv() it is inside this scope, which lasts until the process ends,
// and holds the interpreter lock only inside a HeldGil on it, so that the
// serving threads run while it waits on the sockets.
extern ReleasedGil* unlocked;

[[noreturn]] void pythonFinding(std::string const& what);

struct Env {
    PyObject* glue = nullptr;   // __main__'s dict
    PyObject* realServe = nullptr;
    PyObject* checkedServe = nullptr;
    PyObject* stopDone = nullptr;
    std::string dir, socketPath;
    unsigned long pid = 0, uid = 0;
};
extern Env env;

// A function the glue defines.
PyObject* glueFunction(char const* name);

// What the server's serving threads did, seen through checkedServe.
extern std::atomic<int> serving;
extern std::atomic<long> serveCalls;
extern std::mutex reasonsMutex;
extern std::vector<std::string> reasons;   // serve()'s reasons for ending a connection

// The interpreter, the glue and a first server, in a scratch directory
// removed at exit. Returns without the interpreter lock.
void startEnv();
// Needs the interpreter lock.
void startServer();
// stop() on a thread of its own, with connections still open; a finding
// unless it returns within 3 s, without raising, with none still served.
// Called without the interpreter lock.
void stopServer();

// The number of entries of a directory (/proc/self/fd, /proc/self/task).
size_t entries(char const* dir);
Fd connectToServer();
// A client as PyClient is one: greeting, "?1" "1+1", OK '2'.
void healthCheck();

} // namespace zelfuzz::serverframes
