// The runtime's events: how they come in from the links, and the thread that takes them to their slots.

#include <cstdio>
#include <exception>

#include "VX/ListCopy.h"
#include "VX/Runtime.h"

namespace VX {

namespace {

// What an event takes besides its list, so that many tiny ones count too.
constexpr u64 EventOverhead = 128;

// An exception ends the event or the message it leaves, and nothing else.
template <typename F>
void RunGuarded(const char* what, F&& call) {
    try {
        call();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vx-events: %s ended with an exception: %s\n", what, error.what());
    }
}

}  // namespace

void Runtime::Connection::OnSignal(const std::string& name, ParamListHolder event) {
    runtime_.Enqueue(*this, name, std::move(event));
}

void Runtime::Connection::OnClosed() {
    runtime_.MarkLost(*this);
}

void Runtime::Enqueue(const Connection& connection, const std::string& signal, ParamListHolder event) {
    const u64 bytes = ParamListBytes(event.Get()) + signal.size() + EventOverhead;
    Platform::LockGuard guard(mutex_);
    const auto peer = FindByConnection(connection);
    if (peer == peers_.end() || peer->lost) return;
    if (peer->waitingBytes + bytes > MaxWaitingBytes) {
        peer->lost = true;
    } else {
        peer->events.push_back({signal, std::move(event), bytes});
        peer->waitingBytes += bytes;
    }
    changed_.NotifyAll();
}

void Runtime::MarkLost(const Connection& connection) {
    Platform::LockGuard guard(mutex_);
    const auto peer = FindByConnection(connection);
    if (peer == peers_.end()) return;
    peer->lost = true;
    changed_.NotifyAll();
}

void Runtime::RunEvents() {
    while (true) {
        Work work = TakeWork();
        switch (work.kind) {
            case Work::Kind::Stop:
                return;
            case Work::Kind::Event:
                RunGuarded("a handler", [&] { Deliver(work); });
                break;
            case Work::Kind::Loss:
                RunGuarded("the disconnect listener", [&] { TellLoss(work); });
                break;
            case Work::Kind::AuthFailed:
            case Work::Kind::UnknownConnect:
                RunGuarded("a failure listener", [&] { TellFailure(work); });
                break;
        }
    }
}

Runtime::Work Runtime::TakeWork() {
    Platform::LockGuard guard(mutex_);
    Work work;
    while (state_ != State::Stopping && !FindWork(work)) changed_.Wait(mutex_);
    return work;
}

bool Runtime::FindWork(Work& work) {
    if (!failures_.empty()) {
        work = std::move(failures_.front());
        failures_.pop_front();
        return true;
    }
    for (auto peer = peers_.begin(); peer != peers_.end(); ++peer) {
        if (!peer->announced) continue;
        if (TakeEvent(*peer, work)) {
            peers_.splice(peers_.end(), peers_, peer);
            return true;
        }
        if (!peer->lost) continue;
        work.kind = Work::Kind::Loss;
        work.lost.splice(work.lost.end(), peers_, peer);
        return true;
    }
    return false;
}

bool Runtime::TakeEvent(Peer& peer, Work& work) {
    while (!peer.events.empty()) {
        Event& event = peer.events.front();
        const auto signal = peer.signals.find(event.signal);
        const bool connected = signal != peer.signals.end();
        if (!connected && !peer.dropsOthers) return false;
        const u32 number = connected ? signal->second : 0;
        const auto slot = slots_.find(number);
        const bool dropped = number == 0;
        if (!dropped && slot == slots_.end()) return false;
        if (!dropped) {
            work.kind = Work::Kind::Event;
            work.slot = slot->second;
            work.event = std::move(event.list);
        }
        peer.waitingBytes -= event.bytes;
        peer.events.pop_front();
        if (!dropped) return true;
    }
    return false;
}

void Runtime::Deliver(const Work& work) {
    ParamListHolder reply;
    reply.NewList();
    VXSlotRecord record = {nullptr, work.slot.user};
    work.slot.dispatcher(work.event.Get(), reply.Get(), &record);
}

void Runtime::TellLoss(Work& work) {
    Peer& peer = work.lost.front();
    peer.connection->link->Close();
    VXDisconnectCallback listener = nullptr;
    u64 value1 = 0;
    u64 value2 = 0;
    {
        Platform::LockGuard guard(mutex_);
        listener = disconnected_;
        value1 = value1_;
        value2 = value2_;
        if (state_ != State::Running) return;
    }
    if (listener != nullptr) listener(peer.name.c_str(), value1, value2);
}

void Runtime::TellFailure(const Work& work) {
    VXFailureCallback listener = nullptr;
    u64 value1 = 0;
    u64 value2 = 0;
    {
        Platform::LockGuard guard(mutex_);
        listener = work.kind == Work::Kind::AuthFailed ? authFailed_ : unknownConnect_;
        value1 = value1_;
        value2 = value2_;
    }
    if (listener != nullptr) listener(work.remote.c_str(), value1, value2);
}

}  // namespace VX
