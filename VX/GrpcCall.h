// The server's side of one call.
#pragma once

#include <grpcpp/grpcpp.h>

#include <functional>
#include <memory>
#include <string>

#include "Platform/Sync.h"
#include "VX/Link.grpc.pb.h"

namespace VX {

// Answered once, by whoever is first: the service, or the client that does not wait any longer. Any thread; keeps
// itself alive until gRPC has let it go.
class GrpcCall : public grpc::ServerUnaryReactor {
public:
    static std::shared_ptr<GrpcCall> Create(orv::vx::CallReply& reply, std::function<void()> gone);

    void Answer(std::string reply);
    void Refuse(grpc::Status status);

    void OnCancel() override;
    void OnDone() override;

private:
    GrpcCall(orv::vx::CallReply& reply, std::function<void()> gone);
    void End(grpc::Status status, std::string* reply);

    const std::function<void()> gone_;
    Platform::Mutex mutex_;
    std::shared_ptr<GrpcCall> self_ ORV_GUARDED_BY(mutex_);
    bool ended_ ORV_GUARDED_BY(mutex_) = false;
    orv::vx::CallReply& reply_ ORV_GUARDED_BY(mutex_);  // gone after OnDone()
};

}  // namespace VX
