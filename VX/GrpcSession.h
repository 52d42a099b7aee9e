// The server's side of one client's stream.
#pragma once

#include <grpcpp/grpcpp.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "Platform/Sync.h"
#include "VX/Link.grpc.pb.h"
#include "VX/Link.h"

namespace VX {

// One message for the stream of any number of sessions.
struct OutgoingMessage {
    // What a message takes beside its bytes, so that many small ones count too.
    static constexpr u64 Overhead = 256;

    orv::vx::Message message;
    u64 bytes = 0;  // of memory

    explicit OutgoingMessage(orv::vx::Message from)
        : message(std::move(from)), bytes(message.ByteSizeLong() + Overhead) {}
};

// Any thread. Its callbacks come on threads of gRPC and hand over at once. It keeps itself alive until gRPC has let it
// go; after that nothing of gRPC is touched any more.
class GrpcSession : public grpc::ServerWriteReactor<orv::vx::Message> {
public:
    // `gone` is called once, when the stream is no more.
    using GoneFunction = std::function<void(const std::shared_ptr<GrpcSession>&)>;

    static std::shared_ptr<GrpcSession> Create(grpc::CallbackServerContext& context, u64 queueBytes, GoneFunction gone);

    // The client as gRPC names it; the same for all calls of one transport connection.
    const std::string& Peer() const { return peer_; }

    // The session stands from here on: `welcome` is the first message. False when the stream has ended.
    bool Stand(SessionId id, const std::string& token, orv::vx::Message welcome);
    bool Stands();
    // 0 until the session stands; never changes afterwards, not at its end either.
    SessionId Id();
    std::string Token();
    // Queues a message for a standing session. A client that lets too much wait is disconnected.
    void Push(const std::shared_ptr<const OutgoingMessage>& message);
    // Whether that is why the session has ended.
    bool FellBehind();
    // Ends the stream; what still waits is dropped.
    void End(grpc::Status status);

    void OnWriteDone(bool good) override;
    void OnCancel() override;
    void OnDone() override;

private:
    GrpcSession(grpc::CallbackServerContext& context, u64 queueBytes, GoneFunction gone);
    // Both start what may be started now, without the lock: gRPC may be as quick as to call back.
    void WriteNext();
    void FinishIfIdle();

    const std::string peer_;
    const u64 queueBytes_;
    const GoneFunction gone_;
    grpc::CallbackServerContext& context_;  // gone after OnDone()

    Platform::Mutex mutex_;
    std::shared_ptr<GrpcSession> self_ ORV_GUARDED_BY(mutex_);
    SessionId id_ ORV_GUARDED_BY(mutex_) = 0;
    std::string token_ ORV_GUARDED_BY(mutex_);
    std::deque<std::shared_ptr<const OutgoingMessage>> queue_ ORV_GUARDED_BY(mutex_);
    u64 waitingBytes_ ORV_GUARDED_BY(mutex_) = 0;
    // The message gRPC writes now, and with it the right to start the next operation.
    std::shared_ptr<const OutgoingMessage> writing_ ORV_GUARDED_BY(mutex_);
    bool ended_ ORV_GUARDED_BY(mutex_) = false;
    bool fellBehind_ ORV_GUARDED_BY(mutex_) = false;
    bool finishing_ ORV_GUARDED_BY(mutex_) = false;
    grpc::Status status_ ORV_GUARDED_BY(mutex_);
};

}  // namespace VX
