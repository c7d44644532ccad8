#include "Zel/Trace.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <vector>

#include "Zel/Attr.h"
#include "Zel/NamedEntityOps.h"
#include "Zel/TraceSettings.h"

namespace Zel {

namespace {

struct Registry {
    std::mutex mutex;
    std::map<String8, Ptr<TraceHandle>> byName;
    std::vector<TraceRule> rules;
    std::atomic<int> fd{STDERR_FILENO};
    bool loaded = false;
};

// Lives for the process: trace lines may be written from static destructors.
Registry& registry() {
    static Registry* r = new Registry;
    return *r;
}

// Caller holds the registry mutex.
void loadLocked(Registry& r) {
    r.rules = parseTraceRules(std::getenv("ZELTRACE"));
    int old = r.fd.load();
    int fd = STDERR_FILENO;
    if (char const* path = std::getenv("ZELTRACEFILE"); path && *path) {
        int f = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (f >= 0) fd = f;
    }
    r.fd.store(fd);
    if (old != STDERR_FILENO && old != fd) ::close(old);
    r.loaded = true;
}

void ensureLoaded(Registry& r) {
    if (!r.loaded) loadLocked(r);
}

} // namespace

TraceHandle::TraceHandle(Name name) : Entity(std::move(name)) {
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.mutex);
    ensureLoaded(r);
    levelMaskIs(traceMaskFor(r.rules, this->name().value));
}

Ptr<TraceHandle> TraceHandle::traceHandle(String8 const& name) {
    Registry& r = registry();
    {
        std::lock_guard<std::mutex> g(r.mutex);
        auto it = r.byName.find(name);
        if (it != r.byName.end()) return it->second;
    }
    Ptr<TraceHandle> h = zelNew<TraceHandle>(Name(name));
    std::lock_guard<std::mutex> g(r.mutex);
    auto [it, inserted] = r.byName.emplace(name, h);
    return it->second;
}

namespace {
Ptr<TraceHandle> traceHandleNamed(Name const& n) { return TraceHandle::traceHandle(n.value); }
} // namespace

TraceHandle* TraceHandle::defaultHandle() {
    static TraceHandle* h = traceHandle("Default").release();   // kept for the process
    return h;
}

void traceSettingsReload() {
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.mutex);
    loadLocked(r);
    for (auto& [name, h] : r.byName) h->levelMaskIs(traceMaskFor(r.rules, name));
}

TraceHandle* traceHandleOf(PtrInterface const* object) {
    if (object && object->fwkType() == &TraceHandle::_zelType) {
        return const_cast<TraceHandle*>(static_cast<TraceHandle const*>(object));
    }
    return TraceHandle::defaultHandle();
}

bool traceLineSuppressed(PtrInterface* object, int level) {
    return !traceHandleOf(object)->enabled(level);
}

void traceLineWrite(TraceHandle const* handle, char const* file, int line, char const* function,
                    String8 const& message, int level) {
    timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    tm t;
    localtime_r(&ts.tv_sec, &t);
    char head[96];
    size_t n = strftime(head, sizeof head, "%Y-%m-%d %H:%M:%S", &t);
    std::snprintf(head + n, sizeof head - n, ".%06ld %d ", ts.tv_nsec / 1000, int(::getpid()));
    char const* base = file ? std::strrchr(file, '/') : nullptr;
    base = base ? base + 1 : (file ? file : "?");

    std::string out;
    out.reserve(128 + message.size());
    out += head;
    out += handle->name().value.view();
    out += '/';
    out += char('0' + (level < 0 ? 0 : level > 9 ? 9 : level));
    out += ' ';
    out += base;
    out += ':';
    out += std::to_string(line);
    out += ' ';
    out += function ? function : "";
    out += ": ";
    out += message.view();
    out += '\n';

    // One write per line, so lines of concurrent writers do not interleave.
    int fd = registry().fd.load();
    char const* p = out.data();
    size_t left = out.size();
    while (left > 0) {
        ssize_t w = ::write(fd, p, left);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return;
        p += w;
        left -= size_t(w);
    }
}

void trace_h(PtrInterface* object, char const* file, int line, char const* function,
             String8 const& message, int level) {
    TraceHandle* h = traceHandleOf(object);
    if (!h->enabled(level)) return;
    traceLineWrite(h, file, line, function, message, level);
}

namespace {
constexpr AccessorAttr<&TraceHandle::levelMask, &TraceHandle::levelMaskIs> kLevelMask;
constexpr ArgDesc kCtor[] = {{"name", "Zel::Name"}, {nullptr, nullptr}};
constexpr TypeOps kOps = namedEntityOps<TraceHandle, &traceHandleNamed>();
} // namespace

constinit ZelType const TraceHandle::_zelType("Zel::TraceHandle", sizeof(TraceHandle),
                                              &Entity::_zelType,
                                              ZelType::isEntity_ | ZelType::hasOwnPtrInterface_,
                                              TraceHandle::_zelAttrs, 1, kCtor, &kOps);
constinit ZelAttr const TraceHandle::_zelAttrs[] = {
    {"levelMask", 256, &TraceHandle::_zelType, &Builtin<unsigned short>::_zelType,
     ZelAttr::readable_ | ZelAttr::writable_, &kLevelMask},
};

namespace {
TypeRegistration const rTraceHandle(&TraceHandle::_zelType);
} // namespace

} // namespace Zel
