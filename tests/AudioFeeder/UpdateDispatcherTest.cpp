#include "AudioFeeder/UpdateDispatcher.h"

#include <gtest/gtest.h>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/LibraryListeners.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/RequestFlags.h"
#include "AudioFeeder/SharedValues.h"
#include "Platform/Clock.h"
#include "ServiceProcess/Log.h"
#include "ServiceProcess/LogAdapters.h"
#include "tests/AudioFeeder/CountingAllocator.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using Orv::FeedRow;
using Orv::IPipeManager;
using Texts = std::vector<std::string>;

class DispatcherTest : public testing::Test {
protected:
    void SetUp() override {
        Orv::FillTableIds();
        Orv::AnnouncementTable::Instance().Clear();
    }
    static void Change(const char* table, const char* kind, VX::ParamListHolder newRow = {},
                       VX::ParamListHolder oldRow = {}) {
        Orv::OnConfigUpdate(table, kind, 17, &newRow, &oldRow);
    }
    static void Parameter(const char* name, const char* value, const char* kind = "Updated") {
        Change("PARAMETER", kind, MakeList({{"idparameter", 1}, {"name", name}, {"value", value}}));
    }
    static VX::ParamListHolder Feed(std::initializer_list<Field> fields = {}) { return MakeFeed(fields).base; }
    static VX::ParamListHolder Announcement(const char* name) { return MakeAnnouncement(name, 0, "/a.wav").base; }

    FeederWorld world_;
};

TEST_F(DispatcherTest, AnInsertedFeedBuildsAChannelAndADeletedOneEndsIt) {
    world_.Run([&] {
        Change("AUDIOFEED", "Inserted", Feed());
        Sleep(1);
        EXPECT_TRUE(world_.Pipes().IsServed("p"));
        Change("AUDIOFEED", "Deleted", {}, Feed());
        EXPECT_FALSE(world_.Pipes().IsServed("p"));
        EXPECT_EQ(world_.CountLog("]:Destroyed"), 1U);
    });
}

TEST_F(DispatcherTest, ADeletedFeedWithoutItsIdIsPassedOver) {
    world_.Run([&] {
        Change("AUDIOFEED", "Inserted", Feed());
        Sleep(1);
        Change("AUDIOFEED", "Deleted", {}, MakeList({{"pipename", "p"}}));
        Change("AUDIOFEED", "Deleted");
        EXPECT_TRUE(world_.Pipes().IsServed("p"));
    });
}

TEST_F(DispatcherTest, AnUpdatedFeedGivesBothRowsToTheManager) {
    world_.Run([&] {
        Change("AUDIOFEED", "Inserted", Feed());
        Sleep(1);
        Change("AUDIOFEED", "Updated", Feed({{"pipename", "q"}}), Feed());
        Sleep(1);
        EXPECT_FALSE(world_.Pipes().IsServed("p"));
        EXPECT_TRUE(world_.Pipes().IsServed("q"));
        Change("AUDIOFEED", "Updated", Feed({{"pipename", "q"}, {"maxvolume", 5}}), Feed({{"pipename", "q"}}));
        EXPECT_EQ(world_.CountLog("]:Destroyed"), 1U) << "the second change is a soft one";
    });
}

// In a simulated world the rest of a change depended on what the world before it in the same process had changed.
TEST_F(DispatcherTest, ChangesOfAnEarlierServiceAskForNoRest) {
    world_.Run([&] {
        const auto lastOfThree = [](const std::function<void()>& beforeIt) {
            Sleep(10);
            for (int i = 0; i < 2; ++i) {
                Parameter("COLOUR", "blue");
                Sleep(1);
            }
            beforeIt();
            const u64 begin = Platform::SteadyMilliseconds();
            Parameter("COLOUR", "red");
            return Platform::SteadyMilliseconds() - begin;
        };
        EXPECT_EQ(lastOfThree([] {}), 2U) << "the rest behind 2 ms of changes";
        EXPECT_EQ(lastOfThree([] { Orv::FillTableIds(); }), 0U);
    });
}

TEST_F(DispatcherTest, OnlyTheFirstCharacterOfTheKindIsTested) {
    world_.Run([&] {
        Change("ANNOUNCEMENT", "Whatever", Announcement("a"));
        Change("ANNOUNCEMENT", "", Announcement("b"));
        Change("ANNOUNCEMENT", "deleted", Announcement("c"));
        EXPECT_EQ(Orv::AnnouncementTable::Instance().Size(), 3U);
        Change("ANNOUNCEMENT", "Dropped", {}, Announcement("a"));
        Change("ANNOUNCEMENT", "D", {}, Announcement("b"));
        EXPECT_EQ(Orv::AnnouncementTable::Instance().Size(), 1U);
    });
}

TEST_F(DispatcherTest, AnnouncementsAreUpdatedFromTheNewRowAndDeletedByTheOldOne) {
    world_.Run([&] {
        Change("ANNOUNCEMENT", "Inserted", Announcement("new"), Announcement("old"));
        EXPECT_EQ(world_.CountLog("Announcement updated: new(0)[/a.wav]"), 1U);
        Change("ANNOUNCEMENT", "Deleted", Announcement("x"), Announcement("new"));
        EXPECT_EQ(world_.CountLog("Announcement delete: new(0)[/a.wav]"), 1U);
        EXPECT_EQ(Orv::AnnouncementTable::Instance().Size(), 0U);
    });
}

TEST_F(DispatcherTest, AnUnknownTableNameAndATransactionMarkAreIgnoredWithoutALogLine) {
    world_.Run([&] {
        const std::size_t before = world_.Log().size();
        for (const char* table : {"TRANSACTION", "AudioFeed", "", "DN", "AUDIOFEED "}) {
            for (const char* kind : {"Inserted", "Updated", "Deleted"}) Change(table, kind, Feed(), Feed());
        }
        EXPECT_EQ(world_.Log().size(), before);
    });
}

TEST_F(DispatcherTest, ChangesOfAFeedsContentAndADeletedParameterDoNothing) {
    world_.Run([&] {
        Parameter("AUDIO_PROVIDER_MAX_VOLUME", "50");
        const std::size_t before = world_.Log().size();
        for (const char* kind : {"Inserted", "Updated", "Deleted"}) Change("AUDIOFEEDCONTENT", kind, Feed(), Feed());
        Parameter("AUDIO_PROVIDER_MAX_VOLUME", "0", "Deleted");
        EXPECT_EQ(world_.Log().size(), before);
        EXPECT_EQ(Orv::GlobalLevelSetting().maxLevel, 16383) << "a parameter keeps its last value";
    });
}

TEST_F(DispatcherTest, TheGlobalLimitIsReadWithAtoiAndTextThatIsNoNumberCountsAs0) {
    world_.Run([] {
        const std::pair<const char*, i16> cases[] = {{"50", 16383},  {"100", 32767}, {"50%", 16383}, {"loud", 0},
                                                     {"150", 32767}, {"-5", 0},      {"", 0}};
        for (const auto& [value, level] : cases) {
            Parameter("AUDIO_PROVIDER_MAX_VOLUME", "1");
            Parameter("AUDIO_PROVIDER_MAX_VOLUME", value);
            EXPECT_EQ(Orv::GlobalLevelSetting().maxLevel, level) << value;
        }
    });
}

TEST_F(DispatcherTest, AutogainIsOnForExactlyOneAndOffForTrueOr11) {
    world_.Run([] {
        for (const char* value : {"true", "11", "01", "1 ", ""}) {
            Parameter("AUDIO_PROVIDER_ENABLE_AUTOGAIN", "1");
            EXPECT_TRUE(Orv::GlobalLevelSetting().autogain);
            Parameter("AUDIO_PROVIDER_ENABLE_AUTOGAIN", value);
            EXPECT_FALSE(Orv::GlobalLevelSetting().autogain) << value;
        }
    });
}

TEST_F(DispatcherTest, AnEmptyPromptPathInAnUpdateEmptiesTheRootPath) {
    world_.Run([&] {
        Parameter("IVRPROMPTPATH", "/prompts");
        EXPECT_EQ(Orv::RootPath(), "/prompts");
        Parameter("IVRPROMPTPATH", "");
        EXPECT_EQ(Orv::RootPath(), "");
        EXPECT_EQ(world_.LogOf("Root path updated: ").back(), " Info|Root path updated: ");
    });
}

TEST_F(DispatcherTest, TheDefaultAudioFileIsSetAndAnEmptyOneKeepsThePreviousOne) {
    world_.Run([] {
        Parameter("DEFAULTAUDIOFILE", "/new.wav");
        Parameter("DEFAULTAUDIOFILE", "");
        std::string file;
        Orv::GetDefaultAudioFile(file);
        EXPECT_EQ(file, "/new.wav");
    });
}

TEST_F(DispatcherTest, AParametersNameIsComparedWithItsCaseAndAnyOtherNameIsIgnored) {
    world_.Run([&] {
        const std::size_t before = world_.Log().size();
        Parameter("audio_provider_max_volume", "50");
        Parameter("AUDIO_PROVIDER_MAX_VOLUME2", "50");
        Parameter("", "50");
        Change("PARAMETER", "Updated");
        EXPECT_EQ(Orv::GlobalLevelSetting().maxLevel, 0);
        EXPECT_EQ(world_.Log().size(), before);
    });
}

TEST_F(DispatcherTest, AnAbsentValueCountsAsEmpty) {
    world_.Run([] {
        Parameter("AUDIO_PROVIDER_MAX_VOLUME", "50");
        Change("PARAMETER", "Updated", MakeList({{"name", "AUDIO_PROVIDER_MAX_VOLUME"}}));
        EXPECT_EQ(Orv::GlobalLevelSetting().maxLevel, 0);
    });
}

TEST_F(DispatcherTest, TheLoggingLevelIsTheFirstCharacterIfThatIsADigitUpTo5AndElse1) {
    world_.Run([] {
        const std::pair<const char*, i32> cases[] = {{"0", 0},  {"2", 2},   {"5", 5}, {"6", 1},  {"9", 1}, {"12", 1},
                                                     {"25", 2}, {"abc", 1}, {"", 1},  {" 3", 1}, {"-3", 1}};
        for (const auto& [value, level] : cases) {
            Orv::LogWriter::Instance().SetLogLevel(3);
            Parameter("SYSTEMLOGGINGLEVEL", value);
            EXPECT_EQ(Orv::LogWriter::Instance().Level(), level) << value;
        }
        Orv::LogWriter::Instance().SetLogLevel(3);
    });
}

TEST_F(DispatcherTest, TheChangeOfTheLoggingLevelGoesOutUnderTheOldLevel) {
    world_.Run([&] {
        Parameter("SYSTEMLOGGINGLEVEL", "0");
        EXPECT_EQ(world_.LogOf("Change log verbosity"), Texts{" Info|Change log verbosity to 0"});
        Parameter("SYSTEMLOGGINGLEVEL", "3");
        EXPECT_EQ(world_.CountLog("Change log verbosity"), 1U) << "level 0 was silent";
        EXPECT_EQ(world_.Log().back().source, "OrvAudioFeeder");
    });
}

TEST_F(DispatcherTest, ADeletionOfTheConfigurationStopsAllAndAnythingElseReloadsAll) {
    world_.Run([&] {
        for (const char* kind : {"Inserted", "Updated", "anything"}) {
            const u64 before = world_.CountLog("IVRPROMPTPATH is not specified");
            Change("CFGSERVER", kind);
            EXPECT_EQ(world_.CountLog("IVRPROMPTPATH is not specified"), before + 1) << kind;
            Orv::LogWriter::Instance().SetLogLevel(3);
        }
        Change("AUDIOFEED", "Inserted", Feed());
        Change("ANNOUNCEMENT", "Inserted", Announcement("a"));
        Change("CFGSERVER", "Deleted");
        EXPECT_TRUE(world_.Pipes().ServedNames().empty());
        EXPECT_EQ(Orv::AnnouncementTable::Instance().Size(), 0U);
    });
}

TEST_F(DispatcherTest, AStandardExceptionEndsInTheLogAndTheNextEventIsTakenAsUsual) {
    world_.Run([&] {
        VX::ParamListHolder newRow = Feed();
        VX::ParamListHolder oldRow;
        FailNextAllocation();
        Orv::OnConfigUpdate("AUDIOFEED", "Inserted", 17, &newRow, &oldRow);
        const LogLine last = world_.Log().back();
        EXPECT_EQ(last.word + "|" + last.source + "|" + last.text, "Excep|OrvAudioFeeder|std::bad_alloc");
        EXPECT_EQ(world_.CountLog("Creating channel"), 0U);
        Change("AUDIOFEED", "Inserted", Feed());
        Sleep(1);
        EXPECT_TRUE(world_.Pipes().IsServed("p"));
    });
}

// With a size limit of a byte each line begins a file, which takes memory.
TEST_F(DispatcherTest, AStandardExceptionInAListenerEndsInTheLogAndTheListenerReturns0) {
    Orv::ClearRequests();
    world_.Run([&] {
        Orv::LogWriter::Instance().OpenLog("/log", 1);
        for (const auto& listener : {+[] { return Orv::OnVXConnect("here", "there", "name", 0, 0, "DBProvider"); },
                                     +[] { return Orv::OnVXDisconnect("", 0, 0); }}) {
            FailNextAllocation();
            EXPECT_EQ(listener(), 0);
            const LogLine last = world_.Log().back();
            EXPECT_EQ(last.word + "|" + last.source + "|" + last.text, "Excep|OrvAudioFeeder|std::bad_alloc");
        }
        EXPECT_FALSE(Orv::WaitForAnyRequest()) << "the host was told of the loss before";
        Orv::LogWriter::Instance().OpenLog("/log", 1'000'000);
    });
}

}  // namespace
