#include "Env.h"

#include <dirent.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>

namespace zelfuzz::serverframes {

namespace {

// The interpreter's side: the server, what its commands should answer,
// and what it noticed. Run in __main__ at start.
char const* const kGlue = R"(
import sys, threading, traceback
import PyServer
import ZelConsole

# The connections' builtins: what the command table needs, nothing more.
safe = {'len': len, 'repr': repr, 'True': True, 'False': False, 'None': None,
        'SystemExit': SystemExit, 'KeyboardInterrupt': KeyboardInterrupt, 'ValueError': ValueError}
seed = {'__builtins__': safe, '__name__': '__fuzz__'}

notices = []
PyServer._notice = notices.append
server = None

def lastLine(text):
    lines = [l for l in text.split('\n') if l.strip()]
    return lines[-1] if lines else ''

# The console of the expected namespace of the connection being worked
# out (one at a time), as the server keeps one per connection.
console = [None]

def expect(ns, kind, cmd):
    try:
        if kind == '1':
            return 'OK', repr(eval(compile(cmd, '<PyServer>', 'eval', 0, True), ns))
        if kind == '2':
            return 'OK', PyServer._execCode(ns, compile(cmd, '<PyServer>', 'exec', 0, True))
        if kind == '5':   # no command of the table is a control request
            raise ValueError("unknown console control request '%s'" % cmd.split('\0')[0][:100])
        if console[0] is None or console[0].namespace is not ns:
            console[0] = ZelConsole.Console(ns, PyServer._stdoutLock, 'fuzz.srv')
        if kind == '4':
            return 'OK', console[0].complete(cmd)
        how, text = console[0].push(cmd)
        return ('OK', 'EX', 'MO')[how], lastLine(text) if how == ZelConsole.RAISED else text
    except BaseException:
        t, v = sys.exc_info()[:2]
        return 'EX', lastLine(''.join(traceback.format_exception_only(t, v)))

def start(directory, serve):
    global server
    server = PyServer.PyServer('fuzz.srv', namespace=seed, directory=directory).start()
    server._nativeServe = serve
    return server.socketPath

def stopInThread(done):
    """server.stop() on a thread of its own; done(None), or done(the
    traceback) when it raised, once it is over."""
    def run():
        try:
            server.stop()
        except BaseException:
            done(traceback.format_exc())
        else:
            done(None)
    t = threading.Thread(target=run, name='fuzz stop')
    t.daemon = True
    t.start()

def takeNotices():
    taken = notices[:]
    del notices[:]
    return taken
)";

PyObject* must(PyObject* o, char const* what) {
    if (!o) pythonFinding(std::string("setting up: ") + what);
    return o;
}

// Stands in for _ZelServer.serve in the server: calls it and checks what
// it returns. Runs on the connections' threads, with the interpreter lock.
PyObject* checkedServe(PyObject*, PyObject* args) {
    ++serveCalls;
    ++serving;
    PyObject* result = PyObject_Call(env.realServe, args, nullptr);
    if (!result) pythonFinding("serve() raised instead of ending the connection");
    if (PyErr_Occurred()) pythonFinding("serve() returned with a Python error pending");
    if (result != Py_None) {
        Zel::compat::StringBytes reason(Zel::compat::isText(result) ? result : Py_None);
        if (!reason) finding("serve() returned neither None nor a reason");
        std::lock_guard<std::mutex> lock(reasonsMutex);
        reasons.emplace_back(reason.data(), reason.size());
    }
    --serving;
    return result;
}

// The end of a stop() on its own thread: the harness waits for it
// without the interpreter lock, and not forever.
std::mutex stopMutex;
std::condition_variable stopOver;
bool stopped = false;
std::string stopFailure;

PyObject* stopDone(PyObject*, PyObject* failure) {
    std::lock_guard<std::mutex> lock(stopMutex);
    stopped = true;
    Zel::compat::StringBytes text(Zel::compat::isText(failure) ? failure : Py_None);
    stopFailure = text ? text.data() : "";
    stopOver.notify_all();
    Py_RETURN_NONE;
}

PyMethodDef checkedMethods[] = {
    {"serve", checkedServe, METH_VARARGS, "_ZelServer.serve, checked"},
    {"stopDone", stopDone, METH_O, "stop() is over"},
    {nullptr, nullptr, 0, nullptr},
};

} // namespace

ReleasedGil* unlocked = nullptr;
Env env;

std::atomic<int> serving{0};
std::atomic<long> serveCalls{0};
std::mutex reasonsMutex;
std::vector<std::string> reasons;

[[noreturn]] void pythonFinding(std::string const& what) {
    if (PyErr_Occurred()) PyErr_Print();
    finding(what);
}

PyObject* glueFunction(char const* name) {
    PyObject* f = PyDict_GetItemString(env.glue, name);
    if (!f) finding(std::string("the glue has no ") + name);
    return f;
}

void startEnv() {
    ::setenv("PYTHONPATH", ZEL_FUZZ_PYTHONPATH, 1);
    ::unsetenv("ZELTRACE");   // the server's trace lines would read as notices
    char tmpl[] = "/tmp/zelfuzzserverXXXXXX";
    if (!::mkdtemp(tmpl)) finding("cannot make the server's directory");
    env.dir = tmpl;
    env.pid = static_cast<unsigned long>(::getpid());
    env.uid = ::getuid();
    std::atexit([] {
        ::unlink((env.dir + "/fuzz.srv").c_str());
        ::unlink((env.dir + "/fuzz.srv.sock").c_str());
        ::rmdir(env.dir.c_str());
    });

    Py_Initialize();
    Zel::compat::initThreads();
    // The references taken here die with the interpreter lock still held.
    {
        PyRef real(must(PyImport_ImportModule("_ZelServer"), "import _ZelServer"));
        env.realServe = must(PyObject_GetAttrString(real.get(), "serve"), "_ZelServer.serve");
        static Zel::compat::ModuleDef checkedModule("_fuzzserve", checkedMethods, nullptr);
        PyObject* checked = must(checkedModule.create(), "the checked serve module");
        env.checkedServe = must(PyObject_GetAttrString(checked, "serve"), "the checked serve");
        env.stopDone = must(PyObject_GetAttrString(checked, "stopDone"), "stopDone");
        env.glue = PyModule_GetDict(must(PyImport_AddModule("__main__"), "__main__"));
        PyRef ran(must(PyRun_String(kGlue, Py_file_input, env.glue, env.glue), "the glue"));
    }
    startServer();
    unlocked = new ReleasedGil;   // never ended: the harness runs without the lock from here on
}

void startServer() {
    PyRef path(PyObject_CallFunction(glueFunction("start"), const_cast<char*>("sO"), env.dir.c_str(),
                                     env.checkedServe));
    Zel::compat::StringBytes text(path && Zel::compat::isText(path.get()) ? path.get() : Py_None);
    if (!text) pythonFinding("cannot start the server");
    env.socketPath = text.data();
}

void stopServer() {
    {
        std::lock_guard<std::mutex> lock(stopMutex);
        stopped = false;
    }
    {
        HeldGil gil(*unlocked);
        PyRef started(PyObject_CallFunction(glueFunction("stopInThread"), const_cast<char*>("O"), env.stopDone));
        if (!started) pythonFinding("cannot start stop()");
    }
    {
        std::unique_lock<std::mutex> lock(stopMutex);
        if (!stopOver.wait_for(lock, 3s, [] { return stopped; })) finding("stop() did not return within 3 s");
        if (!stopFailure.empty()) finding("stop() raised: " + stopFailure);
    }
    if (serving != 0) finding("stop() returned with a connection still being served");
}

size_t entries(char const* dir) {
    DIR* d = ::opendir(dir);
    if (!d) finding(std::string("cannot list ") + dir);
    size_t n = 0;
    while (dirent* e = ::readdir(d)) {
        if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) ++n;
    }
    ::closedir(d);
    return n;
}

Fd connectToServer() {
    Fd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (fd.get() < 0) finding(std::string("socket: ") + std::strerror(errno));
    timeval second{1, 0};   // bounds connect (a full backlog), and the health check's waits
    ::setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &second, sizeof second);
    ::setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    std::strncpy(a.sun_path, env.socketPath.c_str(), sizeof a.sun_path - 1);
    int r;
    while ((r = ::connect(fd.get(), reinterpret_cast<sockaddr*>(&a), sizeof a)) != 0 && errno == EINTR) {
    }
    if (r != 0 && errno != EISCONN) {
        finding("cannot connect to the server at " + env.socketPath + ": " + std::strerror(errno));
    }
    return fd;
}

void healthCheck() {
    Fd fd = connectToServer();
    std::string failure;
    auto exchange = [&](std::string_view request, std::string_view want) {
        if (!failure.empty()) return;
        ssize_t sent;
        while ((sent = ::send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL)) < 0 && errno == EINTR) {
        }
        if (sent != ssize_t(request.size())) {
            failure = "sending \"" + shown(request) + "\": " + std::strerror(errno);
            return;
        }
        std::string got;
        char buf[64];
        while (got.size() < want.size()) {
            ssize_t r = ::recv(fd.get(), buf, std::min(sizeof buf, want.size() - got.size()), 0);
            if (r < 0 && errno == EINTR) continue;   // libFuzzer's timer ticks every second
            if (r <= 0) {
                failure = "after \"" + shown(request) + "\", got \"" + shown(got) + "\" and then " +
                          (r == 0 ? std::string("the end of the stream") : std::strerror(errno));
                return;
            }
            got.append(buf, size_t(r));
        }
        if (got != want) failure = "\"" + shown(request) + "\" was answered \"" + shown(got) + "\"";
    };
    // Both directions spelled out: the answers are under test.
    exchange("CR", "ZPS1");
    exchange("?1\0\0\0\x03"sv "1+1"sv, "\0\0\0\x03OK2"sv);
    if (!failure.empty()) finding("a well-behaved client is no longer served: " + failure);
}

} // namespace zelfuzz::serverframes
