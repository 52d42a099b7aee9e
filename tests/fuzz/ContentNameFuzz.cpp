// Any text as a content name: the factory always gives a reader, the reader has the id and ends or gives frames, and
// what a name means is what the rules of names say.
#include <algorithm>
#include <memory>
#include <string>

#include "Platform/sim/Simulation.h"
#include "Projects/Common/VoIPFileEngine/ContentName.h"
#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"
#include "Projects/Common/VoIPFileEngine/MusicBox.h"
#include "ServiceProcess/LogAdapters.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

constexpr u32 kFrameBytes = 2000;
constexpr u32 kId = 0xFEDCBA98;
u64 logged = 0;

void CountText(const char* text) {
    logged += std::string_view(text).size();
}

void MakeWorld() {
    Platform::Sim::SimFiles& files = Platform::Sim::Files();
    files.AddFile("/a.raw", std::string(5000, 'a'));
    files.AddFile("/folder/b.WAV", std::string(5000, 'b'));
    files.AddFile("/c.pipe", "c");
    for (auto* sink : {&Orv::LogErrorSink, &Orv::LogWarnSink, &Orv::LogTraceSink}) *sink = &CountText;
}

void CheckMeaning(const std::string& name) {
    if (Orv::IsPipeFileName(name)) {
        const std::string path = Orv::LocalPipePath(name);
        Fuzz::Require(Orv::IsPipePath(path), "a .pipe name stands for a pipe path");
        Fuzz::Require(path.size() <= name.size() + 9, "a pipe's name is a part of the .pipe name");
        Fuzz::Require(path.rfind('\\') == 8, "a pipe's name has no folder");
    }
    if (Orv::IsSoundFileName(name)) Fuzz::Require(name.size() > 4, "a bare extension is no name");
    if (Orv::IsGapName(name)) Fuzz::Require(name.size() > 2, "two number signs are no gap");
    const std::string normal = Orv::NormaliseFileName(name);
    const bool kept = normal == name;
    Fuzz::Require(kept || normal.size() <= Orv::MaxNormalisedName, "a normalised name has a limit");
    for (const char c : normal) Fuzz::Require(kept || c < 'A' || c > 'Z', "a normalised name is in lower case");
}

void Play(Orv::IMMFileStreamReader& reader) {
    Orv::ContentEventList events;
    const u8* frame = nullptr;
    for (int block = 0; block < 6; ++block) {
        const bool current = reader.GetNextFrame(&frame, events);
        if (!current) {
            Fuzz::Require(!events.empty() && events.back().id == kId && events.back().kind == 1, "an end is told");
            break;
        }
        Fuzz::Require(events.empty(), "no end before the end");
        if (frame != nullptr) static_cast<void>(std::count(frame, frame + kFrameBytes, u8{'a'}));
    }
    Fuzz::Require(events.size() <= 1, "an end is told once");
    reader.Rewind();
    static_cast<void>(reader.GetName());
    static_cast<void>(reader.IsFile());
    reader.Close();
}

void Check(const std::string& name) {
    CheckMeaning(name);
    const auto buffer = std::make_unique<u8[]>(kFrameBytes);
    const MTObjects::THolder<Orv::IMMFileStreamReader> reader =
        Orv::CreateStreamReader(kId, name.c_str(), buffer.get(), kFrameBytes);
    Fuzz::Require(reader.IsValid() && reader->GetContentId() == kId, "every name gives a reader with its id");
    Play(*reader);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
    // One world for all: what it remembers between two names must not matter. Each run ends all its threads.
    static Platform::Sim::Simulation* const world = [] {
        auto* simulation = new Platform::Sim::Simulation(1);
        MakeWorld();
        return simulation;
    }();
    const std::string name(Fuzz::AsText(data, size).substr(0, std::find(data, data + size, u8{0}) - data));
    world->Run([&] {
        const bool wantsBox = Orv::IsMusicBoxName(name) && name.size() < 8;
        if (wantsBox) Orv::RegisterMusicBox(name, Orv::CreateStreamSet(), nullptr, 0);
        Check(name);
        if (wantsBox) Fuzz::Require(Orv::UnregisterMusicBox(name, true), "a box is found by the name it was given");
    });
    return 0;
}
