#include "VX/GrpcExchange.h"

#include <exception>

#include "Platform/Random.h"
#include "VX/ListCodec.h"

namespace VX {

namespace {

constexpr u32 CallThreads = 4;
// Each transport connection has a few calls under way at most; this stands against a client gone mad.
constexpr u64 MaxWaitingCalls = 4096;

const grpc::Status Busy(grpc::StatusCode::UNAVAILABLE, "busy");
const grpc::Status Stranger(grpc::StatusCode::UNAUTHENTICATED, "no session");

// 256 bits that nobody can guess.
std::string MakeToken() {
    std::string token;
    while (token.size() < 32) {
        const u32 bits = Platform::RandomSeed();
        for (u32 shift = 0; shift < 32; shift += 8) token.push_back(static_cast<char>(bits >> shift));
    }
    return token;
}

}  // namespace

GrpcExchange::GrpcExchange(ILinkService& service, std::string application, const GrpcOptions& options,
                           AdmittedFunction admitted)
    : service_(service),
      application_(std::move(application)),
      options_(options),
      admitted_(std::move(admitted)),
      logins_("vx-login", options.loginThreads, options.maxWaitingLogins),
      calls_("vx-serve", CallThreads, MaxWaitingCalls) {}

grpc::ServerWriteReactor<orv::vx::Message>* GrpcExchange::Open(grpc::CallbackServerContext* context,
                                                               const orv::vx::OpenRequest* request) {
    ReactorMade();
    const auto session = GrpcSession::Create(*context, options_.queueBytes, [this](const auto& s) { SessionGone(s); });
    const auto logIn = [this, session, credentials = request->credentials()] {
        try {
            LogIn(session, credentials);
        } catch (const std::exception& error) {
            session->End(grpc::Status(grpc::StatusCode::INTERNAL, error.what()));
        }
    };
    if (!logins_.TryPost(logIn)) session->End(Busy);
    return session.get();
}

void GrpcExchange::LogIn(const std::shared_ptr<GrpcSession>& session, const std::string& credentials) {
    std::string user;
    if (!service_.Authenticate(credentials, PeerAddress(session->Peer()), user)) {
        session->End(grpc::Status(grpc::StatusCode::UNAUTHENTICATED, "credentials refused"));
        return;
    }
    const std::string address = PeerAddress(session->Peer());
    admitted_(address);
    const std::string token = MakeToken();
    orv::vx::Message message;
    message.mutable_welcome()->set_session(token);
    message.mutable_welcome()->set_application(application_);
    message.mutable_welcome()->set_peer_type(service_.PeerType());
    message.mutable_welcome()->set_address(address);
    SessionId id = 0;
    {
        Platform::LockGuard guard(mutex_);
        id = ++lastSession_;
    }
    service_.OnConnected(id, user, address);
    bool stands = false;
    {
        // With the list, so that every signal from the welcome on reaches the session, and none before.
        Platform::LockGuard guard(mutex_);
        stands = session->Stand(id, token, std::move(message));
        if (stands) sessions_.emplace(token, session);
    }
    if (!stands) service_.OnDisconnected(id);
}

grpc::ServerUnaryReactor* GrpcExchange::Call(grpc::CallbackServerContext* context, const orv::vx::CallRequest* request,
                                             orv::vx::CallReply* reply) {
    ReactorMade();
    const auto call = GrpcCall::Create(*reply, [this] { ReactorGone(); });
    std::shared_ptr<GrpcSession> session;
    {
        Platform::LockGuard guard(mutex_);
        const auto found = sessions_.find(request->session());
        if (found != sessions_.end()) session = found->second;
    }
    if (session == nullptr || !session->Stands() || session->Peer() != context->peer()) {
        call->Refuse(Stranger);
        return call.get();
    }
    const auto serve = [this, id = session->Id(), call, number = request->number(), bytes = request->request()] {
        try {
            Serve(id, call, number, bytes);
        } catch (const std::exception& error) {
            call->Refuse(grpc::Status(grpc::StatusCode::INTERNAL, error.what()));
        }
    };
    if (!calls_.TryPost(serve)) call->Refuse(Busy);
    return call.get();
}

void GrpcExchange::Serve(SessionId session, const std::shared_ptr<GrpcCall>& call, u32 number,
                         const std::string& request) {
    ParamListHolder list;
    if (!DecodeParamList(request, list)) {
        call->Refuse(grpc::Status(grpc::StatusCode::INVALID_ARGUMENT, "no parameter list"));
        return;
    }
    std::string bytes;
    if (EncodeParamList(service_.OnCall(session, number, list).Get(), bytes)) {
        call->Answer(std::move(bytes));
    } else {
        call->Refuse(grpc::Status(grpc::StatusCode::RESOURCE_EXHAUSTED, "the reply is too large"));
    }
}

void GrpcExchange::Raise(const std::string& signal, const ParamListHolder& event) {
    orv::vx::Message message;
    message.mutable_signal()->set_name(signal);
    if (!EncodeParamList(event.Get(), *message.mutable_signal()->mutable_event())) {
        // None is lost in silence: who cannot be told is disconnected.
        EndAll(grpc::Status(grpc::StatusCode::RESOURCE_EXHAUSTED, "a signal is too large"));
        return;
    }
    const auto shared = std::make_shared<const OutgoingMessage>(std::move(message));
    Platform::LockGuard guard(mutex_);
    for (const auto& [token, session] : sessions_) session->Push(shared);
}

void GrpcExchange::EndAll(const grpc::Status& status) {
    Platform::LockGuard guard(mutex_);
    for (const auto& [token, session] : sessions_) session->End(status);
}

void GrpcExchange::SessionGone(const std::shared_ptr<GrpcSession>& session) {
    const SessionId id = session->Id();
    if (id != 0) {
        {
            Platform::LockGuard guard(mutex_);
            sessions_.erase(session->Token());
        }
        calls_.Post([this, id, fellBehind = session->FellBehind()] {
            if (fellBehind) service_.OnFallenBehind(id);
            service_.OnDisconnected(id);
        });
    }
    ReactorGone();
}

void GrpcExchange::ReactorMade() {
    Platform::LockGuard guard(mutex_);
    reactors_++;
}

void GrpcExchange::ReactorGone() {
    Platform::LockGuard guard(mutex_);
    reactors_--;
    changed_.NotifyAll();
}

void GrpcExchange::Drain() {
    {
        Platform::LockGuard guard(mutex_);
        while (reactors_ != 0) changed_.Wait(mutex_);
    }
    logins_.Stop();
    calls_.Stop();
}

}  // namespace VX
