#include "AudioFeeder/Playlist.h"

#include <gtest/gtest.h>

#include <deque>
#include <stdexcept>

#include "Platform/sim/Simulation.h"

namespace {

using Orv::FileFinder;
using Orv::JoinPath;
using Orv::PathList;
using Orv::Playlist;

TEST(JoinPath, PutsOneSlashBetweenUnlessTheLeftTextIsEmptyOrEndsInOne) {
    EXPECT_EQ(JoinPath("a", "b"), "a/b");
    EXPECT_EQ(JoinPath("a/", "b"), "a/b");
    EXPECT_EQ(JoinPath("", "b"), "b");
    EXPECT_EQ(JoinPath("a", ""), "a/");
    EXPECT_EQ(JoinPath("a", "/b"), "a//b");
    EXPECT_EQ(JoinPath("", ""), "");
}

TEST(JoinPath, ALeftTextThatEndsInABackslashGetsASlashAllTheSame) {
    EXPECT_EQ(JoinPath("a\\", "b"), "a\\/b");
}

class PlaylistFolderTest : public testing::Test {
protected:
    void Add(const std::string& name) { sim_.Files().AddFile("/f/" + name, "x"); }
    static PathList Find(const std::string& folder, const std::string& mask) {
        FileFinder finder(folder, mask);
        PathList paths;
        std::string path;
        while (finder.Next(path)) paths.push_back(path);
        EXPECT_FALSE(finder.Next(path)) << "the end is the end";
        return paths;
    }

    Platform::Sim::Simulation sim_;
};

TEST_F(PlaylistFolderTest, TheFinderGivesTheFolderJoinedWithEachNameInTheOrderOfTheSearch) {
    Add("c.wav");
    Add("a.wav");
    Add("b.raw");
    Add("b.wav");
    EXPECT_EQ(Find("/f", "*.wav"), (PathList{"/f/c.wav", "/f/a.wav", "/f/b.wav"}));
    EXPECT_EQ(Find("/f/", "*.raw"), (PathList{"/f/b.raw"}));
}

TEST_F(PlaylistFolderTest, AFolderNamedLikeAFileIsPassedOver) {
    Add("a.wav");
    sim_.Files().AddFolder("/f/b.wav");
    Add("c.wav");
    EXPECT_EQ(Find("/f", "*.wav"), (PathList{"/f/a.wav", "/f/c.wav"}));
}

TEST_F(PlaylistFolderTest, TheCaseOfTheExtensionDoesNotMatter) {
    Add("a.WAV");
    Add("b.Wav");
    Add("c.wave");
    Add("wav");
    EXPECT_EQ(Find("/f", "*.wav"), (PathList{"/f/a.WAV", "/f/b.Wav"}));
}

TEST_F(PlaylistFolderTest, AMissingFolderIsAnEndAtOnce) {
    EXPECT_TRUE(Find("/nowhere", "*.wav").empty());
    EXPECT_TRUE(Orv::FindPlaylistFiles("/nowhere").empty());
}

TEST_F(PlaylistFolderTest, TheSearchIsClosedAtItsEndAndWithTheFinder) {
    Add("a.wav");
    Add("b.wav");
    {
        FileFinder finder("/f", "*.wav");
        std::string path;
        finder.Next(path);
        EXPECT_EQ(sim_.Files().Counters().searchesAlive, 1U);
    }
    EXPECT_EQ(sim_.Files().Counters().searchesAlive, 0U);
    FileFinder finder("/f", "*.wav");
    std::string path;
    while (finder.Next(path)) {
    }
    EXPECT_EQ(sim_.Files().Counters().searchesAlive, 0U);
}

TEST_F(PlaylistFolderTest, AllWavFilesComeBeforeAllRawFiles) {
    Add("1.raw");
    Add("2.wav");
    Add("3.raw");
    Add("4.wav");
    EXPECT_EQ(Orv::FindPlaylistFiles("/f"), (PathList{"/f/2.wav", "/f/4.wav", "/f/1.raw", "/f/3.raw"}));
}

TEST(SortPlaylist, SortsByTheBytesOfTheWholePathUnsignedAndAShorterPathFirst) {
    PathList paths{"/f/b.wav", "/f/\xC3\xA4.wav", "/f/B.raw", "/f/a.wav.wav", "/f/a.wav", "/f/_.wav"};
    Orv::SortPlaylist(paths);
    EXPECT_EQ(paths, (PathList{"/f/B.raw", "/f/_.wav", "/f/a.wav", "/f/a.wav.wav", "/f/b.wav", "/f/\xC3\xA4.wav"}));
}

class ShuffleTest : public testing::Test {
protected:
    PathList Shuffle(PathList paths, std::deque<i32> keys) {
        Orv::ShufflePlaylist(
            paths,
            [&keys] {
                if (keys.empty()) throw std::logic_error("a key too many was drawn");
                const i32 key = keys.front();
                keys.pop_front();
                return key;
            },
            [this](i32 key, const std::string& path) { told_.push_back(std::to_string(key) + "<->" + path); });
        EXPECT_TRUE(keys.empty());
        return paths;
    }

    std::vector<std::string> told_;
};

TEST_F(ShuffleTest, TheListRunsInTheOrderOfTheKeysAndTheDrawsAreToldInTheOrderOfTheFolder) {
    EXPECT_EQ(Shuffle({"a", "b", "c", "d"}, {30, 10, 20, 5}), (PathList{"d", "b", "c", "a"}));
    EXPECT_EQ(told_, (std::vector<std::string>{"30<->a", "10<->b", "20<->c", "5<->d"}));
}

TEST_F(ShuffleTest, TwoFilesThatDrawTheSameKeyPlayInFolderOrder) {
    EXPECT_EQ(Shuffle({"a", "b", "c", "d"}, {7, 3, 7, 3}), (PathList{"b", "d", "a", "c"}));
}

TEST_F(ShuffleTest, KeysAreComparedAsSignedNumbers) {
    EXPECT_EQ(Shuffle({"a", "b"}, {0, -1}), (PathList{"b", "a"}));
}

TEST_F(ShuffleTest, AnEmptyListDrawsNothing) {
    EXPECT_TRUE(Shuffle({}, {}).empty());
}

TEST(Playlist, GivesItsPathsFromTheFront) {
    Playlist playlist;
    std::string path = "unchanged";
    EXPECT_TRUE(playlist.Empty());
    EXPECT_FALSE(playlist.TakeFront(path));
    EXPECT_EQ(path, "unchanged");
    playlist.Assign({"a", "b"});
    EXPECT_TRUE(playlist.TakeFront(path));
    EXPECT_EQ(path, "a");
    EXPECT_FALSE(playlist.Empty());
    playlist.Clear();
    EXPECT_TRUE(playlist.Empty());
}

}  // namespace
