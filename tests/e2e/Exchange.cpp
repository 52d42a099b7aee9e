#include "tests/e2e/Exchange.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>

#include "tests/support/OtherUser.h"

namespace fs = std::filesystem;

namespace OrvTest {
namespace {

// A try that fails is made again ten seconds later.
constexpr int ConnectMilliseconds = 40000;

bool IsRoot() {
    return ::geteuid() == 0;
}

bool EveryoneCanReach(const fs::path& program) {
    for (fs::path path = program; path.has_relative_path(); path = path.parent_path()) {
        if ((fs::status(path).permissions() & fs::perms::others_exec) == fs::perms::none) return false;
    }
    return true;
}

std::string Trim(const std::string& text) {
    const auto first = text.find_first_not_of(' ');
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

}  // namespace

Exchange::Exchange() {
    fs::create_directories(Prompts() + "Playlist");
    fs::create_directories(folder_ / "d/Data/Logs");
    fs::create_directories(folder_ / "bin");
    fs::create_directories(folder_ / "db");
    for (const auto& entry : fs::recursive_directory_iterator(folder_.Path())) Own(entry.path());
    Own(folder_.Path());
}

Exchange::~Exchange() {
    if (::testing::Test::HasFailure()) {
        std::string log = LogText();
        if (log.size() > 20000) log = "... " + log.substr(log.size() - 20000);
        std::fprintf(stderr, "--- the service's log ---\n%s--- its standard error ---\n%s--- the end ---\n",
                     log.c_str(), FeederErrors().c_str());
    }
}

std::string Exchange::Prompts() const {
    return folder_ / "d/Data/Ivr/Prompts/";
}

void Exchange::Own(const std::string& path) const {
    if (IsRoot() && ::lchown(path.c_str(), Nobody, Nobody) != 0) {
        throw std::runtime_error("cannot hand over " + path);
    }
}

std::string Exchange::AddFolder(const std::string& name) const {
    fs::path path = Prompts();
    for (const auto& part : fs::path(name)) {
        path /= part;
        if (fs::create_directory(path)) Own(path);
    }
    return path;
}

std::string Exchange::AddBytes(const std::string& name, const Model::Bytes& bytes) const {
    AddFolder(fs::path(name).parent_path());
    const std::string path = Prompts() + name;
    WriteFileText(path, std::string(bytes.begin(), bytes.end()));
    Own(path);
    return path;
}

std::string Exchange::AddPiece(const std::string& name, double startSecond, double seconds) const {
    AddFolder(fs::path(name).parent_path());
    const std::string path = Prompts() + name;
    const RunResult result = Run({"/usr/bin/sox", "/usr/share/asterisk/moh/macroform-cold_day.wav", "-t",
                                  fs::path(name).extension() == ".raw" ? "raw" : "wav", path, "trim",
                                  std::to_string(startSecond), std::to_string(seconds)});
    if (result.exitCode != 0) throw std::runtime_error("sox: " + result.error);
    Own(path);
    return path;
}

std::string Exchange::AddPrompt(const std::string& name, const std::string& prompt) const {
    AddFolder(fs::path(name).parent_path());
    const std::string path = Prompts() + name;
    fs::copy_file("/usr/share/asterisk/sounds/en/" + prompt, path);
    Own(path);
    return path;
}

std::string Exchange::Program(const std::string& name) const {
    const fs::path built = fs::path(ORV_BIN_FOLDER) / name;
    if (!fs::exists(built)) throw std::runtime_error("not built: " + built.string());
    if (!IsRoot() || EveryoneCanReach(built)) return built;
    const fs::path copy = folder_ / ("bin/" + name);
    if (!fs::exists(copy)) fs::copy_file(built, copy);
    return copy;
}

std::vector<std::string> Exchange::Unprivileged(std::vector<std::string> command) const {
    return IsRoot() ? AsUser(Nobody, command) : command;
}

void Exchange::MakeUsers() {
    for (const auto& [user, role] : {std::pair{"admin", "admin"}, std::pair{"feeder", "reader"}}) {
        const std::string file = folder_ / (std::string(user) + ".password");
        WriteFileText(file, std::string(user) + "-password");
        Own(file);
        const RunResult result = Run(Unprivileged({Program("orv-config"), "user", "add", user, "--role", role,
                                                   "--database", Database(), "--password-file", file}));
        if (result.exitCode != 0) throw std::runtime_error("orv-config user add: " + result.error + result.output);
    }
}

void Exchange::StartConfig() {
    RunConfig();
    AwaitConfig();
}

void Exchange::LaunchConfig() {
    port_ = "0";
    RunConfig();
}

void Exchange::RunConfig() {
    if (!fs::exists(Database())) MakeUsers();
    const std::string output = folder_ / "config.log";
    fs::remove(output);
    WriteFileText(output, "");
    Own(output);
    ProcessOptions options;
    options.command = Unprivileged({Program("orv-config"), "serve", "--database", Database(), "--port", port_});
    options.outputFile = output;
    options.errorFile = output;
    config_ = Process(options);
}

void Exchange::AwaitConfig() {
    const std::string output = folder_ / "config.log";
    const std::regex listening("listening on [^ ]*:([0-9]+)");
    std::smatch match;
    std::string text;
    const bool up = Eventually([&] {
        text = ReadFileText(output);
        return std::regex_search(text, match, listening) || !config_.Running();
    });
    if (!up || match.empty()) throw std::runtime_error("orv-config did not start: " + text);
    port_ = match[1];

    const std::string admin = folder_ / "orvctl.ini";
    WriteFileText(
        admin, "[ConfService]\nconfNIC=127.0.0.1\nConfPort=" + port_ + "\nconfUser=admin\nconfPass=admin-password\n");
    Own(admin);
}

void Exchange::WriteSettings(const std::string& extra) const {
    WriteFileText(SettingsFile(), "[General]\nAppDataPath=" + (folder_ / "d") + "\nPipePath=" + PipeFolder() + "\n" +
                                      "[ConfService]\nconfNIC=127.0.0.1\nConfPort=" + port_ +
                                      "\nconfUser=feeder\nconfPass=feeder-password\n" + extra);
    Own(SettingsFile());
}

void Exchange::StartFeeder(bool waitForTables, std::vector<std::pair<std::string, std::string>> environment) {
    if (!fs::exists(SettingsFile())) WriteSettings();
    ProcessOptions options;
    options.command = Unprivileged({Program("orv-audio-feed"), "-c", SettingsFile()});
    options.outputFile = folder_ / "feeder.out";
    options.errorFile = folder_ / "feeder.err";
    options.environment = std::move(environment);
    const std::size_t connectedBefore = LogTexts("Connected to Configuration service '").size();
    feeder_ = Process(options);
    if (!waitForTables) return;
    if (!WaitForLog("Connected to Configuration service '", ConnectMilliseconds, connectedBefore + 1)) {
        throw std::runtime_error("the service did not connect");
    }
}

RunResult Exchange::Ctl(const std::vector<std::string>& arguments, const std::string& input) const {
    std::vector<std::string> command{Program("orvctl"), "-c", folder_ / "orvctl.ini"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return Run(Unprivileged(command), input);
}

RunResult Exchange::Must(const std::vector<std::string>& arguments, const std::string& input) const {
    const RunResult result = Ctl(arguments, input);
    EXPECT_EQ(result.exitCode, 0) << "orvctl " << ::testing::PrintToString(arguments) << "\n"
                                  << result.output << result.error;
    return result;
}

std::string Exchange::LogText() const {
    std::vector<fs::path> files;
    std::error_code ignored;
    for (const auto& entry : fs::recursive_directory_iterator(folder_ / "d/Data/Logs", ignored)) {
        if (entry.is_regular_file(ignored)) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end(),
              [](const fs::path& a, const fs::path& b) { return a.filename() < b.filename(); });
    std::string text;
    for (const auto& file : files) text += ReadFileText(file);
    return text;
}

std::vector<LogEntry> Exchange::Log() const {
    std::vector<LogEntry> entries;
    std::istringstream lines(LogText());
    std::string line;
    while (std::getline(lines, line)) {
        const auto first = line.find('|');
        const auto second = line.find('|', first + 1);
        const auto third = line.find('|', second + 1);
        if (third == std::string::npos || first != 12) continue;  // "#Date: " lines, further lines of one statement
        const auto colon = line.find(": ", third + 1);
        if (colon == std::string::npos) continue;
        entries.push_back({line.substr(0, first), line.substr(first + 1, second - first - 1),
                           Trim(line.substr(second + 1, third - second - 1)), line.substr(third + 1, colon - third - 1),
                           line.substr(colon + 2)});
    }
    return entries;
}

std::vector<std::string> Exchange::LogTexts(const std::string& part) const {
    std::vector<std::string> texts;
    for (const LogEntry& entry : Log()) {
        if (entry.text.find(part) != std::string::npos) texts.push_back(entry.text);
    }
    return texts;
}

bool Exchange::WaitForLog(const std::string& part, int milliseconds, std::size_t count) const {
    return Eventually([&] { return LogTexts(part).size() >= count; }, milliseconds);
}

// --- Client ---------------------------------------------------------------------------------------------------------

Client::Client(const Exchange& exchange, const std::string& pipe, int milliseconds) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = exchange.PipeFile(pipe);
    if (path.size() >= sizeof address.sun_path) throw std::runtime_error("too long for a socket: " + path);
    std::copy(path.begin(), path.end(), address.sun_path);
    const bool connected = Eventually(
        [&] {
            socket_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            if (::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return true;
            ::close(socket_);
            socket_ = -1;
            return false;
        },
        milliseconds);
    if (!connected) throw std::runtime_error("nobody serves " + path);
    reader_ = std::thread([this] { Run(); });
}

Client::~Client() {
    Leave();
}

void Client::Leave() {
    stop_.store(true);
    if (reader_.joinable()) reader_.join();
    if (socket_ >= 0) ::close(socket_);
    socket_ = -1;
}

void Client::Run() {
    std::uint8_t buffer[4096];
    while (!stop_.load()) {
        if (paused_.load()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            continue;
        }
        pollfd wanted{socket_, POLLIN, 0};
        if (::poll(&wanted, 1, 20) <= 0) continue;
        const ssize_t count = ::recv(socket_, buffer, sizeof buffer, 0);
        if (count <= 0) {
            ended_.store(true);
            return;
        }
        const auto now = std::chrono::steady_clock::now();
        std::lock_guard guard(mutex_);
        bytes_.insert(bytes_.end(), buffer, buffer + count);
        while (times_.size() < bytes_.size() / Model::BlockBytes) times_.push_back(now);
    }
}

std::size_t Client::Size() const {
    std::lock_guard guard(mutex_);
    return bytes_.size();
}

Model::Bytes Client::Read() const {
    std::lock_guard guard(mutex_);
    return bytes_;
}

bool Client::WaitForBytes(std::size_t count, int milliseconds) const {
    Eventually([&] { return Size() >= count || ended_.load(); }, milliseconds);
    return Size() >= count;
}

bool Client::WaitForEnd(int milliseconds) const {
    return Eventually([this] { return ended_.load(); }, milliseconds);
}

std::vector<Model::Block> Client::Blocks() const {
    const Model::Bytes bytes = Read();
    std::vector<Model::Block> blocks(bytes.size() / Model::BlockBytes);
    for (std::size_t block = 0; block < blocks.size(); ++block) {
        for (std::size_t i = 0; i < Model::BlockSamples; ++i) {
            const std::size_t at = block * Model::BlockBytes + 2 * i;
            blocks[block][i] = static_cast<std::int16_t>(static_cast<std::uint16_t>(bytes[at] | (bytes[at + 1] << 8)));
        }
    }
    return blocks;
}

std::vector<std::chrono::steady_clock::time_point> Client::Times() const {
    std::lock_guard guard(mutex_);
    return times_;
}

// --- the comparison -------------------------------------------------------------------------------------------------

std::vector<Model::LateRead> LateReads(const std::vector<LogEntry>& log, const std::string& pipe) {
    std::string thread;
    for (const LogEntry& entry : log) {
        if (entry.text.find(" as " + pipe + "[") != std::string::npos &&
            entry.text.find("New pipe connected") != std::string::npos) {
            thread = entry.thread;
        }
    }
    std::vector<Model::LateRead> late;
    for (const LogEntry& entry : log) {
        if (entry.thread != thread || entry.text.find("Zeroing out ") == std::string::npos) continue;
        if (entry.text.find("Operation is in progress...") != std::string::npos) {
            late.push_back(Model::LateRead::ThisStretch);
        } else if (entry.text.find("Back buffer is not ready...") != std::string::npos) {
            late.push_back(Model::LateRead::NextStretch);
        }
    }
    return late;
}

std::string CompareWithModel(const std::vector<Model::Block>& heard, Model::Feed& model,
                             const std::vector<LogEntry>& log, const std::string& pipe, std::size_t firstBlock,
                             const InspectBlock& inspect, std::vector<std::size_t>* late) {
    const auto lateReads = LateReads(log, pipe);
    std::size_t lateUsed = 0;
    for (std::size_t index = firstBlock; index < heard.size(); ++index) {
        Model::Feed calm = model;
        const Model::Block expected = calm.Next();
        if (heard[index] == expected) {
            model = std::move(calm);
            if (inspect) inspect(heard[index], model);
            continue;
        }
        if (lateUsed < lateReads.size()) {
            Model::Feed delayed = model;
            if (heard[index] == delayed.Next(&lateReads[lateUsed])) {
                model = std::move(delayed);
                ++lateUsed;
                if (late != nullptr) late->push_back(index);
                if (inspect) inspect(heard[index], model);
                continue;
            }
        }
        std::size_t sample = 0;
        while (heard[index][sample] == expected[sample]) ++sample;
        std::ostringstream wrong;
        wrong << "block " << index << " of " << heard.size() << ", sample " << sample << ": heard "
              << heard[index][sample] << ", expected " << expected[sample] << " (" << lateUsed << " of "
              << lateReads.size() << " late reads seen before)";
        return wrong.str();
    }
    return "";
}

}  // namespace OrvTest
