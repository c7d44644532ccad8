// Parsing zelc's command line (see Options.h): options come before the
// agent; every word after the agent belongs to the mode, so a command may
// start with '-'.
#include "Options.h"

#include <cstdlib>
#include <iostream>

#include "ExitStatus.h"
#include "Output.h"
#include "ZelPy/PyClient.h"

#ifndef ZELC_VERSION
#error "ZELC_VERSION names the release"
#endif

namespace zelc {

namespace {

// The synopses, one a line: `lead` before the first, `more` before the
// others. --help writes them as manual-page generators read a synopsis.
void usageLines(std::ostream& os, char const* lead = "usage: ", char const* more = "       ") {
    for (Mode const& m : modes()) {
        std::string_view rest = m.synopsis;
        while (!rest.empty()) {
            size_t end = rest.find('\n');
            os << lead << "zelc " << rest.substr(0, end) << '\n';
            lead = more;
            rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        }
    }
}

void help() {
    usageLines(std::cout, "Usage: ", "   or: ");
    std::cout << "\n"
                 "Sends COMMAND (its words joined by blanks) to an agent's PyServer and prints the result.\n"
                 "  PREFIX.NAME        the agent of that agent file in $ZELC_AGENTS_DIR (else /var/run/agents)\n"
                 "  -s SOCKET          the server on this UNIX-domain socket\n"
                 "  -p PORT            the server on this TCP port of 127.0.0.1\n";
    for (Mode const& m : modes()) std::cout << m.help;
    std::cout << "  --trust-user NAME  reach agents of user NAME (a name or uid) too; repeatable. Only the\n"
                 "                     agent files and servers of your own user, root, these users and those\n"
                 "                     named in $ZELC_TRUSTED_USERS (comma-separated) are used, and a server\n"
                 "                     must belong to its agent file's owner\n"
                 "  --help, --version  this text, or the version, on standard output\n"
                 "Every failure is one line on standard error starting \"zelc: \" (a command's traceback is\n"
                 "the agent's text). Exit status (with several agents, the highest of theirs):\n"
                 "  0  success\n"
                 "  1  the command raised (its traceback on standard error)\n"
                 "  2  the agent cannot be reached, is not trusted, or its connection was lost; lost\n"
                 "     mid-command, the message says the command may or may not have run\n"
                 "  3  usage, or a command over 256 MiB\n"
                 "  4  FILE or standard input cannot be read, or standard output cannot be written\n";
}

Mode const* modeOf(std::string_view flag) {
    for (Mode const& m : modes()) {
        if (!m.flag.empty() && m.flag == flag) return &m;
    }
    return nullptr;
}

} // namespace

std::string Options::joinedArgs() const {
    std::string cmd;
    for (std::string const& a : args) {
        if (!cmd.empty()) cmd += ' ';
        cmd += a;
    }
    return cmd;
}

int usageError() {
    usageLines(std::cerr);
    std::cerr.flush();
    return kUsage;
}

int fail(int status, std::string_view line) {
    std::cerr << failureLine(line) << std::flush;
    return status;
}

std::string agentLabel(Options const& o) {
    if (!o.socketPath.empty()) return o.socketPath;
    if (o.port > 0) return "port " + std::to_string(o.port);
    return o.name;
}

int parse(int argc, char** argv, Options& o) {
    int i = 1;
    for (; i < argc; ++i) {
        std::string a = argv[i];
        bool hasValue = i + 1 < argc;
        if (a == "-x") {
            o.exec = true;
        } else if (a == "-s" && hasValue) {
            o.socketPath = argv[++i];
        } else if (a == "-p" && hasValue) {
            o.port = std::atoi(argv[++i]);
            if (o.port <= 0) return usageError();
        } else if (a == "-f" && hasValue) {
            o.file = argv[++i];
        } else if (a == "--trust-user" && hasValue) {
            uid_t uid;
            if (!Zel::PyClient::userId(argv[++i], &uid)) return fail(kUsage, std::string("no user ") + argv[i]);
            o.trustedUsers.push_back(uid);
        } else if (a == "--help") {
            help();
            return kSuccess;
        } else if (a == "--version") {
            std::cout << "zelc " << ZELC_VERSION << std::endl;
            return kSuccess;
        } else if (Mode const* m = modeOf(a)) {
            if (o.mode) return usageError();   // one mode at a time
            o.mode = m;
        } else if (a == "--") {
            ++i;
            break;
        } else if (!a.empty() && a[0] == '-') {
            return usageError();
        } else {
            break;
        }
    }
    if (!o.mode) o.mode = &modes().front();
    bool byAddress = !o.socketPath.empty() || o.port > 0;
    if (o.mode->target == Mode::Target::None) {
        if (byAddress) return usageError();
    } else if (!byAddress) {
        if (i >= argc) return usageError();
        o.name = argv[i++];
        if (o.name.find('.') == std::string::npos) return usageError();
    }
    for (; i < argc; ++i) o.args.push_back(argv[i]);
    if (!o.file.empty() && o.mode != &modes().front()) return usageError();
    return -1;
}

} // namespace zelc
