// The agent's command server facing bad input: a real PyServer.PyServer
// (python/PyServer.py, its native loop _ZelServer.serve from py/server)
// in an embedded CPython 2.7, on a UNIX-domain socket in a scratch
// directory. Each input drives one to four connections to it at once:
// frames of the known kinds and unknown ones, lengths right, wrong and
// oversized, streams cut anywhere (greeting included), sent whole, in
// chunks or byte by byte, by peers that read every reply, shut down
// writing, close at once, or never read.
//
// Input: byte 0 sets the run:
//   bits 0-1  connections: 1 + value
//   bit 2     stop the server once the exchange is over, with the
//             connections still open, and start a new one
// then one plan per connection:
//   byte      bits 0-1 delivery: 0 whole; 1 in chunks; 2 in chunks, each
//                      waited for until the server has read it (the first
//                      64); 3 the first 256 bytes one at a time, each
//                      waited for, then in chunks
//             bits 2-3 ending: 0 read every reply, then close; 1 shut down
//                      writing, read to the end; 2 close once all is sent;
//                      3 never read a reply (closed when the input ends)
//             bits 4-5 greeting: "CR", "TR", "?1" (no greeting: a frame's
//                      kind is taken for it), two bytes that follow
//             bit 6    a cut byte c follows: only the first
//                      (size + 1) * c / 256 bytes of the stream are sent
//   byte      bits 0-3 number of frames (15: plus the byte that follows,
//             so that a connection can pass the 256 commands its compiled
//             code cache holds); bits 4-7 chunk size (kChunks)
//   [frames byte] [2 greeting bytes] [cut byte]
//   frames:   byte f: bits 0-2 kind: 0-2 "?1", 3-5 "?2", 6 two bytes that
//                     follow, 7 '?' and a byte that follows
//                     bits 3-4 length: 0-1 the command's own, 2 two bytes
//                     follow (big-endian, modulo 4096), 3 four bytes follow
//                     bits 5-6 the command glues 1 + value % 3 entries of
//                     kCommands, one index byte each
//                     bit 7 lock-step: sent only once the replies to every
//                     earlier frame have arrived (peers that read)
//             [kind bytes] [length bytes] index bytes [filler byte: a
//             declared length cuts the command or pads it with kFillers]
// The rest picks, byte by byte, which connection writes next.
//
// Whatever the stream, a command the server can run is one the harness
// put there: a frame is laid out from the server's side of the parse, so
// a valid header is always followed by the harness's own command bytes.
// The commands are cheap and side-effect free, and the namespaces' builtins
// hold only what they need (no glue of them reaches files or processes).
//
// Oracle, per connection that reads: "ZPS1" after a whole greeting, then
// exactly one reply per whole valid frame before the first bad header or
// the cut, in order, each as a fresh compile() of the command in a
// namespace of its own gives it (OK: the same payload; EX: the same last
// line, no frame of PyServer.py); the server closes the connection only
// after a bad header or once writing is shut down. Per input: serve()
// never raises nor returns with an error pending; a bad header is reported
// as "kind 'XY', length N" by serve() and PyServer's notice, and nothing
// else is noticed; a well-behaved connection still gets "?1" "1+1" -> OK
// '2'; every connection is served and its serving thread ends; the
// process has the threads and descriptors it had before; no Python error
// is pending. Each wait is bounded; a miss is reported as a finding.
#define PY_SSIZE_T_CLEAN   // "#" formats take Py_ssize_t
#include <Python.h>

#include <dirent.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::literals;
using Clock = std::chrono::steady_clock;

constexpr size_t kMaxCommand = 4089;

// The command table. No underscores, no "**", no name of a builtin that
// reaches files, processes, modules or standard input; an entry starting
// with a digit has a non-digit next, and no filler is a digit, so glue
// lengthens a number by one digit at most. Glued, cut or padded, they stay
// cheap: the largest value made is 'a' * 700001.
constexpr std::string_view kCommands[] = {
    "1+1"sv, "x=1"sv, "x"sv, "print 1"sv, "print x"sv, "1/0"sv, "1 +"sv, "def f(:"sv,
    "u'\\xe9'"sv, "u'\xc3\xa9'"sv, "print u'\\u20ac'"sv, "1\0+1"sv, ""sv, "\n"sv, "'a'*70000"sv, "[x]*3"sv,
    "len('ab')"sv, "if 1:\n x=2\nprint x"sv, "raise SystemExit(3)"sv, "raise KeyboardInterrupt"sv, "x+=1"sv,
    "'\xff'"sv, "y=u'\\xe9'\nprint y.encode('utf-8')"sv, "("sv, "1e308*10"sv, "repr(x)"sv, "True"sv,
    "\t1"sv, "x=1;print x,"sv, "None"sv, "print"sv, "ValueError('v')"sv,
};
constexpr char kFillers[] = {' ', '\n', '\t', 'x', '\0', '#', ')', '\xff'};
constexpr size_t kChunks[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 64, 100, 1000, 4095, 4096, 8192};
constexpr size_t kChunkedBytes = 8192;   // chunked delivery covers this much, then the rest goes whole
constexpr int kWaitedChunks = 64;
constexpr size_t kByteByByte = 256;

// The interpreter's side: the server, what its commands should answer,
// and what it noticed. Run in __main__ at start.
char const* const kGlue = R"(
import sys, threading, traceback
import PyServer

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

def expect(ns, kind, cmd):
    try:
        if kind == '1':
            return 'OK', repr(eval(compile(cmd, '<PyServer>', 'eval', 0, True), ns))
        return 'OK', PyServer._execCode(ns, compile(cmd, '<PyServer>', 'exec', 0, True))
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

[[noreturn]] void finding(std::string const& what) {
    std::fprintf(stderr, "fuzz_server_frames: %s\n", what.c_str());
    std::fflush(stderr);
    std::abort();
}

// Bytes as C escapes, cut after `max`.
std::string shown(std::string_view s, size_t max = 200) {
    std::string out;
    for (size_t i = 0; i < s.size() && i < max; ++i) {
        auto c = static_cast<unsigned char>(s[i]);
        if (c >= 0x20 && c < 0x7f && c != '\\') {
            out += char(c);
        } else {
            char e[8];
            std::snprintf(e, sizeof e, "\\x%02x", c);
            out += e;
        }
    }
    if (s.size() > max) out += "... (" + std::to_string(s.size()) + " bytes)";
    return out;
}

// The last line with more than blanks, as the glue's lastLine.
std::string_view lastLine(std::string_view text) {
    size_t end = text.size();
    while (end > 0) {
        size_t begin = text.rfind('\n', end - 1);
        begin = begin == std::string_view::npos ? 0 : begin + 1;
        std::string_view line = text.substr(begin, end - begin);
        if (line.find_first_not_of(" \t\r\n\v\f") != std::string_view::npos) return line;
        end = begin == 0 ? 0 : begin - 1;
    }
    return {};
}

class Ref {
public:
    explicit Ref(PyObject* owned = nullptr) : o_(owned) {}
    ~Ref() { Py_XDECREF(o_); }
    Ref(Ref&& r) noexcept : o_(std::exchange(r.o_, nullptr)) {}
    Ref& operator=(Ref&&) = delete;
    Ref(Ref const&) = delete;
    Ref& operator=(Ref const&) = delete;
    PyObject* get() const { return o_; }
    explicit operator bool() const { return o_ != nullptr; }

private:
    PyObject* o_;
};

class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(Fd&& o) noexcept : fd_(std::exchange(o.fd_, -1)) {}
    Fd& operator=(Fd&& o) noexcept {
        if (this != &o) {
            reset();
            fd_ = std::exchange(o.fd_, -1);
        }
        return *this;
    }
    Fd(Fd const&) = delete;
    Fd& operator=(Fd const&) = delete;
    int get() const { return fd_; }
    void reset() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_ = -1;
};

// The harness runs on the thread that started the interpreter; it holds
// the interpreter lock only inside a WithGil scope, so that the serving
// threads run while it waits on the sockets.
PyThreadState* mainState = nullptr;

class WithGil {
public:
    WithGil() { PyEval_RestoreThread(mainState); }
    ~WithGil() { mainState = PyEval_SaveThread(); }
    WithGil(WithGil const&) = delete;
    WithGil& operator=(WithGil const&) = delete;
};

[[noreturn]] void pythonFinding(std::string const& what) {
    if (PyErr_Occurred()) PyErr_Print();
    finding(what);
}

PyObject* must(PyObject* o, char const* what) {
    if (!o) pythonFinding(std::string("setting up: ") + what);
    return o;
}

struct Env {
    PyObject* glue = nullptr;   // __main__'s dict
    PyObject* realServe = nullptr;
    PyObject* checkedServe = nullptr;
    PyObject* stopDone = nullptr;
    std::string dir, socketPath;
    unsigned long pid = 0, uid = 0;
};
Env env;

PyObject* glueFunction(char const* name) {
    PyObject* f = PyDict_GetItemString(env.glue, name);
    if (!f) finding(std::string("the glue has no ") + name);
    return f;
}

// What the server's serving threads did, seen through checkedServe.
std::atomic<int> serving{0};
std::atomic<long> serveCalls{0};
std::mutex reasonsMutex;
std::vector<std::string> reasons;   // serve()'s reasons for ending a connection

// Stands in for _ZelServer.serve in the server: calls it and checks what
// it returns. Runs on the connections' threads, with the interpreter lock.
PyObject* checkedServe(PyObject*, PyObject* args) {
    ++serveCalls;
    ++serving;
    PyObject* result = PyObject_Call(env.realServe, args, nullptr);
    if (!result) pythonFinding("serve() raised instead of ending the connection");
    if (PyErr_Occurred()) pythonFinding("serve() returned with a Python error pending");
    if (result != Py_None) {
        if (!PyString_Check(result)) finding("serve() returned neither None nor a reason");
        std::lock_guard<std::mutex> lock(reasonsMutex);
        reasons.emplace_back(PyString_AS_STRING(result), size_t(PyString_GET_SIZE(result)));
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
    stopFailure = PyString_Check(failure) ? PyString_AS_STRING(failure) : "";
    stopOver.notify_all();
    Py_RETURN_NONE;
}

PyMethodDef checkedMethods[] = {
    {"serve", checkedServe, METH_VARARGS, "_ZelServer.serve, checked"},
    {"stopDone", stopDone, METH_O, "stop() is over"},
    {nullptr, nullptr, 0, nullptr},
};

void startServer() {
    Ref path(PyObject_CallFunction(glueFunction("start"), const_cast<char*>("sO"), env.dir.c_str(),
                                   env.checkedServe));
    if (!path || !PyString_Check(path.get())) pythonFinding("cannot start the server");
    env.socketPath = PyString_AS_STRING(path.get());
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

// ---- plans --------------------------------------------------------------

class Reader {
public:
    Reader(uint8_t const* p, size_t n) : p_(p), n_(n) {}
    uint8_t byte() { return pos_ < n_ ? p_[pos_++] : 0; }
    bool more() const { return pos_ < n_; }

private:
    uint8_t const* p_;
    size_t n_;
    size_t pos_ = 0;
};

enum class Delivery { Whole, Chunks, WaitedChunks, ByteByByte };
enum class Ending { ReadAll, HalfClose, CloseAtOnce, NeverRead };

struct Command {
    char kind;   // '1' evaluate, '2' execute
    std::string text;
};

struct Expected {
    std::string status;
    std::string text;   // OK: the payload; EX: the last line of the traceback
};

struct Plan {
    Delivery delivery;
    Ending ending;
    size_t chunk;
    std::string stream;                            // what is sent (after the cut)
    bool greeted = false;                          // the stream holds a whole greeting
    std::vector<Command> commands;                 // the frames the server runs, in order
    std::vector<Expected> expected;                // their replies
    std::string bad;                               // the reason the server stops at, or empty
    std::vector<std::pair<size_t, size_t>> gates;  // (offset, replies that must have arrived)

    bool reads() const { return ending == Ending::ReadAll || ending == Ending::HalfClose; }
    size_t replies() const { return (greeted ? 1 : 0) + commands.size(); }
};

// The server's rendering of a header byte in its reason.
std::string printable(unsigned char c) {
    if (c >= 0x20 && c < 0x7f && c != '\\' && c != '\'') return std::string(1, char(c));
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", c);
    return text;
}

Plan readPlan(Reader& in) {
    Plan p;
    uint8_t b0 = in.byte(), b1 = in.byte();
    p.delivery = Delivery(b0 & 3);
    p.ending = Ending((b0 >> 2) & 3);
    p.chunk = kChunks[b1 >> 4];
    size_t frames = b1 & 15;
    if (frames == 15) frames += in.byte();
    std::string stream;
    switch ((b0 >> 4) & 3) {
    case 0: stream = "CR"; break;
    case 1: stream = "TR"; break;
    case 2: stream = "?1"; break;
    default: stream += char(in.byte()); stream += char(in.byte()); break;
    }
    int cut = b0 & 0x40 ? in.byte() : -1;

    struct Placed {
        size_t begin, headerEnd, end;
        bool valid, lockStep;
        Command command;
        std::string reason;
    };
    std::vector<Placed> placed;
    for (size_t i = 0; i < frames; ++i) {
        uint8_t f = in.byte();
        unsigned char k0 = '?', k1;
        switch (f & 7) {
        case 0: case 1: case 2: k1 = '1'; break;
        case 3: case 4: case 5: k1 = '2'; break;
        case 6: k0 = in.byte(); k1 = in.byte(); break;
        default: k1 = in.byte(); break;
        }
        unsigned lengthMode = (f >> 3) & 3;
        uint32_t n = 0;
        if (lengthMode == 2) {
            n = uint32_t(in.byte()) << 8;
            n = (n | in.byte()) % 4096;
        } else if (lengthMode == 3) {
            for (int b = 0; b < 4; ++b) n = n << 8 | in.byte();
        }
        std::string text;
        for (unsigned pieces = 1 + ((f >> 5) & 3) % 3; pieces > 0; --pieces) {
            text += kCommands[in.byte() % std::size(kCommands)];
        }
        if (lengthMode < 2) {
            n = uint32_t(text.size());
        } else {
            char filler = kFillers[in.byte() % std::size(kFillers)];
            if (n <= kMaxCommand) text.resize(n, filler);
        }
        bool valid = k0 == '?' && (k1 == '1' || k1 == '2') && n <= kMaxCommand;
        Placed pl{stream.size(), stream.size() + 6, 0, valid, bool(f & 0x80), Command{char(k1), text}, {}};
        if (!valid) pl.reason = "kind '" + printable(k0) + printable(k1) + "', length " + std::to_string(n);
        stream += char(k0);
        stream += char(k1);
        for (int shift = 24; shift >= 0; shift -= 8) stream += char(n >> shift);
        // A valid header is followed by exactly its n bytes of command;
        // what follows a bad one the server must never read as a command.
        stream += text;
        pl.end = stream.size();
        placed.push_back(std::move(pl));
    }
    size_t keep = cut < 0 ? stream.size() : (stream.size() + 1) * size_t(cut) / 256;
    stream.resize(keep);
    p.stream = std::move(stream);

    // What the server makes of it: the greeting, then frames up to the
    // first bad header or the cut.
    p.greeted = keep >= 2;
    if (p.greeted) {
        for (Placed& pl : placed) {
            if (pl.lockStep && p.reads()) p.gates.emplace_back(pl.begin, p.replies());
            if (pl.headerEnd > keep) break;
            if (!pl.valid) {
                p.bad = pl.reason;
                break;
            }
            if (pl.end > keep) break;
            p.commands.push_back(std::move(pl.command));
        }
    }
    return p;
}

// What each command should answer, computed afresh in a namespace of its
// own per connection.
void computeExpected(Plan& p) {
    if (!p.reads() || p.commands.empty()) return;
    Ref ns(PyDict_Copy(PyDict_GetItemString(env.glue, "seed")));
    if (!ns) pythonFinding("cannot copy the seed namespace");
    for (Command const& c : p.commands) {
        char kind[2] = {c.kind, 0};
        Ref r(PyObject_CallFunction(glueFunction("expect"), const_cast<char*>("Oss#"), ns.get(), kind, c.text.data(),
                                    Py_ssize_t(c.text.size())));
        char const *status, *text;
        Py_ssize_t textSize;
        if (!r || !PyArg_ParseTuple(r.get(), "ss#", &status, &text, &textSize)) {
            pythonFinding("cannot tell what \"" + shown(c.text) + "\" should answer");
        }
        p.expected.push_back({status, std::string(text, size_t(textSize))});
    }
}

// ---- the exchange -----------------------------------------------------

struct Conn {
    int index;
    Plan* plan;
    Fd fd;
    size_t sent = 0;
    bool writing = true;   // bytes left to send and the server still there
    bool blocked = false;  // the socket took nothing last time
    Clock::time_point blockedSince;
    int waits = 0;         // chunks waited for
    bool waitNoMore = false;
    bool waiting = false;  // until the server has read the last chunk
    Clock::time_point waitUntil;
    size_t gate = 0;
    std::string in;
    size_t replies = 0;
    bool halfClosed = false;
    bool done = false;

    std::string describe() const {
        static char const* const deliveries[] = {"whole", "chunks", "waited chunks", "byte by byte"};
        static char const* const endings[] = {"read all", "half close", "close at once", "never read"};
        std::string s = "connection " + std::to_string(index) + " (" + deliveries[int(plan->delivery)] + ", chunk " +
                        std::to_string(plan->chunk) + ", " + endings[int(plan->ending)] + "): sent " +
                        std::to_string(sent) + " of " + std::to_string(plan->stream.size()) + " bytes \"" +
                        shown(plan->stream, 120) + "\"; " + std::to_string(replies) + " of " +
                        std::to_string(plan->replies()) + " replies";
        if (!plan->bad.empty()) s += "; bad header: " + plan->bad;
        return s;
    }
};

// How far the connection may send now: to the end, or to a lock-step
// frame whose earlier replies have not all arrived.
size_t sendLimit(Conn& c) {
    auto const& gates = c.plan->gates;
    while (c.gate < gates.size() && c.replies >= gates[c.gate].second) ++c.gate;
    return c.gate < gates.size() ? std::min(gates[c.gate].first, c.plan->stream.size()) : c.plan->stream.size();
}

bool canWrite(Conn& c) { return !c.done && c.writing && !c.blocked && !c.waiting && c.sent < sendLimit(c); }

void writesOver(Conn& c) {
    c.writing = false;
    switch (c.plan->ending) {
    case Ending::ReadAll: break;
    case Ending::HalfClose:
        ::shutdown(c.fd.get(), SHUT_WR);
        c.halfClosed = true;
        break;
    case Ending::CloseAtOnce:
        c.fd.reset();
        c.done = true;
        break;
    case Ending::NeverRead: c.done = true; break;   // open until the input ends
    }
}

// A peer that reads everything closes once all replies are in, unless the
// server is to close first.
void settle(Conn& c) {
    Plan const& p = *c.plan;
    if (!c.done && p.ending == Ending::ReadAll && !c.writing && p.bad.empty() && c.replies == p.replies()) {
        c.fd.reset();
        c.done = true;
    }
}

void write(Conn& c) {
    Plan const& p = *c.plan;
    size_t len = sendLimit(c) - c.sent;
    bool waited = false;
    switch (p.delivery) {
    case Delivery::Whole: break;
    case Delivery::Chunks:
    case Delivery::WaitedChunks:
        if (c.sent < kChunkedBytes) len = std::min(len, p.chunk);
        waited = p.delivery == Delivery::WaitedChunks && c.waits < kWaitedChunks;
        break;
    case Delivery::ByteByByte:
        if (c.sent < kByteByByte) {
            len = 1;
            waited = true;
        } else if (c.sent < kChunkedBytes) {
            len = std::min(len, p.chunk);
        }
        break;
    }
    ssize_t n = ::send(c.fd.get(), p.stream.data() + c.sent, len, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n > 0) {
        c.sent += size_t(n);
        if (waited && !c.waitNoMore) {
            ++c.waits;
            c.waiting = true;
            c.waitUntil = Clock::now() + 20ms;
        }
        if (c.sent == p.stream.size()) writesOver(c);
    } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        c.blocked = true;
        c.blockedSince = Clock::now();
    } else if (n < 0 && errno != EINTR) {
        writesOver(c);   // the server has closed the connection
    }
    settle(c);
}

void closedByServer(Conn& c) {
    Plan const& p = *c.plan;
    if (!c.in.empty()) finding(c.describe() + ": the server closed it in the middle of a reply: \"" + shown(c.in) + "\"");
    if (c.replies != p.replies()) finding(c.describe() + ": the server closed it before every reply was sent");
    if (p.bad.empty() && !c.halfClosed) finding(c.describe() + ": the server closed it, though it sent no bad header");
    c.fd.reset();
    c.done = true;
}

void checkReplies(Conn& c) {
    Plan const& p = *c.plan;
    size_t used = 0;
    for (;;) {
        std::string_view left(c.in.data() + used, c.in.size() - used);
        if (left.empty()) break;
        if (!p.greeted) finding(c.describe() + ": the server answered an unfinished greeting: \"" + shown(left) + "\"");
        if (c.replies == 0) {
            if (left.size() < 4) break;
            if (left.substr(0, 4) != "ZPS1") finding(c.describe() + ": the greeting got \"" + shown(left) + "\"");
            used += 4;
            ++c.replies;
            continue;
        }
        if (left.size() < 4) break;
        auto const* b = reinterpret_cast<unsigned char const*>(left.data());
        uint32_t n = uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3];
        if (n < 2 || n > (16u << 20)) {
            finding(c.describe() + ": a reply of length " + std::to_string(n) + ": \"" + shown(left) + "\"");
        }
        if (left.size() < 4 + size_t(n)) break;
        size_t i = c.replies - 1;
        if (i >= p.commands.size()) {
            finding(c.describe() + ": a reply to nothing it should have run (past a bad header or a cut): \"" +
                    shown(left) + "\"");
        }
        std::string_view status = left.substr(4, 2), payload = left.substr(6, n - 2);
        Expected const& want = p.expected[i];
        bool same = status == want.status &&
                    (status == "OK" ? payload == want.text
                                    : lastLine(payload) == want.text && payload.find("PyServer.py") == payload.npos);
        if (!same) {
            finding(c.describe() + ": \"" + shown(p.commands[i].text) + "\" (?" + p.commands[i].kind +
                    ") was answered " + std::string(status) + " \"" + shown(payload, 600) + "\"; a fresh compile gives " +
                    want.status + " \"" + shown(want.text) + "\"");
        }
        used += 4 + n;
        ++c.replies;
    }
    c.in.erase(0, used);
}

void readFrom(Conn& c) {
    static char buf[1 << 16];
    bool closed = false;
    for (;;) {
        ssize_t n = ::recv(c.fd.get(), buf, sizeof buf, MSG_DONTWAIT);
        if (n > 0) {
            c.in.append(buf, size_t(n));
            continue;
        }
        // A socket closed with bytes still unread shows the peer a reset
        // after the data it had sent.
        if (n == 0 || errno == ECONNRESET) {
            closed = true;
            break;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) break;
        if (errno != EINTR) finding(c.describe() + ": recv failed: " + std::strerror(errno));
    }
    checkReplies(c);
    if (closed) {
        closedByServer(c);
    } else {
        settle(c);
    }
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

void exchange(std::vector<Conn>& conns, Reader& schedule) {
    auto deadline = Clock::now() + 2500ms;
    unsigned turn = 0;
    for (;;) {
        auto now = Clock::now();
        bool waiting = false;
        for (Conn& c : conns) {
            if (c.done) continue;
            if (c.waiting) {
                // Unread bytes stay charged to the sender's queue.
                int queued = 0;
                if (::ioctl(c.fd.get(), SIOCOUTQ, &queued) != 0 || queued == 0) {
                    c.waiting = false;
                } else if (now >= c.waitUntil) {
                    c.waiting = false;
                    c.waitNoMore = true;   // the server is not reading (blocked on a reply): wait no more
                } else {
                    waiting = true;
                }
            }
            // A peer that never reads may block a server that is blocked on it.
            if (c.blocked && c.plan->ending == Ending::NeverRead && now - c.blockedSince > 30ms) c.done = true;
        }
        std::vector<Conn*> writers;
        bool open = false;
        for (Conn& c : conns) {
            open = open || !c.done;
            if (canWrite(c)) writers.push_back(&c);
        }
        if (!open) return;
        if (now > deadline) {
            std::string state;
            for (Conn const& c : conns) state += "\n  " + c.describe() + (c.done ? " (done)" : "");
            finding("the exchange did not end within 2.5 s:" + state);
        }
        if (!writers.empty()) {
            unsigned pick = schedule.more() ? schedule.byte() : turn++;
            write(*writers[pick % writers.size()]);
        }

        std::vector<pollfd> fds;
        std::vector<Conn*> polled;
        bool writable = false;
        waiting = false;
        for (Conn& c : conns) {
            writable = writable || canWrite(c);
            if (c.done) continue;
            waiting = waiting || c.waiting;
            short events = short((c.plan->reads() ? POLLIN : 0) | (c.blocked ? POLLOUT : 0));
            if (!events) continue;
            fds.push_back({c.fd.get(), events, 0});
            polled.push_back(&c);
        }
        int timeout = writable || waiting ? 0 : 20;
        if (::poll(fds.data(), fds.size(), timeout) < 0 && errno != EINTR) {
            finding(std::string("poll: ") + std::strerror(errno));
        }
        for (size_t i = 0; i < fds.size(); ++i) {
            Conn& c = *polled[i];
            short got = fds[i].revents;
            if (!got) continue;
            if (got & (POLLOUT | POLLERR | POLLHUP)) c.blocked = false;
            if (c.plan->reads() && (got & (POLLIN | POLLERR | POLLHUP))) readFrom(c);
        }
        if (waiting && !writable) std::this_thread::sleep_for(20us);
    }
}

// A client as PyClient is one: greeting, "?1" "1+1", OK '2'.
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
    exchange("CR", "ZPS1");
    exchange("?1\0\0\0\x03"sv "1+1"sv, "\0\0\0\x03OK2"sv);
    if (!failure.empty()) finding("a well-behaved client is no longer served: " + failure);
}

// Whether `got` is `required` plus some of `optional` (multisets).
bool accounted(std::vector<std::string> got, std::vector<std::string> const& required,
               std::vector<std::string> optional) {
    for (std::string const& r : required) {
        auto it = std::find(got.begin(), got.end(), r);
        if (it == got.end()) return false;
        got.erase(it);
    }
    for (std::string const& g : got) {
        auto it = std::find(optional.begin(), optional.end(), g);
        if (it == optional.end()) return false;
        optional.erase(it);
    }
    return true;
}

std::string joined(std::vector<std::string> const& v) {
    std::string s;
    for (std::string const& e : v) s += " [" + shown(e) + "]";
    return s.empty() ? " none" : s;
}

void runInput(uint8_t const* data, size_t size) {
    Reader in(data, size);
    uint8_t run = in.byte();
    size_t count = 1 + (run & 3);
    bool restart = run & 4;
    std::vector<Plan> plans;
    for (size_t i = 0; i < count; ++i) plans.push_back(readPlan(in));

    size_t fds0 = entries("/proc/self/fd"), tasks0 = entries("/proc/self/task");
    long calls0 = serveCalls;
    long threads0;
    {
        WithGil gil;
        Ref active(PyRun_String("threading.active_count()", Py_eval_input, env.glue, env.glue));
        if (!active) pythonFinding("threading.active_count()");
        threads0 = PyInt_AsLong(active.get());
        for (Plan& p : plans) computeExpected(p);
        if (PyErr_Occurred()) pythonFinding("a Python error is pending before the exchange");
    }
    {
        std::lock_guard<std::mutex> lock(reasonsMutex);
        reasons.clear();
    }

    std::vector<Conn> conns;
    conns.reserve(plans.size());
    for (size_t i = 0; i < plans.size(); ++i) {
        Conn c;
        c.index = int(i);
        c.plan = &plans[i];
        c.fd = connectToServer();
        ::fcntl(c.fd.get(), F_SETFL, ::fcntl(c.fd.get(), F_GETFL) | O_NONBLOCK);
        if (plans[i].stream.empty()) {
            writesOver(c);
            settle(c);
        }
        conns.push_back(std::move(c));
    }
    exchange(conns, in);

    if (restart) {
        // The connections left (mid-frame, never reading, not yet served)
        // are still open: stop() must end their threads all the same.
        {
            std::lock_guard<std::mutex> lock(stopMutex);
            stopped = false;
        }
        {
            WithGil gil;
            Ref started(PyObject_CallFunction(glueFunction("stopInThread"), const_cast<char*>("O"), env.stopDone));
            if (!started) pythonFinding("cannot start stop()");
        }
        {
            std::unique_lock<std::mutex> lock(stopMutex);
            if (!stopOver.wait_for(lock, 3s, [] { return stopped; })) finding("stop() did not return within 3 s");
            if (!stopFailure.empty()) finding("stop() raised: " + stopFailure);
        }
        if (serving != 0) finding("stop() returned with a connection still being served");
        WithGil gil;
        startServer();
    }
    conns.clear();   // closes what is still open
    healthCheck();

    // Every connection served (a stopped server drops those it had not
    // accepted yet), every serving thread gone with its socket.
    size_t expectedCalls = plans.size() + 1;
    auto until = Clock::now() + 2s;
    for (;;) {
        size_t calls = size_t(serveCalls - calls0);
        size_t fds = entries("/proc/self/fd"), tasks = entries("/proc/self/task");
        bool callsDone = restart ? calls <= expectedCalls : calls == expectedCalls;
        if (callsDone && serving == 0 && fds == fds0 && tasks == tasks0) break;
        if (Clock::now() > until) {
            finding("2 s after the input, " + std::to_string(calls) + " of " + std::to_string(expectedCalls) +
                    " connections served, " + std::to_string(serving) + " still being served, " +
                    std::to_string(fds) + " descriptors (" + std::to_string(fds0) + " before), " +
                    std::to_string(tasks) + " threads (" + std::to_string(tasks0) + " before)");
        }
        std::this_thread::sleep_for(200us);
    }

    // Bad headers: those of the connections that waited for the server to
    // close must have been reported; the others may have been.
    std::vector<std::string> required, optional, got;
    for (Plan const& p : plans) {
        if (p.bad.empty()) continue;
        (p.reads() ? required : optional).push_back(p.bad);
    }
    {
        std::lock_guard<std::mutex> lock(reasonsMutex);
        got = reasons;
    }
    if (!accounted(got, required, optional)) {
        finding("serve() reported bad headers" + joined(got) + "; expected" + joined(required) + ", perhaps" +
                joined(optional));
    }
    WithGil gil;
    Ref noticed(PyObject_CallFunction(glueFunction("takeNotices"), nullptr));
    if (!noticed || !PyList_Check(noticed.get())) pythonFinding("cannot read the server's notices");
    std::vector<std::string> notices;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(noticed.get()); ++i) {
        PyObject* n = PyList_GET_ITEM(noticed.get(), i);
        notices.emplace_back(PyString_Check(n) ? PyString_AS_STRING(n) : "(not a string)");
    }
    std::vector<std::string> expectedNotices;
    for (std::string const& r : got) {
        expectedNotices.push_back("bad request from pid " + std::to_string(env.pid) + " uid " +
                                  std::to_string(env.uid) + " (" + r + ")");
    }
    if (!accounted(notices, expectedNotices, {})) {
        finding("the server noticed" + joined(notices) + "; expected" + joined(expectedNotices));
    }
    Ref active(PyRun_String("threading.active_count()", Py_eval_input, env.glue, env.glue));
    if (!active || PyInt_AsLong(active.get()) != threads0) pythonFinding("Python threads outlived the input");
    if (PyErr_Occurred()) pythonFinding("a Python error stayed pending");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
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
    PyEval_InitThreads();
    Ref real(must(PyImport_ImportModule("_ZelServer"), "import _ZelServer"));
    env.realServe = must(PyObject_GetAttrString(real.get(), "serve"), "_ZelServer.serve");
    PyObject* checked = must(Py_InitModule("_fuzzserve", checkedMethods), "the checked serve module");
    env.checkedServe = must(PyObject_GetAttrString(checked, "serve"), "the checked serve");
    env.stopDone = must(PyObject_GetAttrString(checked, "stopDone"), "stopDone");
    env.glue = PyModule_GetDict(must(PyImport_AddModule("__main__"), "__main__"));
    Ref ran(must(PyRun_String(kGlue, Py_file_input, env.glue, env.glue), "the glue"));
    startServer();
    mainState = PyEval_SaveThread();

    // Once through every command both ways, so that what is imported or
    // cached on first use (codecs, traceback's modules) is there before
    // the threads and descriptors are counted.
    for (uint8_t i = 0; i < std::size(kCommands); ++i) {
        uint8_t const warm[] = {0, 0, 2, 0, i, 3, i};
        runInput(warm, sizeof warm);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    runInput(data, size);
    return 0;
}
