#include <grpcpp/grpcpp.h>

#include <system_error>

#include "VX/GrpcExchange.h"

namespace VX {

namespace {

// What a client may have under way at a time on one transport connection.
constexpr int MaxStreams = 64;

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
    // A port that another server has is taken, not shared.
    builder.AddChannelArgument(GRPC_ARG_ALLOW_REUSEPORT, 0);
}

// What gRPC writes to its log while one of these lives, since it tells the reason of a failure nowhere else.
class ReasonCatcher {
public:
    ReasonCatcher() {
        Platform::LockGuard guard(Lock());
        Text().clear();
        gpr_set_log_function(&Catch);
    }
    ~ReasonCatcher() { gpr_set_log_function(nullptr); }

    // ": " and the system's own text of the error; empty when there was none.
    std::string Reason() {
        Platform::LockGuard guard(Lock());
        const std::string mark = "os_error:\"";
        const auto begin = Text().rfind(mark);
        if (begin == std::string::npos) return "";
        const auto from = begin + mark.size();
        return ": " + Text().substr(from, Text().find('"', from) - from);
    }

private:
    static void Catch(gpr_log_func_args* line) {
        Platform::LockGuard guard(Lock());
        Text() += line->message;
    }
    static Platform::Mutex& Lock() {
        static Platform::Mutex lock;
        return lock;
    }
    static std::string& Text() {
        static std::string text;
        return text;
    }
};

class GrpcServer : public ILinkServer {
public:
    GrpcServer(ILinkService& service, const std::string& application, const GrpcOptions& options)
        : options_(options), exchange_(service, application, options) {}
    ~GrpcServer() override { Stop(); }

    // Called once, before anything else. False with the system's reason, if it tells one.
    bool Listen(const std::string& address, std::string& reason) {
        ReasonCatcher catcher;
        grpc::ServerBuilder builder;
        SetArguments(builder, options_);
        int port = 0;
        builder.AddListeningPort(address, grpc::InsecureServerCredentials(), &port);
        builder.RegisterService(&exchange_);
        Platform::LockGuard guard(stopMutex_);
        server_ = builder.BuildAndStart();
        port_ = static_cast<u32>(port);
        if (server_ != nullptr && port != 0) return true;
        reason = "cannot listen on " + address + catcher.Reason();
        return false;
    }

    void Raise(const std::string& signal, const ParamListHolder& event) override { exchange_.Raise(signal, event); }
    u32 Port() const override { return port_; }

    void Stop() override {
        Platform::LockGuard guard(stopMutex_);
        if (server_ != nullptr) server_->Shutdown(gpr_now(GPR_CLOCK_MONOTONIC));
        exchange_.Drain();
        server_ = nullptr;
    }

private:
    const GrpcOptions options_;
    u32 port_ = 0;           // constant after Listen()
    GrpcExchange exchange_;  // outlives the server
    Platform::Mutex stopMutex_;
    std::unique_ptr<grpc::Server> server_ ORV_GUARDED_BY(stopMutex_);
};

}  // namespace

std::unique_ptr<ILinkServer> CreateGrpcServer(const std::string& host, u32 port, ILinkService& service,
                                              std::string& reason, const std::string& application,
                                              const GrpcOptions& options) {
    const std::string address = JoinAddress(host.empty() ? "127.0.0.1" : host, port);
    try {
        auto server = std::make_unique<GrpcServer>(service, application, options);
        if (port > 65535) {
            reason = "there is no port " + std::to_string(port);
        } else if (server->Listen(address, reason)) {
            return server;
        }
    } catch (const std::system_error& error) {
        reason = error.what();
    }
    return nullptr;
}

std::unique_ptr<ILinkServer> CreateGrpcServer(const std::string& host, u32 port, ILinkService& service,
                                              std::string& reason) {
    return CreateGrpcServer(host, port, service, reason, "ConfigService", GrpcOptions());
}

}  // namespace VX
