// The reader of whole files, and a reader that plays what it has loaded. The result is no longer than what the file
// has, but for the one sample that resampling may add, the bytes of a file that is no WAV are the file's own, and the
// play ends.
#include <algorithm>
#include <memory>
#include <string>

#include "Platform/sim/Simulation.h"
#include "Projects/Common/VoIPFileEngine/LoadPcmFile.h"
#include "Projects/Common/VoIPFileEngine/MemFileReader.h"
#include "Projects/Common/VoIPFileEngine/PCMBuffer.h"
#include "ServiceProcess/LogAdapters.h"
#include "tests/fuzz/PlayToTheEnd.h"

namespace {

constexpr char kWave[] = "/f.wav";
constexpr char kRaw[] = "/f.dat";
u64 lines = 0;

void CountLine(const char*) {
    ++lines;
}

u32 Sum(const u8* bytes, u64 count) {
    u32 sum = 0;
    for (u64 index = 0; index < count; ++index) sum += bytes[index];
    return sum;
}

void CheckWave(std::string_view file) {
    u64 fileSize = 0, offset = 0, size = 0;
    bool adpcm = false;
    const Orv::PageBytes audio = Orv::LoadPcmFile(kWave, fileSize, offset, size, adpcm);
    if (audio == nullptr) return;
    Fuzz::Require(fileSize == file.size(), "the length of the file is told");
    // At a rate whose multiples wrap at 32 bits each sample gives one, and so does the one behind them.
    Fuzz::Require(offset <= fileSize && size <= fileSize - offset + sizeof(i16), "no more audio than the file has");
    const u32 sum = Sum(audio.get(), size);
    if (adpcm) {
        const u8* bytes = reinterpret_cast<const u8*>(file.data());
        Fuzz::Require(sum == Sum(bytes + offset, size), "compressed audio is left as it is");
    }
}

void CheckRaw(std::string_view file) {
    u64 fileSize = 0, offset = 0, size = 0;
    bool adpcm = false;
    const Orv::PageBytes audio = Orv::LoadPcmFile(kRaw, fileSize, offset, size, adpcm);
    if (audio == nullptr) return;
    Fuzz::Require(offset == 0 && size == file.size() && !adpcm, "a file that is no WAV is taken whole");
    Fuzz::Require(std::equal(file.begin(), file.end(), reinterpret_cast<const char*>(audio.get())), "byte for byte");
}

void Play() {
    const auto file = std::make_shared<Orv::PCMBuffer>(kWave, true);
    const MTObjects::THolder<Orv::MemFileReader> reader(new Orv::MemFileReader(Fuzz::PlayedId, file));
    const auto buffer = std::make_unique<u8[]>(Fuzz::PlayedFrameBytes);
    if (reader->Open(nullptr, buffer.get(), Fuzz::PlayedFrameBytes)) Fuzz::PlayToTheEnd(*reader, file->size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
    for (auto* sink : {&Orv::LogErrorSink, &Orv::LogWarnSink, &Orv::LogDebugSink}) *sink = &CountLine;
    lines = 0;
    const std::string_view file = Fuzz::AsText(data, size);
    Platform::Sim::Files().AddFile(kWave, file);
    Platform::Sim::Files().AddFile(kRaw, file);
    CheckWave(file);
    CheckRaw(file);
    Play();
    Fuzz::Require(lines <= 2 * (size / 8) + 16, "the walk steps forward");
    return 0;
}
