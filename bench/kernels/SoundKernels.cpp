// The loops over samples: what a pump computes each 125 ms.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>

#include "AudioFeeder/VolumeControl.h"
#include "Projects/Common/VoIPFileEngine/ADPCMDecoder.h"
#include "Projects/Common/VoIPFileEngine/Mixer.h"
#include "bench/kernels/Sound.h"

namespace OrvBench {
namespace {

using benchmark::State;
using Orv::MainGain;

void CountBlocks(State& state) {
    state.SetItemsProcessed(static_cast<i64>(state.iterations()) * kBlockSamples);
    state.SetBytesProcessed(static_cast<i64>(state.iterations()) * kBlockSamples * 2);
}

// A main list at full level is passed on as it is.
void MainAtFullLevel(State& state) {
    const auto main = Noise(kBlockSamples, 20000);
    std::vector<i16> out(kBlockSamples);
    MainGain gain{MainGain::Full, 1.0F};
    for (auto _ : state) {
        Orv::FadeMain(gain, Bytes(main), Bytes(out), kBlockSamples);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    CountBlocks(state);
}
BENCHMARK(MainAtFullLevel);

void RampUp(State& state) {
    const auto main = Noise(kBlockSamples, 20000);
    std::vector<i16> out(kBlockSamples);
    for (auto _ : state) {
        MainGain gain;
        Orv::FadeMain(gain, Bytes(main), Bytes(out), kBlockSamples);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    CountBlocks(state);
}
BENCHMARK(RampUp);

void RampDownAndMix(State& state) {
    const auto main = Noise(kBlockSamples, 20000);
    const auto overlay = Noise(kBlockSamples, 10000, 2);
    std::vector<i16> out(kBlockSamples);
    for (auto _ : state) {
        MainGain gain{MainGain::Full, 1.0F};
        Orv::DuckAndMix(gain, Bytes(main), Bytes(overlay), Bytes(out), kBlockSamples);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    CountBlocks(state);
}
BENCHMARK(RampDownAndMix);

void MixUnderAnAnnouncement(State& state) {
    const auto main = Noise(kBlockSamples, 20000);
    const auto overlay = Noise(kBlockSamples, 10000, 2);
    std::vector<i16> out(kBlockSamples);
    MainGain gain{MainGain::Ducked, 0.125F};
    for (auto _ : state) {
        Orv::DuckAndMix(gain, Bytes(main), Bytes(overlay), Bytes(out), kBlockSamples);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    CountBlocks(state);
}
BENCHMARK(MixUnderAnAnnouncement);

// The block is copied before each round, since the control works in place; a pump copies it as well.
void Limit(State& state) {
    const auto sound = Noise(kBlockSamples, 30000);
    std::vector<i16> block(kBlockSamples);
    Orv::VolumeControl control({Orv::LevelFromPercent(50), state.range(0) != 0});
    for (auto _ : state) {
        std::memcpy(block.data(), sound.data(), kBlockSamples * 2);
        control.Process(block.data(), kBlockSamples);
        benchmark::DoNotOptimize(block.data());
        benchmark::ClobberMemory();
    }
    CountBlocks(state);
}
BENCHMARK(Limit)->ArgName("autogain")->Arg(0)->Arg(1);

// The peak rises all along the block: the gain is computed anew for most samples.
void LimitRisingSound(State& state) {
    std::vector<i16> sound(kBlockSamples);
    for (u32 i = 0; i < kBlockSamples; ++i)
        sound[i] = static_cast<i16>(i % 2 == 0 ? 30 * i : -30 * static_cast<i32>(i));
    std::vector<i16> block(kBlockSamples);
    for (auto _ : state) {
        Orv::VolumeControl control({Orv::LevelFromPercent(1), false});
        std::memcpy(block.data(), sound.data(), kBlockSamples * 2);
        control.Process(block.data(), kBlockSamples);
        benchmark::DoNotOptimize(block.data());
        benchmark::ClobberMemory();
    }
    CountBlocks(state);
}
BENCHMARK(LimitRisingSound);

// A stream of valid blocks without an end. Bytes are those of the samples that come out.
void DecodeAdpcm(State& state) {
    constexpr u32 kBlocks = 64;
    std::vector<u8> stream(kBlocks * Orv::ADPCMDecoder::BlockBytes);
    const auto noise = Noise(static_cast<u32>(stream.size()), 30000);
    for (std::size_t i = 0; i < stream.size(); ++i) stream[i] = static_cast<u8>(noise[i]);
    for (u32 block = 0; block < kBlocks; ++block) stream[block * Orv::ADPCMDecoder::BlockBytes + 2] = 40;
    u64 position = 0;
    Orv::ADPCMDecoder decoder(
        [&](const u8** block, u64 bytes) {
            *block = stream.data() + position;
            position = (position + bytes) % stream.size();
            return bytes;
        },
        kBlockSamples * 2);
    const u8* frame = nullptr;
    for (auto _ : state) {
        if (decoder.Decode(&frame, kBlockSamples) != kBlockSamples) state.SkipWithError("the stream has ended");
        benchmark::DoNotOptimize(frame);
    }
    CountBlocks(state);
}
BENCHMARK(DecodeAdpcm);

}  // namespace
}  // namespace OrvBench
