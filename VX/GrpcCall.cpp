#include "VX/GrpcCall.h"

namespace VX {

GrpcCall::GrpcCall(orv::vx::CallReply& reply, std::function<void()> gone) : gone_(std::move(gone)), reply_(reply) {}

std::shared_ptr<GrpcCall> GrpcCall::Create(orv::vx::CallReply& reply, std::function<void()> gone) {
    std::shared_ptr<GrpcCall> call(new GrpcCall(reply, std::move(gone)));
    Platform::LockGuard guard(call->mutex_);
    call->self_ = call;
    return call;
}

void GrpcCall::Answer(std::string reply) {
    End(grpc::Status::OK, &reply);
}

void GrpcCall::Refuse(grpc::Status status) {
    End(std::move(status), nullptr);
}

void GrpcCall::End(grpc::Status status, std::string* reply) {
    {
        Platform::LockGuard guard(mutex_);
        if (ended_) return;
        ended_ = true;
        if (reply != nullptr) reply_.set_reply(std::move(*reply));
    }
    Finish(std::move(status));
}

void GrpcCall::OnCancel() {
    Refuse(grpc::Status::CANCELLED);
}

void GrpcCall::OnDone() {
    std::shared_ptr<GrpcCall> self;
    {
        Platform::LockGuard guard(mutex_);
        self = std::move(self_);
    }
    gone_();
}

}  // namespace VX
