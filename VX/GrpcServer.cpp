#include <grpcpp/grpcpp.h>

#include <system_error>

#include "Platform/PortListener.h"
#include "VX/GrpcExchange.h"
#include "VX/GrpcRoom.h"

namespace VX {

namespace {

// What a client may have under way at a time on one transport connection.
constexpr int MaxStreams = 16;

// The system's word for a room that is not there.
void Require(bool room, std::errc missing) {
    if (!room) throw std::system_error(std::make_error_code(missing));
}

void SetArguments(grpc::ServerBuilder& builder, const GrpcOptions& options) {
    const auto milliseconds = [](u32 value) { return static_cast<int>(value); };
    builder.SetMaxReceiveMessageSize(static_cast<int>(MaxMessageBytes + 4096));
    builder.SetMaxSendMessageSize(-1);
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIME_MS, milliseconds(options.keepaliveMilliseconds));
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, milliseconds(options.keepaliveTimeoutMilliseconds));
    builder.AddChannelArgument(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
    // Clients ping oftener than gRPC expects them to: no "too_many_pings" for that.
    builder.AddChannelArgument(GRPC_ARG_HTTP2_MIN_RECV_PING_INTERVAL_WITHOUT_DATA_MS, 1000);
    builder.AddChannelArgument(GRPC_ARG_HTTP2_MAX_PING_STRIKES, 0);
    builder.AddChannelArgument(GRPC_ARG_SERVER_HANDSHAKE_TIMEOUT_MS, milliseconds(options.handshakeMilliseconds));
    builder.AddChannelArgument(GRPC_ARG_MAX_CONNECTION_IDLE_MS, milliseconds(options.idleMilliseconds));
    builder.AddChannelArgument(GRPC_ARG_MAX_CONCURRENT_STREAMS, MaxStreams);
}

// gRPC's own listening ends for good at the first connection that finds the process without a free descriptor, and it
// takes in a message of any length before it looks at its limit. So it only serves what a port of ours has taken, which
// watches whoever has not logged in.
class GrpcServer : public ILinkServer {
public:
    GrpcServer(ILinkService& service, const std::string& application, const GrpcOptions& options)
        : options_(options),
          exchange_(service, application, options, [this](const std::string& peer) { listener_->Admit(peer); }) {}
    ~GrpcServer() override { Stop(); }

    // Called once, before anything else. False with the reason. Throws std::system_error when there are too few threads
    // or descriptors.
    bool Listen(const std::string& host, u32 port, std::string& reason) {
        Require(HasRoomForFiles(), std::errc::too_many_files_open);
        Require(HasRoomForThreads(), std::errc::resource_unavailable_try_again);
        Platform::SystemError error = 0;
        listener_ = Platform::PortListener::Open(host, port, error);
        if (listener_ == nullptr) {
            reason = "cannot listen on " + JoinAddress(host, port) + ": " + Platform::SystemErrorText(error);
            return false;
        }
        grpc::ServerBuilder builder;
        SetArguments(builder, options_);
        acceptor_ = builder.experimental().AddExternalConnectionAcceptor(
            grpc::ServerBuilder::experimental_type::ExternalConnectionType::FROM_FD, grpc::InsecureServerCredentials());
        builder.RegisterService(&exchange_);
        Platform::LockGuard guard(stopMutex_);
        server_ = builder.BuildAndStart();
        if (server_ == nullptr) {
            reason = "cannot serve on " + JoinAddress(host, port);
            return false;
        }
        const Platform::StrangerLimits limits{options_.strangerBytes, options_.strangerMilliseconds};
        listener_->Start("vx-port", limits, [this](int descriptor) {
            grpc::experimental::ExternalConnectionAcceptor::NewConnectionParameters connection;
            connection.fd = descriptor;
            acceptor_->HandleNewConnection(&connection);
        });
        return true;
    }

    void Raise(const std::string& signal, const ParamListHolder& event) override { exchange_.Raise(signal, event); }
    u32 Port() const override { return listener_->Port(); }

    void Stop() override {
        Platform::LockGuard guard(stopMutex_);
        if (listener_ != nullptr) listener_->Close();
        if (server_ != nullptr) server_->Shutdown(gpr_now(GPR_CLOCK_MONOTONIC));
        exchange_.Drain();
        server_ = nullptr;
    }

private:
    // Constant after Listen(). The listener's thread uses what stands below, and ends first.
    const GrpcOptions options_;
    std::unique_ptr<Platform::PortListener> listener_;
    std::unique_ptr<grpc::experimental::ExternalConnectionAcceptor> acceptor_;

    GrpcExchange exchange_;  // outlives the server
    Platform::Mutex stopMutex_;
    std::unique_ptr<grpc::Server> server_ ORV_GUARDED_BY(stopMutex_);
};

}  // namespace

std::unique_ptr<ILinkServer> CreateGrpcServer(const std::string& host, u32 port, ILinkService& service,
                                              std::string& reason, const std::string& application,
                                              const GrpcOptions& options) {
    if (port > 65535) {
        reason = "there is no port " + std::to_string(port);
        return nullptr;
    }
    auto server = std::make_unique<GrpcServer>(service, application, options);
    if (!server->Listen(host.empty() ? "127.0.0.1" : host, port, reason)) return nullptr;
    return server;
}

std::unique_ptr<ILinkServer> CreateGrpcServer(const std::string& host, u32 port, ILinkService& service,
                                              std::string& reason) {
    return CreateGrpcServer(host, port, service, reason, "ConfigService", GrpcOptions());
}

}  // namespace VX
