// What carries calls and signals between two programs. The operations of VX.h stand on this interface, so that the
// same client runs over the network, inside one process, or inside a simulation.
#pragma once

#include <memory>
#include <string>

#include "VX/ParamList.h"

namespace VX {

// Who is at the other end.
struct PeerInfo {
    std::string application;  // the name by which calls are addressed; never empty, unique among live connections
    std::string local;        // addresses, for people
    std::string remote;
    std::string peerType;  // "DBProvider" for a Configuration service
};

// What a connection tells. Called on threads of the link, one call at a time; must return quickly and must not call
// the link back.
class ILinkEvents {
public:
    virtual ~ILinkEvents() = default;
    // One signal of the peer, in the order in which the peer raised them. Every signal raised after Connect() came back
    // is told, whatever its name.
    virtual void OnSignal(const std::string& name, ParamListHolder event) = 0;
    // The connection has ended, told once and last; not told after Close().
    virtual void OnClosed() = 0;
};

// The client's side of one connection. Any thread.
class ILink {
public:
    virtual ~ILink() = default;  // closes
    // Sends one request and waits for its reply, 30 seconds at most. False when the connection is or has been closed,
    // and then the reply is empty; a call that runs out of time closes the connection.
    virtual bool Call(u32 number, const ParamListHolder& request, ParamListHolder& reply) = 0;
    // Ends the connection. No event comes after it has returned.
    virtual void Close() = 0;
};

// Makes connections. Any thread.
class ILinkConnector {
public:
    virtual ~ILinkConnector() = default;
    // Null when nobody answers there within the connector's time limit or the credentials are refused; `authFailed`
    // tells which. `events` must live until the link is gone. Blocks.
    virtual std::unique_ptr<ILink> Connect(const std::string& host, u32 port, const std::string& credentials,
                                           ILinkEvents& events, PeerInfo& peer, bool& authFailed) = 0;
};

// --- the serving side -----------------------------------------------------------------------------------------------

// One connected client as the server sees it.
using SessionId = u64;

// What a server program puts behind a listening link. Called on threads of ours, many at a time.
class ILinkService {
public:
    virtual ~ILinkService() = default;
    // The peer type told to clients.
    virtual std::string PeerType() const = 0;
    // Whether `credentials` ("user:password", a terminating NUL allowed) may connect from `remote`. May block, for
    // instance to slow down guessing.
    virtual bool Authenticate(const std::string& credentials, const std::string& remote, std::string& user) = 0;
    virtual void OnConnected(SessionId session, const std::string& user, const std::string& remote) = 0;
    virtual void OnDisconnected(SessionId session) = 0;
    // The session was ended because more signals waited for it than may wait; OnDisconnected() follows on the same
    // thread, one that also works off calls. May block, which holds up calls at worst.
    virtual void OnFallenBehind(SessionId /*session*/) {}
    // Answers one call. An unknown number gets an empty list.
    virtual ParamListHolder OnCall(SessionId session, u32 number, const ParamListHolder& request) = 0;
};

// A listening server. Any thread.
class ILinkServer {
public:
    virtual ~ILinkServer() = default;  // stops
    // Queues one signal for every session that stands, in the order of the calls. Never waits for a client: one that
    // falls too far behind is disconnected.
    virtual void Raise(const std::string& signal, const ParamListHolder& event) = 0;
    virtual u32 Port() const = 0;
    virtual void Stop() = 0;
};

// --- the in-process link --------------------------------------------------------------------------------------------

// Joins a service and its clients inside one process, without a thread of its own: calls run on the caller's thread,
// signals on the thread that raises them.
class InProcessExchange : public ILinkConnector, public ILinkServer {
public:
    explicit InProcessExchange(ILinkService& service, std::string application = "ConfigService");
    ~InProcessExchange() override;
    std::unique_ptr<ILink> Connect(const std::string& host, u32 port, const std::string& credentials,
                                   ILinkEvents& events, PeerInfo& peer, bool& authFailed) override;
    void Raise(const std::string& signal, const ParamListHolder& event) override;
    u32 Port() const override;
    // Ends every connection, as a server's death would, and refuses new ones until Resume().
    void Stop() override;
    void Resume();

private:
    struct Impl;
    std::shared_ptr<Impl> impl_;
};

// --- the bytes of a list --------------------------------------------------------------------------------------------

// Limits for lists that come from outside. What passes them is refused whole.
inline constexpr u32 MaxMessageBytes = 64u << 20;
inline constexpr u32 MaxNesting = 16;

}  // namespace VX
