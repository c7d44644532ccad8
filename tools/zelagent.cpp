// zelagent NAME [--tcp PORT] [--startup FILE]
//
// An agent process: embeds Python, loads the demo types when they are
// built, publishes a Demo::Switch under the global directory, serves
// Python commands through PyServer (agent file <agents dir>/NAME, NAME
// being "<prefix>.<agent>"), and runs the activity loop until SIGINT or
// SIGTERM. A start-up file is executed through a PyClient addressed to the
// agent itself, which therefore runs it in this process.
#include <Python.h>

#include <atomic>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "AgentPythonPath.h"
#include "AgentSignals.h"
#include "StopDeadline.h"
#include "support/Gil.h"
#include "support/PyCompat.h"
#include "support/PyRef.h"
#include "Zel/Activity.h"
#include "Zel/Dir.h"
#include "Zel/Exception.h"
#include "ZelPy/PyClient.h"

namespace {

using Zel::PyRef;

struct Options {
    std::string name;
    int tcpPort = -1;   // -1: UNIX-domain socket only
    std::string startup;
};

[[noreturn]] void usage() {
    std::cerr << "usage: zelagent PREFIX.NAME [--tcp PORT] [--startup FILE]" << std::endl;
    std::exit(2);
}

// The text of --help, from which the manual page is made too.
void help() {
    std::cout << "Usage: zelagent PREFIX.NAME [--tcp PORT] [--startup FILE]\n\n"
                 "Runs an agent: embeds Python, publishes a Demo::Switch named NAME when the demo types\n"
                 "are there, serves Python commands through PyServer (agent file PREFIX.NAME in\n"
                 "$ZELC_AGENTS_DIR, else /var/run/agents), and runs the activity loop until SIGINT or SIGTERM.\n\n"
                 "Options:\n"
                 "  --tcp PORT       serve on 127.0.0.1:PORT too\n"
                 "  --startup FILE   run the Python statements of FILE in the agent once it serves\n"
                 "  --help           print this text and exit\n"
                 "  --version        print the version and exit\n";
    std::exit(0);
}

Options parse(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--help") help();
        if (a == "--version") {
            std::cout << "zelagent " << ZELAGENT_VERSION << std::endl;
            std::exit(0);
        }
        if (a == "--tcp" && i + 1 < argc) {
            o.tcpPort = std::atoi(argv[++i]);
        } else if (a == "--startup" && i + 1 < argc) {
            o.startup = argv[++i];
        } else if (!a.empty() && a[0] != '-' && o.name.empty()) {
            o.name = a;
        } else {
            usage();
        }
    }
    if (o.name.empty() || o.name.find('.') == std::string::npos) usage();
    return o;
}

void printPythonError(char const* what) {
    std::cerr << "zelagent: " << what << std::endl;
    PyErr_Print();
}

// The demo types register themselves when their library loads.
void loadDemo() {
    PyRef demo(PyImport_ImportModule("ZelDemo"));
    if (!demo) {
        PyErr_Clear();
        std::cerr << "zelagent: demo types not available (ZelDemo did not import); continuing without them"
                  << std::endl;
    }
}

// Publishes /sw1 (the agent part of the name) as a Demo::Switch when the
// type exists.
void publishSwitch(std::string const& agent) {
    if (!Zel::typeNodeOrNull("Demo::Switch")) {
        std::cerr << "zelagent: no Demo::Switch type; nothing published" << std::endl;
        return;
    }
    try {
        Zel::globalDir()->newEntity(Zel::String8(agent), "Demo::Switch");
    } catch (Zel::Exception const& e) {
        std::cerr << "zelagent: could not publish Demo::Switch " << agent << ": " << e.message() << std::endl;
    }
}

// Starts PyServer.PyServer(name, tcpPort=...); returns the server object,
// or none with a Python error pending.
PyRef startServer(Options const& o) {
    PyRef module(PyImport_ImportModule("PyServer"));
    if (!module) return PyRef();
    PyRef cls(PyObject_GetAttrString(module.get(), "PyServer"));
    if (!cls) return PyRef();
    PyRef args(Py_BuildValue("(s)", o.name.c_str()));
    PyRef kwargs(PyDict_New());
    if (!args || !kwargs) return PyRef();
    if (o.tcpPort >= 0) {
        PyRef port(Zel::compat::intFromLong(o.tcpPort));
        if (!port || PyDict_SetItemString(kwargs.get(), "tcpPort", port.get()) < 0) return PyRef();
    }
    PyRef server(PyObject_Call(cls.get(), args.get(), kwargs.get()));
    if (!server) return server;
    PyRef started(PyObject_CallMethod(server.get(), const_cast<char*>("start"), nullptr));
    if (!started) return PyRef();
    return server;
}

enum class Stopped { Cleanly, Failed, CommandsLeft };

// Stops the server within PyServer.STOP_SECONDS: running commands are
// interrupted, and one that does not end by then (blocked in a call) is
// left running.
Stopped stopServer(PyObject* server) {
    PyRef module(PyImport_ImportModule("PyServer"));
    PyRef seconds(module ? PyObject_GetAttrString(module.get(), "STOP_SECONDS") : nullptr);
    PyRef r(seconds ? PyObject_CallMethod(server, const_cast<char*>("stop"), const_cast<char*>("(O)"), seconds.get())
                    : nullptr);
    if (!r) {
        printPythonError("stopping PyServer failed");
        return Stopped::Failed;
    }
    return PyObject_IsTrue(r.get()) ? Stopped::Cleanly : Stopped::CommandsLeft;
}

// Runs the start-up file through a client addressed to this agent.
bool runStartup(Options const& o) {
    std::ifstream in(o.startup);
    if (!in) {
        std::cerr << "zelagent: cannot read start-up file " << o.startup << std::endl;
        return false;
    }
    std::stringstream text;
    text << in.rdbuf();
    size_t dot = o.name.find('.');
    try {
        Zel::PyClient client(Zel::String8(o.name.substr(0, dot)), Zel::String8(o.name.substr(dot + 1)), 'P',
                             nullptr, nullptr);
        client.connect();
        std::string out(64 * 1024, '\0');
        int n = client.execute(text.str().c_str(), out.data(), static_cast<int>(out.size()));
        std::cout << out.c_str();
        if (n >= static_cast<int>(out.size())) std::cout << "\n[start-up output cut]" << std::endl;
        std::cout.flush();
        return true;
    } catch (Zel::Exception const& e) {
        std::cerr << "zelagent: start-up file " << o.startup << " failed: " << e.message() << std::endl;
        return false;
    }
}

// The agent's Python packages stay importable when it is started by hand,
// after whatever PYTHONPATH already names.
void addAgentPythonPath() {
    PyObject* path = PySys_GetObject(const_cast<char*>("path"));   // borrowed
    if (!path) return;
    std::error_code ec;
    std::string exe = std::filesystem::read_symlink("/proc/self/exe", ec).string();
    for (std::string const& dir : Zel::agentPythonPath(exe, ZEL_AGENT_BUILD_BINDIR, ZEL_AGENT_PYTHONPATH,
                                                       ZEL_AGENT_INSTALLED_PYTHONDIR)) {
        PyRef item(Zel::compat::text(dir.c_str()));
        if (item) PyList_Append(path, item.get());
    }
    PyErr_Clear();
}

} // namespace

int main(int argc, char** argv) {
    Options o = parse(argc, argv);
    // Gone within 2 s of the signal, whatever a command does; outlives the
    // signal thread that arms it.
    Zel::StopDeadline deadline(std::string(Zel::PyClient::agentsDir().view()) + "/" + o.name,
                               std::chrono::milliseconds(1600));
    Zel::AgentSignals signals;   // before any thread starts

    Zel::compat::initializeAs(ZEL_AGENT_PYTHON);
    Zel::compat::initThreads();
    Zel::compat::setArgv(argc, argv);
    addAgentPythonPath();

    loadDemo();
    publishSwitch(o.name.substr(o.name.find('.') + 1));
    PyRef server = startServer(o);
    if (!server) {
        printPythonError("starting PyServer failed");
        Py_Finalize();
        return 1;
    }

    int status = 0;
    {
        // The activity loop and the start-up client run without the GIL;
        // the server's Python thread takes it as it needs.
        Zel::ReleasedGil unlocked;
        if (!o.startup.empty() && !runStartup(o)) status = 1;
        if (status == 0) {
            Zel::Ptr<Zel::ActivityManagerConfig> loop = Zel::ActivityFacility::activityManagerConfig();
            std::atomic<bool> stopping{false};
            signals.onSignalIs([loop, &stopping, &deadline](int) {
                deadline.arm();
                stopping = true;
                loop->stop();
            });
            std::cout << "zelagent " << o.name << " ready" << std::endl;
            // A stop only ends a loop already running; one that comes just
            // before a loop starts is seen by the flag within one slice.
            while (!stopping) loop->execTimeIs(0.5);
        }
    }
    Stopped stopped = stopServer(server.get());
    deadline.cancel();
    if (stopped == Stopped::Failed) status = 1;
    if (stopped == Stopped::CommandsLeft) {
        // The agent file and socket are gone; finalizing the interpreter
        // under a thread still running Python is not safe, and the
        // process ends anyway.
        std::cerr << "zelagent: commands still running at the stop; leaving without finalizing Python" << std::endl;
        std::fflush(nullptr);
        std::_Exit(status);
    }
    server = PyRef();
    Py_Finalize();
    return status;
}
