#include "VX/Runtime.h"

#include <system_error>

namespace VX {

namespace {

// What VXConnect's callers have room for.
constexpr u64 MaxNameLength = 255;

}  // namespace

// One call in progress: a shutdown waits for it, so that nothing of it outlives the connector.
class Runtime::Inside {
public:
    explicit Inside(Runtime& runtime) : runtime_(runtime), entered_(runtime.Enter()) {}
    ~Inside() {
        if (entered_) runtime_.Leave();
    }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
    explicit operator bool() const { return entered_; }

private:
    Runtime& runtime_;
    const bool entered_;
};

Runtime& Runtime::Instance() {
    static Runtime* const runtime = new Runtime();
    return *runtime;
}

bool Runtime::Enter() {
    Platform::LockGuard guard(mutex_);
    if (state_ != State::Running) return false;
    inside_++;
    return true;
}

void Runtime::Leave() {
    Platform::LockGuard guard(mutex_);
    inside_--;
    changed_.NotifyAll();
}

void Runtime::SetConnector(ILinkConnector* connector) {
    Platform::LockGuard guard(mutex_);
    connector_ = connector;
}

u32 Runtime::Initialize(u64 value1, u64 value2) {
    Platform::LockGuard guard(mutex_);
    if (state_ != State::Stopped) return 1;
    try {
        thread_ = Platform::Thread("vx-events", [this] { RunEvents(); });
    } catch (const std::system_error&) {
        return 1;
    }
    value1_ = value1;
    value2_ = value2;
    state_ = State::Running;
    return 0;
}

void Runtime::Shutdown() {
    Peers ended;
    {
        Platform::LockGuard guard(mutex_);
        while (state_ == State::Stopping) changed_.Wait(mutex_);
        if (state_ == State::Stopped) return;
        state_ = State::Stopping;
        // One that is still being made is ended by the thread that makes it.
        for (auto peer = peers_.begin(); peer != peers_.end();) {
            auto next = std::next(peer);
            if (!peer->name.empty()) ended.splice(ended.end(), peers_, peer);
            peer = next;
        }
        changed_.NotifyAll();
    }
    // A handler that waits for a reply must not hold up the join.
    for (Peer& peer : ended) peer.connection->link->Close();
    thread_.Join();
    ended.clear();
    Platform::LockGuard guard(mutex_);
    while (inside_ != 0) changed_.Wait(mutex_);
    slots_.clear();
    failures_.clear();
    state_ = State::Stopped;
    changed_.NotifyAll();
}

void Runtime::SetAuthFailedListener(VXFailureCallback listener) {
    Platform::LockGuard guard(mutex_);
    authFailed_ = listener;
}

void Runtime::SetConnectListener(VXConnectCallback listener) {
    Platform::LockGuard guard(mutex_);
    connected_ = listener;
}

void Runtime::SetDisconnectListener(VXDisconnectCallback listener) {
    Platform::LockGuard guard(mutex_);
    disconnected_ = listener;
}

void Runtime::SetUnknownConnectListener(VXFailureCallback listener) {
    Platform::LockGuard guard(mutex_);
    unknownConnect_ = listener;
}

u32 Runtime::Connect(const std::string& host, u32 port, const std::string& credentials, std::string& name) {
    Inside inside(*this);
    if (!inside) return 1;
    const auto connection = std::make_shared<Connection>(*this);
    ILinkConnector* connector = nullptr;
    Peers::iterator peer;
    {
        // In its place before the link is there, since events may come before Connect() has returned.
        Platform::LockGuard guard(mutex_);
        connector = connector_;
        peer = peers_.emplace(peers_.end());
        peer->connection = connection;
    }
    const std::string remote = host + ":" + std::to_string(port);
    PeerInfo info;
    bool authFailed = false;
    std::unique_ptr<ILink> link;
    if (connector != nullptr) link = connector->Connect(host, port, credentials, *connection, info, authFailed);
    if (link != nullptr) {
        const u32 result = Introduce(peer, info, std::move(link), remote, name);
        if (result == 0) Announce(connection, info, name);
        return result;
    }
    Platform::LockGuard guard(mutex_);
    peers_.erase(peer);
    if (!authFailed) return 1;
    Work& failure = failures_.emplace_back();
    failure.kind = Work::Kind::AuthFailed;
    failure.remote = remote;
    changed_.NotifyAll();
    return 2;
}

u32 Runtime::Introduce(Peers::iterator peer, PeerInfo& info, std::unique_ptr<ILink> link, const std::string& remote,
                       std::string& name) {
    Peers refused;
    {
        Platform::LockGuard guard(mutex_);
        peer->connection->link = std::move(link);
        const std::string wanted(info.application.c_str());
        if (state_ == State::Running && !wanted.empty()) {
            peer->name = name = UniqueName(wanted.substr(0, MaxNameLength));
            return 0;
        }
        if (wanted.empty()) {
            Work& failure = failures_.emplace_back();
            failure.kind = Work::Kind::UnknownConnect;
            failure.remote = remote;
            changed_.NotifyAll();
        }
        refused.splice(refused.end(), peers_, peer);
    }
    refused.front().connection->link->Close();
    return 1;
}

void Runtime::Announce(const std::shared_ptr<Connection>& connection, const PeerInfo& info, const std::string& name) {
    VXConnectCallback listener = nullptr;
    u64 value1 = 0;
    u64 value2 = 0;
    {
        Platform::LockGuard guard(mutex_);
        listener = connected_;
        value1 = value1_;
        value2 = value2_;
    }
    if (listener != nullptr) {
        listener(info.local.c_str(), info.remote.c_str(), name.c_str(), value1, value2, info.peerType.c_str());
    }
    Platform::LockGuard guard(mutex_);
    const auto peer = FindByConnection(*connection);
    if (peer == peers_.end()) return;
    peer->announced = true;
    changed_.NotifyAll();
}

void Runtime::Disconnect(const std::string& application) {
    Inside inside(*this);
    if (!inside) return;
    Peers ended;
    {
        Platform::LockGuard guard(mutex_);
        const auto peer = FindByName(application);
        if (peer == peers_.end()) return;
        ended.splice(ended.end(), peers_, peer);
    }
    ended.front().connection->link->Close();
    ended.clear();
}

u32 Runtime::RegisterSlot(u32 slot, VXDispatcher dispatcher, void* user) {
    if (slot == 0 || slot == VXInvalidSlot || dispatcher == nullptr) return VXInvalidSlot;
    Platform::LockGuard guard(mutex_);
    if (state_ != State::Running) return VXInvalidSlot;
    if (!slots_.try_emplace(slot, Slot{dispatcher, user}).second) return VXInvalidSlot;
    changed_.NotifyAll();
    return slot;
}

void Runtime::ConnectSignal(const std::string& application, const std::string& signal, u32 slot) {
    Platform::LockGuard guard(mutex_);
    const auto peer = FindByName(application);
    if (peer == peers_.end()) return;
    peer->signals[signal] = slot;
    changed_.NotifyAll();
}

void Runtime::DropOtherSignals(const std::string& application) {
    Platform::LockGuard guard(mutex_);
    const auto peer = FindByName(application);
    if (peer == peers_.end()) return;
    peer->dropsOthers = true;
    changed_.NotifyAll();
}

ParamListHolder Runtime::Call(const std::string& application, u32 number, const ParamListHolder& request) {
    Inside inside(*this);
    if (!inside) return {};
    std::shared_ptr<Connection> connection;
    {
        Platform::LockGuard guard(mutex_);
        const auto peer = FindByName(application);
        if (peer == peers_.end() || peer->lost) return {};
        connection = peer->connection;
    }
    ParamListHolder reply;
    if (!connection->link->Call(number, request, reply)) {
        MarkLost(*connection);
        return {};
    }
    if (!reply) reply.NewList();
    return reply;
}

Runtime::Peers::iterator Runtime::FindByName(const std::string& name) {
    if (name.empty()) return peers_.end();
    for (auto peer = peers_.begin(); peer != peers_.end(); ++peer) {
        if (peer->name == name) return peer;
    }
    return peers_.end();
}

Runtime::Peers::iterator Runtime::FindByConnection(const Connection& connection) {
    for (auto peer = peers_.begin(); peer != peers_.end(); ++peer) {
        if (peer->connection.get() == &connection) return peer;
    }
    return peers_.end();
}

std::string Runtime::UniqueName(const std::string& wanted) {
    std::string name = wanted;
    for (u32 number = 2; FindByName(name) != peers_.end(); number++) {
        const std::string suffix = "-" + std::to_string(number);
        name = wanted.substr(0, MaxNameLength - suffix.size()) + suffix;
    }
    return name;
}

}  // namespace VX
