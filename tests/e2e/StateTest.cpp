// Goal: the service tells its state on a socket when the settings ask for it, in both forms and to people, and is asked
// by the programs that people have. Method: the real processes; the socket is asked by curl.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/e2e/Exchange.h"

namespace OrvTest {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class State : public testing::Test {
protected:
    void Start(bool withKey = true) {
        exchange_.StartConfig();
        exchange_.AddPiece("Playlist/music/a.wav", 10.0, 20.0);
        exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music", "--max-volume", "50"});
        exchange_.WriteSettings(withKey ? "[General]\nStatusPath=" + Socket() + "\n" : "");
        exchange_.StartFeeder();
    }
    std::string Socket() const { return exchange_.Folder() / "s/state"; }
    RunResult Ctl(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {exchange_.Program("orvctl"), "-c", exchange_.SettingsFile()});
        return OrvTest::Run(exchange_.Unprivileged(arguments));
    }
    std::string Curl(const std::string& path) const {
        return OrvTest::Run({"/usr/bin/curl", "-sS", "--unix-socket", Socket(), "http://localhost" + path}).output;
    }
    std::vector<std::string> Threads() {
        std::vector<std::string> names;
        const std::string folder = "/proc/" + std::to_string(exchange_.Feeder().Pid()) + "/task";
        for (const auto& task : std::filesystem::directory_iterator(folder)) {
            names.push_back(ReadFileText(task.path().string() + "/comm"));
        }
        return names;
    }

    Exchange exchange_;
};

TEST_F(State, CurlGetsItAsJsonAndAsMetricsAndPeopleGetATable) {
    Start();
    const Client client(exchange_, "music");
    ASSERT_TRUE(client.WaitForBlocks(8));
    const std::string json = Curl("/status");
    EXPECT_THAT(json, HasSubstr("\"configuration\":{\"state\":\"up\""));
    EXPECT_THAT(json, HasSubstr("\"pipename\":\"music\""));
    EXPECT_THAT(json, HasSubstr("\"state\":\"playing\""));
    EXPECT_THAT(json, HasSubstr("\"clients\":1,"));
    EXPECT_THAT(json, HasSubstr("/Playlist/music/a.wav"));
    EXPECT_THAT(Curl("/metrics"), HasSubstr("orv_feed_clients{feed=\"music\"} 1\n"));
    EXPECT_THAT(Threads(), ::testing::Contains("status\n"));

    const RunResult status = Ctl({"status"});
    EXPECT_EQ(status.exitCode, 0) << status.error;
    EXPECT_THAT(status.output, HasSubstr("AUDIOFEED"));
    EXPECT_THAT(status.output, HasSubstr("Configuration: up, for "));
    EXPECT_THAT(status.output, ::testing::ContainsRegex("music +playing +1 +\\[#+ *\\] +-[0-9.]+ dB"));
    const RunResult asJson = Ctl({"status", "--json"});
    EXPECT_THAT(asJson.output, HasSubstr("\"service\": {"));
    EXPECT_THAT(asJson.output, HasSubstr("\"transaction\": 1"));

    struct stat info {};
    ASSERT_EQ(::stat(Socket().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0660u);
    EXPECT_EQ(exchange_.Feeder().Stop(), 0);
    EXPECT_FALSE(std::filesystem::exists(Socket()));
}

TEST_F(State, WithoutTheKeyThereIsNoThreadAndNoSocketAndStatusSaysHowToGetThem) {
    Start(false);
    EXPECT_THAT(Threads(), Not(::testing::Contains("status\n")));
    EXPECT_FALSE(std::filesystem::exists(Socket()));
    const RunResult status = Ctl({"status"});
    EXPECT_EQ(status.exitCode, 0);
    EXPECT_THAT(status.output, HasSubstr("write StatusPath=/run/Orv/status/feed under [General] in "));
    EXPECT_EQ(Ctl({"status", "--watch"}).exitCode, 2);
}

TEST_F(State, WatchShowsTheFeedsAnewTwiceASecond) {
    Start();
    const Client client(exchange_, "music");
    ASSERT_TRUE(client.WaitForBlocks(4));
    ProcessOptions options;
    options.command =
        exchange_.Unprivileged({exchange_.Program("orvctl"), "-c", exchange_.SettingsFile(), "status", "--watch"});
    options.outputFile = exchange_.Folder() / "watch";
    Process watch(options);
    const bool four = Eventually([&] {
        const std::string text = ReadFileText(options.outputFile);
        std::size_t count = 0;
        for (auto at = text.find("Audio feed service "); at != std::string::npos;
             at = text.find("Audio feed service ", at + 1)) {
            ++count;
        }
        return count >= 4;
    });
    EXPECT_TRUE(four) << ReadFileText(options.outputFile);
    watch.Signal(SIGINT);
    EXPECT_TRUE(watch.WaitFor(2000));
}

TEST_F(State, ALostConfigurationIsToldAndTheFeedsPlayOn) {
    Start();
    const Client client(exchange_, "music");
    ASSERT_TRUE(client.WaitForBlocks(4));
    exchange_.Config().Kill();
    ASSERT_TRUE(exchange_.WaitForLog("[EC000001]"));
    const RunResult status = Ctl({"status"});
    EXPECT_EQ(status.exitCode, 3) << "nobody answers at the Configuration service's address";
    EXPECT_THAT(status.output, HasSubstr("Configuration: configuration lost, playing on, for "));
    EXPECT_THAT(status.output, HasSubstr("systemctl restart orv-audio-feed"));
    const std::size_t before = client.Size();
    EXPECT_TRUE(client.WaitForBytes(before + 16000));
}

TEST_F(State, AKilledServicesSocketIsReplacedAtItsNextStart) {
    Start();
    exchange_.Feeder().Kill();
    ASSERT_TRUE(std::filesystem::exists(Socket()));
    exchange_.StartFeeder();
    EXPECT_TRUE(Eventually([&] { return Curl("/status").find("\"state\":\"up\"") != std::string::npos; }));
}

TEST_F(State, ARebuildEndsTheClientsBuildsTheFeedAnewAndLeavesItsRowAlone) {
    Start();
    const Client client(exchange_, "music");
    ASSERT_TRUE(client.WaitForBlocks(4));
    const std::string row = exchange_.Must({"feed", "show", "music"}).output;
    const std::string out = exchange_.Must({"feed", "rebuild", "music"}).output;
    EXPECT_THAT(out, HasSubstr("Feed \"music\" rebuilt.\n  At once: the feed is built anew"));
    EXPECT_TRUE(client.WaitForEnd());
    const Client again(exchange_, "music");
    EXPECT_TRUE(again.WaitForBlocks(4));
    EXPECT_EQ(exchange_.LogTexts("]:Started").size(), 2u);
    EXPECT_EQ(exchange_.Must({"feed", "show", "music"}).output, row);
    EXPECT_EQ(exchange_.Ctl({"feed", "rebuild", "absent"}).exitCode, 5);
}

}  // namespace
}  // namespace OrvTest
