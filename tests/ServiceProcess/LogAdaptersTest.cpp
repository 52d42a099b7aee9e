#include "ServiceProcess/LogAdapters.h"

#include <gtest/gtest.h>

#include "LogFixture.h"

namespace {

constexpr char kLogSource[] = "VoIPFileEngine/MusicBox";

class LogAdaptersTest : public LogFixture {
protected:
    void SetUp() override {
        LogFixture::SetUp();
        Orv::LogWriter::Instance().SetLogLevel(0);
    }
    void TearDown() override {
        Orv::LogWriter::Instance().CloseLog();
        Orv::LogWriter::Instance().SetLogLevel(0);
        Orv::LogWriter::Instance().SetLogLevel(4);
    }
    // One letter for each pointer that is set.
    static std::string Set() {
        std::string letters;
        if (Orv::LogErrorSink.load() != nullptr) letters += 'E';
        if (Orv::LogWarnSink.load() != nullptr) letters += 'W';
        if (Orv::LogInfoSink.load() != nullptr) letters += 'I';
        if (Orv::LogTraceSink.load() != nullptr) letters += 'T';
        if (Orv::LogDebugSink.load() != nullptr) letters += 'D';
        return letters;
    }
    static std::string SetBy(u32 level) {
        Orv::LogWriter::Instance().SetLogLevel(level);
        return Set();
    }
};

TEST_F(LogAdaptersTest, EachLevelFillsAndEmptiesThePointers) {
    EXPECT_EQ(SetBy(0), "");
    EXPECT_EQ(SetBy(1), "EW");
    EXPECT_EQ(SetBy(2), "EWI");
    EXPECT_EQ(SetBy(3), "EWITD");
    EXPECT_EQ(SetBy(1), "EW");
    EXPECT_EQ(SetBy(0), "");
}

TEST_F(LogAdaptersTest, LevelsFourAndFiveLeaveWhatTheLastSettingMade) {
    EXPECT_EQ(SetBy(4), "");
    EXPECT_EQ(SetBy(2), "EWI");
    EXPECT_EQ(SetBy(5), "EWI");
    EXPECT_EQ(SetBy(4), "EWI");
    EXPECT_EQ(Orv::LogWriter::Instance().Level(), 4);
}

TEST_F(LogAdaptersTest, AnEngineMessageIsAStatementOfTheHostWithTheEnginesPlaceInItsText) {
    Orv::LogWriter::Instance().OpenLog("/log", kNoLimit);
    Orv::LogWriter::Instance().SetLogLevel(3);
    std::size_t from = Files().ReadBack(kFile).size();
    const auto added = [&from] {
        const std::string text = Files().ReadBack(kFile);
        const std::string tail = text.substr(from);
        from = text.size();
        return tail;
    };
    const auto expectLine = [](const std::string& line, const char* word, u32 place) {
        EXPECT_TRUE(line.starts_with(At("10:20:30.000") + word + "|OrvAudioFeeder(")) << line;
        EXPECT_TRUE(line.ends_with("): VoIPFileEngine/MusicBox(" + std::to_string(place) + ") box 7\n")) << line;
    };
    ORV_ENGINE_LOG(LogErrorSink, "box " << 7);
    expectLine(added(), "Error", __LINE__ - 1);
    ORV_ENGINE_LOG(LogWarnSink, "box " << 7);
    expectLine(added(), " Warn", __LINE__ - 1);
    ORV_ENGINE_LOG(LogInfoSink, "box " << 7);
    expectLine(added(), " Info", __LINE__ - 1);
    ORV_ENGINE_LOG(LogTraceSink, "box " << 7);
    expectLine(added(), "Trace", __LINE__ - 1);
    ORV_ENGINE_LOG(LogDebugSink, "box " << 7);
    expectLine(added(), "Debug", __LINE__ - 1);
}

TEST_F(LogAdaptersTest, ANullPointerMeansThatTheTextIsNotEvenBuilt) {
    int built = 0;
    ORV_ENGINE_LOG(LogErrorSink, ++built);
    EXPECT_EQ(built, 0);
    Orv::LogWriter::Instance().SetLogLevel(1);
    ORV_ENGINE_LOG(LogErrorSink, ++built);
    EXPECT_EQ(built, 1);
}

}  // namespace

// Runs before any SetLogLevel(): the pointers are as the process found them.
namespace {
const bool allNullAtStart = Orv::LogErrorSink.load() == nullptr && Orv::LogWarnSink.load() == nullptr &&
                            Orv::LogInfoSink.load() == nullptr && Orv::LogTraceSink.load() == nullptr &&
                            Orv::LogDebugSink.load() == nullptr;

TEST(LogAdaptersAtProcessStartTest, AllPointersAreNullThoughTheLevelIsThree) {
    EXPECT_TRUE(allNullAtStart);
    EXPECT_EQ(Orv::LogWriter("x", nullptr).Level(), 3);
}
}  // namespace
