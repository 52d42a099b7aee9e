// Goal: each change is heard, at the moment the rules give it. Method: orvctl against a running exchange; what is heard
// is read from the pipes.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/e2e/Exchange.h"

namespace OrvTest {
namespace {

class Changes : public ::testing::Test {
protected:
    Changes() {
        exchange_.StartConfig();
        exchange_.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
        exchange_.AddPiece("Playlist/music/a.wav", 10.0, 20.0);
        exchange_.AddPiece("Playlist/music/b.wav", 40.0, 20.0);
    }

    void Feed(const std::string& pipe, const std::string& folder = "music") {
        exchange_.Must({"feed", "add", pipe, "--type", "sorted", "--folder", folder});
    }

    bool PipeIsThere(const std::string& name) const { return std::filesystem::exists(exchange_.PipeFile(name)); }

    // The number of the last transaction, as orvctl tells it.
    long LastTransaction() const {
        const std::string status = exchange_.Must({"status", "--json"}).output;
        const std::string key = "\"transaction\":";
        const auto at = status.find(key);
        EXPECT_NE(at, std::string::npos) << status;
        return at == std::string::npos ? -1 : std::stol(status.substr(at + key.size()));
    }

    static int Loudest(const std::vector<Model::Block>& blocks, std::size_t from) {
        int loudest = 0;
        for (std::size_t i = from; i < blocks.size(); ++i) {
            for (const int sample : blocks[i]) loudest = std::max(loudest, std::abs(sample));
        }
        return loudest;
    }

    Exchange exchange_;
};

TEST_F(Changes, ANewFeedsPipeAppears) {
    exchange_.StartFeeder();
    EXPECT_FALSE(PipeIsThere("late"));
    Feed("late");
    const Client client(exchange_, "late");
    EXPECT_TRUE(client.WaitForBlocks(4));
}

TEST_F(Changes, TheClientsOfARemovedFeedSeeTheEndAndItsPipeIsGone) {
    Feed("music");
    exchange_.StartFeeder();
    const Client client(exchange_, "music");
    ASSERT_TRUE(client.WaitForBlocks(4));
    exchange_.Must({"feed", "remove", "music"});
    EXPECT_TRUE(client.WaitForEnd());
    EXPECT_TRUE(Eventually([&] { return !PipeIsThere("music"); }));
}

TEST_F(Changes, ARenamedPipeMoves) {
    Feed("before");
    exchange_.StartFeeder();
    const Client client(exchange_, "before");
    ASSERT_TRUE(client.WaitForBlocks(4));
    exchange_.Must({"feed", "set", "before", "--pipename", "after"});
    EXPECT_TRUE(client.WaitForEnd());
    EXPECT_TRUE(Eventually([&] { return !PipeIsThere("before"); }));
    const Client again(exchange_, "after");
    EXPECT_TRUE(again.WaitForBlocks(4));
}

TEST_F(Changes, AVolumeChangeKeepsTheConnectionsAndStartsTheContentAnew) {
    Feed("music");
    exchange_.StartFeeder();
    const Client client(exchange_, "music");
    ASSERT_TRUE(client.WaitForBlocks(16));
    ASSERT_EQ(exchange_.LogTexts("Start next audio file ").size(), 1u);
    exchange_.Must({"feed", "set", "music", "--max-volume", "10"});
    ASSERT_TRUE(exchange_.WaitForLog("Volume control has been updated MaxVolume=10%, autogain disabled"));
    const std::size_t changed = client.Blocks().size();
    ASSERT_TRUE(client.WaitForBlocks(changed + 24));
    EXPECT_FALSE(client.Ended());
    EXPECT_EQ(exchange_.LogTexts("New pipe connected").size(), 1u);
    EXPECT_LE(Loudest(client.Blocks(), changed + 2), 10 * 32767 / 100);
    const auto started = exchange_.LogTexts("Start next audio file ");
    ASSERT_EQ(started.size(), 2u);
    EXPECT_NE(started[1].find("a.wav"), std::string::npos) << "the playlist is built afresh";
}

TEST_F(Changes, AnAnnouncementIsStoredUpdatedAndDeleted) {
    exchange_.StartFeeder();
    exchange_.Must({"announcement", "add", "hello", "--file", "x.wav", "--kind", "over"});
    EXPECT_TRUE(exchange_.WaitForLog("Announcement updated: hello(0)[x.wav]"));
    exchange_.Must({"announcement", "set", "hello", "--file", "y.wav", "--kind", "alone"});
    EXPECT_TRUE(exchange_.WaitForLog("Announcement updated: hello(1)[y.wav]"));
    exchange_.Must({"announcement", "remove", "hello"});
    EXPECT_TRUE(exchange_.WaitForLog("Announcement delete: hello(1)[y.wav]"));
}

TEST_F(Changes, AParameterChangeTakesEffect) {
    Feed("music");
    exchange_.StartFeeder();
    const Client client(exchange_, "music");
    ASSERT_TRUE(client.WaitForBlocks(10));
    exchange_.Must({"parameter", "set", "AUDIO_PROVIDER_MAX_VOLUME", "--value", "5"});
    ASSERT_TRUE(exchange_.WaitForLog("Volume control has been updated MaxVolume=5%, autogain disabled"));
    const std::size_t changed = client.Blocks().size();
    ASSERT_TRUE(client.WaitForBlocks(changed + 12));
    EXPECT_LE(Loudest(client.Blocks(), changed + 2), 5 * 32767 / 100);

    exchange_.Must({"parameter", "set", "IVRPROMPTPATH", "--value", "/nowhere"});
    EXPECT_TRUE(exchange_.WaitForLog("Root path updated: /nowhere"));
}

TEST_F(Changes, TheLogLevelChanges) {
    exchange_.StartFeeder();
    ASSERT_TRUE(exchange_.WaitForLog("Change log verbosity to 3"));
    exchange_.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "0"});
    ASSERT_TRUE(exchange_.WaitForLog("Change log verbosity to 0"));
    Feed("quiet");
    const Client client(exchange_, "quiet");
    ASSERT_TRUE(client.WaitForBlocks(4));
    EXPECT_TRUE(exchange_.LogTexts("Creating channel quiet").empty());
    exchange_.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "1"});
    exchange_.Must({"feed", "remove", "quiet"});
    EXPECT_TRUE(exchange_.WaitForLog("Channel music as quiet[1]:Shutdown"));
}

TEST_F(Changes, OneApplyOfSeveralChangesArrivesAsOneBatch) {
    exchange_.StartFeeder();
    const RunResult empty = exchange_.Must({"export"});
    Feed("one");
    Feed("two");
    const RunResult both = exchange_.Must({"export"});
    ASSERT_TRUE(exchange_.WaitForLog("Creating channel two"));
    exchange_.Must({"feed", "remove", "one"});
    exchange_.Must({"feed", "remove", "two"});
    ASSERT_TRUE(Eventually([&] { return !PipeIsThere("one") && !PipeIsThere("two"); }));

    // The exported file brings both back in one transaction.
    const long before = LastTransaction();
    exchange_.Must({"apply", "-"}, both.output);
    const Client one(exchange_, "one");
    const Client two(exchange_, "two");
    EXPECT_TRUE(one.WaitForBlocks(4));
    EXPECT_TRUE(two.WaitForBlocks(4));
    EXPECT_NE(empty.output, both.output);
    EXPECT_EQ(LastTransaction(), before + 1) << "both rows in one transaction";
    exchange_.Must({"apply", "-"}, both.output);
    EXPECT_EQ(LastTransaction(), before + 1) << "applying what is there changes nothing";
}

TEST_F(Changes, TwoPipeNamesThatMeetInOneFileLeaveTheLaterFeedWithoutAPipeButPlaying) {
    // The Configuration service refuses names that differ only in case, so this takes two services on one folder.
    Feed("music");
    exchange_.StartFeeder();
    const Client client(exchange_, "music");
    ASSERT_TRUE(client.WaitForBlocks(2));
    ProcessOptions options;
    const std::string second = exchange_.Folder() / "second.ini";
    std::string settings = ReadFileText(exchange_.SettingsFile());
    const std::string other = exchange_.Folder() / "e";
    const std::string appData = "AppDataPath=" + (exchange_.Folder() / "d");
    settings.replace(settings.find(appData), appData.size(), "AppDataPath=" + other);
    WriteFileText(second, settings);
    exchange_.Own(second);
    options.command = exchange_.Unprivileged({exchange_.Program("orv-audio-feed"), "-c", second});
    options.errorFile = exchange_.Folder() / "second.err";
    Process process(options);
    const auto log = [&] {
        std::string text;
        std::error_code ignored;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(other, ignored)) {
            if (entry.is_regular_file(ignored)) text += ReadFileText(entry.path());
        }
        return text;
    };
    EXPECT_TRUE(Eventually([&] {
        return log().find("Cannot create new listener for connection. error=" + std::to_string(EADDRINUSE)) !=
               std::string::npos;
    })) << log();
    EXPECT_EQ(process.Stop(), 0);
    EXPECT_TRUE(PipeIsThere("music")) << "the socket stays with the service that bound it";
    EXPECT_FALSE(client.Ended());
}

}  // namespace
}  // namespace OrvTest
