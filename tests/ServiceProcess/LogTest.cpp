// Lines: what stands in them, which of them are written, and what a log that cannot be written does.
#include "ServiceProcess/Log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iomanip>
#include <ios>
#include <stdexcept>

#include "LogFixture.h"
#include "ServiceProcess/LogAdapters.h"

namespace {

constexpr char kLogSource[] = "PipeManager";

class LogTest : public LogFixture {
protected:
    void Open(u64 limit = kNoLimit) { writer_.OpenLog("/log", limit); }
    static std::string Written() { return Files().ReadBack(kFile); }
    // What `action` adds to the file.
    template <typename Action>
    std::string Added(Action action) {
        const std::string before = Written();
        action();
        return Written().substr(before.size());
    }
    std::string NewLogLines() const {
        return "#Date: 2024/03/05\n" + At("10:20:30.000") + " Info|: New log file has started\n";
    }

    Orv::LogWriter writer_{"OrvAudioProvider", "./Backup/"};
};

TEST_F(LogTest, TheFirstLineIsTheDateAndTheSecondTellsOfTheNewFile) {
    Open();
    EXPECT_EQ(Written(), NewLogLines());
}

TEST_F(LogTest, ALineHasTimeThreadWordPlaceAndMessage) {
    Open();
    u32 line = 0;
    const std::string added = Added([&] {
        line = __LINE__ + 1;
        ORV_LOG_TO(writer_, Info) << "Root path updated: "
                                  << "/x" << ' ' << 12 << ' ' << 5000000000;
    });
    EXPECT_EQ(added, At("10:20:30.000") + " Info|PipeManager(" + std::to_string(line) +
                         "): Root path updated: /x 12 5000000000\n");
}

TEST_F(LogTest, ANullSourceLeavesOnlyTheSeparator) {
    Open();
    const std::string added = Added([&] { Orv::LogLine(writer_, Orv::LogWords::Warn, nullptr, 7).Stream() << "x"; });
    EXPECT_EQ(added, At("10:20:30.000") + " Warn|: x\n");
}

TEST_F(LogTest, EveryWordIsFiveCharactersWide) {
    Open();
    const auto word = [&](auto&& statement) { return Added(statement).substr(At("10:20:30.000").size(), 6); };
    EXPECT_EQ(word([&] { ORV_LOG_TO(writer_, Error) << "x"; }), "Error|");
    EXPECT_EQ(word([&] { ORV_LOG_TO(writer_, Warn) << "x"; }), " Warn|");
    EXPECT_EQ(word([&] { ORV_LOG_TO(writer_, Info) << "x"; }), " Info|");
    EXPECT_EQ(word([&] { ORV_LOG_TO(writer_, Excep) << "x"; }), "Excep|");
    EXPECT_EQ(word([&] { ORV_LOG_TO(writer_, Trace) << "x"; }), "Trace|");
    EXPECT_EQ(word([&] { ORV_LOG_TO(writer_, Debug) << "x"; }), "Debug|");
}

// One letter for each word that is written at a level.
TEST_F(LogTest, EachLevelWritesTheWordsOfItsThreshold) {
    Open();
    const auto writtenAt = [&](u32 level) {
        writer_.SetLogLevel(level);
        const std::string added = Added([&] {
            ORV_LOG_TO(writer_, Error) << "@E";
            ORV_LOG_TO(writer_, Warn) << "@W";
            ORV_LOG_TO(writer_, Info) << "@I";
            ORV_LOG_TO(writer_, Excep) << "@X";
            ORV_LOG_TO(writer_, Trace) << "@T";
            ORV_LOG_TO(writer_, Debug) << "@D";
        });
        std::string letters;
        for (std::size_t i = added.find('@'); i != std::string::npos; i = added.find('@', i + 1)) {
            letters += added[i + 1];
        }
        return letters;
    };
    EXPECT_EQ(writer_.Level(), 3);
    EXPECT_EQ(writtenAt(0), "");
    EXPECT_EQ(writtenAt(1), "EWIX");
    EXPECT_EQ(writtenAt(2), "EWIXT");
    EXPECT_EQ(writtenAt(3), "EWIXTD");
    EXPECT_EQ(writtenAt(4), "EWIXTD");
    EXPECT_EQ(writtenAt(5), "EWIXTD");
    Orv::SetLogAdapters(0);
}

TEST_F(LogTest, BelowTheLevelTheMessageIsNotEvenBuilt) {
    Open();
    writer_.SetLogLevel(2);
    int built = 0;
    const auto piece = [&built] { return ++built; };
    ORV_LOG_TO(writer_, Debug) << piece();
    EXPECT_EQ(built, 0);
    ORV_LOG_TO(writer_, Trace) << piece();
    EXPECT_EQ(built, 1);
    Orv::SetLogAdapters(0);
}

TEST_F(LogTest, AtLevelZeroNothingButTheLineOfOpenLogIsWritten) {
    writer_.SetLogLevel(0);
    Open();
    ORV_LOG_TO(writer_, Error) << "x";
    ORV_LOG_TO(writer_, Excep) << "x";
    EXPECT_EQ(Written(), NewLogLines());
}

TEST_F(LogTest, AStatementStandsInAnIfWithoutBraces) {
    Open();
    const std::string added = Added([&] {
        for (int i = 0; i < 3; ++i)
            if (i == 1)
                ORV_LOG_TO(writer_, Info) << "one";
            else
                ORV_LOG_TO(writer_, Info) << "other";
    });
    EXPECT_NE(added.find("): one\n"), std::string::npos);
    EXPECT_EQ(std::count(added.begin(), added.end(), '\n'), 3);
}

TEST_F(LogTest, EachLineIsInTheFileAtOnce) {
    Open();
    const std::string added = Added([&] { ORV_LOG_TO(writer_, Debug) << "flushed"; });
    EXPECT_TRUE(added.ends_with("flushed\n"));
}

TEST_F(LogTest, OnlyTheFirstLineOfAMessageHasAPrefix) {
    Open();
    const std::string added = Added([&] { ORV_LOG_TO(writer_, Info) << "a\n    b\n    c"; });
    EXPECT_TRUE(added.ends_with("): a\n    b\n    c\n"));
}

TEST_F(LogTest, AMessageLongerThanTheBufferIsWrittenWhole) {
    Open();
    const std::string text(100'000, 'x');
    const std::string added = Added([&] { ORV_LOG_TO(writer_, Info) << text; });
    EXPECT_TRUE(added.ends_with("): " + text + "\n"));
}

TEST_F(LogTest, AMessageThatThrowsStillEndsItsLineAndGivesTheLockBack) {
    Open();
    const auto fail = []() -> int { throw std::runtime_error("no"); };
    const std::string added =
        Added([&] { EXPECT_THROW(ORV_LOG_TO(writer_, Info) << "half " << fail(), std::runtime_error); });
    EXPECT_TRUE(added.ends_with("): half \n"));
    bool free = false;
    Platform::Sim::Simulation sim;
    sim.Run([&] {
        // Another thread would wait for ever on a lock that was kept.
        Platform::Thread other("other", [&] {
            writer_.Lock();
            free = true;
            writer_.Unlock();
        });
        other.Join();
    });
    EXPECT_TRUE(free);
}

TEST_F(LogTest, WhatAMessageDoesToTheStreamEndsWithItsLine) {
    Open();
    const char* nothing = nullptr;
    ORV_LOG_TO(writer_, Info) << std::hex << std::showbase << 255;
    ORV_LOG_TO(writer_, Info) << "lost " << nothing << " lost";
    const std::string added = Added([&] { ORV_LOG_TO(writer_, Info) << 255; });
    EXPECT_TRUE(added.ends_with("): 255\n")) << added;
    EXPECT_NE(Written().find("): 0xff\n"), std::string::npos);
}

TEST_F(LogTest, AFieldWidthThatNothingUsedDoesNotReachTheNextLine) {
    Open();
    ORV_LOG_TO(writer_, Info) << "x" << std::setw(40);
    const std::string added = Added([&] { Orv::LogLine(writer_, Orv::LogWords::Info, nullptr, 0).Stream() << "y"; });
    EXPECT_EQ(added, At("10:20:30.000") + " Info|: y\n");
}

TEST_F(LogTest, TheDayChangesInTheMiddleOfAFileAndTheFileGoesOn) {
    Platform::Sim::Clock().SetUtcMilliseconds(1709683199500);  // 2024-03-05 23:59:59.500
    writer_.OpenLog("/log", kNoLimit);
    ORV_LOG_TO(writer_, Info) << "before";
    Later(700);
    ORV_LOG_TO(writer_, Info) << "after";
    ORV_LOG_TO(writer_, Info) << "again";
    const std::string text = Files().ReadBack("/log/OrvAudioProvider.2024-03-05.235959.log");
    const auto before = text.find("): before\n");
    const auto header = text.find("\n#Date: 2024/03/06\n" + At("00:00:00.200") + " Info|");
    const auto after = text.find("): after\n");
    ASSERT_NE(header, std::string::npos) << text;
    EXPECT_LT(before, header);
    EXPECT_LT(header, after);
    EXPECT_EQ(text.find("#Date", header + 2), std::string::npos);
    EXPECT_EQ(Files().List("/log").size(), 1u);
}

// Only the number of the day is compared.
TEST_F(LogTest, TheSameDayOfAnotherMonthGetsNoDateOfItsOwn) {
    Open();
    Platform::Sim::Clock().SetUtcMilliseconds(1712312430000);  // 2024-04-05 10:20:30
    const std::string added = Added([&] { ORV_LOG_TO(writer_, Info) << "a month later"; });
    EXPECT_TRUE(added.starts_with(At("10:20:30.000"))) << added;
    Platform::Sim::Clock().SetUtcMilliseconds(1712398830000);  // 2024-04-06 10:20:30
    EXPECT_TRUE(Added([&] { ORV_LOG_TO(writer_, Info) << "a day later"; }).starts_with("#Date: 2024/04/06\n"));
}

TEST_F(LogTest, TimesAreLocal) {
    Platform::Sim::Clock().SetLocalOffsetMinutes(90);
    writer_.OpenLog("/log", kNoLimit);
    const std::string text = Files().ReadBack("/log/OrvAudioProvider.2024-03-05.115030.log");
    EXPECT_NE(text.find("\n11:50:30.000|"), std::string::npos);
}

TEST_F(LogTest, AStatementBeforeOpenLogIsLostWithoutHarm) {
    int built = 0;
    ORV_LOG_TO(writer_, Error) << "lost" << ++built;
    EXPECT_EQ(built, 1);
    EXPECT_EQ(Files().Counters().opens, 0u);
    Open();
    EXPECT_EQ(Written(), NewLogLines());
}

TEST_F(LogTest, AFileThatCannotBeOpenedIsTriedAgainUnderAFreshNameWithEachStatement) {
    Files().FailOpens(kFile, 13);
    Open();
    ORV_LOG_TO(writer_, Error) << "lost";
    EXPECT_FALSE(Files().Exists(kFile));
    EXPECT_EQ(Files().Counters().openFailures, 2u);
    Later(1000);
    ORV_LOG_TO(writer_, Error) << "kept";
    const std::string text = Files().ReadBack("/log/OrvAudioProvider.2024-03-05.102031.log");
    EXPECT_TRUE(text.starts_with("#Date: 2024/03/05\n" + At("10:20:31.000") + "Error|PipeManager("));
    EXPECT_TRUE(text.ends_with("): kept\n"));
}

TEST_F(LogTest, AFolderThatIsMissingLosesTheLinesInSilence) {
    writer_.OpenLog("/nowhere", kNoLimit);
    ORV_LOG_TO(writer_, Error) << "lost";
    EXPECT_FALSE(Files().Exists("/nowhere"));
}

TEST_F(LogTest, AFullDiskLosesLinesOnlyWhileItIsFull) {
    Open();
    Files().SetFreeSpace(0);
    EXPECT_EQ(Added([&] { ORV_LOG_TO(writer_, Error) << "lost"; }), "");
    Files().ClearFaults();
    Files().SetFreeSpace(1u << 20);
    EXPECT_TRUE(Added([&] { ORV_LOG_TO(writer_, Error) << "kept"; }).ends_with("): kept\n"));
}

// A disk that fills up in the middle of a line once left its beginning there, with the next line behind it.
TEST_F(LogTest, ALineForWhichThereIsNoRoomLeavesNothingInTheFile) {
    Open();
    for (const u64 room : {1, 12, 30, 60}) {
        Files().SetFreeSpace(room);
        EXPECT_EQ(Added([&] { ORV_LOG_TO(writer_, Error) << std::string(100, 'x'); }), "") << room;
    }
    // Longer than the buffer, so that it is handed over in pieces.
    Files().SetFreeSpace(50'000);
    EXPECT_EQ(Added([&] { ORV_LOG_TO(writer_, Error) << std::string(70'000, 'x'); }), "");
    EXPECT_TRUE(Added([&] { ORV_LOG_TO(writer_, Error) << "kept"; }).ends_with("): kept\n"));
    Files().SetFreeSpace(1u << 20);
    const std::string added = Added([&] { ORV_LOG_TO(writer_, Error) << "kept too"; });
    EXPECT_TRUE(added.starts_with(At("10:20:30.000") + "Error|PipeManager(")) << added;
    EXPECT_TRUE(added.ends_with("): kept too\n")) << added;
}

TEST_F(LogTest, NoLineStandsInFrontOfADateForWhichTheDiskHadNoRoom) {
    Files().SetFreeSpace(0);
    Open();
    ORV_LOG_TO(writer_, Error) << "lost";
    EXPECT_EQ(Files().ReadBack(kFile), "");
    Files().SetFreeSpace(10);
    ORV_LOG_TO(writer_, Error) << "lost";
    EXPECT_EQ(Files().ReadBack(kFile), "");
    Files().SetFreeSpace(1u << 20);
    ORV_LOG_TO(writer_, Error) << "kept";
    const std::string text = Files().ReadBack(kFile);
    EXPECT_TRUE(text.starts_with("#Date: 2024/03/05\n" + At("10:20:30.000") + "Error|PipeManager(")) << text;
    EXPECT_TRUE(text.ends_with("): kept\n")) << text;
}

// Two threads whose messages are long enough to be interrupted: the lock is held from the prefix to the line feed.
TEST_F(LogTest, LinesOfDifferentThreadsNeverInterleave) {
    Platform::Sim::Options options;
    options.order = Platform::Sim::Order::Seeded;
    options.preemptOneIn = 2;
    Platform::Sim::Simulation sim(7, options);
    sim.Files().AddFolder("/log");
    Orv::LogWriter writer("Threads", nullptr);
    std::string text;
    sim.Run([&] {
        writer.OpenLog("/log", kNoLimit);
        const auto write = [&writer](char letter) {
            for (int i = 0; i < 50; ++i) {
                const auto piece = [letter] {
                    Platform::SleepMilliseconds(1);  // the other thread's turn, if the lock were free
                    return std::string(10, letter);
                };
                ORV_LOG_TO(writer, Info) << piece() << piece();
            }
        };
        Platform::Thread a("a", [&] { write('a'); });
        Platform::Thread b("b", [&] { write('b'); });
        a.Join();
        b.Join();
        text = sim.Files().ReadBack("/log/" + sim.Files().List("/log").front());
        writer.CloseLog();
    });
    int lines[2] = {0, 0};
    for (std::size_t from = 0, to = 0; (to = text.find('\n', from)) != std::string::npos; from = to + 1) {
        const std::string line = text.substr(from, to - from);
        if (line.ends_with("): " + std::string(20, 'a'))) ++lines[0];
        if (line.ends_with("): " + std::string(20, 'b'))) ++lines[1];
    }
    EXPECT_EQ(lines[0], 50);
    EXPECT_EQ(lines[1], 50);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 102);
}

TEST_F(LogTest, TheLockIsRecursive) {
    Open();
    const auto inner = [this] {
        ORV_LOG_TO(writer_, Info) << "inner";
        return "";
    };
    const std::string added = Added([&] { ORV_LOG_TO(writer_, Info) << "outer" << inner(); });
    EXPECT_NE(added.find("outer"), std::string::npos);
    EXPECT_NE(added.find("): inner\n"), std::string::npos);
}

TEST_F(LogTest, TheProcessesWriterHasTheNameOfTheService) {
    Orv::LogWriter& writer = Orv::LogWriter::Instance();
    writer.OpenLog("/log", kNoLimit);
    ORV_LOG(Info) << "here";
    EXPECT_TRUE(Written().ends_with("): here\n"));
    writer.CloseLog();
    EXPECT_TRUE(Files().Exists(kArchived));
    ORV_LOG(Info) << "after the end";  // as a process-wide object might that goes later
    EXPECT_EQ(Files().List("/log"), std::vector<std::string>{"Backup"});
}

}  // namespace
