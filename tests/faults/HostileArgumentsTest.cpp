// Goal: no command line makes a program crash, hang, or write what nobody asked for, and whatever is not done is said.
// Method: seeded hostile values in the places of commands, names, numbers and files to be read of the five programs,
// which run for real in a folder where they may write, and the file system compared before and behind. Not tried are
// options that name what is to be written, made or run: they are asked to do so.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <map>

#include "tests/e2e/Exchange.h"
#include "tests/faults/HostileValues.h"
#include "tests/faults/Traces.h"
#include "tests/support/Effort.h"

namespace fs = std::filesystem;

namespace OrvTest {
namespace {

using Command = std::vector<std::string>;

constexpr const char* kHostile = "HOSTILE";  // stands for a hostile value
constexpr int kDeadlineMilliseconds = 60'000;
constexpr int kFailedStart = 253;
constexpr long kMemoryKilobytes = 256 * 1024;

class HostileArguments : public ::testing::Test {
protected:
    HostileArguments() : values_(20261122, exchange_.Folder().Path()) {
        exchange_.StartConfig();
        exchange_.AddFolder("Playlist/music");
        exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music"});
        exchange_.Program("orv-convert");  // import starts it, from beside orvctl
        working_ = exchange_.Folder() / "deep/er/still";
        fs::create_directories(working_);
        fs::create_directories(exchange_.PipeFolder());
        fs::create_directories(exchange_.Folder() / "outside");
        WriteFileText(exchange_.Folder() / "outside/kept.wav", "kept");
        fs::create_symlink("/dev/zero", exchange_.Folder() / "outside/zero.raw");
        for (const auto& entry : fs::recursive_directory_iterator(exchange_.Folder().Path())) {
            exchange_.Own(entry.path());
        }
        exchange_.Own(said_.Path());
    }

    std::vector<Command> CommandLines() const {
        const std::string none = exchange_.Folder() / "none.ini";
        const std::string database = exchange_.Database();  // which a service has open
        const std::string admin = exchange_.Folder() / "orvctl.ini";
        const std::string password = exchange_.Folder() / "admin.password";
        const std::string pipes = exchange_.PipeFolder();
        return {
            {"orv-audio-feed", kHostile, "-c", none},
            {"orv-audio-feed", kHostile, kHostile, kHostile, "-d", "-c", none},
            {"orv-audio-feed", "-p", kHostile, "-c", none},
            {"orv-audio-feed", "-c", kHostile},
            {"orv-config", kHostile, "--database", database},
            {"orv-config", "serve", "--port", kHostile, "--database", database},
            {"orv-config", "serve", "--address", kHostile, "--port", "0", "--database", database},
            {"orv-config", "user", kHostile, "--database", database},
            {"orv-config", "user", "add", kHostile, "--role", "reader", "--password-file", none, "--database",
             database},
            {"orv-config", "user", "add", "new", "--role", kHostile, "--password-file", password, "--database",
             database},
            {"orv-config", "user", "passwd", kHostile, "--password-file", password, "--database", database},
            {"orv-config", "user", "passwd", "nobody", "--password-file", kHostile, "--database", database},
            {"orv-config", "user", "remove", kHostile, "--database", database},
            {"orvctl", kHostile, "-c", admin},
            {"orvctl", "-c", kHostile, "feed", "list"},
            {"orvctl", "-c", admin, "--port", kHostile, "feed", "list"},
            {"orvctl", "-c", admin, "--password-file", kHostile, "feed", "list"},
            {"orvctl", "-c", admin, "feed", kHostile},
            {"orvctl", "-c", admin, "feed", "show", kHostile},
            {"orvctl", "-c", admin, "feed", "add", "new", "--type", kHostile},
            {"orvctl", "-c", admin, "feed", "set", "music", "--max-volume", kHostile},
            {"orvctl", "-c", admin, "feed", "rebuild", kHostile},
            {"orvctl", "-c", admin, "announcement", "add", kHostile, "--file", kHostile},
            {"orvctl", "-c", admin, "parameter", "set", kHostile, kHostile},
            {"orvctl", "-c", admin, "user", "remove", kHostile},
            {"orvctl", "-c", admin, "apply", kHostile},
            {"orvctl", "-c", admin, "import", kHostile, "--feed", "music", "--prompts", exchange_.Prompts()},
            {"orvctl", "settings", "check", kHostile},
            {"orv-listen", kHostile, "--pipe-folder", pipes},
            {"orv-listen", kHostile, kHostile, "--pipe-folder", pipes},
            {"orv-listen", "none", "--pipe-folder", kHostile},
            {"orv-listen", "none", "--config", kHostile},
            {"orv-listen", "none", "--seconds", kHostile, "--pipe-folder", pipes},
            {"orv-listen", "none", "--rate", kHostile, "--pipe-folder", pipes},
            {"orv-publish", kHostile, "--pipe-folder", pipes},
            {"orv-publish", kHostile, kHostile, "--pipe-folder", pipes},
            {"orv-publish", "none", "--wav", kHostile, "--pipe-folder", pipes},
            {"orv-publish", "none", "-c", kHostile},
        };
    }
    // The highest exit code that the program's --help lists.
    static int HighestCode(const std::string& program) {
        const std::map<std::string, int> codes = {
            {"orv-audio-feed", 0}, {"orv-config", 2}, {"orvctl", 9}, {"orv-listen", 4}, {"orv-publish", 4}};
        return codes.at(program);
    }

    // Runs it to its end, and looks at how it ended.
    void Try(const std::string& program, const Command& command) {
        ProcessOptions options;
        options.command = exchange_.Unprivileged(command);
        options.workingFolder = working_;
        options.outputFile = said_ / "out";
        options.errorFile = said_ / "err";
        fs::remove(options.outputFile);
        fs::remove(options.errorFile);
        Process process(options);
        if (program == "orv-audio-feed") {
            // With a file that can be read, whatever stands in it, it serves until it is stopped.
            Eventually(
                [&] {
                    return !process.Running() || ReadFileText(options.errorFile).find("config=") != std::string::npos;
                },
                kDeadlineMilliseconds);
            if (!process.WaitFor(200)) process.Signal(SIGTERM);
        }
        ASSERT_TRUE(process.WaitFor(kDeadlineMilliseconds)) << "it does not end";
        ASSERT_EQ(process.EndSignal(), 0);
        const int code = process.ExitCode();
        ++ended_[program][code];
        const std::string error = ReadFileText(options.errorFile);
        EXPECT_TRUE(code <= HighestCode(program) || (program == "orv-audio-feed" && code == kFailedStart))
            << code << "\n"
            << error;
        EXPECT_TRUE(code == 0 || !error.empty()) << "not done, and nobody knows why";
        // With a settings file that can be read and names no folder, its log lies in the working one; nothing else may.
        if (program == "orv-audio-feed" && fs::exists(working_ + "/Data/Logs")) {
            fs::remove_all(working_ + "/Data/Logs");
            std::error_code notEmpty;
            fs::remove(working_ + "/Data", notEmpty);
        }
    }

    std::map<std::string, std::string> Disk() const {
        auto disk = Snapshot(exchange_.Folder().Path(),
                             {exchange_.Database(), exchange_.Database() + "-wal", exchange_.Database() + "-shm",
                              exchange_.Folder() / "config.log", exchange_.Folder() / "bin"});
        for (const char* path : {"/tmp/hostile", "/dev/shm/hostile", "/etc/cron.d/x"}) {
            if (fs::exists(fs::symlink_status(path))) disk[path] = "there";
        }
        return disk;
    }

    Exchange exchange_;
    HostileValues values_;
    TempFolder said_;
    std::string working_;
    std::map<std::string, std::map<int, int>> ended_;
};

TEST_F(HostileArguments, EndEachProgramInOrderChangeNoFileAndWhatIsNotDoneIsSaid) {
    const int rounds = Effort(8, 60);
    const auto before = Disk();
    int runs = 0;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        for (Command command : CommandLines()) {
            const std::string program = command.front();
            command.front() = exchange_.Program(program);
            for (std::string& argument : command) {
                if (argument == kHostile) argument = values_.Next(true);
            }
            SCOPED_TRACE(::testing::PrintToString(command));
            Try(program, command);
            EXPECT_EQ(Difference(before, Disk()), "");
            ++runs;
            if (HasFailure()) break;
        }
    }
    EXPECT_TRUE(exchange_.Config().Running());
    struct rusage children {};
    ASSERT_EQ(::getrusage(RUSAGE_CHILDREN, &children), 0);
    std::printf("%d hostile values in %d command lines, %ld kB at most; exit codes:", values_.Given(), runs,
                children.ru_maxrss);
    for (const auto& [program, codes] : ended_) {
        std::printf(" %s", program.c_str());
        for (const auto& [code, times] : codes) std::printf(" %d: %d", code, times);
        std::printf(";");
    }
    std::printf("\n");
    EXPECT_GE(values_.Given(), 300);
    EXPECT_LT(children.ru_maxrss, kMemoryKilobytes);
}

}  // namespace
}  // namespace OrvTest
