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
// namespace of its own gives it, or for the console's kinds a console of
// that namespace (OK or MO: the same payload; EX: the same last line, no
// frame of PyServer.py); the server closes the connection only
// after a bad header or once writing is shut down. Per input: serve()
// never raises nor returns with an error pending; a bad header is reported
// as "kind 'XY', length N" by serve() and PyServer's notice, and nothing
// else is noticed; a well-behaved connection still gets "?1" "1+1" -> OK
// '2'; every connection is served and its serving thread ends; the
// process has the threads and descriptors it had before; no Python error
// is pending. Each wait is bounded; a miss is reported as a finding.
//
// The parts: server_frames/Env (the interpreter and the server under
// test), server_frames/Plan (an input decoded into what each connection
// sends and should get back), server_frames/Exchange (driving the
// connections and checking the replies).
#include "server_frames/Env.h"
#include "server_frames/Exchange.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace zelfuzz::serverframes;

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
        HeldGil gil(*unlocked);
        PyRef active(PyRun_String("threading.active_count()", Py_eval_input, env.glue, env.glue));
        if (!active) pythonFinding("threading.active_count()");
        threads0 = Zel::compat::intValue(active.get());
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
        stopServer();
        HeldGil gil(*unlocked);
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
    HeldGil gil(*unlocked);
    PyRef noticed(PyObject_CallFunction(glueFunction("takeNotices"), nullptr));
    if (!noticed || !PyList_Check(noticed.get())) pythonFinding("cannot read the server's notices");
    std::vector<std::string> notices;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(noticed.get()); ++i) {
        PyObject* n = PyList_GET_ITEM(noticed.get(), i);
        Zel::compat::StringBytes text(Zel::compat::isText(n) ? n : Py_None);
        notices.emplace_back(text ? std::string(text.data(), text.size()) : "(not a string)");
    }
    std::vector<std::string> expectedNotices;
    for (std::string const& r : got) {
        expectedNotices.push_back("bad request from pid " + std::to_string(env.pid) + " uid " +
                                  std::to_string(env.uid) + " (" + r + ")");
    }
    if (!accounted(notices, expectedNotices, {})) {
        finding("the server noticed" + joined(notices) + "; expected" + joined(expectedNotices));
    }
    PyRef active(PyRun_String("threading.active_count()", Py_eval_input, env.glue, env.glue));
    if (!active || Zel::compat::intValue(active.get()) != threads0) pythonFinding("Python threads outlived the input");
    if (PyErr_Occurred()) pythonFinding("a Python error stayed pending");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    startEnv();

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
