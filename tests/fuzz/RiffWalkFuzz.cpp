// The walk through a RIFF file, from disk and from memory, and two readers that play what the walk has found. An
// accepted file's audio lies in the file, both ways come to the same result, and the readers end.
#include <memory>
#include <string>

#include "Platform/sim/Simulation.h"
#include "Projects/Common/VoIPFileEngine/MemFileReader.h"
#include "Projects/Common/VoIPFileEngine/RawFileStream.h"
#include "Projects/Common/VoIPFileEngine/WAVFileView.h"
#include "ServiceProcess/LogAdapters.h"
#include "tests/fuzz/PlayToTheEnd.h"

namespace {

constexpr char kPath[] = "/f.wav";
u64 lines = 0;

void CountLine(const char*) {
    ++lines;
}

void CheckView(std::string_view file) {
    Orv::WAVFileView disk(kPath, false, false);
    Orv::WAVFileView memory(kPath, true, false);
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

void PlayBoth(std::size_t fileBytes) {
    const auto buffer = std::make_unique<u8[]>(Fuzz::PlayedFrameBytes);
    const MTObjects::THolder<Orv::RawFileStream> disk(new Orv::RawFileStream(Fuzz::PlayedId));
    if (disk->Open(kPath, buffer.get(), Fuzz::PlayedFrameBytes)) Fuzz::PlayToTheEnd(*disk, fileBytes);
    const auto view = std::make_shared<Orv::WAVFileView>(kPath, true, true);
    const MTObjects::THolder<Orv::MemFileReader> memory(new Orv::MemFileReader(Fuzz::PlayedId, view));
    if (memory->Open(nullptr, buffer.get(), Fuzz::PlayedFrameBytes)) Fuzz::PlayToTheEnd(*memory, fileBytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
    for (auto* sink : {&Orv::LogErrorSink, &Orv::LogWarnSink, &Orv::LogDebugSink}) *sink = &CountLine;
    lines = 0;
    const std::string_view file = Fuzz::AsText(data, size);
    Platform::Sim::Files().AddFile(kPath, file);
    CheckView(file);
    PlayBoth(size);
    // Four walks with a line for each chunk of eight bytes and more, and a few for what was wrong.
    Fuzz::Require(lines <= 4 * (size / 8) + 16, "the walk steps forward");
    return 0;
}
