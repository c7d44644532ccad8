#include "Zel/Exception.h"

#include <execinfo.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
void (*printBacktraceFn)(int fd) = nullptr;
}

namespace Zel {

namespace {

// Every entry point opens an Expect scope: the initial-exec model reads
// the word without a call into the dynamic linker.
thread_local Exception::IdBitArray tlExpected __attribute__((tls_model("initial-exec")));

void defaultDebugHook(Exception const& e) {
    std::fprintf(stderr, "Zel: unexpected exception %s(\"%s\") ids=0x%llx\n", e.name(),
                 e.message().c_str(), static_cast<unsigned long long>(e.ids().bits()));
    if (Backtrace const* b = e.backtrace().ptr()) {
        backtrace_symbols_fd(b->addresses(), b->frames(), 2);
    }
}

bool envFlag(char const* name) {
    char const* v = std::getenv(name);
    return v && *v && std::strcmp(v, "0") != 0;
}

} // namespace

bool Exception::debugExceptions_ = envFlag("ZEL_DEBUG_EXCEPTIONS");
void (*Exception::debugHook_)(Exception const&) = &defaultDebugHook;

Ptr<Backtrace> Backtrace::BacktraceIs(int skip, int minFrames) {
    void* raw[kMaxFrames + 1];
    int n = ::backtrace(raw, kMaxFrames + 1);
    // Frame 0 is this function.
    int drop = 1 + (skip > 0 ? skip : 0);
    if (n - drop < minFrames) drop = n - minFrames > 1 ? n - minFrames : 1;
    if (drop > n) drop = n;
    Ptr<Backtrace> b = zelNew<Backtrace>();
    b->frames_ = n - drop;
    if (b->frames_ > kMaxFrames) b->frames_ = kMaxFrames;
    std::memcpy(b->addrs_, raw + drop, sizeof(void*) * static_cast<size_t>(b->frames_));
    return b;
}

Exception::Exception(String8 message, IdBitArray ids) : message_(std::move(message)), ids_(ids) {
    finishConstruction();
}

Exception::~Exception() = default;

void Exception::finishConstruction() {
    // A backtrace is worth its cost unless the caller said it anticipates
    // exactly this kind (a probe that expects to fail); id 1 ("anything may
    // fail here") still records where the failure came from.
    IdBitArray expected = tlExpected;
    bool probed = !(expected & ids_).empty();
    if (!probed) backtrace_ = Backtrace::BacktraceIs(1, 2);
    if (debugExceptions_ && !probed && !expected.has(idExpectAll)) {
        ids_ = ids_ | IdBitArray{idDebugged};
        if (debugHook_) debugHook_(*this);
    }
}

Expect::Expect(Exception::IdBitArray ids) : saved_(tlExpected) { tlExpected = saved_ | ids; }
Expect::~Expect() { tlExpected = saved_; }
Exception::IdBitArray Expect::current() { return tlExpected; }
bool Expect::anticipated(Exception::IdBitArray ids) {
    return tlExpected.has(Exception::idExpectAll) || !(tlExpected & ids).empty();
}

String8 errnoString(int errnum) {
    char buf[256];
    buf[0] = 0;
    // GNU strerror_r may return a static string instead of filling buf.
    char const* s = strerror_r(errnum, buf, sizeof buf);
    return String8(s ? s : buf);
}

ErrnoException::ErrnoException(int errnum, String8 context, IdBitArray ids)
    : Exception(errnoString(errnum), ids), errnum_(errnum), context_(std::move(context)) {}

void throwInternalException(String8 const& message) { throw InternalException(message); }

} // namespace Zel
