// The client's side of one network connection.
#pragma once

#include <grpcpp/grpcpp.h>

#include <memory>
#include <set>
#include <string>

#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "VX/GrpcOptions.h"
#include "VX/Link.grpc.pb.h"

namespace VX {

// Any thread. One thread ("vx-link") reads the stream and tells the events; it is the only one that ever calls them.
class GrpcClient : public ILink {
public:
    GrpcClient(std::shared_ptr<grpc::Channel> channel, const GrpcOptions& options, ILinkEvents& events);
    ~GrpcClient() override;

    // Opens the session and waits for the welcome until `limit`, in steady milliseconds. Called once, before anything
    // else. False when there is none by then; `authFailed` tells whether the credentials were refused.
    bool Open(const std::string& credentials, u64 limit, PeerInfo& peer, bool& authFailed);

    bool Call(u32 number, const ParamListHolder& request, ParamListHolder& reply) override;
    void Close() override;

private:
    enum class State : u8 { Opening, Standing, Ended };

    void ReadStream(const orv::vx::OpenRequest& request);
    bool TakeWelcome(const orv::vx::Message& message);
    bool TakeSignal(const orv::vx::Message& message);
    bool Send(u32 number, std::string request, orv::vx::CallReply& reply);
    // Ends the session, whatever state it is in. The reader notices, and tells OnClosed() unless Close() was called.
    void End();
    void CancelCalls() ORV_REQUIRES(mutex_);

    // Constant after construction.
    const GrpcOptions options_;
    ILinkEvents& events_;
    const std::unique_ptr<orv::vx::Link::Stub> stub_;

    grpc::ClientContext stream_;  // synchronised by itself
    Platform::Mutex joinMutex_;   // one Close() at a time joins
    Platform::Thread reader_ ORV_GUARDED_BY(joinMutex_);

    Platform::Mutex mutex_;
    Platform::CondVar changed_;
    State state_ ORV_GUARDED_BY(mutex_) = State::Opening;
    bool closing_ ORV_GUARDED_BY(mutex_) = false;
    bool authFailed_ ORV_GUARDED_BY(mutex_) = false;
    orv::vx::Welcome welcome_ ORV_GUARDED_BY(mutex_);
    std::set<grpc::ClientContext*> calls_ ORV_GUARDED_BY(mutex_);
};

}  // namespace VX
