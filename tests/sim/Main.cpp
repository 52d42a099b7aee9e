// orv-sim: plays the whole service through a random day on simulated time, and says whether it kept its promises.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/sim/SimRun.h"

namespace {

constexpr char kUsage[] =
    "orv-sim [--seed N] [--seeds COUNT] [--feeds N] [--hours N | --seconds N] [--racing yes|no] [--log FILE]\n"
    "orv-sim --help | --version\n"
    "Plays one run of the service per seed, from --seed on, each the same every time, and checks it against the "
    "rules.\n"
    "One seed in four is racing, unless --racing tells: threads interrupt each other anywhere, and only what holds in\n"
    "whatever order is judged; in the others every byte is.\n"
    "--log writes the last run's log. Ends with 0 when every run was right, with 1 at the first that was not.\n";

void PrintCounts(const OrvSim::Counts& counts) {
    const std::pair<const char*, u64> lines[] = {
        {"blocks made", counts.blocks},
        {"blocks heard and compared", counts.blocksHeard},
        {"naps, each exact", counts.naps},
        {"bytes read by clients", counts.clientBytes},
        {"clients", counts.clients},
        {"stalls of clients", counts.stalledClients},
        {"rests of feeds", counts.rests},
        {"music files begun", counts.files},
        {"announcements", counts.announcements},
        {"late reads heard", counts.lateReads},
        {"rows changed", counts.changes},
        {"soft updates", counts.softUpdates},
        {"rebuilds", counts.rebuilds},
        {"table comparisons", counts.tableChecks},
        {"changes of the log level", counts.levelChanges},
        {"live sources that came", counts.sources},
        {"stalls of live sources", counts.sourceStalls},
        {"broken reads of them", counts.brokenReads},
        {"refused connects to them", counts.refusedConnects},
        {"bytes of live sources", counts.sourceBytes},
        {"blocks of live sound", counts.liveBlocks},
        {"changes of the disk", counts.diskFaults},
        {"socket faults", counts.socketFaults},
        {"thread faults", counts.threadFaults},
        {"turns of the wall clock", counts.clockTurns},
        {"tries at another's name", counts.nameClashes},
        {"names taken over", counts.nameTakeovers},
        {"slow calls", counts.slowCalls},
        {"links lost", counts.linksLost},
        {"log lines", counts.logLines},
    };
    for (const auto& [name, value] : lines) std::printf("  %-26s %llu\n", name, static_cast<unsigned long long>(value));
}

bool WriteFile(const char* path, const std::string& bytes) {
    std::FILE* file = std::fopen(path, "wb");
    if (file == nullptr) return false;
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fclose(file) == 0 && written;
}

}  // namespace

int main(int argc, char** argv) {
    OrvSim::RunOptions options;
    u64 seeds = 1;
    const char* logFile = nullptr;
    std::string racing;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (name == "-h" || name == "--help") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (name == "--version") {
            std::puts("orv-sim " ORV_VERSION);
            return 0;
        }
        const char* value = i + 1 < argc ? argv[++i] : nullptr;
        if (value == nullptr) {
            std::fputs(kUsage, stderr);
            return 2;
        }
        const u64 number = std::strtoull(value, nullptr, 10);
        if (name == "--seed") {
            options.seed = number;
        } else if (name == "--seeds") {
            seeds = number;
        } else if (name == "--feeds") {
            options.feeds = static_cast<u32>(number);
        } else if (name == "--hours") {
            options.seconds = number * 3600;
        } else if (name == "--seconds") {
            options.seconds = number;
        } else if (name == "--racing") {
            racing = value;
        } else if (name == "--log") {
            logFile = value;
            options.keepLog = true;
        } else {
            std::fputs(kUsage, stderr);
            return 2;
        }
    }
    OrvSim::Counts total;
    const u64 first = options.seed;
    for (; options.seed < first + seeds; ++options.seed) {
        options.racing = racing.empty() ? OrvSim::OptionsOf(options.seed).racing : racing == "yes";
        const OrvSim::RunResult result = OrvSim::Run(options);
        total.Add(result.counts);
        if (logFile != nullptr && !WriteFile(logFile, result.log)) std::perror(logFile);
        if (seeds == 1)
            std::printf("seed %llu: hash %016llx\n", static_cast<unsigned long long>(options.seed),
                        static_cast<unsigned long long>(result.hash));
        if (result.good) continue;
        std::printf("seed %llu is wrong at %llu ms: %s\nAgain: %s\n", static_cast<unsigned long long>(options.seed),
                    static_cast<unsigned long long>(result.failedAtMilliseconds), result.failure.c_str(),
                    OrvSim::Replay(options).c_str());
        return 1;
    }
    std::printf("%llu run(s) of %llu s with %u feeds were right:\n", static_cast<unsigned long long>(seeds),
                static_cast<unsigned long long>(options.seconds), options.feeds);
    PrintCounts(total);
    return 0;
}
