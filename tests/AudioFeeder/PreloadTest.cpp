// Goal: a preloaded file is there for the first channel, under whatever name a row, a parameter or a playlist asks for
// it. Method: everything is built from tables, with settings made by hand; the log tells where each file came from.
#include "AudioFeeder/Preload.h"

#include <gtest/gtest.h>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/SharedValues.h"
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "tests/AudioFeeder/FakeConfigService.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using Orv::IPipeManager;
using Texts = std::vector<std::string>;

class PreloadTest : public testing::Test {
protected:
    PreloadTest() {
        world_.Files().AddFolder("/here");
        world_.Files().SetWorkingDirectory("/here");
        config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    }
    ~PreloadTest() override {
        Orv::SetPreload({});
        Orv::MemoryFileCache::Instance().Clear();
    }
    static void Preload(const Texts& names, u32 megabytes = 64) { Orv::SetPreload({names, megabytes, true}); }
    void AddSound(const std::string& path) { world_.Files().AddFile(path, WavBytes(Noise(4000, 1))); }
    void Feed(i32 id, const char* pipe, const char* folder) {
        config_.Put("AUDIOFEED", id, {{"idaudiofeed", id}, {"pipename", pipe}, {"thename", folder}, {"feedtype", 3}});
    }
    void Reload(const std::function<void()>& look = [] {}) {
        world_.Run([&] {
            config_.ConnectTables();
            IPipeManager::ReloadAll();
            look();
            FakeConfigService::DisconnectTables();
        });
    }
    // The preloaded file of that name, or null.
    static bool Cached(const char* name) { return Orv::MemoryFileCache::Instance().Find(name) != nullptr; }

    FeederWorld world_;
    FakeConfigService config_;
};

TEST_F(PreloadTest, WithoutTheSettingNothingIsLoadedAndNothingIsSaid) {
    AddSound("/root/Playlist/x/a.wav");
    Feed(1, "p", "x");
    Reload();
    EXPECT_FALSE(Cached("/root/playlist/x/a.wav"));
    EXPECT_EQ(world_.CountLog("reload"), 0U);
    EXPECT_EQ(world_.CountLog(" taken from the cache"), 0U);
}

TEST_F(PreloadTest, AFolderUnderTheRootOfTheParametersIsThereForTheFirstChannel) {
    config_.PutParameter(2, "IVRPROMPTPATH", "/Prompts\\");
    AddSound("/Prompts/Playlist/x/B.wav");
    AddSound("/Prompts/Playlist/x/a.WAV");
    world_.Files().AddFile("/Prompts/Playlist/x/c.raw", RawBytes(Noise(4000, 2)));
    AddSound("/Prompts/Playlist/x/deeper/d.wav");
    Feed(1, "p", "x");
    Preload({"playlist/X"});
    Reload([&] {
        EXPECT_TRUE(Cached("/prompts/playlist/x/a.wav"));
        EXPECT_TRUE(Cached("/prompts/playlist/x/b.wav"));
        EXPECT_TRUE(Cached("/prompts/playlist/x/c.raw"));
        EXPECT_FALSE(Cached("/prompts/playlist/x/deeper/d.wav")) << "folders in it are not entered";
    });
    EXPECT_EQ(world_.LogOf("Files preloaded"), Texts{" Info|Files preloaded: 3, 24088 bytes, locked in memory: 3"});
    EXPECT_EQ(world_.LogOf("/B.wav taken from the cache").size(), 1U) << "the first file of the first channel";
    EXPECT_EQ(world_.CountLog(" put to shared async i/o storage"), 0U);
}

TEST_F(PreloadTest, WithoutAPromptPathTheRootOfTheSettingsHolds) {
    AddSound("/root/Playlist/x/a.wav");
    Feed(1, "p", "x");
    Preload({"Playlist/x"});
    Reload();
    EXPECT_EQ(world_.LogOf("/a.wav taken from the cache").size(), 1U);
}

TEST_F(PreloadTest, TheDefaultAudioFileIsFoundUnderItsRelativeName) {
    config_.PutParameter(2, "DEFAULTAUDIOFILE", "Music\\Hold.wav");
    AddSound("/here/music/hold.WAV");
    Preload({"./Music/hold.wav"});
    Reload([] { Sleep(100); });
    EXPECT_GE(world_.CountLog("Music\\Hold.wav taken from the cache"), 1U);
    EXPECT_EQ(world_.CountLog("opened as 8000 Hz"), 0U);
}

TEST_F(PreloadTest, ARelativeNameIsLookedForInTheWorkingDirectoryAndUnderTheRoot) {
    AddSound("/here/a.wav");
    AddSound("/root/a.wav");
    AddSound("/root/b.wav");
    AddSound("/else/c.wav");
    Preload({"a.wav", "b.wav", "/else/c.wav"});
    Reload([&] {
        for (const char* name : {"/here/a.wav", "a.wav", "/root/a.wav", "/root/b.wav", "/else/c.wav"}) {
            EXPECT_TRUE(Cached(name)) << name;
        }
        EXPECT_FALSE(Cached("b.wav")) << "which would be /here/b.wav";
    });
    EXPECT_EQ(world_.LogOf("Files preloaded"), Texts{" Info|Files preloaded: 4, 32176 bytes, locked in memory: 4"});
}

TEST_F(PreloadTest, WhatIsNotThereIsWarnedOfAndTheRestIsLoaded) {
    AddSound("/root/a.wav");
    world_.Files().AddFolder("/root/empty");
    Preload({"empty", "nothing.wav", "a.wav"});
    Reload();
    EXPECT_EQ(world_.LogOf("There is no sound file"), (Texts{" Warn|There is no sound file to preload under 'empty'",
                                                             " Warn|There is no sound file to preload under "
                                                             "'nothing.wav'"}));
    EXPECT_EQ(world_.LogOf("Files preloaded"), Texts{" Info|Files preloaded: 1, 8044 bytes, locked in memory: 1"});
}

TEST_F(PreloadTest, WhatPassesTheLimitIsToldAtLevelOneAndPlaysFromDisk) {
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "1");
    world_.Files().AddFile("/root/Playlist/x/a.raw", std::string(1'048'576, '\1'));
    world_.Files().AddFile("/root/Playlist/x/b.raw", std::string(2'000, '\1'));
    Preload({"Playlist/x"}, 1);
    Reload([&] {
        EXPECT_TRUE(Cached("/root/playlist/x/a.raw")) << "in the order of the names";
        EXPECT_FALSE(Cached("/root/playlist/x/b.raw"));
    });
    EXPECT_EQ(
        world_.CountLog("/b.raw is not preloaded and plays from disk: 2000 bytes do not fit, 0 of 1048576 are left"),
        1U);
}

TEST_F(PreloadTest, ALimitThatIsNoNumberIsWarnedOf) {
    world_.Run([] { Orv::SetPreload({{}, 64, false}); });
    EXPECT_EQ(world_.LogOf("PreloadMegabytes"),
              Texts{" Warn|PreloadMegabytes is no number from 1 to 1048576, 64 is taken"});
}

TEST_F(PreloadTest, ASecondReloadLoadsAnew) {
    AddSound("/root/a.wav");
    Preload({"a.wav"});
    Reload();
    world_.Files().Remove("/root/a.wav");
    AddSound("/root/b.wav");
    Preload({"b.wav"});
    Reload();
    EXPECT_FALSE(Cached("/root/a.wav"));
    EXPECT_TRUE(Cached("/root/b.wav"));
}

}  // namespace
