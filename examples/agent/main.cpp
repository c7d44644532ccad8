// zelpy-agent-example PREFIX.NAME
//
// A minimal agent: publishes one entity, /counter (an Example::Counter, a
// type of its own), embeds Python and serves Python commands through
// PyServer under the agent file PREFIX.NAME, and runs the activity loop
// until SIGINT or SIGTERM. Try:
//   zelc PREFIX.NAME "__import__('Zel').root()['counter'].add(5)"
#include <Python.h>

#include <csignal>
#include <iostream>
#include <string>

#include "Zel/Activity.h"
#include "Zel/Attr.h"
#include "Zel/Dir.h"
#include "Zel/Entity.h"
#include "Zel/EntityFieldAttr.h"
#include "Zel/Exception.h"
#include "Zel/TypeOps.h"

namespace Example {

// An entity with one stored attribute and one function.
class Counter : public Zel::Entity {
public:
    explicit Counter(Zel::String8 const& name) : Entity(Zel::Name(name)) {}
    Zel::ZelType const* fwkType() const override { return &_zelType; }

    int add(int by) { return count += by; }

    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];

    int count = 0;
};

namespace {
constexpr Zel::EntityFieldAttr<&Counter::count> kCount;
constexpr Zel::MethodAttr<&Counter::add> kAdd;
constexpr Zel::ArgDesc kCtor[] = {{"name", "Zel::String"}, {nullptr, nullptr}};
constexpr Zel::ArgDesc kAddArgs[] = {{"by", "int"}, {nullptr, nullptr}};
constexpr Zel::TypeOps kOps = Zel::entityOps<Counter, Zel::String8>();
using A = Zel::ZelAttr;
} // namespace

constinit Zel::ZelType const Counter::_zelType("Example::Counter", sizeof(Counter), &Zel::Entity::_zelType,
                                               Zel::ZelType::isEntity_ | Zel::ZelType::hasOwnPtrInterface_,
                                               Counter::_zelAttrs, 2, kCtor, &kOps);
constinit Zel::ZelAttr const Counter::_zelAttrs[] = {
    {"count", 1, &Counter::_zelType, &Zel::Builtin<int>::_zelType,
     A::readable_ | A::writable_ | A::doesNotify_ | A::stored_, &kCount},
    {"add", 2, &Counter::_zelType, &Zel::Builtin<int>::_zelType, A::isFunction_, &kAdd, nullptr, kAddArgs},
};

namespace {
Zel::TypeRegistration const rCounter(&Counter::_zelType);
} // namespace

} // namespace Example

namespace {

volatile std::sig_atomic_t stopping = 0;

void onStop(int) { stopping = 1; }

// Runs Python statements; false, with the error printed, if they raised.
bool run(std::string const& code) {
    if (PyRun_SimpleString(code.c_str()) == 0) return true;
    std::cerr << "zelpy-agent-example: Python failed" << std::endl;
    return false;
}

} // namespace

int main(int argc, char** argv) {
    std::string name = argc == 2 ? argv[1] : "";
    if (name.find('.') == std::string::npos) {
        std::cerr << "usage: zelpy-agent-example PREFIX.NAME" << std::endl;
        return 2;
    }
    try {
        Zel::globalDir()->newEntity("counter", "Example::Counter");
    } catch (Zel::Exception const& e) {
        std::cerr << "zelpy-agent-example: " << e.message() << std::endl;
        return 1;
    }

    // Named as the interpreter ZelPy was built for, Python finds that one's
    // standard library, not that of whichever python3 is first on PATH.
    // Its signal handlers are not installed: the signals stay this program's.
#if PY_MAJOR_VERSION >= 3
    PyConfig config;
    PyConfig_InitPythonConfig(&config);
    config.install_signal_handlers = 0;
    ::PyStatus status = PyConfig_SetBytesString(&config, &config.program_name, ZELPY_PYTHON);
    if (!PyStatus_Exception(status)) status = Py_InitializeFromConfig(&config);
    PyConfig_Clear(&config);
    if (PyStatus_Exception(status)) Py_ExitStatusException(status);
#else
    Py_SetProgramName(const_cast<char*>(ZELPY_PYTHON));
    Py_InitializeEx(0);
    PyEval_InitThreads();
#endif
    bool served = run("import sys\nsys.path.append('" ZELPY_SITEDIR "')\nimport PyServer\n"
                      "server = PyServer.PyServer('" + name + "')\nserver.start()\n");
    if (served) {
        std::signal(SIGINT, onStop);
        std::signal(SIGTERM, onStop);
        std::cout << "zelpy-agent-example " << name << " ready" << std::endl;
        // The server's thread takes the interpreter lock as it needs it.
        PyThreadState* main = PyEval_SaveThread();
        auto loop = Zel::ActivityFacility::activityManagerConfig();
        while (!stopping) loop->execTimeIs(0.2);
        PyEval_RestoreThread(main);
        served = run("server.stop(PyServer.STOP_SECONDS)\n");
    }
    Py_Finalize();
    return served ? 0 : 1;
}
