// A whole exchange of the test's own: the Configuration service, the audio feed service and clients, as real processes
// over real files and sockets in one temporary folder. Started as root, the processes run as an unprivileged user.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/e2e/StreamModel.h"
#include "tests/support/Process.h"

namespace OrvTest {

// One line of the service's log.
struct LogEntry {
    std::string time;
    std::string thread;
    std::string word;    // trimmed
    std::string source;  // name(line), empty when there is none
    std::string text;
};

class Exchange {
public:
    Exchange();
    ~Exchange();

    const TempFolder& Folder() const { return folder_; }
    // The root of prompts and playlists, with a closing slash.
    std::string Prompts() const;
    std::string PipeFolder() const { return folder_ / "p"; }
    std::string PipeFile(const std::string& name) const { return PipeFolder() + "/" + name; }
    std::string SettingsFile() const { return folder_ / "OrvPhoneSystem.ini"; }
    std::string Database() const { return folder_ / "db/config.db"; }

    // Files below Prompts(), readable by the service; folders are made as needed. Give the whole path.
    std::string AddPiece(const std::string& name, double startSecond, double seconds) const;  // of real hold music
    std::string AddPrompt(const std::string& name, const std::string& prompt) const;          // a real voice prompt
    std::string AddBytes(const std::string& name, const Model::Bytes& bytes) const;
    std::string AddFolder(const std::string& name) const;
    // Gives a path to the user that the processes run as.
    void Own(const std::string& path) const;

    // Starts orv-config on a free port (the same port again after the first time).
    void StartConfig();
    // The same on another free port each time, and without waiting until it listens: AwaitConfig() does.
    void LaunchConfig();
    void AwaitConfig();
    Process& Config() { return config_; }
    // What orv-config has written since its last start.
    std::string ConfigText() const { return ReadFileText(folder_ / "config.log"); }
    unsigned Port() const { return static_cast<unsigned>(std::stoul(port_)); }
    // Writes the settings file. Part of StartFeeder() unless it is there.
    void WriteSettings(const std::string& extra = "") const;
    // Starts orv-audio-feed, and waits until the tables are loaded unless told otherwise.
    void StartFeeder(bool waitForTables = true, std::vector<std::pair<std::string, std::string>> environment = {});
    Process& Feeder() { return feeder_; }
    std::string FeederErrors() const { return ReadFileText(folder_ / "feeder.err"); }

    // orvctl with the administrator's settings. Must() fails the test when it doesn't succeed.
    RunResult Ctl(const std::vector<std::string>& arguments, const std::string& input = "") const;
    RunResult Must(const std::vector<std::string>& arguments, const std::string& input = "") const;

    // The log of this and earlier runs, in order of time.
    std::string LogText() const;
    std::vector<LogEntry> Log() const;
    // The texts of the lines that hold `part`.
    std::vector<std::string> LogTexts(const std::string& part) const;
    bool WaitForLog(const std::string& part, int milliseconds = 10000, std::size_t count = 1) const;

    // The command, run as the unprivileged user when the test itself is root.
    std::vector<std::string> Unprivileged(std::vector<std::string> command) const;
    // A program of this build, at a path which that user can reach.
    std::string Program(const std::string& name) const;

private:
    void MakeUsers();
    void RunConfig();

    TempFolder folder_;
    Process config_;
    Process feeder_;
    std::string port_ = "0";
};

// A client of one feed. A thread of its own reads all that comes, so that the feed never waits for it.
class Client {
public:
    // Connects within `milliseconds`, or fails the test.
    Client(const Exchange& exchange, const std::string& pipe, int milliseconds = 10000);
    ~Client();

    // Whether that much came, or the end came, before the time was over.
    bool WaitForBytes(std::size_t count, int milliseconds = 15000) const;
    bool WaitForBlocks(std::size_t count, int milliseconds = 15000) const {
        return WaitForBytes(count * Model::BlockBytes, milliseconds);
    }
    bool WaitForEnd(int milliseconds = 10000) const;
    bool Ended() const { return ended_.load(); }

    std::size_t Size() const;
    Model::Bytes Read() const;
    // Whole blocks.
    std::vector<Model::Block> Blocks() const;
    // When each whole block had come.
    std::vector<std::chrono::steady_clock::time_point> Times() const;
    // Leaves at once.
    void Leave();
    // Stops or goes on reading; a client that does not read fills its socket.
    void Pause(bool pause) { paused_.store(pause); }

private:
    void Run();

    int socket_ = -1;
    std::thread reader_;
    mutable std::mutex mutex_;
    Model::Bytes bytes_;
    std::vector<std::chrono::steady_clock::time_point> times_;
    std::atomic<bool> ended_{false};
    std::atomic<bool> stop_{false};
    std::atomic<bool> paused_{false};
};

// The late reads of files that the log tells of, in order, on the thread that plays `pipe`, to which a client must have
// come.
std::vector<Model::LateRead> LateReads(const std::vector<LogEntry>& log, const std::string& pipe);

// Compares what a client heard, from the content's first block on, with the model; a block that shows a late read of
// the music file must have its line in the log ("Zeroing out ...") on the thread of the feed's pump. `inspect`, if any,
// sees each block that was as expected, and the model behind it. `late`, if any, gets the indices of the blocks that a
// late read made silent or cut short: the comparison takes any number of them, its caller says how many may be. Empty
// when all is well, otherwise what is wrong.
using InspectBlock = std::function<void(const Model::Block& heard, const Model::Feed& model)>;
std::string CompareWithModel(const std::vector<Model::Block>& heard, Model::Feed& model,
                             const std::vector<LogEntry>& log, const std::string& pipe, std::size_t firstBlock = 0,
                             const InspectBlock& inspect = {}, std::vector<std::size_t>* late = nullptr);

}  // namespace OrvTest
