// The server behind a port, without the port: who is connected, and what happens to what they send.
#pragma once

#include <grpcpp/grpcpp.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "Platform/Sync.h"
#include "VX/GrpcCall.h"
#include "VX/GrpcOptions.h"
#include "VX/GrpcSession.h"
#include "VX/WorkerPool.h"

namespace VX {

// Any thread. The service is called on threads of ours only: logins on "vx-login", calls and what ends a session on
// "vx-serve", so that guessed passwords, which are answered late, hold up nobody's calls.
class GrpcExchange : public orv::vx::Link::CallbackService {
public:
    // `admitted` is told the address of each transport connection on which somebody has logged in, on "vx-login".
    // Throws std::system_error when there is no thread to be had.
    using AdmittedFunction = std::function<void(const std::string& address)>;
    GrpcExchange(ILinkService& service, std::string application, const GrpcOptions& options, AdmittedFunction admitted);

    grpc::ServerWriteReactor<orv::vx::Message>* Open(grpc::CallbackServerContext* context,
                                                     const orv::vx::OpenRequest* request) override;
    grpc::ServerUnaryReactor* Call(grpc::CallbackServerContext* context, const orv::vx::CallRequest* request,
                                   orv::vx::CallReply* reply) override;

    void Raise(const std::string& signal, const ParamListHolder& event);
    // To be called when the port has been closed: waits until gRPC has let go of every stream and call and the service
    // has answered the last of them.
    void Drain();

private:
    void LogIn(const std::shared_ptr<GrpcSession>& session, const std::string& credentials);
    void Serve(SessionId session, const std::shared_ptr<GrpcCall>& call, u32 number, const std::string& request);
    void SessionGone(const std::shared_ptr<GrpcSession>& session);
    void ReactorMade();
    void ReactorGone();
    void EndAll(const grpc::Status& status);

    ILinkService& service_;
    const std::string application_;
    const GrpcOptions options_;
    const AdmittedFunction admitted_;

    Platform::Mutex mutex_;
    Platform::CondVar changed_;
    // Those that stand, by token. Raise() holds the mutex while it queues, which makes one order for all.
    std::map<std::string, std::shared_ptr<GrpcSession>> sessions_ ORV_GUARDED_BY(mutex_);
    SessionId lastSession_ ORV_GUARDED_BY(mutex_) = 0;
    u32 reactors_ ORV_GUARDED_BY(mutex_) = 0;  // that gRPC has not let go of

    WorkerPool logins_;
    WorkerPool calls_;
};

}  // namespace VX
