#include "VX/GrpcClient.h"

#include "Platform/Clock.h"
#include "VX/ListCodec.h"

namespace VX {

namespace {

gpr_timespec After(u32 milliseconds) {
    return gpr_time_add(gpr_now(GPR_CLOCK_MONOTONIC), gpr_time_from_millis(milliseconds, GPR_TIMESPAN));
}

}  // namespace

GrpcClient::GrpcClient(std::shared_ptr<grpc::Channel> channel, const GrpcOptions& options, ILinkEvents& events)
    : options_(options), events_(events), stub_(orv::vx::Link::NewStub(std::move(channel))) {}

GrpcClient::~GrpcClient() {
    Close();
}

bool GrpcClient::Open(const std::string& credentials, u64 limit, PeerInfo& peer, bool& authFailed) {
    orv::vx::OpenRequest request;
    request.set_credentials(credentials);
    {
        Platform::LockGuard guard(joinMutex_);
        reader_ = Platform::Thread("vx-link", [this, request] { ReadStream(request); });
    }
    Platform::LockGuard guard(mutex_);
    while (state_ == State::Opening) {
        const u64 now = Platform::SteadyMilliseconds();
        if (now >= limit) break;
        changed_.WaitFor(mutex_, static_cast<u32>(limit - now));
    }
    authFailed = authFailed_;
    // A session that has ended since its welcome is still one that stood: its end is told as an event.
    if (welcome_.session().empty()) return false;
    peer.application = welcome_.application();
    peer.peerType = welcome_.peer_type();
    peer.local = welcome_.address();
    peer.remote = PeerAddress(stream_.peer());
    return true;
}

void GrpcClient::ReadStream(const orv::vx::OpenRequest& request) {
    const auto stream = stub_->Open(&stream_, request);
    orv::vx::Message message;
    bool welcomed = false;
    bool good = true;
    while (good && stream->Read(&message)) {
        good = welcomed ? TakeSignal(message) : TakeWelcome(message);
        welcomed = true;
    }
    // Only if we are the ones who end it: the server's own status must come through.
    if (!good) stream_.TryCancel();
    const grpc::Status status = stream->Finish();
    bool tell = false;
    {
        Platform::LockGuard guard(mutex_);
        state_ = State::Ended;
        authFailed_ = status.error_code() == grpc::StatusCode::UNAUTHENTICATED;
        tell = !closing_ && !welcome_.session().empty();
        CancelCalls();
        changed_.NotifyAll();
    }
    if (tell) events_.OnClosed();
}

bool GrpcClient::TakeWelcome(const orv::vx::Message& message) {
    const orv::vx::Welcome& welcome = message.welcome();
    if (welcome.session().empty() || welcome.application().empty()) return false;
    Platform::LockGuard guard(mutex_);
    if (state_ != State::Opening) return false;
    welcome_ = welcome;
    state_ = State::Standing;
    changed_.NotifyAll();
    return true;
}

bool GrpcClient::TakeSignal(const orv::vx::Message& message) {
    ParamListHolder event;
    if (!message.has_signal() || !DecodeParamList(message.signal().event(), event)) return false;
    {
        Platform::LockGuard guard(mutex_);
        if (state_ != State::Standing) return false;
    }
    events_.OnSignal(message.signal().name(), std::move(event));
    return true;
}

bool GrpcClient::Call(u32 number, const ParamListHolder& request, ParamListHolder& reply) {
    reply = ParamListHolder();
    std::string bytes;
    orv::vx::CallReply answer;
    const bool answered = EncodeParamList(request.Get(), bytes) && Send(number, std::move(bytes), answer) &&
                          DecodeParamList(answer.reply(), reply);
    // After any failure: a caller that goes on without a reply would take a part for the whole.
    if (!answered) End();
    return answered;
}

bool GrpcClient::Send(u32 number, std::string request, orv::vx::CallReply& reply) {
    grpc::ClientContext context;
    context.set_deadline(After(options_.callMilliseconds));
    orv::vx::CallRequest message;
    message.set_number(number);
    message.set_request(std::move(request));
    {
        Platform::LockGuard guard(mutex_);
        if (state_ != State::Standing) return false;
        message.set_session(welcome_.session());
        calls_.insert(&context);
    }
    const grpc::Status status = stub_->Call(&context, message, &reply);
    Platform::LockGuard guard(mutex_);
    calls_.erase(&context);
    return status.ok() && state_ == State::Standing;
}

void GrpcClient::End() {
    Platform::LockGuard guard(mutex_);
    state_ = State::Ended;
    stream_.TryCancel();
    CancelCalls();
    changed_.NotifyAll();
}

void GrpcClient::Close() {
    {
        Platform::LockGuard guard(mutex_);
        closing_ = true;
    }
    End();
    Platform::LockGuard guard(joinMutex_);
    if (reader_.Joinable()) reader_.Join();
}

void GrpcClient::CancelCalls() {
    for (grpc::ClientContext* call : calls_) call->TryCancel();
}

}  // namespace VX
