// Goal: what stands on a feed's pipe is, sample for sample and in time, what the rules give from the files' bytes.
// Method: real music cut into short pieces by an outside tool, real processes, and a model of the rules that shares no
// code with the service.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <numeric>

#include "tests/e2e/Exchange.h"

namespace OrvTest {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

// Plays the files round and round in the given order.
Model::Feed::NextMusic RoundAndRound(std::vector<Model::Bytes> files) {
    return [files = std::move(files), next = std::size_t{0}]() mutable { return files[next++ % files.size()]; };
}

// Bytes that the process has read from files so far, by the kernel's count.
long long BytesRead(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/io");
    std::string key;
    long long value = 0;
    while (file >> key >> value) {
        if (key == "rchar:") return value;
    }
    throw std::runtime_error("no count of bytes read");
}

class Playback : public ::testing::Test {
protected:
    Playback() { exchange_.StartConfig(); }

    void SortedFeed(const std::vector<std::string>& more = {}) {
        std::vector<std::string> command{"feed", "add", "music", "--type", "sorted", "--folder", "music"};
        command.insert(command.end(), more.begin(), more.end());
        exchange_.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
        exchange_.Must(command);
    }

    Exchange exchange_;
};

TEST_F(Playback, ASortedFeedPlaysItsFilesSampleForSampleInTheOrderOfTheirNames) {
    // Upper case sorts first, and the masks are merged by the sort.
    const std::vector<Model::Bytes> files{Model::AudioOf(exchange_.AddPiece("Playlist/music/Beta.WAV", 10.0, 3.2)),
                                          Model::AudioOf(exchange_.AddPiece("Playlist/music/alpha.raw", 30.0, 3.0)),
                                          Model::AudioOf(exchange_.AddPiece("Playlist/music/gamma.wav", 50.0, 3.1))};
    SortedFeed();
    exchange_.StartFeeder();
    const Client client(exchange_, "music");
    ASSERT_TRUE(client.WaitForBlocks(84));  // 10.5 s: over all three files and into the first one again

    Model::Feed model(RoundAndRound(files));
    EXPECT_EQ(CompareWithModel(client.Blocks(), model, exchange_.Log(), "music"), "");
    EXPECT_EQ(exchange_.LogTexts("Build playlist").size(), 1u);
}

TEST_F(Playback, AShuffledFeedPlaysItsFilesInTheOrderOfTheKeysItDrew) {
    std::map<std::string, Model::Bytes> files;
    double start = 10.0;
    for (const char* name : {"one", "two", "three", "four"}) {
        start += 15.0;
        files[name] = Model::AudioOf(exchange_.AddPiece(std::string("Playlist/music/") + name + ".wav", start, 1.7));
    }
    exchange_.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
    exchange_.Must({"feed", "add", "music", "--type", "shuffled", "--folder", "music"});
    exchange_.StartFeeder();
    const Client client(exchange_, "music");
    ASSERT_TRUE(client.WaitForBlocks(60));

    // "r:<key><-><path>": ascending keys, ties in the order of the lines.
    std::multimap<long, std::string> order;
    std::vector<std::string> expected;
    const auto draws = exchange_.LogTexts("]:r:");
    ASSERT_GE(draws.size(), 4u);
    ASSERT_EQ(draws.size() % 4, 0u);
    for (std::size_t i = 0; i < draws.size(); ++i) {
        const auto key = draws[i].find("]:r:") + 4;
        const auto arrow = draws[i].find("<->");
        order.emplace(std::stol(draws[i].substr(key, arrow - key)), draws[i].substr(arrow + 3));
        if (i % 4 == 3) {
            for (const auto& [number, path] : order) expected.push_back(path);
            order.clear();
        }
    }
    const auto started = exchange_.LogTexts("Start next audio file ");
    std::vector<Model::Bytes> played;
    ASSERT_GE(started.size() + 1, 4u);
    for (const std::string& path : expected) {
        played.push_back(files.at(path.substr(path.rfind('/') + 1, path.rfind('.') - path.rfind('/') - 1)));
    }
    Model::Feed model(RoundAndRound(played));
    EXPECT_EQ(CompareWithModel(client.Blocks(), model, exchange_.Log(), "music"), "");
}

TEST_F(Playback, ThreeBlocksComeAtOnceAndThenOneEach125Milliseconds) {
    exchange_.AddPiece("Playlist/music/a.wav", 10.0, 20.0);
    SortedFeed();
    exchange_.StartFeeder();
    const Client client(exchange_, "music");
    ASSERT_TRUE(client.WaitForBlocks(75));

    const auto times = client.Times();
    const auto since = [&](std::size_t block) { return duration_cast<milliseconds>(times[block] - times[0]).count(); };
    EXPECT_LE(since(2), 100) << "the head start";
    // Block k is due (k - 3) * 125 ms after the start, give or take the pump's sleep of 100 ms and the machine's noise.
    for (const std::size_t block : {10u, 30u, 50u, 74u}) {
        const long due = (static_cast<long>(block) - 3) * 125;
        EXPECT_GE(since(block), due - 20) << "block " << block;
        EXPECT_LE(since(block), due + 125 + 250) << "block " << block;
    }
}

TEST_F(Playback, TwoClientsHearTheSameBytesAndOneThatLeavesDisturbsNobody) {
    exchange_.AddPiece("Playlist/music/a.wav", 10.0, 20.0);
    SortedFeed();
    exchange_.StartFeeder();
    const Client first(exchange_, "music");
    ASSERT_TRUE(first.WaitForBlocks(8));
    Client second(exchange_, "music");
    const Client third(exchange_, "music");
    ASSERT_TRUE(second.WaitForBlocks(8));
    second.Leave();
    ASSERT_TRUE(first.WaitForBlocks(48));
    ASSERT_TRUE(third.WaitForBlocks(24));

    const auto whole = first.Blocks();
    for (const Client* other : {const_cast<const Client*>(&second), &third}) {
        const auto heard = other->Blocks();
        ASSERT_FALSE(heard.empty());
        const auto at = std::search(whole.begin(), whole.end(), heard.begin(), heard.begin() + 2);
        ASSERT_NE(at, whole.end()) << "a client that joins gets the blocks of all others";
        const auto common = std::min<std::ptrdiff_t>(whole.end() - at, static_cast<std::ptrdiff_t>(heard.size()));
        EXPECT_TRUE(std::equal(at, at + common, heard.begin()));
    }
    EXPECT_EQ(exchange_.LogTexts("Connection closed. ID=").size(), 1u);
}

TEST_F(Playback, AFeedWithoutClientsReadsNothingAndGoesOnBehindTheBlockWhoseWriteFailed) {
    const auto audio = Model::AudioOf(exchange_.AddPiece("Playlist/music/a.wav", 10.0, 20.0));
    SortedFeed();
    exchange_.StartFeeder();
    Client first(exchange_, "music");
    ASSERT_TRUE(first.WaitForBlocks(12));
    first.Leave();
    ASSERT_TRUE(exchange_.WaitForLog("Connection closed. ID="));
    const auto heard = first.Blocks();

    // The listener waits for the next client; nothing is read meanwhile, however often the pump wakes.
    const auto waits = exchange_.LogTexts("Wait for new connection").size();
    std::this_thread::sleep_for(milliseconds(200));  // what was under way when the last client left
    const long long before = BytesRead(exchange_.Feeder().Pid());
    std::this_thread::sleep_for(milliseconds(1000));
    EXPECT_EQ(BytesRead(exchange_.Feeder().Pid()), before);
    EXPECT_EQ(exchange_.LogTexts("Wait for new connection").size(), waits);

    const Client second(exchange_, "music");
    ASSERT_TRUE(second.WaitForBlocks(12));
    const auto after = second.Blocks();

    // How many blocks the first client's socket took unread is the network's affair: the second one begins behind the
    // block whose write failed, so at one of the blocks that follow what was heard.
    Model::Feed model(RoundAndRound({audio}));
    for (std::size_t i = 0; i < heard.size(); ++i) EXPECT_EQ(model.Next(), heard[i]) << "block " << i;
    bool found = false;
    for (int skipped = 0; skipped < 12 && !found; ++skipped) {
        model.Next();
        Model::Feed here = model;
        found = here.Next() == after[0];
    }
    ASSERT_TRUE(found);
    EXPECT_EQ(CompareWithModel(after, model, {}, "music"), "");
    const auto times = second.Times();
    EXPECT_LE(duration_cast<milliseconds>(times[2] - times[0]).count(), 100) << "a feed that rested gives a head start";
}

TEST_F(Playback, ANonstopFeedPlaysOnWhileNobodyListens) {
    const auto audio = Model::AudioOf(exchange_.AddPiece("Playlist/music/a.wav", 10.0, 20.0));
    SortedFeed({"--nonstop", "on"});
    exchange_.StartFeeder();
    Client first(exchange_, "music");
    ASSERT_TRUE(first.WaitForBlocks(8));
    first.Leave();
    ASSERT_TRUE(exchange_.WaitForLog("Connection closed. ID="));
    std::this_thread::sleep_for(milliseconds(1500));
    const Client second(exchange_, "music");
    ASSERT_TRUE(second.WaitForBlocks(8));

    Model::Feed model(RoundAndRound({audio}));
    std::vector<Model::Block> whole;
    for (int block = 0; block < 150; ++block) whole.push_back(model.Next());
    const auto heardFirst = first.Blocks();
    const auto heardSecond = second.Blocks();
    const auto begin = std::search(whole.begin(), whole.end(), heardFirst.begin(), heardFirst.end());
    ASSERT_NE(begin, whole.end());
    const auto again = std::search(begin, whole.end(), heardSecond.begin(), heardSecond.end());
    ASSERT_NE(again, whole.end());
    // At least the 1.5 s of the wait lie between what the two heard.
    EXPECT_GE(again - begin, static_cast<std::ptrdiff_t>(heardFirst.size()) + 11);
}

TEST_F(Playback, AFeedOfTheDefaultSetPlaysTheDefaultAudioFileToEveryChannel) {
    const std::string file = exchange_.AddPiece("default.wav", 20.0, 4.0);
    exchange_.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
    exchange_.Must({"parameter", "set", "DEFAULTAUDIOFILE", "--value", file});
    exchange_.Must({"feed", "add", "one", "--type", "default"});
    exchange_.Must({"feed", "add", "two", "--type", "linein"});
    exchange_.StartFeeder();
    const Client one(exchange_, "one");
    const Client two(exchange_, "two");
    ASSERT_TRUE(one.WaitForBlocks(56));
    ASSERT_TRUE(two.WaitForBlocks(56));
    EXPECT_EQ(exchange_.LogTexts("LINEIN is not available. Play as default stream").size(), 1u);

    // The box fades its source in once, and each channel fades itself in again. Behind both ramps the samples are the
    // file's own, whatever the moment at which the channel tuned in.
    const auto audio = Model::AudioOf(file);
    std::vector<std::int16_t> source(audio.size() / 2);
    for (std::size_t i = 0; i < source.size(); ++i) {
        source[i] = static_cast<std::int16_t>(static_cast<std::uint16_t>(audio[2 * i] | (audio[2 * i + 1] << 8)));
    }
    for (const Client* client : {&one, &two}) {
        const auto blocks = client->Blocks();
        std::size_t exact = 0;
        for (std::size_t i = 24; i < 56; ++i) {
            exact += std::search(source.begin(), source.end(), blocks[i].begin(), blocks[i].end()) != source.end();
        }
        // Blocks over the file's end and a silence that a channel reads while its next chunk is on its way are not.
        EXPECT_GE(exact, 24u);
    }
}

}  // namespace
}  // namespace OrvTest
