#include "Zel/ProcTitle.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <cstring>
#include <mutex>

extern char** environ;

namespace Zel {

namespace NboAttrLog {
int externallySetSocket = 0;
String8 externallySetSocketName;
} // namespace NboAttrLog

namespace {

int gArgc = 0;
char** gArgv = nullptr;

// Run by the loader with main's arguments, before any constructor of ours.
void captureArgs(int argc, char** argv, char**) {
    gArgc = argc;
    gArgv = argv;
}
__attribute__((section(".init_array"), used)) void (*captureArgsEntry)(int, char**, char**) = &captureArgs;

std::mutex& titleMutex() {
    static std::mutex* m = new std::mutex;
    return *m;
}

String8& externalTitle() {
    static String8* t = new String8;
    return *t;
}

// The writable title area: argv[0] up to the end of the last string of
// argv and, the first time, of environ that follow it without a gap.
struct Area {
    char** argv = nullptr;
    char* begin = nullptr;
    char* end = nullptr;
    // The environment's copy made when its strings were taken over. It is
    // owned here for the life of the process: a later setenv() gives
    // environ a fresh array of its own, and this one must stay reachable
    // (it is never freed, as the C library never frees the original).
    char** movedEnviron = nullptr;
};

Area& area() {
    static Area a;
    return a;
}

void computeArea(int argc, char** argv) {
    Area& a = area();
    if (a.argv == argv) return;
    a.argv = argv;
    a.begin = argv[0];
    char* end = argv[0] + std::strlen(argv[0]) + 1;
    for (int i = 1; i < argc && argv[i]; ++i) {
        if (argv[i] != end) break;
        end = argv[i] + std::strlen(argv[i]) + 1;
    }
    if (environ) {
        size_t n = 0;
        while (environ[n]) ++n;
        if (n > 0 && environ[0] == end) {
            // Move the environment out of the way, then take its space.
            char** moved = new char*[n + 1];
            for (size_t i = 0; i < n; ++i) {
                if (environ[i] == end) end = environ[i] + std::strlen(environ[i]) + 1;
                moved[i] = strdup(environ[i]);
            }
            moved[n] = nullptr;
            a.movedEnviron = moved;
            environ = moved;
        }
    }
    a.end = end;
}

} // namespace

int procArgc() { return gArgc; }
char** procArgv() { return gArgv; }

void procTitleIs(int argc, char** argv, char const* a, char const* b, char const* c) {
    std::string title;
    for (char const* part : {a, b, c}) {
        if (!part || !*part) continue;
        if (!title.empty()) title += ' ';
        title += part;
    }
    std::lock_guard<std::mutex> g(titleMutex());
    if (argc > 0 && argv && argv[0]) {
        computeArea(argc, argv);
        Area& ar = area();
        size_t room = size_t(ar.end - ar.begin);
        size_t n = std::min(title.size(), room - 1);
        std::memcpy(ar.begin, title.data(), n);
        std::memset(ar.begin + n, 0, room - n);
        // Later arguments now lie inside the title area: show only the title.
        for (int i = 1; i < argc && argv[i]; ++i) argv[i] = ar.begin + n;
    }
    char comm[16] = {};
    std::strncpy(comm, title.c_str(), sizeof comm - 1);
    prctl(PR_SET_NAME, comm, 0, 0, 0);
}

void externalProcTitleIs(char const* title) {
    std::lock_guard<std::mutex> g(titleMutex());
    externalTitle() = String8(title);
}

String8 externalProcTitle() {
    std::lock_guard<std::mutex> g(titleMutex());
    return externalTitle();
}

} // namespace Zel
