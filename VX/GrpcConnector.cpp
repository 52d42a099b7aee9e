#include <grpcpp/grpcpp.h>

#include <system_error>

#include "Platform/Clock.h"
#include "VX/GrpcClient.h"
#include "VX/GrpcRoom.h"

namespace VX {

namespace {

// gRPC 1.51 reads what its connect() has left in errno after other calls that may change it, and then takes a
// connection that is on its way for one that has failed. In a root without /sys, the first lock for which two of its
// threads meet does that: the processors are counted there, and the file that tells them is not found. So one failure
// proves nothing.
constexpr u32 kTriesOfLibrary = 2;

grpc::ChannelArguments MakeArguments(const GrpcOptions& options) {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_KEEPALIVE_TIME_MS, static_cast<int>(options.keepaliveMilliseconds));
    arguments.SetInt(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, static_cast<int>(options.keepaliveTimeoutMilliseconds));
    arguments.SetInt(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
    arguments.SetMaxReceiveMessageSize(static_cast<int>(MaxMessageBytes + 4096));
    arguments.SetMaxSendMessageSize(-1);
    // A message is taken in as a whole before its length is looked at; this ends the connection of a server gone mad.
    arguments.SetResourceQuota(grpc::ResourceQuota("vx-link").Resize(options.transportBytes));
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
        const u64 limit = Platform::SteadyMilliseconds() + options_.connectMilliseconds;
        const std::string target = "dns:///" + JoinAddress(host, port);
        for (u32 tries = 1;; ++tries) {
            if (!HasRoomForFiles() || !HoldLibrary()) return nullptr;
            const auto channel =
                grpc::CreateCustomChannel(target, grpc::InsecureChannelCredentials(), MakeArguments(options_));
            auto link = std::make_unique<GrpcClient>(channel, options_, events);
            try {
                if (link->Open(credentials, limit, peer, authFailed)) return link;
            } catch (const std::system_error&) {
                return nullptr;  // no thread to be had
            }
            // An answer is final.
            const bool reached = authFailed || channel->GetState(false) != GRPC_CHANNEL_TRANSIENT_FAILURE;
            if (reached || tries == kTriesOfLibrary || Platform::SteadyMilliseconds() >= limit) return nullptr;
        }
    }

private:
    // The library's threads begin with its first channel and end with its last: this one, which is there as long as the
    // connector, and that a service never destroys.
    bool HoldLibrary() {
        Platform::LockGuard guard(mutex_);
        if (held_ != nullptr) return true;
        if (!HasRoomForThreads()) return false;
        // It is never used, and so never connects.
        held_ =
            grpc::CreateCustomChannel("ipv4:127.0.0.1:1", grpc::InsecureChannelCredentials(), MakeArguments(options_));
        return true;
    }

    const GrpcOptions options_;
    Platform::Mutex mutex_;
    std::shared_ptr<grpc::Channel> held_ ORV_GUARDED_BY(mutex_);
};

}  // namespace

std::unique_ptr<ILinkConnector> CreateGrpcConnector(const GrpcOptions& options) {
    return std::make_unique<GrpcConnector>(options);
}

std::unique_ptr<ILinkConnector> CreateGrpcConnector() {
    return CreateGrpcConnector(GrpcOptions());
}

}  // namespace VX
