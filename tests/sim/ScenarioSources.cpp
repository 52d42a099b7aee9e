// Those who serve live sound: they come, send at their own pace, stall, go, and come back.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Platform/NamedPipe.h"
#include "tests/sim/Scenario.h"

namespace OrvSim {

// At moments that no other thread shares: while every byte is judged, all others' lie at even nanoseconds.
void Scenario::SleepAsSource(Rng& rng, u64 low, u64 high) {
    const u64 odd = world_.exact ? 100'001 + rng.Below(350'000) * 2 : 0;
    const u64 now = sim_.Now();
    sim_.AdvanceTo(now - (world_.exact ? now % 2 : 0) + (low + rng.Below(high - low + 1)) * kMillisecond + odd);
}

void Scenario::ServeSource(Rng rng, LiveSource& source) {
    const std::string name = source.Path().substr(sizeof kPipeRoot - 1);
    SleepAsSource(rng, 0, 3'000);
    while (!Over()) {
        ++world_.counts.sources;
        auto endpoint = Platform::CreatePipeEndpoint(name);
        Platform::SystemError error = 0;
        auto instance = endpoint->CreateInstance(error);
        BeginSourceStep(source);
        source.Serve();
        if (rng.Chance(30)) RefuseConnects(rng, source);
        bool met = false;
        do {
            if (instance == nullptr) {
                world_.Fail("\"" + name + "\" cannot be served");
                return;
            }
            met = MeetService(rng, source, *instance);
            if (!met || SendSound(rng, source, *instance)) break;
            instance = endpoint->CreateInstance(error);  // for who comes again
        } while (!Over());
        if (met && rng.Chance(70)) SleepAsSource(rng, 0, 60);
        BeginSourceStep(source);
        source.Vanish(sim_.Now());
        world_.sourceVanished = sim_.Now();
        instance.reset();
        endpoint.reset();
        SleepAsSource(rng, 100, 12'000);
    }
}

// The default set reads by the clock, and what it has read by now it has read from the ring as it stands.
void Scenario::BeginSourceStep(const LiveSource& source) {
    if (!world_.exact) return;
    world_.box.CatchUp(sim_.Now());
    if (!source.Missing().empty()) world_.Fail("this line of a live source is missing: " + source.Missing());
    if (source.IsOverdue(sim_.Now())) world_.Fail("the live source \"" + source.Path() + "\" is not tried again");
}

// Though it is there: the next few tries, as by a server that lets nobody in or for want of a descriptor.
void Scenario::RefuseConnects(Rng& rng, LiveSource& source) {
    constexpr i32 errors[] = {ECONNREFUSED, EMFILE, ENFILE, EACCES};
    const u32 times = static_cast<u32>(rng.Between(1, 9));
    const i32 error = errors[rng.Below(std::size(errors))];
    sim_.Pipes().FailConnects(source.Path().substr(sizeof kPipeRoot - 1), static_cast<u32>(error), times);
    source.Refuse(times);
}

bool Scenario::MeetService(Rng& rng, LiveSource& source, Platform::IPipeInstance& instance) {
    const u64 since = sim_.Now();
    const u64 longest = source.LongestWait();
    while (!Over()) {
        SleepAsSource(rng, 5, 60);
        Platform::SystemError error = 0;
        const Platform::ConnectState state = instance.PollConnect(error);
        if (state == Platform::ConnectState::Connected) {
            BeginSourceStep(source);
            return true;
        }
        if (!world_.exact || sim_.Now() <= since + longest) continue;
        world_.Fail("nobody has come to the live source \"" + source.Path() + "\" in time");
    }
    return false;
}

// In real time, more or less; a few are too slow, a few too fast, and each stalls now and then. False when the
// connection has broken.
bool Scenario::SendSound(Rng& rng, LiveSource& source, Platform::IPipeInstance& instance) {
    constexpr u32 paces[] = {2000, 2000, 2000, 1100, 3700};
    const u32 pace = paces[rng.Below(std::size(paces))];
    const bool ragged = rng.Chance(50);
    const u64 end = sim_.Now() + static_cast<u64>(rng.Between(500, 40'000)) * kMillisecond;
    while (sim_.Now() < end && !Over()) {
        SleepAsSource(rng, ragged ? 60 : 124, ragged ? 188 : 124);
        if (rng.Chance(1)) {
            ++world_.counts.sourceStalls;
            SleepAsSource(rng, 300, 8'000);
        }
        u8 sound[2 * 3700];
        const u64 count = ragged ? 1 + rng.Below(2 * pace - 1) : pace;
        for (u64 at = 0; at < count; at += sizeof(u64)) {
            const u64 noise = rng.Next();
            std::memcpy(sound + at, &noise, std::min<u64>(sizeof noise, count - at));
        }
        BeginSourceStep(source);
        if (rng.Chance(1)) return BreakRead(rng, source, instance);
        for (u64 sent = 0; sent < count;) {
            const i64 taken = instance.Write(sound + sent, count - sent);
            if (taken < 0) {  // as the last one who played it does
                if (world_.exact) world_.Fail("the service has left the live source \"" + source.Path() + "\"");
                return false;
            }
            source.Send(sound + sent, static_cast<u64>(taken), sim_.Now());
            sent += static_cast<u64>(taken);
            world_.counts.sourceBytes += static_cast<u64>(taken);
        }
    }
    return true;
}

// Of the service, behind the next bytes. It comes again at once, to whom it finds there, or once it is let in.
bool Scenario::BreakRead(Rng& rng, LiveSource& source, Platform::IPipeInstance& instance) {
    ++world_.counts.brokenReads;
    sim_.Pipes().FailClientReads(source.Path().substr(sizeof kPipeRoot - 1), EIO, 1);
    const u8 last[2] = {};
    const i64 taken = instance.Write(last, sizeof last);
    if (taken > 0) source.Send(last, static_cast<u64>(taken), sim_.Now());
    source.Vanish(sim_.Now());
    source.Serve();
    if (rng.Chance(40)) RefuseConnects(rng, source);
    world_.sourceVanished = sim_.Now();
    SleepAsSource(rng, 1, 60);
    if (world_.exact && instance.Write(last, sizeof last) >= 0) {
        world_.Fail("a failed read has not ended the connection to \"" + source.Path() + "\"");
    }
    return false;
}

}  // namespace OrvSim
