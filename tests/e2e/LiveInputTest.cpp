// Goal: sound that another process serves on a pipe is heard sample for sample, in feeds and in announcements, and its
// absence is silence and never a stop. Method: orv-publish, or another service, as the live source. Its samples count
// up, so that each one tells which it is, and none of them is silent; what lies between them must be silence.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "tests/e2e/Exchange.h"

namespace OrvTest {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

constexpr unsigned Period = 65535;  // the samples 1 to 65535, all but silence

std::string Counting(std::size_t samples, unsigned first = 1) {
    std::string bytes;
    for (std::size_t i = 0; i < samples; ++i) {
        const unsigned sample = (first - 1 + i) % Period + 1;
        bytes += static_cast<char>(sample & 0xFF);
        bytes += static_cast<char>(sample >> 8);
    }
    return bytes;
}

// The samples of a stretch of sound that are not silent.
std::vector<unsigned> Sounding(const Model::Bytes& heard, std::size_t fromByte = 0) {
    std::vector<unsigned> samples;
    for (std::size_t at = fromByte; at + 1 < heard.size(); at += 2) {
        const unsigned sample = heard[at] | (heard[at + 1] << 8);
        if (sample != 0) samples.push_back(sample);
    }
    return samples;
}

// Empty when each sample follows the one before it, otherwise where that ends.
std::string WhereCountingBreaks(const std::vector<unsigned>& samples) {
    for (std::size_t i = 1; i < samples.size(); ++i) {
        if (samples[i] == samples[i - 1] % Period + 1) continue;
        return "sample " + std::to_string(i) + ": " + std::to_string(samples[i]) + " follows " +
               std::to_string(samples[i - 1]);
    }
    return "";
}

// The source of one orv-publish: what is put in comes out on the pipe, and its end is the source's end.
class Feedline {
public:
    explicit Feedline(const std::string& path) : path_(path) {
        if (::mkfifo(path.c_str(), 0666) != 0) throw std::runtime_error("no FIFO");
        ::chmod(path.c_str(), 0666);
        // For writing too, so that neither side waits for the other; a second of sound fits in four times.
        descriptor_ = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
        if (descriptor_ < 0) throw std::runtime_error("no FIFO");
    }
    ~Feedline() { End(); }
    const std::string& Path() const { return path_; }
    void Put(const std::string& bytes) const {
        ASSERT_EQ(::write(descriptor_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    void End() {
        if (descriptor_ >= 0) ::close(descriptor_);
        descriptor_ = -1;
    }

private:
    const std::string path_;
    int descriptor_ = -1;
};

class LiveInput : public ::testing::Test {
protected:
    static constexpr char RadioPath[] = "\\\\.\\pipe\\radio";

    LiveInput() { exchange_.StartConfig(); }

    // A feed without files of its own plays the default audio file: here a live source.
    static void LiveFeed(Exchange& exchange, const std::string& feed, const std::string& content) {
        exchange.AddFolder("Playlist/none");
        exchange.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
        exchange.Must({"parameter", "set", "DEFAULTAUDIOFILE", "--value", content});
        exchange.Must({"feed", "add", feed, "--type", "sorted", "--folder", "none"});
    }

    Process Publish(const std::vector<std::string>& more, const std::string& inputFile = "") const {
        ProcessOptions options;
        std::vector<std::string> command{exchange_.Program("orv-publish"), "radio", "--pipe-folder",
                                         exchange_.PipeFolder()};
        command.insert(command.end(), more.begin(), more.end());
        options.command = exchange_.Unprivileged(command);
        options.inputFile = inputFile;
        options.errorFile = exchange_.Folder() / "publish.err";
        return Process(options);
    }
    std::string PublisherSaid() const { return ReadFileText(exchange_.Folder() / "publish.err"); }

    // A WAV file of the whole count, which joins on to itself.
    std::string CountingFile() const {
        const std::string raw = exchange_.Folder() / "count.raw";
        const std::string wav = exchange_.Folder() / "count.wav";
        WriteFileText(raw, Counting(Period));
        const RunResult made =
            OrvTest::Run({"/usr/bin/sox", "-t", "raw", "-r", "8000", "-e", "signed", "-b", "16", "-c", "1", raw, wav});
        EXPECT_EQ(made.exitCode, 0) << made.error;
        exchange_.Own(wav);
        return wav;
    }

    // Whether that many sounding samples have come.
    static bool WaitForSound(const Client& client, std::size_t samples, int milliseconds = 15000) {
        return Eventually([&] { return Sounding(client.Read()).size() >= samples; }, milliseconds);
    }
    static void ExpectNeverAStop(const Client& client) {
        EXPECT_FALSE(client.Ended());
        const auto times = client.Times();
        // Block k is due (k - 3) * 125 ms after the start; the machine's noise is given a quarter of a second.
        for (std::size_t block = 3; block < times.size(); ++block) {
            const auto since = duration_cast<milliseconds>(times[block] - times[0]).count();
            const auto due = (static_cast<long>(block) - 3) * 125;
            ASSERT_LE(since, due + 125 + 250) << "block " << block;
        }
    }

    Exchange exchange_;
};

TEST_F(LiveInput, ALiveSourceThatComesStallsGoesAndComesBackIsHeardWholeWithSilenceBetween) {
    LiveFeed(exchange_, "live", RadioPath);
    exchange_.StartFeeder();
    const Client client(exchange_, "live");
    ASSERT_TRUE(client.WaitForBlocks(14)) << "nobody serves the pipe: silence, until the music has faded in";
    EXPECT_TRUE(Sounding(client.Read()).empty());

    // It comes: three seconds; then it stalls, and goes on with two more.
    Feedline first(exchange_.Folder() / "first");
    Process publisher = Publish({"--wait"}, first.Path());
    first.Put(Counting(24000));
    ASSERT_TRUE(WaitForSound(client, 24000)) << PublisherSaid();
    const std::size_t stall = client.Size();
    ASSERT_TRUE(client.WaitForBytes(stall + 8 * Model::BlockBytes));
    EXPECT_EQ(Sounding(client.Read()).size(), 24000u) << "a stall is silent";
    first.Put(Counting(16000, 24001));
    ASSERT_TRUE(WaitForSound(client, 40000));

    // It goes.
    first.End();
    ASSERT_TRUE(publisher.WaitFor(10000));
    EXPECT_EQ(publisher.ExitCode(), 0) << PublisherSaid();
    ASSERT_TRUE(exchange_.WaitForLog("Waiting for media..."));
    const std::size_t gone = client.Size();
    ASSERT_TRUE(client.WaitForBytes(gone + 12 * Model::BlockBytes));
    EXPECT_EQ(Sounding(client.Read()).size(), 40000u) << "a source that is away is silent";

    // It comes back. The reader has walked 8192 bytes towards the new stream by whole blocks: 192 bytes are left of
    // that, and as many of the new stream are left over at its end, less than a block.
    Feedline second(exchange_.Folder() / "second");
    Process again = Publish({"--wait"}, second.Path());
    second.Put(Counting(24000, 50000));
    ASSERT_TRUE(WaitForSound(client, 40000 + 24000 - 96));
    ASSERT_TRUE(client.WaitForBytes(client.Size() + 4 * Model::BlockBytes));

    const auto sounding = Sounding(client.Read());
    ASSERT_EQ(sounding.size(), 40000u + 24000 - 96);
    const auto turn = sounding.begin() + 40000;
    EXPECT_EQ(sounding.front(), 1u);
    EXPECT_EQ(WhereCountingBreaks({sounding.begin(), turn}), "");
    EXPECT_EQ(*turn, 50000u);
    EXPECT_EQ(WhereCountingBreaks({turn, sounding.end()}), "");
    ExpectNeverAStop(client);
    EXPECT_EQ(exchange_.LogTexts("'. Initial connection failed. Continue Waiting...").size(), 1u);
    EXPECT_EQ(exchange_.LogTexts("'. Media connected").size(), 1u);
    EXPECT_EQ(exchange_.LogTexts("'. Media connection restored").size(), 1u);
    EXPECT_EQ(again.Stop(), 0);
}

TEST_F(LiveInput, ANameThatEndsInPipeIsTheLocalPipeAndTwoFeedsShareOneConnection) {
    LiveFeed(exchange_, "one", "Radio.PIPE");
    exchange_.Must({"feed", "add", "two", "--type", "sorted", "--folder", "none"});
    exchange_.StartFeeder();
    const Client one(exchange_, "one");
    const Client two(exchange_, "two");
    ASSERT_TRUE(one.WaitForBlocks(14));
    ASSERT_TRUE(two.WaitForBlocks(14));
    Feedline line(exchange_.Folder() / "line");
    const Process publisher = Publish({"--wait"}, line.Path());
    line.Put(Counting(24000));
    for (const Client* client : {&one, &two}) {
        ASSERT_TRUE(WaitForSound(*client, 24000)) << PublisherSaid();
        const auto sounding = Sounding(client->Read());
        EXPECT_EQ(sounding.size(), 24000u);
        EXPECT_EQ(sounding.front(), 1u);
        EXPECT_EQ(WhereCountingBreaks(sounding), "");
        ExpectNeverAStop(*client);
    }
    EXPECT_EQ(exchange_.LogTexts("'. Media connected").size(), 1u);
}

TEST_F(LiveInput, AnAnnouncementFromAPipeIsHeardSampleForSampleAndDoesNotEnd) {
    exchange_.AddPiece("Playlist/music/a.wav", 10.0, 30.0);
    exchange_.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
    exchange_.Must({"announcement", "add", "news", "--file", RadioPath, "--kind", "alone"});
    exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music", "--announcements", "on",
                    "--min-pause", "1", "--max-pause", "1"});
    exchange_.StartFeeder();
    const Client client(exchange_, "music");
    const Process publisher = Publish({"--wav", CountingFile(), "--loop"});
    ASSERT_TRUE(exchange_.WaitForLog("Play announcement: news(1)[", 30000));
    const std::size_t drawn = client.Size();
    const auto pauses = exchange_.LogTexts("Pause announcement: for ").size();
    // The lead-in, whatever silence stands before the connection, and five seconds of the announcement.
    ASSERT_TRUE(client.WaitForBytes(drawn + 60 * Model::BlockBytes)) << PublisherSaid();

    // The first block that counts from its first sample to its last; the one before it may begin in silence.
    const Model::Bytes heard = client.Read();
    std::size_t begin = drawn / Model::BlockBytes * Model::BlockBytes;
    const auto counts = [&](std::size_t at) {
        const Model::Bytes block(heard.begin() + static_cast<std::ptrdiff_t>(at),
                                 heard.begin() + static_cast<std::ptrdiff_t>(at + Model::BlockBytes));
        const auto sounding = Sounding(block);
        return sounding.size() == Model::BlockSamples && WhereCountingBreaks(sounding).empty();
    };
    while (begin + Model::BlockBytes <= heard.size() && !counts(begin)) begin += Model::BlockBytes;
    EXPECT_LE(begin, drawn + 20 * Model::BlockBytes) << "one second of lead-in and the connection";
    const auto sounding = Sounding(heard, begin);
    EXPECT_GE(sounding.size(), 36 * Model::BlockSamples) << "the music stands still, and nothing else is heard";
    EXPECT_EQ(WhereCountingBreaks(sounding), "");
    EXPECT_EQ(exchange_.LogTexts("Pause announcement: for ").size(), pauses) << "a live source has no end";
    ExpectNeverAStop(client);
}

TEST_F(LiveInput, OneServicesFeedIsAnotherServicesInput) {
    // The second service has a configuration of its own, and its pipes are in the same folder.
    Exchange second;
    second.StartConfig();
    LiveFeed(second, "relay", "\\\\.\\pipe\\music");
    second.WriteSettings();
    std::string settings = ReadFileText(second.SettingsFile());
    const auto at = settings.find(second.PipeFolder());
    ASSERT_NE(at, std::string::npos);
    settings.replace(at, second.PipeFolder().size(), exchange_.PipeFolder());
    WriteFileText(second.SettingsFile(), settings);
    second.StartFeeder();
    const Client relay(exchange_, "relay");
    ASSERT_TRUE(relay.WaitForBlocks(14)) << "the first service is not there yet";
    EXPECT_TRUE(Sounding(relay.Read()).empty());

    exchange_.AddPiece("Playlist/music/a.wav", 10.0, 20.0);
    exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music"});
    exchange_.StartFeeder();
    const Client direct(exchange_, "music");
    ASSERT_TRUE(WaitForSound(relay, 48 * Model::BlockSamples));
    ASSERT_TRUE(direct.WaitForBlocks(48));

    const auto source = direct.Blocks();
    std::vector<Model::Block> relayed;
    for (const Model::Block& block : relay.Blocks()) {
        if (block != Model::Block{}) relayed.push_back(block);
    }
    // Whoever came first has some blocks ahead; from there on it is the same blocks in the same order.
    auto mine = std::find(relayed.begin(), relayed.end(), source.front());
    auto theirs = source.begin();
    if (mine == relayed.end()) {
        mine = relayed.begin();
        theirs = std::find(source.begin(), source.end(), relayed.front());
    }
    const auto common = std::min(relayed.end() - mine, source.end() - theirs);
    ASSERT_GE(common, 36);
    for (std::ptrdiff_t i = 0; i < common; ++i) ASSERT_EQ(mine[i], theirs[i]) << "block " << i << " of " << common;
    ExpectNeverAStop(relay);

    // The first service goes: silence. It comes back: its sound, on the same relay.
    const std::size_t before = Sounding(relay.Read()).size();
    ASSERT_EQ(exchange_.Feeder().Stop(), 0);
    ASSERT_TRUE(second.WaitForLog("Waiting for media..."));
    ASSERT_TRUE(relay.WaitForBytes(relay.Size() + 8 * Model::BlockBytes));
    exchange_.StartFeeder();
    ASSERT_TRUE(second.WaitForLog("'. Media connection restored"));
    const std::size_t silent = Sounding(relay.Read()).size();
    EXPECT_GE(silent, before);
    EXPECT_TRUE(WaitForSound(relay, silent + 8 * Model::BlockSamples));
    ExpectNeverAStop(relay);
}

}  // namespace
}  // namespace OrvTest
