// zelc's command line: the general options, the mode (a flag such as -l or
// -i; none means running a command), the agent addressed, and the words
// after it.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace zelc {

struct Options;

// A mode of zelc: its flag, what it addresses and the function that runs
// it. Modes are listed once, in Modes.cpp, each run by a file of its own.
struct Mode {
    enum class Target {
        None,      // addresses no agent
        One,       // PREFIX.NAME, -s SOCKET or -p PORT
        Pattern,   // as One, or a pattern of names ('demo.*'): every live agent matching it
    };

    std::string_view flag;   // "" for the default mode, running a command
    Target target;
    char const* synopsis;    // the usage after "zelc "; lines separated by '\n'
    char const* help;        // lines for --help, each ending in '\n'; may be empty
    int (*run)(Options const& o);
};

// Every mode, the default first.
std::vector<Mode> const& modes();

struct Options {
    Mode const* mode = nullptr;
    bool exec = false;                 // -x
    std::string file;                  // -f FILE
    std::string socketPath;            // -s SOCKET
    int port = 0;                      // -p PORT
    std::string name;                  // PREFIX.NAME, or a pattern of names
    std::vector<uid_t> trustedUsers;   // --trust-user NAME...
    std::vector<std::string> args;     // the words after the agent

    // The words after the agent joined by blanks, as a command.
    std::string joinedArgs() const;
};

// Parses the command line. Returns -1 with `o` filled, or the exit status
// to end with when there is nothing to run (--help, --version, bad
// arguments), its output written.
int parse(int argc, char** argv, Options& o);

// Writes the usage to standard error; returns kUsage.
int usageError();

// Writes "zelc: " and `line` to standard error; returns `status`.
int fail(int status, std::string_view line);

// The agent as messages name it: PREFIX.NAME, the socket path or "port N".
std::string agentLabel(Options const& o);

} // namespace zelc
