// The console's kinds of command (see support/WireProtocol.h): input and
// completion go to the connection's console object, written in Python
// (ZelConsole.Console); control requests are answered here, since
// interrupting needs the running commands of every connection.
#include <charconv>
#include <string>

#include "Command.h"
#include "Running.h"

namespace ZelServer {

namespace wire = Zel::wire;

namespace {

PyObject* noConsole() {
    PyErr_SetString(PyExc_RuntimeError, "this connection has no console");
    return nullptr;
}

PyObject* bytes(std::string_view text) { return PyBytes_FromStringAndSize(text.data(), Py_ssize_t(text.size())); }

} // namespace

PyObject* Commands::consoleInput(std::string_view source, std::string_view& status) {
    if (!h_.console) return noConsole();
    PyRef arg(bytes(source));
    if (!arg) return nullptr;
    PyRef outcome(PyObject_CallMethod(h_.console, const_cast<char*>("push"), const_cast<char*>("O"), arg.get()));
    if (!outcome) return nullptr;
    if (!PyTuple_Check(outcome.get()) || PyTuple_GET_SIZE(outcome.get()) != 2) {
        PyErr_SetString(PyExc_TypeError, "the console's push() must return (outcome, text)");
        return nullptr;
    }
    long how = PyLong_AsLong(PyTuple_GET_ITEM(outcome.get(), 0));
    if (how == -1 && PyErr_Occurred()) return nullptr;
    // 0: it ran; 1: it raised, or did not compile; 2: more input is needed.
    status = how == 0 ? wire::kOk : how == 1 ? wire::kError : wire::kMore;
    PyObject* text = PyTuple_GET_ITEM(outcome.get(), 1);
    Py_INCREF(text);
    return text;
}

PyObject* Commands::complete(std::string_view line) {
    if (!h_.console) return noConsole();
    PyRef arg(bytes(line));
    if (!arg) return nullptr;
    return PyObject_CallMethod(h_.console, const_cast<char*>("complete"), const_cast<char*>("O"), arg.get());
}

PyObject* Commands::control(std::string_view request) {
    if (request == wire::kHello) {
        if (!h_.console) return noConsole();
        PyRef banner = asBytes(PyRef(PyObject_CallMethod(h_.console, const_cast<char*>("banner"), nullptr)));
        if (!banner) return nullptr;
        std::string text = std::to_string(h_.fd) + '\n';
        text.append(PyBytes_AS_STRING(banner.get()), size_t(PyBytes_GET_SIZE(banner.get())));
        return bytes(text);
    }
    if (request.substr(0, wire::kInterrupt.size()) == wire::kInterrupt) {
        std::string_view token = request.substr(wire::kInterrupt.size());
        int fd = -1;
        auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), fd);
        if (error == std::errc() && end == token.data() + token.size() && !token.empty()) {
            return bytes(interruptCommand(fd, PyExc_KeyboardInterrupt) ? wire::kInterrupted : wire::kIdle);
        }
    }
    PyErr_Format(PyExc_ValueError, "unknown console control request '%.100s'", std::string(request).c_str());
    return nullptr;
}

} // namespace ZelServer
