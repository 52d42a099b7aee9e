// Goal: very many files in one folder and very many feeds without a listener cost what docs/reliability.md states, and
// delay nobody. Method: the files are further names of a few; what is measured is printed.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/faults/Neighbour.h"
#include "tests/support/Effort.h"

namespace fs = std::filesystem;

namespace OrvTest {
namespace {

using Seconds = std::chrono::duration<double>;

double Since(std::chrono::steady_clock::time_point begin) {
    return Seconds(std::chrono::steady_clock::now() - begin).count();
}

// Resident memory of a process, in KiB.
long ResidentKib(pid_t pid) {
    const std::string text = ReadFileText("/proc/" + std::to_string(pid) + "/status");
    return std::stol(text.substr(text.find("VmRSS:") + 6));
}

// On disk the names are in capitals, in the configuration they never are: each opening reads the folder through.
TEST(ManyFiles, AFolderOfVeryManyFilesPlaysInOrderAndDelaysNobody) {
    const int count = Effort(20'000, 100'000);
    Exchange exchange;
    exchange.StartConfig();
    exchange.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
    Neighbour calm(exchange, "calm");
    const std::string folder = exchange.AddFolder("Playlist/many");
    const std::string piece = exchange.AddPiece("piece.wav", 30.0, 0.5);
    const Model::Bytes audio = Model::AudioOf(piece);
    std::string first;
    for (int i = 0; i < count; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "/PIECE%06d.WAV", i);
        if (i % 10'000 == 0) {  // a file can't have more than some ten thousand names
            first = folder + name;
            fs::copy_file(piece, first);
            exchange.Own(first);
        } else {
            ASSERT_EQ(::link(first.c_str(), (folder + name).c_str()), 0);
        }
    }
    exchange.StartFeeder();
    calm.Listen();
    const long before = ResidentKib(exchange.Feeder().Pid());
    const auto begin = std::chrono::steady_clock::now();
    exchange.Must({"feed", "add", "sorted", "--type", "sorted", "--folder", "many"});
    Client sorted(exchange, "sorted", 60000);
    ASSERT_TRUE(sorted.WaitForBlocks(1));
    const double started = Since(begin);
    const long after = ResidentKib(exchange.Feeder().Pid());
    // Its log has a line for each file.
    exchange.Must({"feed", "add", "shuffled", "--type", "shuffled", "--folder", "many"});
    Client shuffled(exchange, "shuffled", 60000);
    ASSERT_TRUE(shuffled.WaitForBlocks(40));
    ASSERT_TRUE(sorted.WaitForBlocks(40));

    const auto log = exchange.Log();
    for (const auto& [client, pipe] : {std::pair{&sorted, "sorted"}, std::pair{&shuffled, "shuffled"}}) {
        Model::Feed model([audio] { return audio; });
        EXPECT_EQ(CompareWithModel(client->Blocks(), model, log, pipe), "");
    }
    std::vector<std::string> played;
    const std::string start = "Channel many as sorted[2]:Start next audio file ";
    for (const LogEntry& entry : log) {
        if (entry.text.starts_with(start)) played.push_back(entry.text.substr(start.size()));
    }
    ASSERT_GE(played.size(), 5u);  // enough to see the order
    for (std::size_t i = 0; i < played.size(); ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "/PIECE%06zu.WAV", i);
        EXPECT_EQ(played[i], folder + name);
    }
    calm.ExpectUntouched();
    std::printf(
        "%d files: first block %.2f s after the command, %ld KiB more memory; worst lateness of the feed itself "
        "%.0f ms, of a neighbour %.0f ms\n",
        count, started, after - before, WorstLateness(sorted), calm.WorstLateness());
    EXPECT_LT(after - before, count / 2) << "half a KiB for a file";
    EXPECT_EQ(exchange.Feeder().Stop(), 0);
}

TEST(ManyFiles, FeedsThatNobodyHearsTellOnlyOfTheDefaultSetAndGrowByNothing) {
    const int count = Effort(200, 1000);
    const int seconds = Effort(8, 300);
    Exchange exchange;
    exchange.StartConfig();
    // At level 3 the default set tells each second what it hands to each feed, heard or not.
    exchange.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "2"});
    exchange.Must({"parameter", "set", "DEFAULTAUDIOFILE", "--value", exchange.AddPiece("default.wav", 30.0, 60.0)});
    std::string rows;
    for (int i = 0; i < count; ++i)
        rows += (i == 0 ? "{\"pipe\": \"idle" : ", {\"pipe\": \"idle") + std::to_string(i) + "\"}";
    exchange.Must({"apply", "-"}, "{\"feeds\": [" + rows + "]}");
    exchange.StartFeeder();
    ASSERT_TRUE(Eventually(
        [&] {
            // Each feed waits for clients, and has had its first second of the default set.
            return exchange.LogTexts("]:Wait for new connection").size() == static_cast<std::size_t>(count) &&
                   exchange.LogTexts(") Connected").size() == static_cast<std::size_t>(count);
        },
        60000));

    const std::size_t bytes = exchange.LogText().size();
    const auto begin = std::chrono::steady_clock::now();
    const long memory = ResidentKib(exchange.Feeder().Pid());
    std::this_thread::sleep_for(std::chrono::seconds(seconds));  // the span itself is what is measured
    const std::string added = exchange.LogText().substr(bytes);
    const std::size_t written = added.size();
    const auto span = std::chrono::ceil<std::chrono::seconds>(std::chrono::steady_clock::now() - begin);
    const long grown = ResidentKib(exchange.Feeder().Pid()) - memory;
    std::printf("%d idle feeds, %d s: %zu bytes of log an hour, memory %ld KiB, grown by %ld KiB\n", count, seconds,
                written * 3600 / static_cast<std::size_t>(seconds), memory, grown);
    std::istringstream lines(added);
    std::size_t told = 0;
    for (std::string line; std::getline(lines, line); ++told) {
        EXPECT_NE(line.find("Remove obsolete data"), std::string::npos) << line;  // the default set, kept for nobody
        EXPECT_LE(line.size(), 120u) << line;
    }
    // Two of the default set's seconds at a time, for each feed.
    EXPECT_LE(told, static_cast<std::size_t>(count) * (static_cast<std::size_t>(span.count()) / 2 + 2));
    EXPECT_LT(grown, 1024);
    Client client(exchange, "idle" + std::to_string(count / 2));
    EXPECT_TRUE(Eventually([&] { return client.Size() > 0 && client.Blocks().back() != Model::Block{}; }))
        << "they live";
    EXPECT_EQ(exchange.Feeder().Stop(), 0);
}

}  // namespace
}  // namespace OrvTest
