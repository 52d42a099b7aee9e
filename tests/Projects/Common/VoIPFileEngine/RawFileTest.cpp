#include "Projects/Common/VoIPFileEngine/RawFile.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"
#include "Projects/Common/VoIPFileEngine/RawFileStream.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/SoundFiles.h"
#include "tests/Projects/Common/VoIPFileEngine/StreamPlayer.h"

namespace Orv {
namespace {

using Platform::Sim::Files;
using TestData::Audio;
using TestData::PcmWave;
using TestData::RawLine;
using TestData::SameBytes;
using TestData::StreamPlayer;
using Lines = std::vector<std::string>;

class RawFileTest : public testing::Test {
protected:
    RawFileTest() { Platform::Sim::ResetProcessWorld(); }
    TestData::EngineLog log_;
};

TEST_F(RawFileTest, AWaveFileHasTheBoundsOfItsAudioAndAnyOtherFileNone) {
    Files().AddFile("/s/a.wav", PcmWave(Audio(1000)) + "tail");
    Files().AddFile("/s/b.wav", TestData::AdpcmWave(Audio(512)));
    Files().AddFile("/s/c.wav", PcmWave("") + "tail");
    Files().AddFile("/s/d.raw", Audio(1000));
    const auto a = OpenRawFile("/s/a.wav"), b = OpenRawFile("/s/b.wav"), c = OpenRawFile("/s/c.wav"),
               d = OpenRawFile("/s/d.raw");
    ASSERT_TRUE(a.IsValid() && b.IsValid() && c.IsValid() && d.IsValid());
    EXPECT_EQ(a->start, 44u);
    EXPECT_EQ(a->end, 1044u);
    EXPECT_FALSE(a->adpcm);
    EXPECT_EQ(b->start, 48u);
    EXPECT_EQ(b->end, 560u);
    EXPECT_TRUE(b->adpcm);
    EXPECT_EQ(c->start, 44u);
    EXPECT_EQ(c->end, 0u);
    EXPECT_EQ(d->start, 0u);
    EXPECT_EQ(d->end, 0u);
    EXPECT_FALSE(d->adpcm);
    // The header's view is closed again.
    EXPECT_EQ(Files().Counters().filesAlive, 4u);
}

TEST_F(RawFileTest, AFileThatCannotBeOpenedIsToldByItsSystemErrorAndAsNotFound) {
    Files().AddFile("/s/closed.raw", "x");
    Files().FailOpens("/s/closed.raw", 13);
    EXPECT_FALSE(OpenRawFile("/s/closed.raw"));
    EXPECT_EQ(log_.Take(), (Lines{RawLine("Error", "/s/closed.raw : error = 0xd, " + Platform::SystemErrorText(13)),
                                  RawLine("Warn", "/s/closed.raw not found")}));
    EXPECT_FALSE(OpenRawFile("/s/none.raw"));
    EXPECT_EQ(log_.Take(), (Lines{RawLine("Error", "/s/none.raw : error = 0x2, " + Platform::SystemErrorText(2)),
                                  RawLine("Warn", "/s/none.raw not found")}));
}

TEST_F(RawFileTest, WhatIsNoRegularFileIsNotPlayed) {
    Files().AddFolder("/s/folder.raw");
    Files().AddSpecial("/s/fifo.raw", Platform::Sim::FileKind::Fifo);
    for (const std::string path : {"/s/folder.raw", "/s/fifo.raw"}) {
        EXPECT_FALSE(GetSharedRawFile(path));
        EXPECT_EQ(log_.Take().back(), RawLine("Warn", path + " not found"));
    }
}

TEST_F(RawFileTest, AWaveFileThatGoesBetweenItsHeaderAndItsOpeningIsNotFound) {
    // The first opening, for the header, is delayed; the second fails.
    Files().AddFile("/s/a.wav", PcmWave(Audio(1000)));
    Platform::Sim::Simulation sim;
    sim.Files().AddFile("/s/a.wav", PcmWave(Audio(1000)));
    sim.Files().DelayReads("/s/a.wav", 100);
    sim.Run([&] {
        Platform::Thread opener("opener", [] { EXPECT_FALSE(OpenRawFile("/s/a.wav")); });
        Platform::SleepMilliseconds(50);
        sim.Files().Remove("/s/a.wav");
        opener.Join();
    });
    EXPECT_EQ(log_.Take().back(), RawLine("Warn", "/s/a.wav not found"));
}

TEST_F(RawFileTest, AnErrorIsToldInHexadecimalWithItsText) {
    ReportSystemError(2, "label");
    EXPECT_EQ(log_.Take(), Lines{RawLine("Error", "label : error = 0x2, " + Platform::SystemErrorText(2))});
    EXPECT_FALSE(Platform::SystemErrorText(2).empty());
}

TEST_F(RawFileTest, AnErrorWithoutATextSaysSo) {
    ASSERT_EQ(Platform::SystemErrorText(0xFFFFFFF0), "");
    ReportSystemError(0xFFFFFFF0, "UpdateStatus");
    EXPECT_EQ(log_.Take(),
              Lines{RawLine("Error", "UpdateStatus : error = 0xfffffff0, Could not find a description for error")});
}

TEST_F(RawFileTest, TwoStreamsOnOnePathShareOneFileAndTellItsComingAndGoing) {
    const std::string audio = Audio(5000);
    Files().AddFile("/s/a.raw", audio);
    {
        StreamPlayer first("/s/a.raw", 2000);
        EXPECT_EQ(log_.Take(), Lines{RawLine("Trace", "/s/a.raw put to shared async i/o storage")});
        {
            StreamPlayer second("/s/a.raw", 2000);
            EXPECT_EQ(log_.Take(), Lines{RawLine("Trace", "/s/a.raw taken from shared async i/o storage")});
            EXPECT_EQ(Files().Counters().filesAlive, 1u);
            // Each has its own position.
            EXPECT_TRUE(SameBytes(first.Next(), audio.substr(0, 2000)));
            EXPECT_TRUE(SameBytes(first.Next(), audio.substr(2000, 2000)));
            EXPECT_TRUE(SameBytes(second.Next(), audio.substr(0, 2000)));
        }
        EXPECT_EQ(log_.Take(), Lines{RawLine("Trace", "/s/a.raw file is still shared with other entity")});
        EXPECT_EQ(Files().Counters().filesAlive, 1u);
    }
    EXPECT_EQ(log_.Take(), Lines{RawLine("Trace", "/s/a.raw removed from shared storage")});
    EXPECT_EQ(Files().Counters().filesAlive, 0u);
}

TEST_F(RawFileTest, AStreamOpenedAgainGivesItsOldFileBack) {
    Files().AddFile("/s/a.raw", Audio(5000));
    Files().AddFile("/s/b.raw", Audio(5000));
    StreamPlayer player("/s/a.raw", 2000);
    player.Next();
    log_.Take();
    ASSERT_TRUE(player.Open("/s/b.raw"));
    EXPECT_EQ(log_.Take(), (Lines{RawLine("Trace", "/s/a.raw removed from shared storage"),
                                  RawLine("Trace", "/s/b.raw put to shared async i/o storage")}));
    EXPECT_EQ(Files().Counters().filesAlive, 1u);
}

TEST_F(RawFileTest, AFileThatCouldNotBeOpenedIsNotStored) {
    EXPECT_FALSE(GetSharedRawFile("/s/a.raw"));
    Files().AddFile("/s/a.raw", Audio(100));
    log_.Take();
    EXPECT_TRUE(GetSharedRawFile("/s/a.raw"));
    EXPECT_EQ(log_.Take(), Lines{RawLine("Trace", "/s/a.raw put to shared async i/o storage")});
    ReleaseSharedRawFile("/s/a.raw");
}

TEST_F(RawFileTest, ANameThatNobodySharesIsReleasedAsRemoved) {
    ReleaseSharedRawFile("/s/nobody.raw");
    EXPECT_EQ(log_.Take(), Lines{RawLine("Trace", "/s/nobody.raw removed from shared storage")});
}

// Goal: of two threads that open one path at once the slower one takes the quicker one's file. Method: opening takes
// 100 ms, so that both have found nothing in the storage before either has stored its file.
TEST_F(RawFileTest, TheSlowerOfTwoOpenersTakesTheFileOfTheQuicker) {
    Platform::Sim::Simulation sim;
    sim.Files().AddFile("/s/a.raw", Audio(100));
    sim.Files().DelayOpens("/s/a.raw", 100);
    MTObjects::THolder<IRawFile> first, second;
    sim.Run([&] {
        Platform::Thread opener("opener", [&] { first = GetSharedRawFile("/s/a.raw"); });
        Platform::SleepMilliseconds(50);
        second = GetSharedRawFile("/s/a.raw");
        opener.Join();
    });
    EXPECT_EQ(log_.Take(), (Lines{RawLine("Trace", "/s/a.raw put to shared async i/o storage"),
                                  RawLine("Trace", "/s/a.raw was shared by other entity")}));
    EXPECT_TRUE(first.IsValid());
    EXPECT_EQ(first, second);
    EXPECT_EQ(sim.Files().Counters().filesAlive, 1u);
    ReleaseSharedRawFile("/s/a.raw");
    EXPECT_EQ(log_.Take(), Lines{RawLine("Trace", "/s/a.raw file is still shared with other entity")});
    ReleaseSharedRawFile("/s/a.raw");
}

TEST_F(RawFileTest, AReadIsCutAtTheEndOfTheAudioAndOneBehindItIsNotMade) {
    Files().AddFile("/s/a.wav", PcmWave(Audio(10'000)) + Audio(10'000));
    const auto file = OpenRawFile("/s/a.wav");
    IRawFileBuffer buffer(file);
    EXPECT_TRUE(buffer.IssueRead(44, 8192));
    EXPECT_EQ(buffer.bytes, 8192u);
    EXPECT_TRUE(buffer.IssueRead(10'043, 8192));
    EXPECT_EQ(buffer.bytes, 1u);
    EXPECT_EQ(log_.Take(), Lines{});
    for (const u32 position : {10'044u, 10'045u, 20'000u, 0xFFFFFFFFu}) {
        EXPECT_FALSE(buffer.IssueRead(position, 8192));
        EXPECT_TRUE(buffer.ready);
        EXPECT_TRUE(buffer.eof);
        EXPECT_FALSE(buffer.failed);
        EXPECT_EQ(buffer.bytes, 0u);
        EXPECT_EQ(log_.Take(), Lines{RawLine("Debug", "ReadFile skip at EOF")});
    }
}

TEST_F(RawFileTest, ABufferThatIsNotReadyHandsNothingOut) {
    Files().AddFile("/s/a.raw", Audio(100));
    Files().HangReads("/s/a.raw", true);
    const auto file = OpenRawFile("/s/a.raw");
    IRawFileBuffer buffer(file);
    EXPECT_FALSE(buffer.IssueRead(0, 8192));
    EXPECT_FALSE(buffer.ready || buffer.eof || buffer.failed);
    EXPECT_FALSE(buffer.UpdateStatus());
    const u8* bytes = reinterpret_cast<const u8*>(1);
    EXPECT_EQ(buffer.Take(&bytes, 100), 0u);
    EXPECT_EQ(bytes, nullptr);
}

}  // namespace
}  // namespace Orv
