// The walk through a RIFF file, from disk and from memory, and a stream that plays what the walk has found. An accepted
// file's audio lies in the file, both ways come to the same result, and the stream ends.
#include <memory>
#include <string>

#include "Platform/sim/Simulation.h"
#include "Projects/Common/VoIPFileEngine/RawFileStream.h"
#include "Projects/Common/VoIPFileEngine/WAVFileView.h"
#include "ServiceProcess/LogAdapters.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

constexpr char kPath[] = "/f.wav";
constexpr i32 kFrameBytes = 2000;
u64 lines = 0;

void CountLine(const char*) {
    ++lines;
}

void CheckView(std::string_view file) {
    Orv::WAVFileView disk(kPath, false);
    Orv::WAVFileView memory(kPath, true);
    Fuzz::Require(disk.IsValid() == memory.IsValid(), "disk and memory agree on a file");
    Fuzz::Require(disk.offset == memory.offset && disk.size == memory.size && disk.adpcm == memory.adpcm,
                  "disk and memory find the same audio");
    if (!disk.IsValid()) {
        Fuzz::Require(disk.size == 0, "a refused file has no audio");
        return;
    }
    Fuzz::Require(disk.offset <= file.size() && disk.size <= file.size() - disk.offset, "the audio lies in the file");
    std::string audio(file.size() + 64, '\0');
    for (Orv::WAVFileView* view : {&disk, &memory}) {
        const u64 read = view->Read(audio.data(), 0, audio.size());
        Fuzz::Require(read <= file.size() - disk.offset, "a read ends with the file");
        Fuzz::Require(std::string_view(audio).substr(0, read) == file.substr(disk.offset, read),
                      "a read gives the file's bytes");
    }
}

void PlayToTheEnd(std::size_t fileBytes) {
    const MTObjects::THolder<Orv::RawFileStream> stream(new Orv::RawFileStream(7));
    const auto buffer = std::make_unique<u8[]>(kFrameBytes);
    if (!stream->Open(kPath, buffer.get(), kFrameBytes)) return;
    // A compressed byte gives at most four bytes; what ends two stretches or blocks adds a frame each.
    const std::size_t most = fileBytes * 4 / kFrameBytes + 4;
    Orv::ContentEventList events;
    const u8* frame = nullptr;
    std::size_t frames = 0;
    u32 sum = 0;
    while (stream->GetNextFrame(&frame, events)) {
        Fuzz::Require(frame != nullptr, "a file that plays gives a frame");
        for (i32 index = 0; index < kFrameBytes; ++index) sum += frame[index];
        Fuzz::Require(++frames <= most, "a file ends");
    }
    Fuzz::Require(events.size() == 1 && events.front().id == 7, "the end is told once");
    volatile u32 used = sum;  // every byte has been read
    static_cast<void>(used);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
    for (auto* sink : {&Orv::LogErrorSink, &Orv::LogWarnSink, &Orv::LogDebugSink}) *sink = &CountLine;
    lines = 0;
    const std::string_view file = Fuzz::AsText(data, size);
    Platform::Sim::Files().AddFile(kPath, file);
    CheckView(file);
    PlayToTheEnd(size);
    // Three walks with a line for each chunk of eight bytes and more, and a few for what was wrong.
    Fuzz::Require(lines <= 3 * (size / 8) + 16, "the walk steps forward");
    return 0;
}
