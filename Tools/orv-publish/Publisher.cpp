#include "Tools/orv-publish/Publisher.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "Platform/Clock.h"
#include "Platform/Thread.h"
#include "Tools/orv-publish/Pacer.h"

namespace Orv {
namespace {

constexpr u32 kTickMs = 20;
constexpr u32 kLastSendMs = 2000;
constexpr u32 kBindRetryMs = 20;
constexpr u32 kBindRetries = 100;
constexpr u64 kGapTicks = 25;  // half a second

bool Stopped(const std::atomic<bool>& stop) {
    return stop.load(std::memory_order_relaxed);
}

// One life of a source on the air.
class Transmission {
public:
    Transmission(Broadcast& broadcast, ISource& source, bool pace)
        : broadcast_(broadcast), source_(source), pace_(pace), pacer_(Platform::SteadyNanoseconds()) {}

    // Sends what is due and there. False when the source has ended.
    bool Tick() {
        u64 budget = pace_ ? pacer_.Due(Platform::SteadyNanoseconds()) : Broadcast::MostPushBytes;
        bool any = false;
        auto outcome = ISource::Outcome::Data;
        while (budget != 0 && outcome == ISource::Outcome::Data) {
            u64 taken = 0;
            outcome = source_.Read(bytes_.data(), budget, taken);
            if (taken == 0) continue;
            any = true;
            budget -= taken;
            pacer_.Spend(taken);
            broadcast_.Push(bytes_.data(), taken);
        }
        quietTicks_ = any ? 0 : quietTicks_ + 1;
        if (quietTicks_ == kGapTicks) broadcast_.MarkGap();
        return outcome != ISource::Outcome::End;
    }

private:
    Broadcast& broadcast_;
    ISource& source_;
    const bool pace_;
    Pacer pacer_;
    u64 quietTicks_ = 0;
    std::array<u8, Broadcast::MostPushBytes> bytes_;
};

}  // namespace

i32 RunPublisher(Broadcast& broadcast, ISource& source, const PublishPlan& plan, const std::atomic<bool>& stop) {
    for (broadcast.Accept(); plan.waitForClient && broadcast.Clients() == 0; broadcast.Accept()) {
        if (Stopped(stop)) return PublishDone;
        Platform::SleepMilliseconds(kTickMs);
    }
    Transmission transmission(broadcast, source, plan.pace);
    for (bool running = true; running;) {
        if (Stopped(stop)) return PublishDone;
        running = transmission.Tick();
        broadcast.Send();
        broadcast.TellLosses(false);
        if (running) Platform::SleepMilliseconds(kTickMs);
        if (running) broadcast.Accept();
    }
    for (u32 waited = 0; waited < kLastSendMs && !Stopped(stop) && !broadcast.Finish(); waited += kTickMs) {
        Platform::SleepMilliseconds(kTickMs);
    }
    broadcast.TellLosses(true);
    return Stopped(stop) ? i32{PublishDone} : source.Result();
}

std::unique_ptr<Broadcast> OpenBroadcast(const std::string& name, const TellFunction& tell) {
    auto endpoint = Platform::CreatePipeEndpoint(name);
    Platform::SystemError error = 0;
    std::unique_ptr<Platform::IPipeInstance> waiting;
    for (u32 tries = 0; tries < kBindRetries; ++tries) {
        waiting = endpoint->CreateInstance(error);
        // Somebody else takes a name in that folder at this moment.
        if (waiting != nullptr || error != EAGAIN) break;
        Platform::SleepMilliseconds(kBindRetryMs);
    }
    if (waiting == nullptr) {
        const std::string folder = Platform::PipeFolder();
        tell(ServeFailure(name, folder, folder + "/" + Platform::PipeFileName(name), error));
        return nullptr;
    }
    return std::make_unique<Broadcast>(std::move(endpoint), std::move(waiting), tell);
}

std::string BarePipeName(const std::string& name) {
    const std::string prefix = "\\\\.\\pipe\\";
    return name.starts_with(prefix) ? name.substr(prefix.size()) : name;
}

}  // namespace Orv
