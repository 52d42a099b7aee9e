// Goal: whatever becomes of a file while it plays, its feed goes on with what follows it, one silent block at most, and
// nobody else hears of it. Method: a feed for each kind of damage, whose middle file is damaged as it plays, met
// damaged at its next turn, and mended; what is heard must lie in the files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>

#include "tests/faults/Neighbour.h"
#include "tests/support/Effort.h"

namespace fs = std::filesystem;

namespace OrvTest {
namespace {

struct Damage {
    const char* name;
    std::function<void(const std::string& path)> carryOut;
};

const Damage kDamages[] = {
    {"emptied", [](const std::string& path) { fs::resize_file(path, 0); }},
    {"cut", [](const std::string& path) { fs::resize_file(path, 20'000); }},
    {"cut-header", [](const std::string& path) { fs::resize_file(path, 30); }},
    {"grown",
     [](const std::string& path) {
         std::ofstream(path, std::ios::binary | std::ios::app) << std::string(100'000, '\x11');
     }},
    {"deleted", [](const std::string& path) { fs::remove(path); }},
    {"replaced", [](const std::string& path) { fs::rename(path + ".other", path); }},
    {"unreadable", [](const std::string& path) { ASSERT_EQ(::chmod(path.c_str(), 0), 0); }},
    {"folder",
     [](const std::string& path) {
         fs::remove(path);
         fs::create_directory(path);
     }},
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
        Know(exchange.AddPiece(folder_ + "a.wav", start, 0.6));
        Know(exchange.AddPiece(folder_ + "m.wav", start + 1.0, 3.0));
        Know(exchange.AddPiece(folder_ + "z.wav", start + 5.0, 0.6));
        Know(exchange.AddPiece("Other/" + std::string(damage.name) + ".wav", start + 7.0, 2.0));
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

    // Each block holds a piece of one of the files and nothing else, and the longest silence is what the end of one
    // file and one bad file behind it make.
    void ExpectFilesAndAtMostOneSilentBlockBetweenThem(const std::vector<LogEntry>& log) const {
        const auto blocks = client_->Blocks();
        std::size_t silence = 0;
        std::size_t longest = 0;
        for (std::size_t index = FadeIn; index < blocks.size(); ++index) {
            const Model::Block& block = blocks[index];
            auto begin = std::find_if(block.begin(), block.end(), [](std::int16_t sample) { return sample != 0; });
            auto end = block.end();
            while (end != begin && end[-1] == 0) --end;
            silence += static_cast<std::size_t>(begin - block.begin());
            longest = std::max(longest, silence);
            if (begin != end) silence = static_cast<std::size_t>(block.end() - end);
            const std::string heard(reinterpret_cast<const char*>(block.data() + (begin - block.begin())),
                                    2 * static_cast<std::size_t>(end - begin));
            const bool known = std::any_of(sounds_.begin(), sounds_.end(), [&](const std::string& sound) {
                return sound.find(heard) != std::string::npos;
            });
            EXPECT_TRUE(known) << damage_.name << ", block " << index << " lies in no file";
        }
        const std::size_t late = LateReads(log, damage_.name).size();
        // The end of a file: the rest of its block, the block that finds nothing behind it, and the one in which the
        // list moves on. The bad file behind it is one more.
        EXPECT_LT(longest, (4 + late) * Model::BlockSamples) << damage_.name;
    }

private:
    static constexpr std::size_t FadeIn = 16;  // blocks in which the music is not as loud as it is

    void Know(const std::string& path) {
        const auto audio = Model::AudioOf(path);
        // What a grown file has behind its end may be read along with it.
        sounds_.push_back(std::string(audio.begin(), audio.end()) + std::string(100'000, '\x11'));
    }

    const Exchange& exchange_;
    const Damage& damage_;
    const std::string folder_;
    std::vector<std::string> sounds_;
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
    const auto log = exchange.Log();
    for (const auto& victim : victims) victim->ExpectFilesAndAtMostOneSilentBlockBetweenThem(log);
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
