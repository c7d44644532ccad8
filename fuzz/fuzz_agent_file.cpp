// Zel::PyClient::serverContacts on an agent file holding the input's bytes
// ("pid\nport\nsocket path\n" when an agent writes it). The file is held
// under an exclusive flock, as a live agent holds it, so that the lookup
// reads it instead of removing it as a dead agent's.
//
// Oracle: a socket name found is the third line of the file (at most 107
// bytes, no newline), and the lookup only changes what it is documented to
// change. ErrnoException is the clear error; anything else escaping, a
// sanitizer report, a hang or a leak is a finding.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Zel/Exception.h"
#include "Zel/Fd.h"
#include "ZelPy/PyClient.h"

namespace {

[[noreturn]] void finding(char const* what) {
    std::fprintf(stderr, "fuzz_agent_file: %s\n", what);
    std::abort();
}

// The agents directory, made once per process and pointed at by
// ZELC_AGENTS_DIR. Each input's file is gone when the input ends, so the
// directory is empty at exit. Kept in a block never freed: the exit
// handler that removes the directory runs after static destructors.
std::string const& agentsDir() {
    static std::string const* const dir = [] {
        char tmpl[] = "/tmp/zelfuzzagentsXXXXXX";
        if (!::mkdtemp(tmpl)) finding("cannot make the agents directory");
        ::setenv("ZELC_AGENTS_DIR", tmpl, 1);
        return new std::string(tmpl);
    }();
    return *dir;
}

// The agent's side: the file written and locked for the scope's life.
class AgentFile {
public:
    AgentFile(std::string path, uint8_t const* data, size_t size) : path_(std::move(path)) {
        fd_.reset(::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
        if (!fd_.valid()) finding("cannot write the agent file");
        if (::write(fd_.get(), data, size) != static_cast<ssize_t>(size)) finding("short write of the agent file");
        if (::flock(fd_.get(), LOCK_EX) != 0) finding("cannot lock the agent file");
    }
    ~AgentFile() {
        fd_.reset();   // the lock goes before the file
        ::unlink(path_.c_str());
    }
    AgentFile(AgentFile const&) = delete;
    AgentFile& operator=(AgentFile const&) = delete;

private:
    std::string path_;
    Zel::Fd fd_;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    agentsDir();
    std::atexit([] { ::rmdir(agentsDir().c_str()); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    std::string const path = agentsDir() + "/fuzz.agent";
    AgentFile agent(path, data, size);
    Zel::PyClient client(Zel::String8("fuzz"), Zel::String8("agent"), 'T', nullptr, nullptr);
    Zel::PyServerContacts contacts;
    contacts.port = -7;
    contacts.socketName = Zel::String8("untouched");
    try {
        client.serverContacts(Zel::String8(path), &contacts);
    } catch (Zel::ErrnoException const&) {
        return 0;
    }
    std::string const text(reinterpret_cast<char const*>(data), size < 128 ? size : 128);
    std::string const name(contacts.socketName.data(), contacts.socketName.size());
    if (client.sameProcess()) {
        if (contacts.port != -7 || name != "untouched") finding("same-process mode changed the contacts");
        return 0;
    }
    if (name == "untouched") return 0;
    // A name was found: it is the third line, the second ended with a
    // newline, and the name is short enough for a socket address.
    size_t nl1 = text.find('\n');
    size_t nl2 = nl1 == std::string::npos ? nl1 : text.find('\n', nl1 + 1);
    if (nl2 == std::string::npos) finding("a socket name without two complete lines");
    if (name.size() > 107 || name.find('\n') != std::string::npos) finding("socket name too long or multi-line");
    if (text.compare(nl2 + 1, name.size() + 1, name + "\n") != 0) finding("socket name is not the third line");
    return 0;
}
