// Goal: the feeds outlive the Configuration service, and a service that comes first waits for it.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "tests/e2e/Exchange.h"

namespace OrvTest {
namespace {

TEST(ConfigurationService, KilledItLeavesEveryFeedPlayingTheLossIsLoggedAndNothingReconnects) {
    Exchange exchange;
    exchange.StartConfig();
    exchange.AddPiece("Playlist/music/a.wav", 10.0, 20.0);
    exchange.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music"});
    exchange.StartFeeder();
    const Client client(exchange, "music");
    ASSERT_TRUE(client.WaitForBlocks(4));
    exchange.Config().Kill();
    ASSERT_TRUE(exchange.WaitForLog("[EC000001]: Connection with configuration server is lost"));
    const std::size_t lost = client.Size();
    exchange.StartConfig();  // it is back at the same address

    ASSERT_TRUE(client.WaitForBytes(lost + 24 * Model::BlockBytes)) << "the feed plays on";
    // A client that comes later is served as well.
    const Client late(exchange, "music");
    EXPECT_TRUE(late.WaitForBlocks(60, 12000));
    // More than ten seconds have gone by since the loss: the time after which a service without connection tries again.
    EXPECT_EQ(exchange.LogTexts("Connecting to Configuration service on ").size(), 1u);
    EXPECT_EQ(exchange.LogTexts("Connected to Configuration service '").size(), 1u);
    EXPECT_EQ(exchange.LogTexts("[EC000001]").size(), 1u);
    EXPECT_EQ(exchange.Feeder().Stop(), 0);
}

TEST(ConfigurationService, AbsentAtTheStartItIsTriedEveryTenSecondsWithAFreshReadOfTheSettings) {
    Exchange exchange;
    exchange.StartConfig();
    exchange.AddPiece("Playlist/music/a.wav", 10.0, 5.0);
    exchange.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music"});
    exchange.WriteSettings();
    const std::string good = ReadFileText(exchange.SettingsFile());
    WriteFileText(exchange.SettingsFile(), good.substr(0, good.find("[ConfService]")));
    exchange.StartFeeder(false);
    ASSERT_TRUE(exchange.WaitForLog("Starting service"));
    WriteFileText(exchange.SettingsFile(), good);

    ASSERT_TRUE(exchange.WaitForLog("Connected to Configuration service '", 15000));
    EXPECT_EQ(exchange.LogTexts("Reading configuration...").size(), 1u);
    const Client client(exchange, "music");
    EXPECT_TRUE(client.WaitForBlocks(4));
}

TEST(ConfigurationService, WrongCredentialsAreTriedAgainWithAFreshReadOfTheSettings) {
    Exchange exchange;
    exchange.StartConfig();
    exchange.WriteSettings();
    const std::string good = ReadFileText(exchange.SettingsFile());
    std::string wrong = good;
    wrong.replace(wrong.find("feeder-password"), 15, "not-the-password");
    WriteFileText(exchange.SettingsFile(), wrong);
    exchange.StartFeeder(false);
    ASSERT_TRUE(exchange.WaitForLog("Can't connect to Configuration service on 127.0.0.1:"));
    WriteFileText(exchange.SettingsFile(), good);
    EXPECT_TRUE(exchange.WaitForLog("Connected to Configuration service '", 15000));
}

}  // namespace
}  // namespace OrvTest
