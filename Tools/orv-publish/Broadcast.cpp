#include "Tools/orv-publish/Broadcast.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "Platform/Clock.h"

namespace Orv {
namespace {

constexpr u64 kLossReportMs = 1000;

}  // namespace

Broadcast::Broadcast(std::unique_ptr<Platform::IPipeEndpoint> endpoint,
                     std::unique_ptr<Platform::IPipeInstance> waiting, TellFunction tell)
    : endpoint_(std::move(endpoint)), tell_(std::move(tell)), waiting_(std::move(waiting)) {}

void Broadcast::Accept() {
    for (;;) {
        Platform::SystemError error = 0;
        if (waiting_ == nullptr) waiting_ = endpoint_->CreateInstance(error);
        if (waiting_ == nullptr) {
            TellOnce("no more clients can be served: " + Platform::SystemErrorText(error) + ".");
            return;
        }
        switch (waiting_->PollConnect(error)) {
            case Platform::ConnectState::Pending:
                return;
            case Platform::ConnectState::Failed:
                TellOnce("a client could not be taken: " + Platform::SystemErrorText(error) + ".");
                waiting_.reset();
                return;
            case Platform::ConnectState::Connected:
                failureTold_ = false;
                clients_.push_back({std::move(waiting_), StartOfNew(), std::nullopt});
                break;
        }
    }
}

u64 Broadcast::StartOfNew() const {
    return head_ - std::min(HeadStartBytes, head_ - freshFrom_);
}

void Broadcast::Push(const u8* bytes, u64 count) {
    const u64 at = head_ % ring_.size();
    const u64 first = std::min<u64>(count, ring_.size() - at);
    std::memcpy(&ring_[at], bytes, first);
    std::memcpy(&ring_[0], bytes + first, count - first);
    head_ += count;
    for (Client& client : clients_) {
        if (head_ - client.position > MostLagBytes) DropLag(client);
    }
}

void Broadcast::DropLag(Client& client) {
    // A sample of which the client has one byte gets its other one, or all that follows would be noise.
    if (client.position % 2 != 0) client.half = ring_[client.position++ % ring_.size()];
    const u64 target = StartOfNew();
    lost_ += target - client.position;
    client.position = target;
}

bool Broadcast::SendTo(Client& client) {
    if (client.half) {
        const i64 taken = client.pipe->TryWrite(&*client.half, 1);
        if (taken <= 0) return taken == 0;
        client.half.reset();
    }
    // At the edge it is still asked whether it is there, so that one who has left during a gap is let go.
    do {
        const u64 at = client.position % ring_.size();
        const u64 count = std::min<u64>(head_ - client.position, ring_.size() - at);
        const i64 taken = client.pipe->TryWrite(&ring_[at], count);
        if (taken <= 0) return taken == 0;
        client.position += static_cast<u64>(taken);
    } while (client.position != head_);
    return true;
}

void Broadcast::Send() {
    std::erase_if(clients_, [this](Client& client) { return !SendTo(client); });
}

bool Broadcast::Finish() {
    endpoint_.reset();
    Send();
    std::erase_if(clients_, [this](const Client& client) { return client.position == head_ && !client.half; });
    return clients_.empty();
}

void Broadcast::TellLosses(bool always) {
    const u64 now = Platform::SteadyMilliseconds();
    if (lost_ == 0 || (!always && now - lossTold_ < kLossReportMs)) return;
    lossTold_ = now;
    tell_("clients that do not take their sound in time have lost " + SoundLength(lost_) + ".");
    lost_ = 0;
}

void Broadcast::TellOnce(const std::string& text) {
    if (!failureTold_) tell_(text);
    failureTold_ = true;
}

}  // namespace Orv
