// The loops over samples: what a pump computes each 125 ms.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>

#include "AudioFeeder/VolumeControl.h"
#include "Projects/Common/VoIPFileEngine/ADPCMDecoder.h"
#include "Projects/Common/VoIPFileEngine/ILoopBuffer.h"
#include "Projects/Common/VoIPFileEngine/Mixer.h"
#include "Projects/Common/VoIPFileEngine/ResampleTo8k.h"
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

// A second of a preloaded file at a higher rate. Samples are those that go in.
void ResampleTo8k(State& state) {
    const auto rate = static_cast<u32>(state.range(0));
    const auto sound = Noise(rate, 20000);
    for (auto _ : state) benchmark::DoNotOptimize(Orv::ResampleTo8k(sound.data(), rate, rate));
    state.SetItemsProcessed(static_cast<i64>(state.iterations()) * rate);
    state.SetBytesProcessed(static_cast<i64>(state.iterations()) * rate * 2);
}
BENCHMARK(ResampleTo8k)->ArgName("rate")->Arg(16000)->Arg(44100)->Arg(48000)->Unit(benchmark::kMicrosecond);

// The ring of a live source: what its thread adds, and what each listener takes, round and round the ring.
void AppendToRing(State& state) {
    const MTObjects::THolder<Orv::ILoopBuffer> ring(new Orv::ILoopBuffer);
    const auto sound = Noise(kBlockSamples, 20000);
    for (auto _ : state) {
        ring->Append(Bytes(sound), kBlockSamples * 2);
        benchmark::ClobberMemory();
    }
    CountBlocks(state);
}
BENCHMARK(AppendToRing);

void CopyOutOfRing(State& state) {
    const MTObjects::THolder<Orv::ILoopBuffer> ring(new Orv::ILoopBuffer);
    const auto sound = Noise(Orv::ILoopBuffer::Size / 2, 20000);
    ring->Append(Bytes(sound), Orv::ILoopBuffer::Size);
    std::vector<i16> block(kBlockSamples);
    u64 position = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ring->TakeHead());
        ring->CopyOut(position, Bytes(block), kBlockSamples * 2);
        position += kBlockSamples * 2;
        benchmark::DoNotOptimize(block.data());
        benchmark::ClobberMemory();
    }
    CountBlocks(state);
}
BENCHMARK(CopyOutOfRing);

}  // namespace
}  // namespace OrvBench
