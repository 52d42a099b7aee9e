// The log on a real disk, with real threads and a real end of the process.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <vector>

#include "Platform/Thread.h"
#include "ServiceProcess/Log.h"
#include "ServiceProcess/LogAdapters.h"

namespace {

constexpr char kLogSource[] = "RealLogTest";

// A folder of its own for each test, gone with it.
class RealLogTest : public testing::Test {
protected:
    void SetUp() override {
        std::string name = (std::filesystem::temp_directory_path() / "orvlogXXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder_ = name;
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    // Every file below the folder, with its text.
    std::vector<std::pair<std::string, std::string>> Files() const {
        std::vector<std::pair<std::string, std::string>> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_)) {
            if (!entry.is_regular_file()) continue;
            std::ifstream stream(entry.path(), std::ios::binary);
            files.emplace_back(std::filesystem::relative(entry.path(), folder_).string(),
                               std::string(std::istreambuf_iterator<char>(stream), {}));
        }
        return files;
    }

    std::string folder_;
};
using RealLogDeathTest = RealLogTest;

TEST_F(RealLogDeathTest, TheLogOfAFinishedProcessLiesInItsBackupFolder) {
    EXPECT_EXIT(
        {
            Orv::LogWriter::Instance().OpenLog(folder_.c_str(), 0x1400000);
            ORV_LOG(Info) << "the last word";
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    const auto files = Files();
    ASSERT_EQ(files.size(), 1u);
    EXPECT_TRUE(std::regex_match(files[0].first,
                                 std::regex("Backup/\\d{8}/OrvAudioProvider\\.\\d{4}-\\d\\d-\\d\\d\\.\\d{6}\\.log")))
        << files[0].first;
    const std::string place = "\\d\\d:\\d\\d:\\d\\d\\.\\d{3}\\|\\d{8}\\| Info\\|";
    EXPECT_TRUE(std::regex_match(
        files[0].second, std::regex("#Date: \\d{4}/\\d\\d/\\d\\d\n" + place + ": New log file has started\n" + place +
                                    "RealLogTest\\(\\d+\\): the last word\n")))
        << files[0].second;
}

TEST_F(RealLogTest, LinesOfManyThreadsAreWholeAndAcrossFilesNoneIsLost) {
    constexpr int kThreads = 4;
    constexpr int kLines = 300;
    {
        // No backup folder: two files of one second would meet there.
        Orv::LogWriter writer("Threads", nullptr);
        writer.OpenLog(folder_.c_str(), 8000);
        std::vector<Platform::Thread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back("writer", [&writer, thread] {
                for (int line = 0; line < kLines; ++line) {
                    ORV_LOG_TO(writer, Info) << "thread " << thread << " line " << line << " end";
                }
            });
        }
        // The level is changed and read meanwhile, between values that let every line through.
        for (u32 i = 0; i < 200; ++i) writer.SetLogLevel(1 + i % 3);
        for (Platform::Thread& thread : threads) thread.Join();
    }
    int lines = 0;
    std::size_t files = 0;
    const std::regex whole("[0-9:.]+\\|\\d{8,}\\| Info\\|RealLogTest\\(\\d+\\): thread \\d line \\d+ end");
    for (const auto& [name, text] : Files()) {
        ++files;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) {
            if (line.starts_with("#Date: ") || line.ends_with("New log file has started")) continue;
            EXPECT_TRUE(std::regex_match(line, whole)) << line;
            ++lines;
        }
    }
    EXPECT_EQ(lines, kThreads * kLines);
    EXPECT_GT(files, 3u);
}

}  // namespace
