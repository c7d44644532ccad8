// Connection lifecycle: constructors, the retry profile, and opening and
// greeting the server's socket.
#include <netdb.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>

#include "ClientTrace.h"
#include "support/WireProtocol.h"
#include "Zel/Fd.h"
#include "Zel/Exception.h"
#include "Zel/Format.h"
#include "ZelPy/PyObjHandle.h"

namespace Zel {

// Twelve waits, 31 seconds in all: long enough for an agent that is being
// restarted to come back.
unsigned const PyClient::kDefaultRetryProfile[] = {250, 250, 250, 250, 500, 500, 500,
                                                   500, 1000, 4000, 8000, 16000, 0};
unsigned const* PyClient::retryProfile_ = PyClient::kDefaultRetryProfile;

TraceHandle* PyClient::traceHandle() {
    // One reference kept for the life of the process.
    static TraceHandle* const handle = TraceHandle::traceHandle("PyClient").release();
    return handle;
}

PyClient::PyClient(String8 prefix, String8 agentName, char mode, char* subsystemId,
                   char const* initCommand)
    : prefix_(std::move(prefix)), agentName_(std::move(agentName)), subsystemId_(subsystemId),
      initCommand_(initCommand), mode_(mode) {
    if (!subsystemId_) {
        char const* env = std::getenv("SUBSYSTEMID");
        subsystemId_ = env ? env : "";
    }
    serverName_ = prefix_ + "." + agentName_;
    if (*subsystemId_) serverName_ = serverName_ + "." + subsystemId_;
}

PyClient::PyClient(int port, char mode, char const* initCommand)
    : subsystemId_(""), port_(port), initCommand_(initCommand), mode_(mode) {}

PyClient::PyClient(String8 socketName, char mode, char const* initCommand)
    : subsystemId_(""), serverName_(socketName), socketName_(std::move(socketName)),
      initCommand_(initCommand), mode_(mode) {}

PyClient::~PyClient() {
    if (socket_.valid()) ::shutdown(socket_.get(), SHUT_RDWR);
    localServer_.reset();
}

void PyClient::closeSocket() {
    socket_.reset();
}

void PyClient::retryProfileIs(unsigned const* profile) { retryProfile_ = profile; }

void PyClient::connect() {
    String8 path;
    if (port_ == 0 && socketName_.empty()) path = agentsDir() + "/" + prefix_ + "." + agentName_;
    connected_ = false;
    double deadline = 0;
    for (unsigned i = 0;; ++i) {
        PyServerContacts contacts;
        contacts.port = port_ ? port_ : -1;
        contacts.socketName = socketName_;
        if (contacts.port == -1 && contacts.socketName.empty()) serverContacts(path, &contacts);

        if (sameProcess_) {
            connected_ = true;
            PYCLIENT_TRACE(8, "connect", "No connection necessary when destination is this process");
            break;
        }
        if (contacts.port == -1 && contacts.socketName.empty()) {
            PYCLIENT_TRACE(0, "connect", "PyServer " << serverName_ << " was not in the agent directory");
        } else {
            try {
                Expect expect(Exception::idErrno);
                connect(&contacts);
                connected_ = true;
                PYCLIENT_TRACE(1, "connect",
                               "Connected" << (serverName_.empty() ? String8() : " to " + serverName_));
                break;
            } catch (ErrnoException const& e) {
                if (e.errnum() != ECONNREFUSED) throw;
                if (!contacts.socketName.empty()) {
                    PYCLIENT_TRACE(0, "connect", "PyServer " << serverName_ << " was not listening on socket "
                                                             << contacts.socketName);
                } else {
                    PYCLIENT_TRACE(0, "connect", "PyServer " << serverName_ << " was not listening on port "
                                                             << contacts.port);
                }
            }
        }

        unsigned delay = retryProfile_[i];
        if (delay == 0) {
            throw RpcConnectionException("Unable to connect to " + serverName_,
                                         Exception::IdBitArray(0x300000));
        }
        double t = now();
        if (i == 0) {
            deadline = t + 1.5;
        } else if (t >= deadline) {
            std::cerr << "[PyServer " << serverName_ << " not responding, still trying -- is it running?]"
                      << std::endl;
            deadline = t + 5.0;
        }
        timespec ts{static_cast<time_t>(delay / 1000), static_cast<long>(delay % 1000) * 1000000L};
        while (::nanosleep(&ts, &ts) == -1 && errno == EINTR) {
        }
    }
    if (!initCommand_.empty()) {
        char discard[256];
        execute(initCommand_.c_str(), discard, sizeof discard);
    }
}

int PyClient::connect(PyServerContacts* contacts) {
    closeSocket();
    Fd fd;
    if (!contacts->socketName.empty()) {
        PYCLIENT_TRACE(1, "connect", "Trying to connect to socket " << contacts->socketName);
        fd.reset(::socket(AF_UNIX, SOCK_STREAM, 0));
        if (!fd.valid()) throw ErrnoException(errno);
        sockaddr_un addr;
        std::memset(&addr, 0, sizeof addr);
        addr.sun_family = AF_UNIX;
        size_t n = std::min(contacts->socketName.size(), sizeof addr.sun_path);
        std::memcpy(addr.sun_path, contacts->socketName.data(), n);
        // The length covers the family field and the name, not a terminator.
        socketConnect(fd.get(), reinterpret_cast<sockaddr*>(&addr), static_cast<unsigned>(n + 2));
    } else {
        PYCLIENT_TRACE(1, "connect", "Trying to connect to port " << contacts->port);
        addrinfo hints;
        std::memset(&hints, 0, sizeof hints);
        hints.ai_family = AF_INET;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        if (::getaddrinfo("127.0.0.1", nullptr, &hints, &found) != 0 || !found) {
            throw RpcConnectionException("Unable to getaddrinfo for 127.0.0.1");
        }
        struct FreeInfo {
            addrinfo* p;
            ~FreeInfo() { ::freeaddrinfo(p); }
        } freeInfo{found};
        fd.reset(::socket(AF_INET, SOCK_STREAM, 0));
        if (!fd.valid()) throw ErrnoException(errno);
        reinterpret_cast<sockaddr_in*>(found->ai_addr)->sin_port =
            htons(static_cast<uint16_t>(contacts->port));
        socketConnect(fd.get(), found->ai_addr);
    }
    checkServer(fd.get(), *contacts);   // before the greeting: nothing reaches an untrusted server
    char greeting[wire::kGreetingSize] = {mode_, wire::kGreetingSecond};
    socketSend(fd.get(), greeting, int(wire::kGreetingSize), 0);
    char reply[wire::kGreetingReply.size()];
    socketRecv(fd.get(), reply, int(sizeof reply), true);   // the server's business; not interpreted
    socket_ = std::move(fd);
    if (!contacts->socketName.empty()) {
        PYCLIENT_TRACE(1, "connect", "Connected to socket " << contacts->socketName);
    } else {
        PYCLIENT_TRACE(1, "connect", "Connected to port " << contacts->port);
    }
    return socket_.get();
}

} // namespace Zel
