// The load tool must tell the truth: it finds nothing lost where nothing is, and says so where something is.
//
// What it does with real processes runs as a program; what tells good from bad is tested with bytes made here.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "bench/orv-load/Grid.h"
#include "bench/orv-load/Histogram.h"
#include "bench/orv-load/Listeners.h"
#include "bench/orv-load/Marks.h"
#include "bench/orv-load/Plot.h"
#include "bench/orv-load/Report.h"
#include "bench/orv-load/ServiceLog.h"
#include "tests/support/Process.h"

namespace OrvLoad {
namespace {

std::vector<u8> CountedBlock(u32 first) {
    std::vector<u8> block;
    for (u32 i = 0; i < kBlockSamples; ++i) {
        block.push_back(static_cast<u8>(first + i));
        block.push_back(static_cast<u8>((first + i) >> 8));
    }
    return block;
}

// A pipe of the test's own, with one client of `listeners` on it.
class OwnPipe {
public:
    OwnPipe(Listeners& listeners, const std::string& path, bool paced = false) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.c_str(), path.size());
        const int server = ::socket(AF_UNIX, SOCK_STREAM, 0);
        EXPECT_EQ(::bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(server, 1), 0);
        listeners.Attach({{path, 0, {}, paced}});
        client_ = ::accept(server, nullptr, nullptr);
        ::close(server);
    }
    ~OwnPipe() { ::close(client_); }
    void Send(u32 bytes) const {
        const std::string data(bytes, 'x');
        EXPECT_EQ(::send(client_, data.data(), data.size(), MSG_NOSIGNAL), static_cast<ssize_t>(data.size()));
    }

private:
    int client_ = -1;
};

nlohmann::json RunLoad(std::vector<std::string> arguments) {
    const OrvTest::TempFolder folder;
    const std::string json = folder / "result.json";
    arguments.insert(arguments.begin(), std::string(ORV_BIN_FOLDER) + "/orv-load");
    arguments.insert(arguments.end(), {"--json", json});
    const OrvTest::RunResult result = OrvTest::Run(arguments, "", 100000);
    EXPECT_EQ(result.exitCode, 0) << result.output << result.error;
    return nlohmann::json::parse(OrvTest::ReadFileText(json));
}

TEST(OrvLoadTest, ItTellsItsVersion) {
    const OrvTest::RunResult result = OrvTest::Run({std::string(ORV_BIN_FOLDER) + "/orv-load", "--version"});
    EXPECT_EQ(result.exitCode, 0) << result.error;
    EXPECT_EQ(result.output, "orv-load " ORV_VERSION "\n");
}

TEST(OrvLoadTest, AHundredFeedsWithAClientEachLoseNothing) {
    const auto result = RunLoad({"--feeds", "100", "--seconds", "8", "--settle", "3", "--type", "counted",
                                 "--no-announcements", "--limiter", "0", "--with-floor"});
    const auto& row = result["rows"][0];
    EXPECT_EQ(row["clients"], 100);
    EXPECT_EQ(row["blocks_missing"], 0);
    EXPECT_EQ(row["clients_ended"], 0);
    EXPECT_EQ(row["drift_blocks"], 0);
    EXPECT_EQ(row["lateness"]["early_ms"], 0.0);
    // Eight blocks a second; one more or less of each client may lie across the ends of the measurement.
    EXPECT_NEAR(row["blocks"].get<double>(), 100 * 8 * row["seconds"].get<double>(), 250);
    // Every sample of every block follows the one before.
    EXPECT_EQ(row["counted_broken"], 0);
    EXPECT_EQ(row["counted_unsettled"], 0);
    EXPECT_GT(row["counted_continued"].get<u64>(), row["blocks"].get<u64>());
    // The measured process is the service with its hundred pumps, and the floor has as many.
    EXPECT_GE(row["threads"].get<u64>(), 100U);
    EXPECT_LE(row["descriptors_per_feed"].get<double>(), 4);
    EXPECT_GT(row["ms_per_feed_second"].get<double>(), 0);
    EXPECT_EQ(row["ends_heard"], 100);
    EXPECT_GE(row["logs_backed_up"].get<u64>(), 1U);
    const auto& floor = result["rows"][1];
    EXPECT_GE(floor["threads"].get<u64>(), 100U);
    EXPECT_EQ(floor["blocks_missing"], 0);
    EXPECT_NEAR(floor["blocks"].get<double>(), 100 * 8 * floor["seconds"].get<double>(), 250);
}

TEST(OrvLoadTest, OneChangeOfAFeedIsHeardAndTimed) {
    const OrvTest::TempFolder folder;
    const std::string json = folder / "result.json";
    OrvTest::Run({std::string(ORV_BIN_FOLDER) + "/orv-load", "change", "--few", "10", "--changes", "5", "--json", json},
                 "", 60000);
    const auto result = nlohmann::json::parse(OrvTest::ReadFileText(json));
    EXPECT_EQ(result["rows"][0]["lost"], 0);
    EXPECT_GT(result["rows"][0]["p50_ms"].get<double>(), 0);
    EXPECT_LT(result["rows"][0]["p50_ms"].get<double>(), 5000);
}

TEST(OrvLoadTest, SoundsWhoseReadsAlwaysWaitPlayInRealTime) {
    const OrvTest::TempFolder folder;
    const std::string json = folder / "result.json";
    // A read that comes late is a loss to the tool and not to this test: memory has no cache in front of it, so each
    // read waits for a thread, and on a busy machine that may be too long.
    OrvTest::Run({std::string(ORV_BIN_FOLDER) + "/orv-load", "--feeds", "10", "--seconds", "3", "--settle", "1",
                  "--log-level", "3", "--sounds-in", "/dev/shm", "--json", json},
                 "", 60000);
    const auto row = nlohmann::json::parse(OrvTest::ReadFileText(json))["rows"][0];
    EXPECT_EQ(row["cached_reads"], false);
    EXPECT_EQ(row["blocks_missing"], 0);
    EXPECT_EQ(row["drift_blocks"], 0);
    EXPECT_EQ(row["lateness"]["early_ms"], 0.0);
    EXPECT_GT(row["read_bytes"].get<u64>(), 0U);
    EXPECT_TRUE(row["reads_late"].is_number());
}

TEST(GridTest, AFirstBlockThatWasSeenLateMakesNoOtherEarly) {
    // The pump took the client at 1010 ms and sent at once, and the tool looked only at 1050 ms.
    Grid grid;
    grid.Begin(1000 * kMillisecond, 1050 * kMillisecond);
    grid.Hold(0, 1050 * kMillisecond);
    EXPECT_EQ(grid.DueAt(0), 775 * kMillisecond);
    // Block 2 is 90 ms late, block 3 comes just in time.
    EXPECT_EQ(grid.AfterFirst(2, 1075 * kMillisecond), 50 * kMillisecond);
    grid.Hold(2, 1075 * kMillisecond);
    EXPECT_EQ(grid.Moved(), 0);
    grid.Hold(3, 1110 * kMillisecond);
    EXPECT_EQ(grid.DueAt(0), 735 * kMillisecond);
    EXPECT_EQ(grid.AfterFirst(2, 1075 * kMillisecond) + grid.Moved(), 90 * kMillisecond);
    EXPECT_EQ(grid.AfterFirst(3, 1110 * kMillisecond) + grid.Moved(), 0);
    EXPECT_EQ(grid.Early(), 0);
}

TEST(GridTest, ABlockThatCameBeforeItsTimeIsTold) {
    Grid grid;
    grid.Begin(1000 * kMillisecond, 1080 * kMillisecond);
    // Block 3 is due 100 ms after the client was taken, which was at 1000 ms by a clock of milliseconds at the
    // earliest.
    grid.Hold(3, 1099 * kMillisecond);
    EXPECT_EQ(grid.Early(), 0);
    grid.Hold(3, 1060 * kMillisecond);
    EXPECT_EQ(grid.Early(), 39 * kMillisecond);
}

TEST(GridTest, ABlockIsDueAtEachStepOfTheGrid) {
    Grid grid;
    grid.Begin(0, 1000 * kMillisecond);
    EXPECT_EQ(grid.BlocksBefore(725 * kMillisecond), 0U);
    EXPECT_EQ(grid.BlocksBefore(726 * kMillisecond), 1U);
    EXPECT_EQ(grid.BlocksBefore(850 * kMillisecond), 1U);
    EXPECT_EQ(grid.BlocksBefore(851 * kMillisecond), 2U);
}

TEST(CountedCheckTest, ABlockThatIsMissingIsBroken) {
    CountedCheck check(1);
    const BlockTap tap = check.TapFor(0);
    EXPECT_EQ(check.Unsettled(), 1U);
    tap(0, CountedBlock(0).data(), 0);
    tap(1, CountedBlock(1000).data(), 0);
    EXPECT_EQ(check.Continued(), 1U);
    tap(3, CountedBlock(3000).data(), 0);
    EXPECT_EQ(check.Broken(), 1U);
    EXPECT_EQ(check.Unsettled(), 0U);
}

TEST(CountedCheckTest, OneSampleThatIsWrongBreaksItsBlock) {
    CountedCheck check(1);
    const BlockTap tap = check.TapFor(0);
    tap(0, CountedBlock(65000).data(), 0);
    std::vector<u8> block = CountedBlock(66000);  // behind the wrap-around
    tap(1, block.data(), 0);
    EXPECT_EQ(check.Broken(), 0U);
    block = CountedBlock(67000);
    block[1999] ^= 1;
    tap(2, block.data(), 0);
    EXPECT_EQ(check.Broken(), 1U);
}

class ListenersTest : public ::testing::Test {
protected:
    // The first block of a feed is heard, and the window begins.
    void Begin(const OwnPipe& pipe) {
        pipe.Send(kBlockBytes);
        EXPECT_TRUE(listeners_.WaitForFirstBlocks(10 * kSecond));
        listeners_.BeginWindow();
    }

    const OrvTest::TempFolder folder_;
    Listeners listeners_{kMillisecond};
};

TEST_F(ListenersTest, AClientThatIsShortOfBlocksIsTold) {
    const OwnPipe pipe(listeners_, folder_ / "p");
    Begin(pipe);
    // Blocks 1 to 6 are due by then and nothing comes: block 0 was 275 ms overdue.
    SleepFor(600 * kMillisecond);
    const Heard heard = listeners_.Collect();
    EXPECT_GE(heard.missing, 6U);
}

TEST_F(ListenersTest, ABlockThatComesAfterTheWindowInWhichItWasDueIsLateAndNotMissing) {
    const OwnPipe pipe(listeners_, folder_ / "p");
    Begin(pipe);
    SleepFor(300 * kMillisecond);
    listeners_.EndWindow();
    // All four were due in it.
    pipe.Send(4 * kBlockBytes);
    ASSERT_TRUE(WaitFor(10 * kSecond, [&] { return listeners_.BlocksOf(0) == 5; }));
    const Heard heard = listeners_.Collect();
    EXPECT_EQ(heard.blocks, 4U);
    EXPECT_EQ(heard.earliest, 0);
    EXPECT_GE(heard.lateness.Max(), 450 * kMillisecond);
    EXPECT_GE(heard.lateBlocks, 2U);
}

TEST_F(ListenersTest, AWindowThatIsOverIsHeldAgainstTheGridAsItIsKnownLater) {
    const OwnPipe pipe(listeners_, folder_ / "p");
    Begin(pipe);
    const i64 begin = Now();
    pipe.Send(2 * kBlockBytes);
    ASSERT_TRUE(WaitFor(10 * kSecond, [&] { return listeners_.BlocksOf(0) == 3; }));
    // Block 1 is 150 ms overdue as block 0 tells it.
    EXPECT_GE(listeners_.Collect().lateness.Max(), 150 * kMillisecond);
    listeners_.BeginWindow();
    pipe.Send(60 * kBlockBytes);
    ASSERT_TRUE(WaitFor(10 * kSecond, [&] { return listeners_.BlocksOf(0) == 63; }));
    const i64 took = Now() - begin;
    listeners_.Collect();
    EXPECT_EQ(listeners_.LatenessIn(0).Count(), 2U);
    EXPECT_EQ(listeners_.LatenessIn(1).Count(), 60U);
    // Block 62 is early, so that block 1 should have come 61 blocks' time before it and not just now.
    EXPECT_GE(listeners_.LatenessIn(0).Max(), 61 * kBlockTime - took);
}

TEST_F(ListenersTest, BlocksAreHeldAgainstTheGrid) {
    const OwnPipe pipe(listeners_, folder_ / "p");
    Begin(pipe);
    // Block 1 is 150 ms overdue at once, and it takes its time.
    SleepFor(300 * kMillisecond);
    pipe.Send(kBlockBytes);
    // Nine blocks more than are due.
    pipe.Send(9 * kBlockBytes + 1);
    ASSERT_TRUE(WaitFor(10 * kSecond, [&] { return listeners_.BlocksOf(0) == 11; }));
    const Heard heard = listeners_.Collect();
    EXPECT_EQ(heard.blocks, 10U);
    EXPECT_GE(heard.lateness.Max(), 450 * kMillisecond);
    EXPECT_GE(heard.lateBlocks, 1U);
    EXPECT_GT(heard.earliest, 200 * kMillisecond);
    EXPECT_EQ(heard.torn, 1U);
}

TEST_F(ListenersTest, ALaterClientOfAFeedIsHeldAgainstTheSameGrid) {
    const OwnPipe first(listeners_, folder_ / "p");
    first.Send(kBlockBytes);
    ASSERT_TRUE(listeners_.WaitForFirstBlocks(10 * kSecond));
    // It comes in the middle of the three blocks of the beginning, and hears the second and the third.
    const OwnPipe second(listeners_, folder_ / "q");
    first.Send(2 * kBlockBytes);
    second.Send(2 * kBlockBytes);
    ASSERT_TRUE(listeners_.WaitForFirstBlocks(10 * kSecond));
    listeners_.BeginWindow();
    SleepFor(150 * kMillisecond);
    // Block 3 of the feed, 100 ms due after the beginning.
    second.Send(kBlockBytes);
    ASSERT_TRUE(WaitFor(10 * kSecond, [&] { return listeners_.BlocksOf(1) == 3; }));
    const Heard heard = listeners_.Collect();
    EXPECT_EQ(heard.blocks, 1U);
    EXPECT_EQ(heard.earliest, 0);
    EXPECT_GE(heard.lateness.Max(), 40 * kMillisecond);
}

TEST_F(ListenersTest, APacedClientTakesABlockEach125MillisecondsAndLeavesTwoWaitingUntilItHurries) {
    const OwnPipe pipe(listeners_, folder_ / "p", true);
    pipe.Send(80 * kBlockBytes);
    ASSERT_TRUE(listeners_.WaitForFirstBlocks(10 * kSecond));
    ASSERT_TRUE(WaitFor(10 * kSecond, [&] { return listeners_.BlocksOf(0) >= 3; }));
    // The second one comes three blocks' time after the first, the third one block's after that.
    const i64 now = Now();
    EXPECT_GE(now - listeners_.FirstBlockAt(0), 4 * kBlockTime);
    EXPECT_FALSE(listeners_.HaveAllBefore(now));
    // At its pace the others would take more than nine seconds.
    listeners_.Hurry();
    EXPECT_TRUE(WaitFor(5 * kSecond, [&] { return listeners_.BlocksOf(0) == 80; }));
    EXPECT_TRUE(listeners_.HaveAllBefore(now));
}

TEST(HistogramTest, AQuantileIsTheTimeThatItsShareDoesNotPass) {
    Histogram histogram;
    EXPECT_EQ(histogram.Quantile(0.5), 0);
    for (i64 i = 1; i <= 1000; ++i) histogram.Add(i * kMillisecond - 1);
    EXPECT_EQ(histogram.Quantile(0.5), 500 * kMillisecond);
    EXPECT_EQ(histogram.Quantile(0.99), 990 * kMillisecond);
    EXPECT_EQ(histogram.Quantile(1), 1000 * kMillisecond - 1);
    EXPECT_EQ(histogram.Max(), 1000 * kMillisecond - 1);
}

TEST(ReportTest, EveryKindOfLossIsSaid) {
    EXPECT_EQ(DescribeLoss({{"blocks_missing", 0}, {"drift_blocks", 0}}), "");
    EXPECT_EQ(DescribeLoss({{"blocks_missing", 2}, {"clients_ended", 1}}),
              "2 blocks are missing, 1 clients saw the end");
    EXPECT_EQ(DescribeLoss({{"counted_broken", 3}}), "3 blocks do not follow the one before");
}

TEST(PlotTest, AFlatCurveIsDrawnFlatAndTheLowerLabelStandsBelow) {
    const std::string plot =
        PlotCurves("feeds", "cost", {{"service", {{10, 0.25}, {1000, 0.25}}}, {"floor", {{10, 0.1}}}});
    // The paper's upper axis ends at 0.3: 0.25 lies 287.5 of 345 above the lower edge at 365.
    EXPECT_NE(plot.find("<polyline points='95.0,77.5 590.0,77.5 '"), std::string::npos) << plot;
    EXPECT_NE(plot.find("<text x='95.0' y='68.5' text-anchor='middle' fill='#1f5fa8'>0.250</text>"), std::string::npos)
        << plot;
    EXPECT_NE(plot.find("<text x='95.0' y='268.0' text-anchor='middle' fill='#888888'>0.100</text>"), std::string::npos)
        << plot;
}

TEST(ServiceLogTest, OnlyZerosOfReadsThatWereNotThereInTimeAreLate) {
    const OrvTest::TempFolder folder;
    const ServiceLog log(folder.Path());
    EXPECT_EQ(log.CountLateReads().reads, 0U);
    const std::string begin = "13:05:09.123|00004712|Trace|OrvAudioFeeder(41) VoIPFileEngine/RawFile(88) Zeroing out ";
    WriteText(folder / "now.log", begin + "2000 Operation is in progress...\n" + begin +
                                      "1616 Back buffer is not ready...\n" + begin + "500 Buffer is over\n" + begin +
                                      "1500 \n");
    std::filesystem::create_directories(folder / "Backup/20260102");
    WriteText(folder / "Backup/20260102/before.log", begin + "2000 Operation is in progress...\n");
    EXPECT_EQ(log.CountLateReads().reads, 3U);
    EXPECT_EQ(log.CountLateReads().wholeBlocks, 2U);
}

TEST(MarksTest, TheHighToneIsTheMarkAtAnyLevel) {
    const OrvTest::TempFolder folder;
    WriteMarkedFile(folder / "m.wav");
    const std::string file = OrvTest::ReadFileText(folder / "m.wav");
    ASSERT_EQ(file.size(), 44U + kMarkedFileSeconds * 16000);
    const auto block = [&](u32 number) {
        std::vector<i16> samples(kBlockSamples);
        std::memcpy(samples.data(), file.data() + 44 + number * kBlockBytes, kBlockBytes);
        for (i16& sample : samples) sample = static_cast<i16>(sample / 8);
        std::vector<u8> bytes(kBlockBytes);
        std::memcpy(bytes.data(), samples.data(), kBlockBytes);
        return bytes;
    };
    EXPECT_TRUE(IsMark(block(0).data()));
    EXPECT_TRUE(IsMark(block(7).data()));
    EXPECT_FALSE(IsMark(block(8).data()));
    EXPECT_FALSE(IsMark(block(100).data()));
    EXPECT_FALSE(IsMark(std::vector<u8>(kBlockBytes).data()));
}

}  // namespace
}  // namespace OrvLoad
