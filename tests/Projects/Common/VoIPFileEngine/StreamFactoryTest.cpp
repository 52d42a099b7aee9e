// The factory's walk from a name to a reader, over the files of a world in memory, with every message.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "Platform/sim/Simulation.h"
#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "Projects/Common/VoIPFileEngine/MusicBox.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/LiveSource.h"
#include "tests/Projects/Common/VoIPFileEngine/ReaderFakes.h"

namespace Orv {
namespace {

using TestData::Finished;
using TestData::Pull;
using TestData::Pulled;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using Holder = MTObjects::THolder<IMMFileStreamReader>;

std::string Line(const std::string& word, const std::string& text) {
    return word + " VoIPFileEngine/IMMFileStreamReader: " + text;
}

class StreamFactory : public testing::Test {
protected:
    StreamFactory() {
        Platform::Sim::ResetProcessWorld();
        Platform::Sim::Files().AddFolder("/Base");
        Platform::Sim::Files().SetWorkingDirectory("/Base");
        log_.Take();
    }
    ~StreamFactory() override { Platform::Sim::ResetProcessWorld(); }

    Holder Create(const char* name) { return CreateStreamReader(42, name, buffer_, 2000); }

    // That the name gives the reader of what could not be opened, and these messages.
    void ExpectFake(const char* name, const std::vector<std::string>& lines) {
        const Holder reader = Create(name);
        ASSERT_TRUE(reader.IsValid());
        EXPECT_EQ(log_.Take(), lines);
        EXPECT_FALSE(reader->IsOpen());
        EXPECT_EQ(reader->GetContentId(), 42u);
        const Pulled pulled = Pull(*reader);
        EXPECT_EQ(pulled.frame, nullptr);
        EXPECT_FALSE(pulled.result);
        EXPECT_EQ(pulled.events, Finished({42}));
    }

    TestData::EngineLog log_;
    u8 buffer_[2000] = {};
};

TEST_F(StreamFactory, ANullOrEmptyNameIsAFakeStream) {
    ExpectFake(nullptr, {Line("Error", "Filename is not specified")});
    ExpectFake("", {Line("Error", "Filename is not specified")});
}

TEST_F(StreamFactory, AGapIsReturnedWhateverItsTextSays) {
    const Holder gap = Create("#5#");
    for (int i = 0; i < 40; ++i) EXPECT_TRUE(Pull(*gap).result);
    const Pulled end = Pull(*gap);
    EXPECT_FALSE(end.result);
    EXPECT_EQ(end.events, Finished({42}));

    const Holder nothing = Create("###");
    EXPECT_TRUE(nothing->IsOpen());
    EXPECT_FALSE(Pull(*nothing).result);
    EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(StreamFactory, TwoNumberSignsAreAFileName) {
    ExpectFake("##", {Line("Warn", "Cannot open stream source '/base/##'")});
    ExpectFake("#", {Line("Warn", "Cannot open stream source '/base/#'")});
}

TEST_F(StreamFactory, LinksAreRefusedWithTheNameDirectlyBehindTheMessage) {
    ExpectFake("HTTP://Radio/a.wav",
               {Line("Error", "direct http: and mms: links are not supportedHTTP://Radio/a.wav")});
    ExpectFake("mms:", {Line("Error", "direct http: and mms: links are not supportedmms:")});
    ExpectFake("See http", {Line("Warn", "Cannot open stream source '/base/see http'")});
}

// Without a simulation there is no thread for a live source, so that none can be opened.
TEST_F(StreamFactory, APipePathThatIsNotOpenIsAnError) {
    const auto expect = [&](const std::string& name) {
        ExpectFake(name.c_str(), {"Warn VoIPFileEngine/PipeStream: " + name + " not created",
                                  Line("Error", "Cannot open named pipe stream '" + name + "'"),
                                  "Trace VoIPFileEngine/PipeStream: " + name + " removed from shared storage"});
    };
    expect("\\\\.\\pipe\\Radio");
    // A pipe path comes before a music box name and before any file ending.
    expect("\\\\x\\pipe\\a:");
    expect("\\\\x\\pipe\\a.wav");
}

// A reader is open whether or not anybody serves its pipe, and plays what comes.
TEST_F(StreamFactory, APipePathPlaysWhatAnotherProcessServes) {
    Platform::Sim::Simulation sim;
    sim.Run([&] {
        const Holder reader = Create("\\\\.\\pipe\\Radio");
        const Holder elsewhere = Create("\\\\otherhost\\pipe\\Radio");
        for (const Holder& each : {reader, elsewhere}) {
            EXPECT_TRUE(each->IsOpen());
            EXPECT_EQ(each->GetContentId(), 42u);
            EXPECT_TRUE(TestData::AllZero(Pull(*each).frame, 2000));
        }
        TestData::LiveSource source("radio");
        source.Accept();
        source.SendAndSettle(TestData::LiveBytes(0, 2000));
        EXPECT_EQ(TestData::FrameBytes(Pull(*reader).frame, 2000), TestData::LiveBytes(0, 2000));
        Platform::SleepMilliseconds(1000);
        EXPECT_EQ(sim.Pipes().Counters().connects, 1u) << "nothing is found on another host";
        EXPECT_TRUE(Pull(*elsewhere).result);
    });
}

TEST_F(StreamFactory, ANameThatEndsInPipePlaysTheLocalPipeOfThatNameInLowerCase) {
    Platform::Sim::Simulation sim;
    sim.Run([&] {
        const Holder reader = Create("Music\\Jingle.PIPE");
        EXPECT_EQ(reader->GetName(), "\\\\.\\pipe\\jingle");
        TestData::LiveSource source("Jingle");
        source.Accept();
        source.SendAndSettle(TestData::LiveBytes(0, 2000));
        EXPECT_EQ(TestData::FrameBytes(Pull(*reader).frame, 2000), TestData::LiveBytes(0, 2000));
        EXPECT_EQ(sim.Files().Counters().opens, 0u);
    });
}

// A live source under a stream set: it never ends, so that the list stays on it, and its frame outlives it.
TEST_F(StreamFactory, ALiveSourceInAListStaysCurrentAndItsLastFrameOutlivesItsReplacement) {
    Platform::Sim::Simulation sim;
    sim.Run([&] {
        const auto set = CreateStreamSet();
        set->Prepare(buffer_, 2000);
        set->SetOverlayContent(4, {{1, "\\\\.\\pipe\\radio", false}, {2, "##1#", false}}, false);
        set->SetMixMask(2);
        const auto reader = set->GetReader();
        for (int i = 0; i < 100; ++i) {
            const Pulled pulled = Pull(*reader);
            ASSERT_TRUE(TestData::AllZero(pulled.frame, 2000));
            ASSERT_TRUE(pulled.events.empty());
            Platform::SleepMilliseconds(125);
        }
        EXPECT_EQ(reader->GetContentId(), 1u);
        TestData::LiveSource source("radio");
        source.Accept();
        source.SendAndSettle(TestData::LiveBytes(0, 4000));
        const Pulled last = Pull(*reader);
        ASSERT_NE(last.frame, buffer_);
        // A source that sends on: a silent one would be told as lost at its end, which zeroes the ring.
        Platform::Thread server("server", [&] {
            Platform::SleepMilliseconds(125);
            source.Send("ab");
        });
        set->SetOverlayContent(5, {{3, "##1#", false}}, false);
        EXPECT_EQ(sim.Pipes().Counters().clientsAlive, 0u) << "the connection has gone with the reader";
        EXPECT_EQ(TestData::FrameBytes(last.frame, 2000), TestData::LiveBytes(0, 2000));
        EXPECT_TRUE(TestData::AllZero(Pull(*reader).frame, 2000));
        server.Join();
    });
}

TEST_F(StreamFactory, ANameThatEndsInAColonIsAMusicBoxAndNeverReachesTheDisk) {
    Platform::Sim::Files().AddFile("/Base/C:", "x");
    const u64 opens = Platform::Sim::Files().Counters().opens;
    ExpectFake("C:", {Line("Error", "Cannot find musicbox 'C:'")});
    ExpectFake("defaultset:", {Line("Error", "Cannot find musicbox 'defaultset:'")});
    EXPECT_EQ(Platform::Sim::Files().Counters().opens, opens);
}

TEST_F(StreamFactory, ARegisteredMusicBoxIsOpened) {
    Platform::Sim::Simulation sim;
    sim.Run([&] {
        MTObjects::THolder<IMusicBox> box = RegisterMusicBox("radio:", CreateStreamSet(), nullptr, 0);
        log_.Take();
        Holder reader = Create("radio:");
        EXPECT_THAT(log_.Take(), Contains(Line("Trace", "Stream for musicbox 'radio:' opened")));
        EXPECT_TRUE(reader->IsOpen());
        EXPECT_EQ(reader->GetContentId(), 42u);
        ExpectFake("Radio:", {Line("Error", "Cannot find musicbox 'Radio:'")});
        UnregisterMusicBox("radio:", true);
    });
}

TEST_F(StreamFactory, ASoundFileIsFoundByItsLowerCasedPath) {
    std::string audio;
    for (int i = 0; i < 1500; ++i) audio += "\x01\x02";
    Platform::Sim::Files().AddFile("/Base/Music/Jingle.RAW", audio);
    const Holder reader = Create("Music\\JINGLE.Raw");
    EXPECT_THAT(log_.Take(), Contains(Line("Trace",
                                           "/base/music/jingle.raw opened as 8000 Hz 16 bit mono async I/O "
                                           "stream")));
    EXPECT_TRUE(reader->IsFile());
    EXPECT_EQ(reader->GetContentId(), 42u);
    const Pulled pulled = Pull(*reader);
    ASSERT_NE(pulled.frame, nullptr);
    EXPECT_EQ(pulled.Sample(999), 0x0201);
}

TEST_F(StreamFactory, ASoundFileThatCannotBeOpenedIsWarnedOf) {
    for (const char* name : {"Missing.WAV", "missing.raw"}) {
        const Holder reader = Create(name);
        const std::string lower = name[0] == 'M' ? "missing.wav" : "missing.raw";
        EXPECT_THAT(log_.Take(), Contains(Line("Warn", "Cannot open stream source '/base/" + lower + "'")));
        EXPECT_FALSE(Pull(*reader).result);
    }
}

TEST_F(StreamFactory, TheNextItemPlaysInTheTickInWhichAFileFailed) {
    const auto set = CreateStreamSet();
    set->Prepare(buffer_, 2000);
    set->SetOverlayContent(4, {{1, "missing.wav", false}, {2, "##1#", false}}, false);
    set->SetMixMask(2);
    const Pulled pulled = Pull(*set->GetReader());
    EXPECT_NE(pulled.frame, nullptr);
    EXPECT_TRUE(pulled.result);
    EXPECT_EQ(pulled.events, Finished({1}));
}

// A list may be replaced on another thread while its last frame is still in use: the frame stays, but the file's name
// is given back at once, so that the new list opens what is on the disk now.
TEST_F(StreamFactory, AReplacedListGivesItsFileBackAtOnceAndKeepsTheFrameInUse) {
    Platform::Sim::Files().AddFile("/hold.raw", std::string(100000, '\x11'));
    const auto set = CreateStreamSet();
    set->Prepare(buffer_, 2000);
    set->SetMainContent(2, {{1, "/hold.raw", false}}, false);
    set->SetMixMask(1);
    const auto reader = set->GetReader();
    for (int i = 0; i < 10; ++i) Pull(*reader);
    const Pulled old = Pull(*reader);
    ASSERT_NE(old.frame, buffer_);
    Platform::Sim::Files().Replace("/hold.raw", std::string(100000, '\x22'));
    log_.Take();
    set->SetMainContent(2, {{1, "/hold.raw", false}}, false);
    EXPECT_THAT(log_.Take(), ElementsAre("Trace VoIPFileEngine/RawFile: /hold.raw removed from shared storage",
                                         "Trace VoIPFileEngine/RawFile: /hold.raw put to shared async i/o storage",
                                         Line("Trace", "/hold.raw opened as 8000 Hz 16 bit mono async I/O stream")));
    EXPECT_EQ(old.Samples(1000), std::vector<i16>(1000, 0x1111));
    EXPECT_EQ(Pull(*reader).Sample(0), 0x2222);
}

TEST_F(StreamFactory, ANameThatEndsInPipeIsNeverReadAndTellsItsFailureAtTrace) {
    Platform::Sim::Files().AddFile("/Base/Music/Jingle.PIPE", "x");
    const u64 opens = Platform::Sim::Files().Counters().opens;
    ExpectFake("Music\\Jingle.PIPE",
               {"Warn VoIPFileEngine/PipeStream: \\\\.\\pipe\\jingle not created",
                Line("Trace", "Cannot open named pipe stream '/base/music/jingle.pipe'"),
                "Trace VoIPFileEngine/PipeStream: \\\\.\\pipe\\jingle removed from shared storage"});
    EXPECT_EQ(Platform::Sim::Files().Counters().opens, opens);
}

TEST_F(StreamFactory, NoOtherExtensionIsRead) {
    for (const char* name : {"a.mp3", "a", "a.wave", "a.raw.txt"}) {
        Platform::Sim::Files().AddFile(std::string("/Base/") + name, "RIFF");
        const u64 opens = Platform::Sim::Files().Counters().opens;
        ExpectFake(name, {Line("Warn", "Cannot open stream source '/base/" + std::string(name) + "'")});
        EXPECT_EQ(Platform::Sim::Files().Counters().opens, opens);
    }
}

TEST_F(StreamFactory, ANameThatCannotBeMadeAPathIsUsedAsItIs) {
    const std::string tooLong = std::string(3000, 'A');
    ExpectFake(tooLong.c_str(), {Line("Warn", "Cannot open stream source '" + tooLong + "'")});
}

TEST_F(StreamFactory, ASinkThatIsNullSilencesItsWord) {
    LogWarnSink = nullptr;
    ExpectFake("a.txt", {});
}

TEST_F(StreamFactory, TheCacheHasNothing) {
    EXPECT_EQ(MemoryFileCache::Instance().Find("Music\\a.wav"), nullptr);
    EXPECT_FALSE(CreateMemFileReader(1, "Music\\a.wav", buffer_, 2000));
}

// Odd names: each gives a reader with the id that sets its frame and ends, and opens nothing, since the disk is empty.
TEST_F(StreamFactory, WhateverTheNameAReaderComesThatCarriesTheIdAndEnds) {
    std::mt19937 engine(7);
    const char* const pieces[] = {"#",     "##",   "-",     "5",    "\\",       "/",    ".",
                                  "..",    ":",    "http:", "MM",   "S:",       ".wav", ".RAW",
                                  ".pipe", "pipe", "\\\\",  "%s%n", "\xC3\xA4", "\xFF", "a",
                                  "A",     " ",    "\r\n",  "\t",   "C:",       "\x01", "9999999999999999999",
                                  "//"};
    for (int round = 0; round < 5000; ++round) {
        std::string name;
        for (u32 count = engine() % 8; count > 0; --count) name += pieces[engine() % std::size(pieces)];
        if (round % 100 == 0) name += std::string(engine() % 5000, 'x') + pieces[engine() % std::size(pieces)];
        const u32 id = engine();
        const Holder reader = CreateStreamReader(id, name.c_str(), buffer_, 2000);
        ASSERT_TRUE(reader.IsValid()) << name;
        EXPECT_EQ(reader->GetContentId(), id);
        EXPECT_FALSE(reader->IsFile());
        const bool gap = name.size() >= 3 && name.front() == '#' && name.back() == '#';
        EXPECT_EQ(reader->IsOpen(), gap) << name;
        const Pulled first = Pull(*reader);
        EXPECT_TRUE(first.frame == nullptr || TestData::AllZero(first.frame, 2000)) << name;
        EXPECT_EQ(first.events, first.result ? TestData::Events{} : Finished({id})) << name;
        EXPECT_TRUE(gap || !first.result) << name;
    }
}

}  // namespace
}  // namespace Orv
