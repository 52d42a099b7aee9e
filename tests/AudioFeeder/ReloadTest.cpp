// Building everything from the tables.
#include <gtest/gtest.h>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/SharedValues.h"
#include "AudioFeeder/UpdateDispatcher.h"
#include "ConfigClient/ConfigConnection.h"
#include "Platform/Random.h"
#include "Projects/Common/VoIPFileEngine/MusicBox.h"
#include "ServiceProcess/Log.h"
#include "tests/AudioFeeder/FakeConfigService.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using Orv::IPipeManager;
using Texts = std::vector<std::string>;

class ReloadTest : public testing::Test {
protected:
    void SetUp() override { Orv::AnnouncementTable::Instance().Clear(); }
    void Feed(i32 id, const char* pipe, const char* name = "x") {
        config_.Put("AUDIOFEED", id, {{"idaudiofeed", id}, {"pipename", pipe}, {"thename", name}, {"feedtype", 3}});
    }
    void Announcement(i32 id, const char* name) {
        config_.Put("ANNOUNCEMENT", id,
                    {{"idannouncement", id}, {"thename", name}, {"thetype", 0}, {"thefile", "/a.wav"}});
    }
    // Reloads inside a run, with the log at level 3 for as long as the parameters leave it there, then looks.
    void Reload(const std::function<void()>& look) {
        world_.Run([&] {
            config_.ConnectTables();
            IPipeManager::ReloadAll();
            look();
            FakeConfigService::DisconnectTables();
        });
    }

    FeederWorld world_;
    FakeConfigService config_;
};

TEST_F(ReloadTest, ParametersComeFirstThenChannelsInTheTablesOrderThenAnnouncements) {
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    config_.PutParameter(2, "IVRPROMPTPATH", "/prompts");
    Feed(7, "late");
    Feed(3, "early");
    Announcement(1, "b");
    Announcement(2, "a");
    world_.Files().AddFile("/prompts/Playlist/x/a.wav", WavBytes(Noise(500, 1)));
    Reload([&] {
        Texts order;
        for (const LogLine& line : world_.Log()) {
            for (const char* part : {"Change log verbosity to 3", "Root path updated: /prompts", "Creating channel "}) {
                if (line.text.starts_with(part)) order.push_back(line.text);
            }
        }
        EXPECT_EQ(order, (Texts{"Change log verbosity to 3", "Root path updated: /prompts", "Creating channel early",
                                "Creating channel late"}));
        EXPECT_EQ(world_.CountLog("Start next audio file /prompts/Playlist/x/a.wav"), 2U);
        EXPECT_EQ(Orv::AnnouncementTable::Instance().Size(), 2U);
        EXPECT_EQ(world_.CountLog("Announcement updated"), 0U) << "a reload stores without a word";
    });
}

// The first use makes the manager, and the box of its default set needs a thread. When that failure ended the whole
// reload, one thread too few at the start left a service without any feed.
TEST_F(ReloadTest, WithoutAThreadForTheDefaultSetTheFeedsAreBuiltAndTheNextDefaultFileTriesAgain) {
    Feed(1, "p");
    Feed(2, "q");
    world_.Run([&] {
        config_.ConnectTables();
        world_.Sim().FailThreadStarts(1);
        IPipeManager::ReloadAll();
        Sleep(1);
        EXPECT_EQ(world_.LogOf("musicbox"), Texts{"Error|Cannot start thread of musicbox 'defaultset:'"});
        EXPECT_TRUE(world_.Pipes().IsServed("p"));
        EXPECT_TRUE(world_.Pipes().IsServed("q"));
        EXPECT_FALSE(Orv::FindMusicBox("defaultset:").IsValid());
        Orv::SetDefaultAudioFile("/d.wav");
        EXPECT_TRUE(Orv::FindMusicBox("defaultset:").IsValid());
        FakeConfigService::DisconnectTables();
    });
}

TEST_F(ReloadTest, AllFiveParametersAreApplied) {
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "2");
    config_.PutParameter(2, "DEFAULTAUDIOFILE", "/d.wav");
    config_.PutParameter(3, "AUDIO_PROVIDER_MAX_VOLUME", "50");
    config_.PutParameter(4, "AUDIO_PROVIDER_ENABLE_AUTOGAIN", "1");
    config_.PutParameter(5, "IVRPROMPTPATH", "/prompts");
    Reload([&] {
        EXPECT_EQ(Orv::LogWriter::Instance().Level(), 2);
        std::string file;
        Orv::GetDefaultAudioFile(file);
        EXPECT_EQ(file, "/d.wav");
        EXPECT_EQ(Orv::GlobalLevelSetting(), (Orv::LevelSetting{16383, true}));
        EXPECT_EQ(Orv::RootPath(), "/prompts");
    });
}

TEST_F(ReloadTest, MissingParametersGiveLevel1NoLimitNoAutogainAndLeaveTheRest) {
    world_.Run([&] {
        Orv::SetMaxVolume(80);
        Orv::SetAutogain(true);
        Orv::SetRootPath("/before");
        Orv::SetDefaultAudioFile("/before.wav");
        config_.ConnectTables();
        IPipeManager::ReloadAll();
        EXPECT_EQ(Orv::LogWriter::Instance().Level(), 1);
        EXPECT_EQ(Orv::GlobalLevelSetting(), (Orv::LevelSetting{0, false}));
        EXPECT_EQ(Orv::RootPath(), "/before");
        std::string file;
        Orv::GetDefaultAudioFile(file);
        EXPECT_EQ(file, "/before.wav");
        EXPECT_EQ(world_.LogOf("IVRPROMPTPATH"), Texts{" Info|IVRPROMPTPATH is not specified"});
        FakeConfigService::DisconnectTables();
    });
}

TEST_F(ReloadTest, AnEmptyPromptPathLeavesTheRootPathAndSaysSo) {
    config_.PutParameter(1, "IVRPROMPTPATH", "");
    Reload([&] {
        EXPECT_EQ(Orv::RootPath(), "/root");
        EXPECT_EQ(world_.CountLog("IVRPROMPTPATH is not specified"), 1U);
    });
}

TEST_F(ReloadTest, TheGlobalLimitIsClampedAndTextThatIsNoNumberCountsAs0) {
    config_.PutParameter(1, "AUDIO_PROVIDER_MAX_VOLUME", "250");
    Reload([&] {
        EXPECT_EQ(Orv::GlobalLevelSetting().maxLevel, 32767);
        config_.PutParameter(1, "AUDIO_PROVIDER_MAX_VOLUME", "loud");
        config_.Tell("PARAMETER", "Updated", 1);
        Sleep(10);
        IPipeManager::ReloadAll();
        EXPECT_EQ(Orv::GlobalLevelSetting().maxLevel, 0);
    });
}

class ReloadAutogainTest : public ReloadTest, public testing::WithParamInterface<const char*> {};

TEST_P(ReloadAutogainTest, AnyTextButOneSwitchesAutogainOff) {
    config_.PutParameter(1, "AUDIO_PROVIDER_ENABLE_AUTOGAIN", GetParam());
    Reload([] { EXPECT_FALSE(Orv::GlobalLevelSetting().autogain); });
}

INSTANTIATE_TEST_SUITE_P(Values, ReloadAutogainTest, testing::Values("1 ", "01", "true", "", "0"));

TEST_F(ReloadTest, AParameterWithoutItsIdDoesNotExistButForThePromptPathAndTheLoggingLevel) {
    for (const auto& [id, name, value] :
         {std::tuple{1, "AUDIO_PROVIDER_MAX_VOLUME", "50"}, std::tuple{2, "AUDIO_PROVIDER_ENABLE_AUTOGAIN", "1"},
          std::tuple{3, "IVRPROMPTPATH", "/prompts"}, std::tuple{4, "SYSTEMLOGGINGLEVEL", "2"}}) {
        config_.Put("PARAMETER", id, {{"name", name}, {"value", value}});
    }
    Reload([] {
        EXPECT_EQ(Orv::GlobalLevelSetting(), (Orv::LevelSetting{0, false}));
        EXPECT_EQ(Orv::RootPath(), "/prompts");
        EXPECT_EQ(Orv::LogWriter::Instance().Level(), 2);
    });
}

TEST_F(ReloadTest, TablesThatCannotBeHadCountAsEmptyOnes) {
    world_.Run([&] {
        IPipeManager::ReloadAll();
        EXPECT_EQ(world_.CountLog("Creating channel"), 0U);
        EXPECT_EQ(world_.CountLog("IVRPROMPTPATH is not specified"), 1U);
        EXPECT_EQ(Orv::AnnouncementTable::Instance().Size(), 0U);
    });
}

TEST_F(ReloadTest, OfTwoFeedsWithTheSamePipeTheLaterOneHasIt) {
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    Feed(1, "p", "first");
    Feed(2, "p", "second");
    Reload([&] {
        ASSERT_EQ(world_.LogOf("]:Destroyed").size(), 1U);
        EXPECT_NE(world_.LogOf("]:Destroyed")[0].find("Channel first as p"), std::string::npos);
        EXPECT_TRUE(world_.Pipes().IsServed("p"));
    });
}

TEST_F(ReloadTest, TheShufflesOfNewChannelsAreSeededWithTheSteadyClock) {
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    config_.Put("AUDIOFEED", 1, {{"idaudiofeed", 1}, {"pipename", "p"}, {"thename", "x"}, {"feedtype", 2}});
    for (const char* name : {"a.wav", "b.wav"}) {
        world_.Files().AddFile(std::string("/root/Playlist/x/") + name, WavBytes(Noise(500, 1)));
    }
    world_.Run([&] {
        config_.ConnectTables();
        const u32 seed = static_cast<u32>(Now());
        IPipeManager::ReloadAll();
        ASSERT_EQ(static_cast<u32>(Now()), seed);
        const Texts draws = world_.LogOf("]:r:");
        ASSERT_EQ(draws.size(), 2U);
        Platform::SeedThreadRand(seed);
        for (const std::string& draw : draws) {
            const std::string key = "r:" + std::to_string(Platform::ThreadRand()) + "<->";
            EXPECT_NE(draw.find(key), std::string::npos) << draw << " has not " << key;
        }
        FakeConfigService::DisconnectTables();
    });
}

TEST_F(ReloadTest, AfterStopAllAReloadStartsEverythingAgain) {
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    config_.PutParameter(2, "DEFAULTAUDIOFILE", "/d.wav");
    Feed(1, "p");
    Announcement(1, "a");
    Reload([&] {
        IPipeManager::StopAll();
        EXPECT_FALSE(world_.Pipes().IsServed("p"));
        EXPECT_FALSE(Orv::FindMusicBox("defaultset:").IsValid());
        IPipeManager::ReloadAll();
        Sleep(1);
        EXPECT_TRUE(world_.Pipes().IsServed("p"));
        EXPECT_TRUE(Orv::FindMusicBox("defaultset:").IsValid());
        EXPECT_EQ(Orv::AnnouncementTable::Instance().Size(), 1U);
    });
}

// A change that came while the reload had read the old value and not yet set it was lost for good: the reload took no
// turn with changes of parameters. In many orders of the two threads' steps.
TEST(ReloadAndChange, AParameterThatChangesDuringAReloadHoldsAfterIt) {
    Orv::FillTableIds();
    for (u64 seed = 1; seed <= 300; ++seed) {
        Platform::Sim::Options options;
        options.order = Platform::Sim::Order::Seeded;
        options.preemptOneIn = 10;
        FeederWorld world(seed, options);
        FakeConfigService config;
        const std::pair<const char*, const char*> parameters[] = {{"SYSTEMLOGGINGLEVEL", "3"},
                                                                  {"DEFAULTAUDIOFILE", "/old.wav"},
                                                                  {"IVRPROMPTPATH", "/old"},
                                                                  {"AUDIO_PROVIDER_MAX_VOLUME", "50"}};
        for (i32 id = 0; id < 4; ++id) config.PutParameter(id + 1, parameters[id].first, parameters[id].second);
        world.Run([&] {
            config.ConnectTables();
            ConfigConnection::ChangeListener.store(&Orv::OnConfigUpdate);
            config.PutParameter(2, "DEFAULTAUDIOFILE", "/new.wav");
            config.PutParameter(3, "IVRPROMPTPATH", "/new");
            config.PutParameter(4, "AUDIO_PROVIDER_MAX_VOLUME", "100");
            for (i32 id = 2; id <= 4; ++id) config.Tell("PARAMETER", "Updated", id);
            IPipeManager::ReloadAll();
            Sleep(100);
            std::string file;
            Orv::GetDefaultAudioFile(file);
            EXPECT_EQ(file, "/new.wav") << "seed " << seed;
            EXPECT_EQ(Orv::RootPath(), "/new") << "seed " << seed;
            EXPECT_EQ(Orv::GlobalLevelSetting().maxLevel, 32767) << "seed " << seed;
            ConfigConnection::ChangeListener.store(nullptr);
            FakeConfigService::DisconnectTables();
        });
    }
}

// The service's answer to the row's call is a list without fields: the id is known, the row has gone.
TEST_F(ReloadTest, AnIdWithoutARowBuildsNothing) {
    Feed(1, "p");
    Feed(2, "q");
    Announcement(1, "a");
    world_.Run([&] {
        config_.ConnectTables();
        Feed(3, "gone");
        config_.Tell("AUDIOFEED", "Updated", 3);
        Sleep(10);
        config_.Exchange().Stop();
        Sleep(10);
        IPipeManager::ReloadAll();
        EXPECT_EQ(world_.CountLog("Creating channel "), 3U) << "loaded rows are there without a connection";
        FakeConfigService::DisconnectTables();
    });
}

}  // namespace
