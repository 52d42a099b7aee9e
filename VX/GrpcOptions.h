// The limits of the network link. Tests shorten them; programs take them as they are.
#pragma once

#include <memory>
#include <string>

#include "VX/GrpcLink.h"

namespace VX {

struct GrpcOptions {
    u32 connectMilliseconds = 10'000;  // until the server has welcomed us
    u32 callMilliseconds = 30'000;
    // Client: what the transport may hold of messages under way, which are not looked at before they are whole: a reply
    // and a signal of the most that they may be, and room. The connection of a server that sends more is given up.
    u64 transportBytes = 256u << 20;
    // A connection is given up when a ping after so much silence is not answered for so long.
    u32 keepaliveMilliseconds = 20'000;
    u32 keepaliveTimeoutMilliseconds = 20'000;
    // Server: memory of the signals that may wait for one client. Clients share what waits for several of them.
    u64 queueBytes = 64u << 20;
    // Server: credentials that are checked side by side. A check may block for seconds to slow down guessing, and the
    // service itself lets no more than 48 block.
    u32 loginThreads = 56;
    // Server: clients that may wait for the check of their credentials.
    u32 maxWaitingLogins = 64;
    // Server: a transport connection that does not come to an HTTP/2 session, or has no stream, is dropped after these.
    u32 handshakeMilliseconds = 10'000;
    u32 idleMilliseconds = 60'000;
    // Server: what a transport connection on which nobody has logged in yet may send, and how long it may stay.
    u64 strangerBytes = 256u << 10;
    u32 strangerMilliseconds = 60'000;
};

std::unique_ptr<ILinkConnector> CreateGrpcConnector(const GrpcOptions& options);
std::unique_ptr<ILinkServer> CreateGrpcServer(const std::string& host, u32 port, ILinkService& service,
                                              std::string& reason, const std::string& application,
                                              const GrpcOptions& options);

// "host:port", with an IPv6 address in brackets.
std::string JoinAddress(const std::string& host, u32 port);
// The peer text of a call context for people: "127.0.0.1:5480" for "ipv4:127.0.0.1:5480".
std::string PeerAddress(const std::string& peer);

}  // namespace VX
