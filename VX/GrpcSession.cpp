#include "VX/GrpcSession.h"

namespace VX {

GrpcSession::GrpcSession(grpc::CallbackServerContext& context, u64 queueBytes, GoneFunction gone)
    : peer_(context.peer()), queueBytes_(queueBytes), gone_(std::move(gone)), context_(context) {}

std::shared_ptr<GrpcSession> GrpcSession::Create(grpc::CallbackServerContext& context, u64 queueBytes,
                                                 GoneFunction gone) {
    std::shared_ptr<GrpcSession> session(new GrpcSession(context, queueBytes, std::move(gone)));
    Platform::LockGuard guard(session->mutex_);
    session->self_ = session;
    return session;
}

bool GrpcSession::Stand(SessionId id, const std::string& token, orv::vx::Message welcome) {
    {
        Platform::LockGuard guard(mutex_);
        if (ended_) return false;
        id_ = id;
        token_ = token;
    }
    Push(std::make_shared<const OutgoingMessage>(std::move(welcome)));
    return true;
}

bool GrpcSession::Stands() {
    Platform::LockGuard guard(mutex_);
    return id_ != 0 && !ended_;
}

SessionId GrpcSession::Id() {
    Platform::LockGuard guard(mutex_);
    return id_;
}

std::string GrpcSession::Token() {
    Platform::LockGuard guard(mutex_);
    return token_;
}

void GrpcSession::Push(const std::shared_ptr<const OutgoingMessage>& message) {
    bool tooSlow = false;
    {
        Platform::LockGuard guard(mutex_);
        if (ended_) return;
        // A message alone may be as large as it likes, so that the limit is about falling behind only.
        tooSlow = !queue_.empty() && waitingBytes_ + message->bytes > queueBytes_;
        fellBehind_ = tooSlow;
        if (!tooSlow) {
            queue_.push_back(message);
            waitingBytes_ += message->bytes;
        }
    }
    if (tooSlow) {
        End(grpc::Status(grpc::StatusCode::RESOURCE_EXHAUSTED, "too many signals wait"));
    } else {
        WriteNext();
    }
}

bool GrpcSession::FellBehind() {
    Platform::LockGuard guard(mutex_);
    return fellBehind_;
}

void GrpcSession::WriteNext() {
    const orv::vx::Message* message = nullptr;
    {
        Platform::LockGuard guard(mutex_);
        if (ended_ || writing_ != nullptr || queue_.empty()) return;
        writing_ = std::move(queue_.front());
        queue_.pop_front();
        waitingBytes_ -= writing_->bytes;
        message = &writing_->message;
    }
    // Nobody else starts an operation before OnWriteDone().
    StartWrite(message);
}

void GrpcSession::End(grpc::Status status) {
    {
        Platform::LockGuard guard(mutex_);
        if (ended_) return;
        ended_ = true;
        status_ = std::move(status);
        queue_.clear();
        waitingBytes_ = 0;
        // A client that does not read would let its write stand for ever. The context lives as long as the write.
        if (writing_ != nullptr) context_.TryCancel();
    }
    FinishIfIdle();
}

void GrpcSession::FinishIfIdle() {
    grpc::Status status;
    {
        Platform::LockGuard guard(mutex_);
        if (!ended_ || writing_ != nullptr || finishing_) return;
        finishing_ = true;
        status = status_;
    }
    Finish(std::move(status));
}

void GrpcSession::OnWriteDone(bool good) {
    {
        Platform::LockGuard guard(mutex_);
        writing_ = nullptr;
    }
    if (!good) End(grpc::Status::CANCELLED);
    WriteNext();
    FinishIfIdle();
}

void GrpcSession::OnCancel() {
    End(grpc::Status::CANCELLED);
}

void GrpcSession::OnDone() {
    std::shared_ptr<GrpcSession> self;
    {
        Platform::LockGuard guard(mutex_);
        self = std::move(self_);
    }
    gone_(self);
}

}  // namespace VX
