// zelc: send a Python command to an agent's PyServer.
//
//   zelc [-x] PREFIX.NAME COMMAND...    by agent name (agents directory)
//   zelc [-x] -s SOCKET COMMAND...      by UNIX-domain socket path
//   zelc [-x] -p PORT COMMAND...        by TCP port on 127.0.0.1
//   zelc -i (PREFIX.NAME | -s SOCKET | -p PORT)
//   zelc --watch (PREFIX.NAME | -s SOCKET | -p PORT) ENTITY [ATTR...]
//   zelc --stacks (PREFIX.NAME | -s SOCKET | -p PORT)
//
// Evaluates by default, executes with -x, or prompts for commands with -i.
// --trust-user NAME reaches agents of that user too. Exit status: 0
// success, 1 the command raised (the server's text on standard error), 2
// the agent cannot be reached (or is not trusted), 3 usage.
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Zel/Exception.h"
#include "ZelPy/PyClient.h"
#include "ZelcOperator.h"

namespace {

constexpr int kResultSize = 256 * 1024;
// One short wait: an absent agent is reported quickly.
unsigned const kShortRetry[] = {250, 0};

[[noreturn]] void usage() {
    std::cerr << "usage: zelc [-x] (PREFIX.NAME | -s SOCKET | -p PORT) COMMAND...\n"
                 "       zelc -i (PREFIX.NAME | -s SOCKET | -p PORT)"
              << std::endl;
    std::exit(3);
}

void help() {
    std::cout << "usage: zelc [-x] [--trust-user NAME]... (PREFIX.NAME | -s SOCKET | -p PORT) COMMAND...\n"
                 "       zelc -i [--trust-user NAME]... (PREFIX.NAME | -s SOCKET | -p PORT)\n"
                 "       zelc --watch [--trust-user NAME]... (PREFIX.NAME | -s SOCKET | -p PORT) ENTITY [ATTR...]\n"
                 "       zelc --stacks [--trust-user NAME]... (PREFIX.NAME | -s SOCKET | -p PORT)\n"
                 "\n"
                 "Sends COMMAND (its words joined by blanks) to an agent's PyServer and prints the result.\n"
                 "  PREFIX.NAME        the agent of that agent file in $ZELC_AGENTS_DIR (else /var/run/agents)\n"
                 "  -s SOCKET          the server on this UNIX-domain socket\n"
                 "  -p PORT            the server on this TCP port of 127.0.0.1\n"
                 "  -x                 execute COMMAND and print its output (default: evaluate, print the value)\n"
                 "  -i                 read commands from standard input, one a line\n"
                 "  --watch            print the changes of the entity of full name ENTITY (\"/sw1/et1\"), of\n"
                 "                     the ATTRs only when given, one a line: date, time, entity, attribute, new\n"
                 "                     value (the key for a collection), until Ctrl-C (exit status 0); a line\n"
                 "                     says how many changes were dropped when they came faster than read\n"
                 "  --stacks           print the Python stack of every thread of the agent\n"
                 "  --trust-user NAME  reach agents of user NAME (a name or uid) too; repeatable. Only the\n"
                 "                     agent files and servers of your own user, root, these users and those\n"
                 "                     named in $ZELC_TRUSTED_USERS (comma-separated) are used, and a server\n"
                 "                     must belong to its agent file's owner\n"
                 "Exit status: 0 success, 1 the command raised, 2 the agent cannot be reached or is not\n"
                 "trusted, 3 usage.\n";
}

// The agent cannot be reached, or is not one to talk to: exit status 2.
int unreachable(Zel::Exception const& e) {
    std::cerr << "zelc: " << e.message() << std::endl;
    return 2;
}

// 0 done, 1 the command raised, 2 connection lost.
int run(Zel::PyClient& client, bool exec, std::string const& cmd, std::vector<char>& buf, bool newline) {
    try {
        if (exec) {
            client.execute(cmd.c_str(), buf.data(), static_cast<int>(buf.size()));
            std::cout << buf.data();
        } else {
            client.eval(cmd.c_str(), buf.data(), static_cast<int>(buf.size()));
            std::cout << buf.data();
            if (newline) std::cout << '\n';
        }
        std::cout.flush();
        return 0;
    } catch (Zel::RpcConnectionException const& e) {
        return unreachable(e);
    } catch (Zel::PermissionException const& e) {   // a reconnection found an untrusted server
        return unreachable(e);
    } catch (Zel::RpcException const& e) {
        std::cerr << e.message();
        if (e.message().empty() || e.message().view().back() != '\n') std::cerr << '\n';
        return 1;
    } catch (Zel::RangeException const& e) {
        std::cerr << "zelc: " << e.message() << std::endl;
        return 1;
    }
}

int interactive(Zel::PyClient& client, std::vector<char>& buf) {
    bool tty = ::isatty(0);
    std::string line;
    for (;;) {
        if (tty) std::cout << ">>> " << std::flush;
        if (!std::getline(std::cin, line)) break;
        if (line.empty()) continue;
        // An expression is evaluated; a statement does not compile as one,
        // so nothing has run when eval refuses it, and it is executed.
        int rc;
        try {
            client.eval(line.c_str(), buf.data(), static_cast<int>(buf.size()));
            std::cout << buf.data() << std::endl;
            rc = 0;
        } catch (Zel::RpcConnectionException const& e) {
            return unreachable(e);
        } catch (Zel::PermissionException const& e) {
            return unreachable(e);
        } catch (Zel::RpcException const& e) {
            if (e.message().view().find("SyntaxError") == std::string_view::npos) {
                std::cerr << e.message();
                rc = 1;
            } else {
                rc = run(client, true, line, buf, false);
            }
        } catch (Zel::RangeException const& e) {
            std::cerr << "zelc: " << e.message() << std::endl;
            rc = 1;
        }
        if (rc == 2) return 2;
    }
    if (tty) std::cout << std::endl;
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    // A vanished server must show as an error, not end zelc.
    ::signal(SIGPIPE, SIG_IGN);
    bool exec = false, prompt = false, watch = false, stacks = false;
    char const* socketPath = nullptr;
    int port = 0;
    std::string name;
    std::vector<uid_t> trusted;
    int i = 1;
    for (; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "-x") {
            exec = true;
        } else if (a == "-i") {
            prompt = true;
        } else if (a == "--watch") {
            watch = true;
        } else if (a == "--stacks") {
            stacks = true;
        } else if (a == "-s" && i + 1 < argc) {
            socketPath = argv[++i];
        } else if (a == "--help") {
            help();
            return 0;
        } else if (a == "--trust-user" && i + 1 < argc) {
            uid_t uid;
            if (!Zel::PyClient::userId(argv[++i], &uid)) {
                std::cerr << "zelc: no user " << argv[i] << std::endl;
                return 3;
            }
            trusted.push_back(uid);
        } else if (a == "-p" && i + 1 < argc) {
            port = std::atoi(argv[++i]);
            if (port <= 0) usage();
        } else if (a == "--") {
            ++i;
            break;
        } else if (!a.empty() && a[0] == '-') {
            usage();
        } else {
            break;
        }
    }
    if (!socketPath && !port) {
        if (i >= argc) usage();
        name = argv[i++];
        if (name.find('.') == std::string::npos) usage();
    }
    std::vector<std::string> words(argv + i, argv + argc);
    std::string cmd;
    for (std::string const& w : words) {
        if (!cmd.empty()) cmd += ' ';
        cmd += w;
    }
    if (watch || stacks) {
        // One mode at a time; a watch names its entity, stacks nothing.
        if (exec || prompt || (watch && stacks) || (stacks && !words.empty()) || (watch && words.empty())) usage();
    } else if (prompt == !cmd.empty()) {
        usage();
    }

    std::unique_ptr<Zel::PyClient> client;
    if (socketPath) {
        client = std::make_unique<Zel::PyClient>(Zel::String8(socketPath), 'C', nullptr);
    } else if (port) {
        client = std::make_unique<Zel::PyClient>(port, 'C', nullptr);
    } else {
        size_t dot = name.find('.');
        client = std::make_unique<Zel::PyClient>(Zel::String8(name.substr(0, dot)),
                                                 Zel::String8(name.substr(dot + 1)), 'C', nullptr, nullptr);
    }
    client->retryProfileIs(kShortRetry);
    for (uid_t uid : trusted) client->trustedUserIs(uid);
    try {
        client->connect();
    } catch (Zel::Exception const& e) {
        return unreachable(e);
    }
    if (client->sameProcess()) {
        std::cerr << "zelc: the agent file names this process" << std::endl;
        return 2;
    }
    if (watch) return Zelc::watchMode(*client, words[0], std::vector<std::string>(words.begin() + 1, words.end()));
    if (stacks) return Zelc::stacksMode(*client);
    std::vector<char> buf(kResultSize);
    return prompt ? interactive(*client, buf) : run(*client, exec, cmd, buf, true);
}
