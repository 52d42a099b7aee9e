#include <map>
#include <vector>

#include "Platform/Sync.h"
#include "VX/Link.h"
#include "VX/ListCopy.h"

namespace VX {

// Lists are copied on their way, as a network would copy them: neither side sees what the other does to its own.
struct InProcessExchange::Impl {
    Impl(ILinkService& s, std::string name) : service(s), application(std::move(name)) {}

    // The service is used between these two; the exchange's destructor waits for the last to leave.
    bool Enter() {
        Platform::LockGuard guard(mutex);
        if (!stopped) inside++;
        return !stopped;
    }
    void Leave() {
        Platform::LockGuard guard(mutex);
        inside--;
        left.NotifyAll();
    }
    bool Stands(SessionId session) {
        Platform::LockGuard guard(mutex);
        return sessions.count(session) != 0;
    }
    bool Begin(SessionId session, ILinkEvents& events) {
        Platform::LockGuard guard(mutex);
        return !stopped && sessions.emplace(session, &events).second;
    }
    // Ends one session; `tell` its client unless it ended it itself.
    void End(SessionId session, bool tell) {
        {
            Platform::LockGuard guard(mutex);
            const auto found = sessions.find(session);
            if (found == sessions.end()) return;
            if (tell) found->second->OnClosed();
            sessions.erase(found);
            inside++;
        }
        service.OnDisconnected(session);
        Leave();
    }
    void EndAll() {
        std::vector<SessionId> ended;
        {
            Platform::LockGuard guard(mutex);
            for (const auto& [session, events] : sessions) ended.push_back(session);
        }
        for (SessionId session : ended) End(session, true);
    }

    ILinkService& service;
    const std::string application;
    // Held while a client is told something, which makes the order that of the raising, and lets nothing be told once
    // Close() has returned.
    Platform::Mutex mutex;
    Platform::CondVar left;
    std::map<SessionId, ILinkEvents*> sessions ORV_GUARDED_BY(mutex);
    SessionId lastSession ORV_GUARDED_BY(mutex) = 0;
    u32 inside ORV_GUARDED_BY(mutex) = 0;
    bool stopped ORV_GUARDED_BY(mutex) = false;
};

namespace {

template <typename Impl>
class InProcessLink : public ILink {
public:
    InProcessLink(std::shared_ptr<Impl> impl, SessionId session) : impl_(std::move(impl)), session_(session) {}
    ~InProcessLink() override { Close(); }

    bool Call(u32 number, const ParamListHolder& request, ParamListHolder& reply) override {
        reply = ParamListHolder();
        if (!impl_->Enter()) return false;
        ParamListHolder answer;
        const bool answered = impl_->Stands(session_) && Ask(number, request, answer);
        impl_->Leave();
        if (!answered) impl_->End(session_, true);
        // As with a network, the answer of a session that has ended meanwhile does not arrive.
        if (!answered || !impl_->Stands(session_)) return false;
        reply = std::move(answer);
        return true;
    }
    void Close() override { impl_->End(session_, false); }

private:
    bool Ask(u32 number, const ParamListHolder& request, ParamListHolder& answer) {
        ParamListHolder asked;
        if (!CopyParamList(request.Get(), asked)) return false;
        return CopyParamList(impl_->service.OnCall(session_, number, asked).Get(), answer);
    }

    const std::shared_ptr<Impl> impl_;
    const SessionId session_;
};

}  // namespace

InProcessExchange::InProcessExchange(ILinkService& service, std::string application)
    : impl_(std::make_shared<Impl>(service, std::move(application))) {}

InProcessExchange::~InProcessExchange() {
    Stop();
    Platform::LockGuard guard(impl_->mutex);
    while (impl_->inside != 0) impl_->left.Wait(impl_->mutex);
}

std::unique_ptr<ILink> InProcessExchange::Connect(const std::string& host, u32 port, const std::string& credentials,
                                                  ILinkEvents& events, PeerInfo& peer, bool& authFailed) {
    authFailed = false;
    if (!impl_->Enter()) return nullptr;
    std::unique_ptr<ILink> link;
    std::string user;
    peer = {impl_->application, "in process", host + ":" + std::to_string(port), impl_->service.PeerType()};
    if (!impl_->service.Authenticate(credentials, peer.local, user)) {
        authFailed = true;
    } else {
        SessionId session = 0;
        {
            Platform::LockGuard guard(impl_->mutex);
            session = ++impl_->lastSession;
        }
        impl_->service.OnConnected(session, user, peer.local);
        if (impl_->Begin(session, events)) {
            link = std::make_unique<InProcessLink<Impl>>(impl_, session);
        } else {
            impl_->service.OnDisconnected(session);
        }
    }
    impl_->Leave();
    return link;
}

void InProcessExchange::Raise(const std::string& signal, const ParamListHolder& event) {
    ParamListHolder copy;
    if (!CopyParamList(event.Get(), copy)) {
        // None is lost in silence: who cannot be told is disconnected.
        impl_->EndAll();
        return;
    }
    Platform::LockGuard guard(impl_->mutex);
    for (const auto& [session, events] : impl_->sessions) events->OnSignal(signal, copy);
}

u32 InProcessExchange::Port() const {
    return 1;
}

void InProcessExchange::Stop() {
    {
        Platform::LockGuard guard(impl_->mutex);
        impl_->stopped = true;
    }
    impl_->EndAll();
}

void InProcessExchange::Resume() {
    Platform::LockGuard guard(impl_->mutex);
    impl_->stopped = false;
}

}  // namespace VX
