// Goal: where the system has no descriptor or no thread left to give, the feeds that play are heard as ever, whoever
// came too late is told in the log and comes when there is room again. Method: the limits of the running service are
// taken down to what it has, and given back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

#include "tests/e2e/Exchange.h"
#include "tests/support/Effort.h"

namespace OrvTest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// What prlimit and the kernel call a limit.
struct LimitName {
    const char* option;
    const char* title;
};
constexpr LimitName kDescriptors{"nofile", "Max open files"};
constexpr LimitName kThreads{"nproc", "Max processes"};

// Holds a soft limit of the service down for as long as it lives. The service's own user sets it, since what root may
// do to others is the machine's choice.
class Shortage {
public:
    Shortage(Exchange& exchange, const LimitName& limit, rlim_t value)
        : exchange_(exchange), process_(std::to_string(exchange.Feeder().Pid())), limit_(limit) {
        std::istringstream lines(ReadFileText("/proc/" + process_ + "/limits"));
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with(limit.title)) std::istringstream(line.substr(26)) >> before_;
        }
        Set(std::to_string(value));
    }
    ~Shortage() { End(); }
    Shortage(const Shortage&) = delete;
    Shortage& operator=(const Shortage&) = delete;

    void End() {
        if (!before_.empty() && exchange_.Feeder().Running()) Set(before_);
        before_.clear();
    }
    void Set(const std::string& value) {
        const RunResult result = OrvTest::Run(exchange_.Unprivileged(
            {"/usr/bin/prlimit", "--pid", process_, std::string("--") + limit_.option + "=" + value + ":"}));
        EXPECT_EQ(result.exitCode, 0) << result.error;
    }

private:
    Exchange& exchange_;
    const std::string process_;
    const LimitName limit_;
    std::string before_;
};

// The lowest descriptor that a process does not have. A limit of so much leaves it none to open.
rlim_t LowestFreeDescriptor(pid_t process) {
    std::set<int> used;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd")) {
        used.insert(std::stoi(entry.path().filename()));
    }
    int lowest = 0;
    while (used.contains(lowest)) ++lowest;
    return static_cast<rlim_t>(lowest);
}

int MillisecondOfDay(const LogEntry& entry) {
    return ((std::stoi(entry.time.substr(0, 2)) * 60 + std::stoi(entry.time.substr(3, 2))) * 60 +
            std::stoi(entry.time.substr(6, 2))) *
               1000 +
           std::stoi(entry.time.substr(9, 3));
}

bool IsSilent(const Model::Block& block) {
    return std::all_of(block.begin(), block.end(), [](int sample) { return sample == 0; });
}

// What ends before it has begun.
const Model::Sound kNothing{Model::Bytes{}, true};

Model::Feed::NextMusic AlwaysThis(const Model::Bytes& file) {
    return [file] { return Model::Sound(file); };
}

class Limits : public ::testing::Test {
protected:
    Limits() {
        exchange_.StartConfig();
        exchange_.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
        // Longer than a test, so that nobody who plays it has to open anything.
        music_ = Model::AudioOf(exchange_.AddPiece("Playlist/music/a.wav", 10.0, 120.0));
    }

    void AddFeed(const std::string& pipe, const std::string& folder = "music") {
        exchange_.Must({"feed", "add", pipe, "--type", "sorted", "--folder", folder});
    }
    pid_t Service() { return exchange_.Feeder().Pid(); }
    std::string StatusSocket() const { return exchange_.Folder() / "state"; }
    bool PipeIsThere(const std::string& name) const { return std::filesystem::exists(exchange_.PipeFile(name)); }

    // What stands in the log of the channel so far: "Word text", without prefix and ids. Repetitions are left out, and
    // so is "Started", which another thread says than what the pump says at that moment.
    std::vector<std::string> Story(const std::string& channel) const {
        std::vector<std::string> story;
        for (const LogEntry& entry : exchange_.Log()) {
            if (!entry.text.starts_with(channel) || entry.text.ends_with("]:Started")) continue;
            std::string text = entry.text.substr(channel.size());
            text = text.substr(0, text.find("ID"));
            text = entry.word + " " + text;
            if (story.empty() || story.back() != text) story.push_back(text);
        }
        return story;
    }

    // What the pump of a feed was given to play, in order: one of these files, or nothing where it could not be had.
    std::vector<Model::Sound> WhatBegan(const std::string& pipe,
                                        const std::map<std::string, Model::Bytes>& files) const {
        std::vector<Model::Sound> began;
        std::string thread;
        for (const LogEntry& entry : exchange_.Log()) {
            const bool own = entry.text.find(" as " + pipe + "[") != std::string::npos;
            const auto start = entry.text.find("Start next audio file ");
            if (own && entry.text.find("New pipe connected") != std::string::npos) thread = entry.thread;
            if (own && start != std::string::npos) {
                began.push_back(files.at(std::filesystem::path(entry.text.substr(start)).filename()));
            } else if (own && entry.text.find("PlayList is empty.") != std::string::npos) {
                began.push_back(kNothing);
            } else if (entry.thread == thread && entry.text.find("Cannot open stream source '") != std::string::npos) {
                began.back() = kNothing;
            }
        }
        return began;
    }

    // The pump naps between two of these lines, however late it comes to each.
    void ExpectThePumpsPace(const std::string& line) const {
        int previous = -1;
        for (const LogEntry& entry : exchange_.Log()) {
            if (entry.text.find(line) == std::string::npos) continue;
            const int now = MillisecondOfDay(entry);
            const bool midnight = now < previous;
            if (previous >= 0 && !midnight) {
                EXPECT_GE(now - previous, 99) << entry.time << " " << entry.text;
            }
            previous = now;
        }
    }

    void ExpectTheMusic(const Client& client, const std::string& pipe, std::size_t firstBlock = 0) const {
        EXPECT_FALSE(client.Ended()) << pipe;
        Model::Feed model(AlwaysThis(music_));
        EXPECT_EQ(CompareWithModel(client.Blocks(), model, exchange_.Log(), pipe, firstBlock), "") << pipe;
    }

    void ExpectAGoodEnd() {
        EXPECT_EQ(exchange_.Feeder().Stop(), 0);
        EXPECT_TRUE(std::filesystem::is_empty(exchange_.PipeFolder())) << "a socket is left";
    }

    Exchange exchange_;
    Model::Bytes music_;
};

TEST_F(Limits, WithoutADescriptorANewFeedHasNoPipeUntilThereIsOneAgainAndTheOthersPlayOn) {
    AddFeed("one");
    AddFeed("two");
    exchange_.StartFeeder();
    const Client one(exchange_, "one");
    const Client two(exchange_, "two");
    ASSERT_TRUE(one.WaitForBlocks(8));
    ASSERT_TRUE(two.WaitForBlocks(8));

    const std::string refused = "Channel music as late[3]:Cannot create new listener for connection. error=24";
    const rlim_t free = LowestFreeDescriptor(Service());
    // A socket needs three at once: without any, with one and with two, the pipe cannot come.
    Shortage descriptors(exchange_, kDescriptors, free);
    for (const rlim_t left : {0, 1, 2}) {
        descriptors.Set(std::to_string(free + left));
        if (left == 0) AddFeed("late");
        const std::size_t before = exchange_.LogTexts(refused).size();
        ASSERT_TRUE(exchange_.WaitForLog(refused, 30000, before + 8)) << left;
        const std::size_t heard = one.Size() / Model::BlockBytes;
        ASSERT_TRUE(one.WaitForBlocks(heard + 8));
        ASSERT_TRUE(two.WaitForBlocks(heard + 8));
        // What could be bound, and not opened to clients, is not left lying there.
        EXPECT_FALSE(left == 0 && PipeIsThere("late"));
    }
    descriptors.End();
    const Client late(exchange_, "late");
    ASSERT_TRUE(late.WaitForBlocks(24));

    ExpectTheMusic(one, "one");
    ExpectTheMusic(two, "two");
    // Its folder could not be listed when it was built: its first block tells that, the second one begins the music.
    EXPECT_TRUE(IsSilent(late.Blocks().front()));
    ExpectTheMusic(late, "late", 1);
    EXPECT_THAT(Story("Channel music as late[3]:"),
                ElementsAre("Trace Volume control is turned off", "Warn PlayList is empty. Start default audio file - ",
                            "Error Cannot create new listener for connection. error=24",
                            "Info Wait for new connection. ", "Info New pipe connected ", "Trace Build playlist",
                            "Trace Start next audio file " + exchange_.Prompts() + "Playlist/music/a.wav",
                            "Info Wait for new connection. "));
    ExpectThePumpsPace(refused);
    EXPECT_TRUE(exchange_.LogTexts("as one[1]:Cannot").empty());
    EXPECT_TRUE(exchange_.LogTexts("as two[2]:Cannot").empty());
    ExpectAGoodEnd();
}

TEST_F(Limits, WithoutADescriptorAFurtherClientWaitsAndTheOneThatListensHearsNothingOfIt) {
    AddFeed("one");
    exchange_.StartFeeder();
    const Client first(exchange_, "one");
    ASSERT_TRUE(first.WaitForBlocks(8));
    Shortage descriptors(exchange_, kDescriptors, LowestFreeDescriptor(Service()));
    const Client second(exchange_, "one");  // the kernel keeps it until it is taken
    ASSERT_TRUE(exchange_.WaitForLog("Channel music as one[1]:ConnectNamedPipe failed (24). ID=", 30000, 8));
    ASSERT_TRUE(first.WaitForBlocks(first.Size() / Model::BlockBytes + 8));
    EXPECT_EQ(second.Size(), 0u);
    EXPECT_FALSE(second.Ended());
    descriptors.End();
    ASSERT_TRUE(second.WaitForBlocks(16));
    ASSERT_TRUE(first.WaitForBlocks(first.Size() / Model::BlockBytes + 2));

    ExpectTheMusic(first, "one");
    const auto all = first.Blocks();
    const auto late = second.Blocks();
    const auto joined = std::find(all.begin(), all.end(), late.front());
    ASSERT_NE(joined, all.end());
    const auto common = std::min(late.size(), static_cast<std::size_t>(all.end() - joined));
    ASSERT_GE(common, 8u);
    EXPECT_TRUE(std::equal(joined, joined + static_cast<std::ptrdiff_t>(common), late.begin()));

    auto story = Story("Channel music as one[1]:");
    ASSERT_GE(story.size(), 12u);
    story.erase(story.begin(), std::find(story.begin(), story.end(), "Info New pipe connected "));
    // The instance that waited fails first; then each pass makes one, which fails at once.
    const std::vector<std::string> begin{"Info New pipe connected ", "Info Wait for new connection. ",
                                         "Info Connection failed on ", "Info Wait for new connection. ",
                                         "Info ConnectNamedPipe failed (24). "};
    ASSERT_GE(story.size(), begin.size());
    EXPECT_TRUE(std::equal(begin.begin(), begin.end(), story.begin())) << ::testing::PrintToString(story);
    EXPECT_EQ(story[story.size() - 2], "Info New pipe connected ");
    EXPECT_EQ(story.back(), "Info Wait for new connection. ");
    EXPECT_EQ(exchange_.LogTexts(". 2 connection(s) active").size(), 1u);
    ExpectAGoodEnd();
}

// A file that cannot be opened costs one block of silence; a folder that cannot be read is an empty one, and its feed
// asks for it again with each block.
TEST_F(Limits, WithoutADescriptorAFeedThatNeedsItsNextFileIsSilentUntilItCanHaveIt) {
    const Model::Bytes a = Model::AudioOf(exchange_.AddPiece("Playlist/short/a.wav", 10.0, 2.0));
    const Model::Bytes b = Model::AudioOf(exchange_.AddPiece("Playlist/short/b.wav", 20.0, 2.0));
    AddFeed("one");
    AddFeed("short", "short");
    exchange_.StartFeeder();
    const Client one(exchange_, "one");
    const Client needs(exchange_, "short");
    ASSERT_TRUE(needs.WaitForBlocks(4));
    ASSERT_TRUE(one.WaitForBlocks(4));
    // So low that not even the descriptor of the file that has ended can be had again.
    Shortage descriptors(exchange_, kDescriptors, 3);
    const std::string empty = "Channel short as short[2]:PlayList is empty. Start default audio file - ";
    ASSERT_TRUE(exchange_.WaitForLog(empty, 30000, 16));
    descriptors.End();
    const std::size_t back = exchange_.LogTexts("Channel short as short[2]:Start next audio file ").size();
    ASSERT_TRUE(exchange_.WaitForLog("Channel short as short[2]:Start next audio file ", 30000, back + 1));
    ASSERT_TRUE(needs.WaitForBlocks(needs.Size() / Model::BlockBytes + 24));

    Model::Feed model([sounds = WhatBegan("short", {{"a.wav", a}, {"b.wav", b}}), next = std::size_t{0}]() mutable {
        return next < sounds.size() ? sounds[next++] : kNothing;
    });
    EXPECT_EQ(CompareWithModel(needs.Blocks(), model, exchange_.Log(), "short"), "");
    EXPECT_FALSE(needs.Ended());
    ExpectTheMusic(one, "one");
    ExpectAGoodEnd();
}

TEST_F(Limits, WithoutAThreadANewFeedSaysSoAndComesWithTheRebuildThatIsAskedFor) {
    AddFeed("one");
    exchange_.WriteSettings("[General]\nStatusPath=" + StatusSocket() + "\n");
    exchange_.StartFeeder();
    const Client one(exchange_, "one");
    ASSERT_TRUE(one.WaitForBlocks(8));
    // Its user has more than no process already, so that there is none to be had.
    Shortage threads(exchange_, kThreads, 0);
    AddFeed("late");
    ASSERT_TRUE(exchange_.WaitForLog("Channel music as late[2]:Cannot start thread"));
    exchange_.Must({"feed", "rebuild", "late"});
    ASSERT_TRUE(exchange_.WaitForLog("Channel music as late[3]:Cannot start thread"));
    const RunResult doctor =
        OrvTest::Run(exchange_.Unprivileged({exchange_.Program("orvctl"), "-c", exchange_.SettingsFile(), "doctor"}));
    EXPECT_EQ(doctor.exitCode, 2) << doctor.output;
    EXPECT_THAT(doctor.output, HasSubstr("The feed \"late\" has no thread, and plays nothing"));
    EXPECT_THAT(doctor.output, HasSubstr("`orvctl feed rebuild late`"));
    // Changes that need no thread take effect all the same.
    exchange_.Must({"feed", "set", "late", "--max-volume", "100"});
    ASSERT_TRUE(one.WaitForBlocks(one.Size() / Model::BlockBytes + 8));
    EXPECT_FALSE(PipeIsThere("late"));
    threads.End();
    exchange_.Must({"feed", "rebuild", "late"});
    const Client late(exchange_, "late");
    ASSERT_TRUE(late.WaitForBlocks(16));

    ExpectTheMusic(one, "one");
    ExpectTheMusic(late, "late");
    const std::string start = "Trace Start next audio file " + exchange_.Prompts() + "Playlist/music/a.wav";
    const std::string quiet = "Trace Volume control is turned off";
    EXPECT_THAT(Story("Channel music as late[2]:"),
                ElementsAre(quiet, start, "Error Cannot start thread", "Info Shutdown", "Info Destroyed"));
    EXPECT_THAT(Story("Channel music as late[3]:"),
                ElementsAre(quiet, start, "Error Cannot start thread", start, "Info Shutdown", "Info Destroyed"));
    EXPECT_THAT(
        Story("Channel music as late[4]:"),
        ElementsAre("Trace Volume control: MaxVolume=100%, autogain disabled", start, "Info Wait for new connection. ",
                    "Info New pipe connected ", "Info Wait for new connection. "));
    EXPECT_EQ(exchange_.LogTexts("Channel music as late[4]:Started").size(), 1u);
    EXPECT_EQ(exchange_.LogTexts("Shutdown channel late").size(), 3u);
    EXPECT_EQ(exchange_.LogTexts("Creating channel late").size(), 3u);
    ExpectAGoodEnd();
}

TEST_F(Limits, WithoutAThreadAStopIsAsOrderlyAsEver) {
    AddFeed("one");
    exchange_.StartFeeder();
    const Client one(exchange_, "one");
    ASSERT_TRUE(one.WaitForBlocks(8));
    const Shortage threads(exchange_, kThreads, 0);
    AddFeed("late");
    ASSERT_TRUE(exchange_.WaitForLog("Channel music as late[2]:Cannot start thread"));
    ASSERT_TRUE(one.WaitForBlocks(one.Size() / Model::BlockBytes + 8));
    ExpectAGoodEnd();
    EXPECT_TRUE(one.WaitForEnd());
    Model::Feed model(AlwaysThis(music_));
    EXPECT_EQ(CompareWithModel(one.Blocks(), model, exchange_.Log(), "one"), "");
    EXPECT_EQ(exchange_.LogTexts("Channel music as one[1]:closed").size(), 1u);
    EXPECT_EQ(exchange_.LogTexts("]:Destroyed").size(), 2u);
}

// The library under the connection starts its threads with the first connection. Where it could not, it waited for
// them without end: the service neither connected ever after nor obeyed a stop.
TEST_F(Limits, WithoutThreadsForTheConnectionTheServiceTriesAgainUntilThereAreSome) {
    AddFeed("one");
    exchange_.WriteSettings();
    const std::string whole = ReadFileText(exchange_.SettingsFile());
    const std::string password = "confPass=feeder-password\n";
    std::string without = whole;
    without.erase(without.find(password), password.size());
    WriteFileText(exchange_.SettingsFile(), without);
    exchange_.StartFeeder(false);
    ASSERT_TRUE(exchange_.WaitForLog("Starting service"));
    Shortage threads(exchange_, kThreads, 0);
    WriteFileText(exchange_.SettingsFile(), whole);
    ASSERT_TRUE(exchange_.WaitForLog("Can't connect to Configuration service on 127.0.0.1:", 40000));
    threads.End();
    ASSERT_TRUE(exchange_.WaitForLog("Connected to Configuration service 'ConfigService'", 40000));
    const Client one(exchange_, "one");
    ASSERT_TRUE(one.WaitForBlocks(8));
    ExpectTheMusic(one, "one");
    ExpectAGoodEnd();
}

}  // namespace
}  // namespace OrvTest
