#include "Tools/orv-listen/MeterDisplay.h"

#include <cstdio>
#include <utility>

#include "Platform/Clock.h"
#include "Platform/Terminal.h"

namespace Orv {
namespace {

constexpr u32 MeterPeriodMs = 125;
constexpr u32 PlainMeterPeriodMs = 1000;

}  // namespace

MeterDisplay::MeterDisplay(std::string name)
    : name_(std::move(name)),
      live_(Platform::IsTerminal(Platform::StandardStream::Error)),
      last_(Platform::SteadyMilliseconds()) {}

void MeterDisplay::Add(const u8* samples, u64 count) {
    for (u64 i = 0; i + 1 < count; i += 2) {
        meter_.Add(static_cast<i16>(static_cast<u16>(samples[i] | samples[i + 1] << 8)));
    }
}

void MeterDisplay::ShowWhenDue() {
    const u64 now = Platform::SteadyMilliseconds();
    if (now - last_ < (live_ ? MeterPeriodMs : PlainMeterPeriodMs)) return;
    last_ = now;
    if (live_) {
        std::fprintf(stderr, "\r\033[K%-16s [%s] %6.1f dB  peak %6.1f dB", name_.c_str(),
                     LevelBar(meter_.RmsDb(), meter_.PeakDb(), 40).c_str(), meter_.RmsDb(), meter_.PeakDb());
    } else {
        std::fprintf(stderr, "%s: level %.1f dB, peak %.1f dB, %.3f s of sound\n", name_.c_str(), meter_.RmsDb(),
                     meter_.PeakDb(), static_cast<double>(meter_.Count()) / 8000.0);
    }
    meter_.Clear();
}

void MeterDisplay::End() {
    if (live_) std::fputc('\n', stderr);
}

}  // namespace Orv
