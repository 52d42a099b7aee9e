#include <grpcpp/grpcpp.h>

#include <system_error>

#include "VX/GrpcClient.h"

namespace VX {

namespace {

grpc::ChannelArguments MakeArguments(const GrpcOptions& options) {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_KEEPALIVE_TIME_MS, static_cast<int>(options.keepaliveMilliseconds));
    arguments.SetInt(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, static_cast<int>(options.keepaliveTimeoutMilliseconds));
    arguments.SetInt(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
    arguments.SetMaxReceiveMessageSize(static_cast<int>(MaxMessageBytes + 4096));
    arguments.SetMaxSendMessageSize(-1);
    // One transport connection of its own for each link, and never a second one under it.
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    arguments.SetInt(GRPC_ARG_ENABLE_RETRIES, 0);
    // Neither the environment nor a name server has a say in where and how we connect.
    arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
    arguments.SetInt(GRPC_ARG_SERVICE_CONFIG_DISABLE_RESOLUTION, 1);
    return arguments;
}

class GrpcConnector : public ILinkConnector {
public:
    explicit GrpcConnector(const GrpcOptions& options) : options_(options) {}

    std::unique_ptr<ILink> Connect(const std::string& host, u32 port, const std::string& credentials,
                                   ILinkEvents& events, PeerInfo& peer, bool& authFailed) override {
        authFailed = false;
        if (host.empty() || port == 0 || port > 65535) return nullptr;
        const std::string target = "dns:///" + JoinAddress(host, port);
        auto channel = grpc::CreateCustomChannel(target, grpc::InsecureChannelCredentials(), MakeArguments(options_));
        auto link = std::make_unique<GrpcClient>(std::move(channel), options_, events);
        try {
            if (!link->Open(credentials, peer, authFailed)) return nullptr;
        } catch (const std::system_error&) {
            return nullptr;  // no thread to be had
        }
        return link;
    }

private:
    const GrpcOptions options_;
};

}  // namespace

std::unique_ptr<ILinkConnector> CreateGrpcConnector(const GrpcOptions& options) {
    return std::make_unique<GrpcConnector>(options);
}

std::unique_ptr<ILinkConnector> CreateGrpcConnector() {
    return CreateGrpcConnector(GrpcOptions());
}

}  // namespace VX
