// Zel::PyClient: sends a line of Python (an expression to evaluate or
// statements to execute) to the PyServer of an agent process and reads back
// the textual result. The agent is found by name through the agents
// directory, or given by UNIX-domain socket path or loopback TCP port. When
// the agent is the calling process itself, commands run in this process
// through PyServer._LocalServer.
//
// Before a byte is sent, the client checks whom it talks to: the agent file
// must belong to a trusted user and be writable by its owner alone, and the
// server (a UNIX socket's peer, or a loopback TCP server's end of the
// connection) must belong to a trusted user, the agent file's owner when
// there is a file. Trusted are the client's own user, root, the users given
// to trustedUserIs() and those named in $ZELC_TRUSTED_USERS. A refusal is a
// Zel::PermissionException naming the path or port and the owner found.
//
// One thread at a time per client: a request and its response are not
// interleaved with another's.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Zel/Fd.h"
#include "Zel/PtrInterface.h"
#include "Zel/String8.h"
#include "Zel/Visibility.h"

// Socket calls that retry on EINTR and report any other failure as
// Zel::ErrnoException (ids 0x20000000, the system's text as message).
// One send call, no continuation of a short send.
ZEL_API void socketSend(int fd, void const* buf, int len, int flags);
ZEL_API void socketConnect(int fd, sockaddr* addr, unsigned int addrLen);
// TCP: the address length is that of an IPv4 sockaddr_in (16).
ZEL_API void socketConnect(int fd, sockaddr* addr);
// Receives up to `len` bytes; with `all`, until `len` arrived or the peer
// closed. Returns the count (0: the peer closed before sending anything).
ZEL_API int socketRecv(int fd, char* buf, int len, bool all);

namespace Zel {

class TraceHandle;
class PyObjHandle;

// Where an agent's PyServer listens.
struct ZEL_API PyServerContacts {
    int32_t port = 0;       // TCP port on 127.0.0.1; 0 if none
    String8 socketName;     // UNIX-domain socket path; empty if none
    uid_t fileOwner = uid_t(-1);   // the agent file's owner, when read from one
};

class ZEL_API PyClient : public PtrInterface {
public:
    // Agent file <agents dir>/<prefix>.<agentName>. A null subsystemId
    // means $SUBSYSTEMID (or none).
    PyClient(String8 prefix, String8 agentName, char mode, char* subsystemId, char const* initCommand);
    // TCP server on 127.0.0.1:port.
    PyClient(int port, char mode, char const* initCommand);
    // UNIX-domain server at socketName.
    PyClient(String8 socketName, char mode, char const* initCommand);
    ~PyClient() override;

    PyClient(PyClient const&) = delete;
    PyClient& operator=(PyClient const&) = delete;

    // Connects, retrying along the retry profile; throws
    // RpcConnectionException "Unable to connect to <name>" when it runs out.
    void connect();
    // One attempt at `contacts`, greeting included; returns the descriptor.
    int connect(PyServerContacts* contacts);

    // Evaluate an expression / execute statements; the result text lands in
    // `result`, terminated. Returns the payload length.
    int eval(char const* cmd, char* result, int resultSize);
    int execute(char const* cmd, char* result, int resultSize);

    // The same for a command of any length, returning the whole result
    // however large. The command is sent at most once: a connection found
    // closed before it goes is made afresh, and one lost after it went
    // throws RpcConnectionException saying that the command may or may not
    // have run. A command that raised throws RpcException with the agent's
    // traceback, whole.
    String8 evalWhole(std::string_view cmd);
    String8 executeWhole(std::string_view cmd);
    // As those, for any request kind answered by one response frame.
    String8 commandWhole(char const* kind, std::string_view cmd);
    // As commandWhole, but any status is an answer: the response's status
    // (two characters, such as wire::kOk) lands in `status`, and nothing is
    // thrown for it.
    String8 requestWhole(char const* kind, std::string_view cmd, std::string& status);
    // Whether the connection can carry a request now: open, and the peer
    // has neither closed it nor sent anything no request asked for. (The
    // calls above make a new connection when it cannot; one that needs the
    // same connection, such as a console's, asks first.)
    bool usable() const;

    int doCmd(char const* cmd, char const* kind, char* result, int resultSize);
    int remoteCmd(char const* cmd, char const* kind, char* result, int resultSize);
    // Reads one response frame into buf.
    int result(char* buf, int bufSize);
    int localCmd(char const* cmd, char const* kind, char* result, int resultSize);
    void constructLocalServer();

    // The operator's requests (docs/protocol.md), never retried; a broken
    // connection is an RpcConnectionException, a refusal by the agent an
    // RpcException with its text. stacks(): the Python stack of every
    // thread of the agent. watch(): makes this connection the watch of the
    // entity of that full name (of `attrs` alone when some are given) and
    // returns the name; nextChange() then waits for the next change, or
    // for the count of those dropped because they were read too slowly.
    struct WatchEvent {
        double time = 0;      // seconds since the epoch, when the change was seen
        String8 attr;         // empty for a count of dropped changes
        String8 value;        // repr() of the new value, or of the key for a collection
        uint64_t dropped = 0;
    };
    String8 stacks();
    String8 watch(String8 const& fullName, std::vector<String8> const& attrs);
    void nextChange(WatchEvent* event);

    // Reads the agent file: fills `contacts`, or sets the same-process flag,
    // or finds nothing (removing a dead agent's file).
    void serverContacts(String8 agentFile, PyServerContacts* contacts);

    // Delays in milliseconds between connection attempts, ended by 0. Not
    // copied; applies to every client of the process.
    void retryProfileIs(unsigned const* profile);
    static unsigned const* retryProfile() { return retryProfile_; }
    static unsigned const kDefaultRetryProfile[];

    // Trusts agents of this user too (besides the client's own user, root
    // and the users named in $ZELC_TRUSTED_USERS).
    void trustedUserIs(uid_t uid);
    bool trusted(uid_t uid) const;
    // The uid of a user name, or of a decimal uid; false when neither.
    static bool userId(char const* name, uid_t* uid);

    // The agents directory: $ZELC_AGENTS_DIR or "/var/run/agents".
    static String8 agentsDir();
    // The "PyClient" trace handle.
    static TraceHandle* traceHandle();

    String8 const& prefix() const { return prefix_; }
    String8 const& agentName() const { return agentName_; }
    String8 const& serverName() const { return serverName_; }
    int32_t port() const { return port_; }
    String8 const& socketName() const { return socketName_; }
    int socket() const { return socket_.get(); }
    bool connected() const { return connected_; }
    bool sameProcess() const { return sameProcess_; }
    char mode() const { return mode_; }
    PyObjHandle* localServer() const { return localServer_.ptr(); }

private:
    void closeSocket();
    // Runs a command in this process; its whole result.
    String8 localResult(char const* cmd, char const* kind);
    // The request of `cmd` sent on the socket; false when the first send
    // failed, so that nothing went. Throws once something went.
    bool sendWhole(char const* kind, std::string_view cmd);
    // One response frame read whole; its status in `status`.
    String8 wholeResponse(std::string& status);
    // Why a command sent may or may not have run.
    String8 lostMessage(String8 const& why) const;
    // The owner of the open agent file `fd`; refused unless trusted and
    // writable by that owner alone.
    uid_t agentFileOwner(int fd, String8 const& path) const;
    // Refuses the server connected on `fd` unless it is trusted and, when
    // the contacts came from an agent file, the file's owner.
    void checkServer(int fd, PyServerContacts const& contacts) const;

    String8 prefix_;
    String8 agentName_;
    char const* subsystemId_;
    String8 serverName_;
    Ptr<PyObjHandle> localServer_;
    int32_t port_ = 0;
    String8 socketName_;
    String8 initCommand_;
    Fd socket_;
    bool connected_ = false;
    bool sameProcess_ = false;
    char mode_;
    std::vector<uid_t> trustedUsers_;

    static unsigned const* retryProfile_;
};

} // namespace Zel
