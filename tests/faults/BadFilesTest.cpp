// Goal: whatever becomes of a file while it plays, its feed goes on with what follows it, one silent block at most, and
// nobody else hears of it. Method: a feed for each kind of damage, whose middle file is damaged as it plays, met
// damaged at its next turn, and mended; each block that is heard must be the one that the files and the log make due.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "tests/faults/DueBlocks.h"
#include "tests/faults/Neighbour.h"
#include "tests/support/Effort.h"

namespace fs = std::filesystem;

namespace OrvTest {
namespace {

// What is met at the file's next turn.
enum class Leaves {
    ABadFile,     // it is in its folder and cannot be played
    TheSame,      // it sounds as before
    Another,      // another one is played
    NothingThere  // no file of that name is listed
};

struct Damage {
    const char* name;
    std::function<void(const std::string& path)> carryOut;
    Leaves leaves = Leaves::ABadFile;
};

const Damage kDamages[] = {
    {"emptied", [](const std::string& path) { fs::resize_file(path, 0); }},
    {"cut", [](const std::string& path) { fs::resize_file(path, 20'000); }},
    {"cut-header", [](const std::string& path) { fs::resize_file(path, 30); }},
    {"grown",
     [](const std::string& path) {
         std::ofstream(path, std::ios::binary | std::ios::app) << std::string(100'000, '\x11');
     },
     Leaves::TheSame},
    {"deleted", [](const std::string& path) { fs::remove(path); }, Leaves::NothingThere},
    {"replaced", [](const std::string& path) { fs::rename(path + ".other", path); }, Leaves::Another},
    {"unreadable", [](const std::string& path) { ASSERT_EQ(::chmod(path.c_str(), 0), 0); }},
    {"folder",
     [](const std::string& path) {
         fs::remove(path);
         fs::create_directory(path);
     },
     Leaves::NothingThere},
    {"fifo",
     [](const std::string& path) {
         fs::remove(path);
         ASSERT_EQ(::mkfifo(path.c_str(), 0666), 0);
     }},
    {"loop",
     [](const std::string& path) {
         fs::remove(path);
         fs::create_symlink(path, path);
     }},
};

// One feed and its three files: a plays, m is damaged, z plays.
class Victim {
public:
    Victim(const Exchange& exchange, const Damage& damage)
        : exchange_(exchange), damage_(damage), folder_("Playlist/" + std::string(damage.name) + "/") {
        const double start = 5.0 + 12.0 * static_cast<double>(&damage - kDamages);
        first_ = Model::AudioOf(exchange.AddPiece(folder_ + "a.wav", start, 0.6));
        whole_ = Model::AudioOf(exchange.AddPiece(folder_ + "m.wav", start + 1.0, 3.0));
        last_ = Model::AudioOf(exchange.AddPiece(folder_ + "z.wav", start + 5.0, 0.6));
        other_ = Model::AudioOf(exchange.AddPiece("Other/" + std::string(damage.name) + ".wav", start + 7.0, 2.0));
        fs::copy_file(Path("m"), Path("m") + ".whole");
        exchange.Must({"feed", "add", damage.name, "--type", "sorted", "--folder", damage.name});
    }
    std::string Path(const std::string& file) const { return exchange_.Prompts() + folder_ + file + ".wav"; }

    void Listen() { client_.emplace(exchange_, damage_.name); }
    // Waits for so many starts of that file in all.
    void WaitForStart(const std::string& file, std::size_t count) {
        EXPECT_TRUE(exchange_.WaitForLog("Start next audio file " + Path(file), 20000, count)) << damage_.name << file;
    }
    void Break() {
        fs::copy_file(exchange_.Prompts() + "Other/" + damage_.name + ".wav", Path("m") + ".other",
                      fs::copy_options::overwrite_existing);
        exchange_.Own(Path("m") + ".other");
        damage_.carryOut(Path("m"));
    }
    void Mend() {
        const std::string fresh = Path("m") + ".fresh";
        fs::copy_file(Path("m") + ".whole", fresh);
        exchange_.Own(fresh);
        if (fs::is_directory(fs::symlink_status(Path("m")))) fs::remove(Path("m"));
        fs::rename(fresh, Path("m"));
    }

    void ExpectFilesAndASilentBlockForABadOne(const std::vector<Model::Block>& heard, const std::vector<LogEntry>& log,
                                              std::size_t rounds) const {
        const auto contents = [this](const std::string& path) -> std::vector<const Model::Bytes*> {
            if (path == Path("a")) return {&first_};
            if (path == Path("z")) return {&last_};
            if (path == Path("m")) return {&whole_, &other_};
            return {};
        };
        DueBlocks due(ToldBlocks(log, damage_.name), contents, Path("a"));
        for (std::size_t index = 0; index < heard.size(); ++index) {
            ASSERT_TRUE(due.Take(heard[index]))
                << damage_.name << ": block " << index << " of " << heard.size()
                << " is neither what the file holds next nor what the log tells: " << due.Describe();
        }
        const DueBlocks::Seen& seen = due.SoFar();
        ExpectItWasMet(seen, rounds);
        for (const std::string& file : seen.badFiles) EXPECT_EQ(file, Path("m")) << damage_.name;
        EXPECT_LE(seen.mostInARow, 1u) << damage_.name;
        std::printf("%-10s %4zu blocks, %zu bad files, %zu samples silent at ends, %zu since the disk was late\n",
                    damage_.name, heard.size(), seen.badFiles.size(), seen.ends, seen.late);
    }
    std::size_t BlocksHeard() const { return client_->Size() / Model::BlockBytes; }
    void WaitForBlocks(std::size_t count) const { EXPECT_TRUE(client_->WaitForBlocks(count)) << damage_.name; }
    std::vector<Model::Block> Heard() const { return client_->Blocks(); }

private:
    // Between two starts of z, both behind the damage and before the mending, is one turn at least that begins when the
    // damage is there.
    void ExpectItWasMet(const DueBlocks::Seen& seen, std::size_t rounds) const {
        std::size_t turns = 0;
        std::size_t same = 0;
        std::size_t another = 0;
        std::size_t cut = 0;
        std::size_t passedOver = 0;
        for (std::size_t i = 0; i < seen.turns.size(); ++i) {
            const DueBlocks::Turn& turn = seen.turns[i];
            if (turn.file == Path("m")) {
                same += turn.whole == &whole_ ? 1u : 0u;
                another += turn.whole == &other_ ? 1u : 0u;
                cut += turn.samples != 0 && turn.whole == nullptr ? 1u : 0u;
            } else {
                EXPECT_NE(turn.whole, nullptr) << damage_.name << ": " << turn.file << " itself is whole";
                turns += turn.file == Path("z") ? 1u : 0u;
                passedOver += i > 0 && turn.file == Path("z") && seen.turns[i - 1].file == Path("a") ? 1u : 0u;
            }
        }
        switch (damage_.leaves) {
            case Leaves::ABadFile:
                EXPECT_GE(seen.badFiles.size(), rounds) << damage_.name << " was met each round";
                break;
            case Leaves::TheSame:
                EXPECT_GE(same, 2 * rounds) << damage_.name << ", when it happens and when it is met";
                EXPECT_EQ(seen.badFiles.size() + passedOver, 0u) << damage_.name;
                break;
            case Leaves::Another:
                EXPECT_GE(another, rounds) << damage_.name << " was met each round";
                EXPECT_EQ(seen.badFiles.size() + passedOver, 0u) << damage_.name;
                break;
            case Leaves::NothingThere:
                EXPECT_GE(passedOver, rounds) << damage_.name << " was passed over each round";
                break;
        }
        EXPECT_TRUE(another == 0 || damage_.leaves == Leaves::Another) << damage_.name;
        // Who has a file open hears it to its end, whatever has come to its name.
        EXPECT_TRUE(cut == 0 || damage_.leaves == Leaves::ABadFile) << damage_.name;
        std::printf(
            "%-10s %2zu turns: %zu times as it was, %zu times the other one, %zu times cut short, %zu passed over\n",
            damage_.name, turns, same, another, cut, passedOver);
    }

    const Exchange& exchange_;
    const Damage& damage_;
    const std::string folder_;
    Model::Bytes first_;
    Model::Bytes whole_;
    Model::Bytes last_;
    Model::Bytes other_;
    std::optional<Client> client_;
};

TEST(BadFiles, DamagedWhileTheyPlayCostTheirOwnFeedASilentBlockAndNobodyElseAnything) {
    Exchange exchange;
    exchange.StartConfig();
    exchange.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
    Neighbour calm(exchange, "calm");
    std::vector<std::unique_ptr<Victim>> victims;
    for (const Damage& damage : kDamages) victims.push_back(std::make_unique<Victim>(exchange, damage));
    exchange.StartFeeder();
    calm.Listen();
    for (const auto& victim : victims) victim->Listen();

    const auto starts = [&](std::size_t victim, const char* file) {
        return exchange.LogTexts("Start next audio file " + victims[victim]->Path(file)).size();
    };
    const int rounds = Effort(1, 15);
    std::vector<std::size_t> before(victims.size(), 0);
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < victims.size(); ++i) {
            victims[i]->WaitForStart("m", before[i] + 1);
            victims[i]->Break();
        }
        // The damaged file is met again at its next turn, if it is still in its folder.
        for (std::size_t i = 0; i < victims.size(); ++i) before[i] = starts(i, "z");
        for (std::size_t i = 0; i < victims.size(); ++i) victims[i]->WaitForStart("z", before[i] + 2);
        for (const auto& victim : victims) victim->Mend();
        for (std::size_t i = 0; i < victims.size(); ++i) before[i] = starts(i, "m");
    }
    for (std::size_t i = 0; i < victims.size(); ++i) victims[i]->WaitForStart("m", before[i] + 1);
    std::vector<std::vector<Model::Block>> heard;
    // So far that the turn before this one has been heard to its end, and its last file is told of.
    for (std::size_t i = 0; i < victims.size(); ++i) before[i] = victims[i]->BlocksHeard() + 8;
    for (std::size_t i = 0; i < victims.size(); ++i) victims[i]->WaitForBlocks(before[i]);
    for (const auto& victim : victims) heard.push_back(victim->Heard());
    const auto log = exchange.Log();  // what is heard is told before
    for (std::size_t i = 0; i < victims.size(); ++i) {
        victims[i]->ExpectFilesAndASilentBlockForABadOne(heard[i], log, static_cast<std::size_t>(rounds));
    }
    calm.ExpectUntouched();
    std::printf("%zu kinds of damage, %d times each; worst lateness of a neighbour %.0f ms\n", victims.size(), rounds,
                calm.WorstLateness());
    EXPECT_EQ(exchange.Feeder().Stop(), 0);
}

// Nothing is mapped from the disk, so there is nothing that could fault.
TEST(BadFiles, APreloadedFileSoundsTheSameWhateverBecomesOfItOnDisk) {
    Exchange exchange;
    exchange.StartConfig();
    Neighbour held(exchange, "held");
    exchange.WriteSettings("[General]\nPreloadFiles=\"" + held.File() + "\"\n");
    exchange.StartFeeder();
    held.Listen();
    const std::function<void()> damages[] = {
        [&] { fs::resize_file(held.File(), 50'000); },
        [&] { std::ofstream(held.File(), std::ios::binary) << std::string(400'000, 'x'); },
        [&] { fs::resize_file(held.File(), 0); },
        [&] { ASSERT_EQ(::chmod(held.File().c_str(), 0), 0); },
        [&] { fs::remove(held.File()); },
    };
    for (const auto& damage : damages) {
        damage();
        ASSERT_TRUE(held.Heard().WaitForBlocks(held.Heard().Blocks().size() + 6));
    }
    EXPECT_TRUE(exchange.Feeder().Running());
    held.ExpectUntouched(true);
    EXPECT_EQ(exchange.Feeder().Stop(), 0);
}

}  // namespace
}  // namespace OrvTest
