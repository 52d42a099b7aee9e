// Files: when one begins, what it is called, and where it goes when it is closed.
#include <gtest/gtest.h>

#include <memory>

#include "LogFixture.h"

namespace {

constexpr char kLogSource[] = "Test";
using Names = std::vector<std::string>;

class LogArchiveTest : public LogFixture {
protected:
    void Write(const std::string& text) { ORV_LOG_TO(*writer_, Info) << text; }
    void Make(const char* backupFolder) {
        writer_ = std::make_unique<Orv::LogWriter>("OrvAudioProvider", backupFolder);
    }

    std::unique_ptr<Orv::LogWriter> writer_ = std::make_unique<Orv::LogWriter>("OrvAudioProvider", "./Backup/");
};

TEST_F(LogArchiveTest, AFinishedRunLeavesItsFileInTheBackupFolderOfTheDay) {
    writer_->OpenLog("/log", kNoLimit);
    Write("x");
    const std::string text = Files().ReadBack(kFile);
    writer_.reset();
    EXPECT_FALSE(Files().Exists(kFile));
    EXPECT_EQ(Files().ReadBack(kArchived), text);
}

TEST_F(LogArchiveTest, TheFileGoesOnWhileItsPositionIsBelowTheLimitAndSoEndsAboveIt) {
    writer_->OpenLog("/log", kNoLimit);
    const u64 headBytes = Files().ReadBack(kFile).size();
    writer_->OpenLog("/log", headBytes + 1);  // the same folder: only the limit changes
    Write(std::string(500, 'x'));             // the position is still one below
    EXPECT_GT(Files().ReadBack(kFile).size(), headBytes + 500);
    Later(1000);
    Write("the next");
    EXPECT_TRUE(Files().Exists(kArchived));
    // A file that begins because of the limit goes on with the line that caused it.
    const std::string next = Files().ReadBack("/log/OrvAudioProvider.2024-03-05.102031.log");
    EXPECT_TRUE(next.starts_with("#Date: 2024/03/05\n" + At("10:20:31.000") + " Info|Test("));
    EXPECT_TRUE(next.ends_with("): the next\n"));
    EXPECT_EQ(next.find("New log file"), std::string::npos);
}

TEST_F(LogArchiveTest, AtExactlyTheLimitANewFileBegins) {
    writer_->OpenLog("/log", kNoLimit);
    writer_->OpenLog("/log", Files().ReadBack(kFile).size());
    Later(1000);
    Write("x");
    EXPECT_TRUE(Files().Exists(kArchived));
}

TEST_F(LogArchiveTest, OpenLogWithTheFolderAlreadySetWritesNothing) {
    writer_->OpenLog("/log", kNoLimit);
    const std::string text = Files().ReadBack(kFile);
    Later(1000);
    writer_->OpenLog("/log", kNoLimit / 2);
    EXPECT_EQ(Files().ReadBack(kFile), text);
    EXPECT_EQ(Files().List("/log").size(), 1u);
}

TEST_F(LogArchiveTest, ANewFolderClosesTheOldFileIntoTheOldFoldersBackup) {
    Files().AddFolder("/other");
    writer_->OpenLog("/log", kNoLimit);
    writer_->OpenLog("/other", kNoLimit);
    EXPECT_TRUE(Files().Exists(kArchived));
    EXPECT_EQ(Files().List("/other"), Names{"OrvAudioProvider.2024-03-05.102030.log"});
    EXPECT_NE(Files().ReadBack("/other/OrvAudioProvider.2024-03-05.102030.log").find("New log file has started\n"),
              std::string::npos);
}

TEST_F(LogArchiveTest, TwoFilesOfOneSecondGetThePlainNameAndTheNameWithACount) {
    Make(nullptr);
    writer_->OpenLog("/log", 1);  // every line is beyond the limit
    Write("second");
    Write("third");
    EXPECT_EQ(Files().List("/log"),
              (Names{"OrvAudioProvider.2024-03-05.102030.log", "OrvAudioProvider.2024-03-05.102030(1).log",
                     "OrvAudioProvider.2024-03-05.102030(2).log"}));
    EXPECT_TRUE(Files().ReadBack("/log/OrvAudioProvider.2024-03-05.102030(2).log").ends_with("): third\n"));
}

TEST_F(LogArchiveTest, WithoutABackupFolderAClosedFileStays) {
    Make(nullptr);
    writer_->OpenLog("/log", kNoLimit);
    writer_.reset();
    EXPECT_EQ(Files().List("/log"), Names{"OrvAudioProvider.2024-03-05.102030.log"});
}

// The first file of the second is in the backup folder when the second one begins under the same name; that one then
// finds its place taken.
TEST_F(LogArchiveTest, AFailedMoveLeavesTheFileWhereItIs) {
    writer_->OpenLog("/log", kNoLimit);
    const std::string first = Files().ReadBack(kFile);
    writer_->CloseLog();
    writer_->OpenLog("/log", kNoLimit);
    Write("more");
    const std::string second = Files().ReadBack(kFile);
    writer_.reset();
    EXPECT_EQ(Files().ReadBack(kArchived), first);
    EXPECT_EQ(Files().ReadBack(kFile), second);
}

TEST_F(LogArchiveTest, ABackupFolderThatCannotBeMadeLeavesTheFileWhereItIs) {
    Files().FailOpens("/log/Backup", 13);
    writer_->OpenLog("/log", kNoLimit);
    writer_.reset();
    EXPECT_EQ(Files().List("/log"), Names{"OrvAudioProvider.2024-03-05.102030.log"});
}

TEST_F(LogArchiveTest, ABackupFolderWithALeadingSeparatorIsTakenAsItIs) {
    for (const char* folder : {"/old/logs", "\\old\\logs"}) {
        Platform::Sim::ResetProcessWorld();
        Files().AddFolder("/log");
        Make(folder);
        writer_->OpenLog("/log", kNoLimit);
        writer_.reset();
        EXPECT_TRUE(Files().Exists("/old/logs/20240305/OrvAudioProvider.2024-03-05.102030.log")) << folder;
    }
}

TEST_F(LogArchiveTest, TheDayOfTheBackupFolderIsUniversalTimeAndThatOfTheNameLocalTime) {
    Platform::Sim::Clock().SetUtcMilliseconds(1709692200000);  // 2024-03-06 02:30 UTC
    Platform::Sim::Clock().SetLocalOffsetMinutes(-300);
    writer_->OpenLog("/log", kNoLimit);
    writer_.reset();
    EXPECT_TRUE(Files().Exists("/log/Backup/20240306/OrvAudioProvider.2024-03-05.213000.log"));
}

TEST_F(LogArchiveTest, TheBackupFolderIsThatOfTheDayOnWhichTheFileIsClosed) {
    Platform::Sim::Clock().SetUtcMilliseconds(1709683199500);  // 2024-03-05 23:59:59.500
    writer_->OpenLog("/log", kNoLimit);
    Later(700);
    writer_.reset();
    EXPECT_TRUE(Files().Exists("/log/Backup/20240306/OrvAudioProvider.2024-03-05.235959.log"));
}

TEST_F(LogArchiveTest, TheFoldersMayBeThereAlready) {
    Files().AddFile("/log/Backup/20240305/older.log", "x");
    writer_->OpenLog("/log", kNoLimit);
    writer_.reset();
    EXPECT_TRUE(Files().Exists(kArchived));
    EXPECT_TRUE(Files().Exists("/log/Backup/20240305/older.log"));
}

TEST_F(LogArchiveTest, AFolderWithAClosingSeparatorGetsNoSecondOne) {
    for (const char* folder : {"/log/", "\\log\\"}) {
        Platform::Sim::ResetProcessWorld();
        Files().AddFolder("/log");
        Make("./Backup/");
        writer_->OpenLog(folder, kNoLimit);
        EXPECT_TRUE(Files().Exists(kFile)) << folder;
        writer_.reset();
        EXPECT_TRUE(Files().Exists(kArchived)) << folder;
    }
}

TEST_F(LogArchiveTest, ARelativeFolderIsTakenFromTheWorkingDirectory) {
    Files().AddFolder("/var/lib/Orv/Data/Logs");
    Files().SetWorkingDirectory("/var/lib/Orv");
    writer_->OpenLog("./Data/Logs", kNoLimit);
    writer_.reset();
    EXPECT_TRUE(Files().Exists("/var/lib/Orv/Data/Logs/Backup/20240305/OrvAudioProvider.2024-03-05.102030.log"));
}

}  // namespace
