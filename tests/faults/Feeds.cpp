#include "tests/faults/Feeds.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/support/Seed.h"

namespace fs = std::filesystem;

namespace OrvTest {

Chance::Chance() : engine_(SeedOfRun()) {}

void Chance::SleepUpTo(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(Below(milliseconds + 1)));
}

Feeds::Feeds(const Exchange& exchange, int count) : exchange_(exchange) {
    std::string rows;
    for (int feed = 0; feed < count; ++feed) {
        const std::string name = Name(feed);
        const std::string file = exchange.AddPiece("Playlist/" + name + "/a.raw", 5.0 + 4.5 * feed, 5.3);
        music_.push_back(Model::AudioOf(file));
        rows += (feed == 0 ? "" : ",") + (R"({"pipe":")" + name + R"(","folder":")" + name + R"(","type":"sorted"})");
    }
    exchange.Must({"apply", "-"},
                  R"({"feeds":[)" + rows + R"(],"parameters":[{"name":"SYSTEMLOGGINGLEVEL","value":"3"}]})");
}

std::vector<std::unique_ptr<Client>> Feeds::Listen() const {
    std::vector<std::unique_ptr<Client>> listeners;
    for (int feed = 0; feed < Count(); ++feed) listeners.push_back(std::make_unique<Client>(exchange_, Name(feed)));
    return listeners;
}

std::size_t Feeds::ExpectExact(int feed, const Client& listener, const std::vector<Model::Block>& heard,
                               const std::vector<LogEntry>& log, const SleepWitness& machine) const {
    const Model::Feed model([audio = music_[static_cast<std::size_t>(feed)]] { return audio; });
    return OrvTest::ExpectExact(listener, heard, model, log, machine, Name(feed));
}

std::size_t Feeds::ExpectExact(int feed, const Client& listener, const SleepWitness& machine) const {
    const auto heard = listener.Blocks();
    ExpectExact(feed, listener, heard, exchange_.Log(), machine);
    return heard.size();
}

void Feeds::ExpectAllExact(const std::vector<std::unique_ptr<Client>>& listeners, std::size_t least,
                           const SleepWitness& machine) const {
    std::vector<std::vector<Model::Block>> heard;
    for (const auto& listener : listeners) heard.push_back(listener->Blocks());
    const auto log = exchange_.Log();
    std::size_t blocks = 0;
    std::size_t late = 0;
    for (int feed = 0; feed < Count(); ++feed) {
        const auto index = static_cast<std::size_t>(feed);
        EXPECT_GE(heard[index].size(), least) << Name(feed);
        late += ExpectExact(feed, *listeners[index], heard[index], log, machine);
        blocks += heard[index].size();
    }
    std::printf("%d feeds: %zu blocks compared, %zu of them silent since a read was late\n", Count(), blocks, late);
}

double Feeds::ExpectInTime(const std::vector<std::unique_ptr<Client>>& listeners, const SleepWitness& machine,
                           int first) const {
    double worst = 0.0;
    for (int feed = first; feed < Count(); ++feed) {
        const Client& listener = *listeners[static_cast<std::size_t>(feed)];
        worst = std::max(worst, OrvTest::ExpectInTime(listener, machine, Name(feed)));
    }
    return worst;
}

bool WaitForAll(const std::vector<std::unique_ptr<Client>>& listeners, std::size_t blocks, int milliseconds) {
    const auto begin = std::chrono::steady_clock::now();
    return std::all_of(listeners.begin(), listeners.end(), [&](const auto& client) {
        const auto gone = std::chrono::steady_clock::now() - begin;
        const auto left = milliseconds - std::chrono::duration_cast<std::chrono::milliseconds>(gone).count();
        return client->WaitForBlocks(blocks, static_cast<int>(std::max<long>(left, 1)));
    });
}

// --- a client's process ---------------------------------------------------------------------------------------------

int TryConnect(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) throw std::runtime_error("too long for a socket: " + path);
    std::copy(path.begin(), path.end(), address.sun_path);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0) return -1;
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return socket;
    const int error = errno;
    ::close(socket);
    errno = error;
    return -1;
}

ReaderProcess::ReaderProcess(const Exchange& exchange, const std::string& pipe, const std::string& file) : file_(file) {
    int socket = -1;
    if (!Eventually([&] { return (socket = TryConnect(exchange.PipeFile(pipe))) >= 0; })) {
        throw std::runtime_error("nobody serves " + pipe);
    }
    const int output = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (output < 0 || ::fcntl(socket, F_SETFL, 0) != 0) throw std::runtime_error("cannot write " + file);
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ < 0) throw std::runtime_error("cannot fork");
    if (pid_ == 0) {
        // Only what may be done between fork and exec in a program with threads.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) ::_exit(1);
        // What it holds of the others' sockets would keep them connected.
        for (int other = 3; other < 4096; ++other) {
            if (other != socket && other != output) ::close(other);
        }
        char bytes[4096];
        for (;;) {
            const ssize_t count = ::read(socket, bytes, sizeof bytes);
            if (count <= 0 || ::write(output, bytes, static_cast<std::size_t>(count)) != count) ::_exit(0);
        }
    }
    ::close(socket);
    ::close(output);
}

void ReaderProcess::Signal(int number) const {
    if (pid_ > 0) ::kill(pid_, number);
}

void ReaderProcess::Kill() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
}

std::size_t ReaderProcess::Size() const {
    std::error_code ignored;
    const auto size = fs::file_size(file_, ignored);
    return ignored ? 0 : static_cast<std::size_t>(size);
}

bool ReaderProcess::WaitForBlocks(std::size_t count, int milliseconds) const {
    return Eventually([&] { return Size() >= count * Model::BlockBytes; }, milliseconds);
}

std::vector<Model::Block> ReaderProcess::Blocks() const {
    return ToBlocks(ReadFileText(file_));
}

std::vector<Model::Block> ToBlocks(const std::string& bytes) {
    std::vector<Model::Block> blocks(bytes.size() / Model::BlockBytes);
    for (std::size_t block = 0; block < blocks.size(); ++block) {
        for (std::size_t i = 0; i < Model::BlockSamples; ++i) {
            const std::size_t at = block * Model::BlockBytes + 2 * i;
            const unsigned low = static_cast<unsigned char>(bytes[at]);
            const unsigned high = static_cast<unsigned char>(bytes[at + 1]);
            blocks[block][i] = static_cast<std::int16_t>(static_cast<std::uint16_t>(low | (high << 8)));
        }
    }
    return blocks;
}

// --- the system's figures -------------------------------------------------------------------------------------------

std::string StateSocket(const Exchange& exchange) {
    return exchange.Folder() / "s/state";
}

Json AskState(const Exchange& exchange) {
    return Json::parse(
        Run({"/usr/bin/curl", "-sS", "--unix-socket", StateSocket(exchange), "http://localhost/status"}).output,
        nullptr, false);
}

bool WaitForState(const Exchange& exchange, const std::function<bool(const Json&)>& condition, int milliseconds) {
    return Eventually(
        [&] {
            const Json state = AskState(exchange);
            return state.is_object() && condition(state);
        },
        milliseconds);
}

namespace {

constexpr const char* kDiskReader = "read ";
constexpr const char* kPassingThreads[] = {"default-exec", "event_engine", "grpc_",
                                           kDiskReader,    "resolver-exe", "timer_manager"};

}  // namespace

Footprint FootprintOf(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    Footprint footprint;
    const auto number = [&](const std::string& file, const std::string& key) {
        std::ifstream lines(folder + "/" + file);
        std::string word;
        while (lines >> word) {
            long value = 0;
            if (word == key && lines >> value) return value;
        }
        throw std::runtime_error("no " + key + " in " + folder + "/" + file);
    };
    footprint.privateDirtyKilobytes = number("smaps_rollup", "Private_Dirty:");
    for (const auto& task : fs::directory_iterator(folder + "/task")) {
        std::string name = ReadFileText(task.path().string() + "/comm");
        if (!name.empty() && name.back() == '\n') name.pop_back();
        const bool passing = std::any_of(std::begin(kPassingThreads), std::end(kPassingThreads),
                                         [&](const char* start) { return name.rfind(start, 0) == 0; });
        if (!passing && !name.empty()) footprint.ownThreads.insert(name);
        if (name.rfind(kDiskReader, 0) != 0 && !name.empty()) ++footprint.threads;
    }
    for (const auto& entry : fs::directory_iterator(folder + "/fd")) {
        static_cast<void>(entry);
        ++footprint.descriptors;
    }
    return footprint;
}

Footprint SteadyFootprintOf(pid_t process) {
    Footprint last = FootprintOf(process);
    for (int same = 0, looks = 0; same < 10 && looks < 1000; ++looks) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        Footprint next = FootprintOf(process);
        same = next.descriptors == last.descriptors ? same + 1 : 0;
        last = std::move(next);
    }
    return last;
}

Footprint SteadyFootprintOf(pid_t process, long descriptors) {
    Footprint footprint;
    Eventually(
        [&] {
            footprint = SteadyFootprintOf(process);
            return footprint.descriptors == descriptors;
        },
        60000);
    return footprint;
}

std::vector<std::string> ProcessesNaming(const std::string& text) {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos || name == std::to_string(::getpid())) continue;
        std::string command = ReadFileText(entry.path().string() + "/cmdline");
        std::replace(command.begin(), command.end(), '\0', ' ');
        if (command.find(text) != std::string::npos) found.push_back(command);
    }
    return found;
}

}  // namespace OrvTest
