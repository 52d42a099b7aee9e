#include "tests/AudioFeeder/FeederWorld.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/SharedValues.h"
#include "Platform/Clock.h"
#include "Platform/Thread.h"
#include "ServiceProcess/Log.h"

namespace FeederTest {

namespace {

constexpr char kLogFolder[] = "/log";
constexpr u64 kLogLimit = u64{1} << 40;

// "hh:mm:ss.mmm|thread|word|source(line): text"; false for lines without a prefix.
bool ParseLine(const std::string& line, LogLine& parsed) {
    unsigned hour = 0, minute = 0, second = 0, millisecond = 0;
    if (std::sscanf(line.c_str(), "%2u:%2u:%2u.%3u|", &hour, &minute, &second, &millisecond) != 4) return false;
    const std::size_t thread = line.find('|');
    const std::size_t word = line.find('|', thread + 1) + 1;
    const std::size_t source = line.find('|', word) + 1;
    const std::size_t text = line.find(": ", source) + 2;
    parsed.milliseconds = ((hour * 60 + minute) * 60 + second) * u64{1000} + millisecond;
    parsed.thread = std::stoull(line.substr(thread + 1));
    parsed.word = line.substr(word, source - word - 1);
    parsed.source = line.substr(source, line.find_first_of("(:", source) - source);
    parsed.text = line.substr(text);
    return true;
}

}  // namespace

void ScriptedDraws::Then(u32 index, u32 outcomes) {
    // The middle of the outcome's share of all 32-bit values.
    values_.push_back(static_cast<u32>(((u64{index} << 32) + (u64{1} << 31)) / outcomes));
}

u32 ScriptedDraws::Next() {
    EXPECT_LT(taken_, values_.size()) << "a draw that the script does not know";
    return taken_ < values_.size() ? values_[taken_++] : 0;
}

FeederWorld::FeederWorld(u64 seed, Platform::Sim::Options options) : sim_(seed, options) {
    sim_.Files().AddFolder(kLogFolder);
}

FeederWorld::~FeederWorld() = default;

void FeederWorld::Run(const std::function<void()>& body) {
    sim_.Run([&] {
        running_ = true;
        Orv::channelsStopping.store(false);
        Orv::SetMaxVolume(0);
        Orv::SetAutogain(false);
        Orv::LogWriter::Instance().SetLogLevel(3);
        Orv::LogWriter::Instance().OpenLog(kLogFolder, kLogLimit);
        Orv::SetRootPath("/root");
        body();
        Orv::IPipeManager::StopAll();
        Orv::channelsStopping.store(true);
        Orv::IPipeManager::WaitForChannels();
        EXPECT_EQ(Orv::runningPumpThreads.load(), 0);
        Orv::IPipeManager::Instance() = nullptr;
        Orv::channelsStopping.store(false);
        finished_ = Log();
        running_ = false;
        Orv::LogWriter::Instance().CloseLog();
    });
}

std::vector<LogLine> ReadLog(const std::string& folder) {
    std::vector<LogLine> lines;
    Platform::Sim::SimFiles& files = Platform::Sim::Files();
    for (const std::string& name : files.List(folder)) {
        const std::string path = folder + "/" + name;
        if (files.KindOf(path) != Platform::Sim::FileKind::Regular) continue;
        const std::string text = files.ReadBack(path);
        for (std::size_t start = 0; start < text.size();) {
            const std::size_t end = text.find('\n', start);
            LogLine line;
            const std::string raw = text.substr(start, end - start);
            if (ParseLine(raw, line)) {
                lines.push_back(line);
            } else if (!lines.empty() && raw.compare(0, 1, "#") != 0) {
                lines.back().text += "\n" + raw;  // a message with line feeds of its own
            }
            start = end == std::string::npos ? text.size() : end + 1;
        }
    }
    return lines;
}

std::vector<LogLine> FeederWorld::Log() {
    return running_ ? ReadLog(kLogFolder) : finished_;
}

std::vector<std::string> FeederWorld::LogOf(const std::string& part) {
    std::vector<std::string> texts;
    for (const LogLine& line : Log()) {
        if (line.text.find(part) != std::string::npos) texts.push_back(line.word + "|" + line.text);
    }
    return texts;
}

u64 Now() {
    return Platform::SteadyMilliseconds();
}

void Sleep(u32 milliseconds) {
    Platform::SleepMilliseconds(milliseconds);
}

Client::Client(const std::string& pipe) {
    for (int tries = 0; tries < 1000 && client_ == nullptr; ++tries) {
        if (tries != 0) Sleep(1);
        Platform::SystemError error = 0;
        client_ = Platform::ConnectPipe(pipe, error);
    }
}

Samples Client::ReadBlocks(u32 count, u32 timeout) {
    std::string bytes;
    char buffer[2000];
    while (client_ != nullptr && bytes.size() < count * u64{2000}) {
        u64 taken = 0;
        Platform::SystemError error = 0;
        const u64 wanted = std::min<u64>(sizeof buffer, count * u64{2000} - bytes.size());
        if (client_->Read(buffer, wanted, timeout, taken, error) != Platform::IPipeClient::Outcome::Data) break;
        bytes.append(buffer, taken);
    }
    return FromBytes(bytes);
}

u64 Client::ReadInto(char* bytes, u64 size) {
    u64 read = 0;
    while (read < size) {
        u64 taken = 0;
        Platform::SystemError error = 0;
        if (client_->Read(bytes + read, size - read, 1000, taken, error) != Platform::IPipeClient::Outcome::Data) break;
        read += taken;
    }
    return read;
}

Samples Client::ReadBlock(u64& waited) {
    const u64 start = Now();
    Samples block = ReadBlocks(1);
    waited = Now() - start;
    return block;
}

Samples Client::Drain() {
    return ReadBlocks(1000, 0);
}

bool Client::SeesEnd(u32 timeout) {
    char buffer[2000];
    for (;;) {
        u64 taken = 0;
        Platform::SystemError error = 0;
        const auto outcome = client_->Read(buffer, sizeof buffer, timeout, taken, error);
        if (outcome == Platform::IPipeClient::Outcome::Closed) return true;
        if (outcome == Platform::IPipeClient::Outcome::TimedOut) return false;
    }
}

Listener::Listener(const std::string& pipe) : client_(pipe), thread_("listener", [this] { Read(); }) {}

void Listener::Stop() {
    stop_ = true;
    if (thread_.Joinable()) thread_.Join();
}

void Listener::Read() {
    while (!stop_ && client_.Connected()) {
        const Samples block = client_.ReadBlocks(1, 50);
        if (block.size() % 1000 != 0) ADD_FAILURE() << "a part of a block came";
        if (block.empty() && client_.SeesEnd(0)) break;
        if (block.empty()) continue;
        heard_.insert(heard_.end(), block.begin(), block.end());
        arrivals_.push_back(Now());
    }
    client_.Leave();
}

}  // namespace FeederTest
