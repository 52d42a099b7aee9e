#include "tests/sim/Checker.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"

namespace OrvSim {

namespace {

constexpr u64 kPrime = 1'099'511'628'211U;

using UtcTime = std::chrono::sys_time<std::chrono::milliseconds>;

// "2024/03/05"
std::string DateText(i64 utcMilliseconds) {
    using namespace std::chrono;
    const year_month_day date(floor<days>(UtcTime(milliseconds(utcMilliseconds))));
    char text[32];
    std::snprintf(text, sizeof text, "%04d/%02u/%02u", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
    return text;
}

// "10:20:30.000"
std::string TimeText(i64 utcMilliseconds) {
    const u64 time = static_cast<u64>(utcMilliseconds % 86'400'000);
    char text[64];
    std::snprintf(text, sizeof text, "%02u:%02u:%02u.%03u", static_cast<unsigned>(time / 3'600'000),
                  static_cast<unsigned>(time / 60'000 % 60), static_cast<unsigned>(time / 1000 % 60),
                  static_cast<unsigned>(time % 1000));
    return text;
}

}  // namespace

Checker::Draws::Draws(ModelWorld& world, u64 seed) : world_(world), state_(seed) {
    Orv::SetRandomSource(this);
}

Checker::Draws::~Draws() {
    Orv::SetRandomSource(nullptr);
}

u32 Checker::Draws::Next() {
    state_ += 0x9E3779B97F4A7C15;
    u64 value = (state_ ^ (state_ >> 30)) * 0xBF58476D1CE4E5B9;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
    const u32 drawn = static_cast<u32>(value >> 32);
    if (world_.exact) world_.draws[Platform::CurrentThreadId()].push_back(drawn);
    return drawn;
}

Checker::Checker(ModelWorld& world, u64 seed) : world_(world), draws_(world, seed) {}

// From here on the end is near: feeds go, and changes need not come any more.
void Checker::OnStop() {
    stopping_ = true;
    if (world_.levels.Shows(" Info")) return;
    for (const auto& [serial, feed] : feeds_) feed->StopUntold();
}

Checker::~Checker() = default;

void Checker::Mix(const void* data, u64 count) {
    const auto* bytes = static_cast<const u8*>(data);
    u64 at = 0;
    for (; at + 8 <= count; at += 8) {
        u64 word = 0;
        std::memcpy(&word, bytes + at, sizeof word);
        hash_ = (hash_ ^ word) * kPrime;
        hash_ ^= hash_ >> 29;
    }
    for (; at < count; ++at) hash_ = (hash_ ^ bytes[at]) * kPrime;
}

// --- the log --------------------------------------------------------------------------------------------------------

void Checker::OnLogBytes(std::string_view bytes) {
    Mix(bytes.data(), bytes.size());
    if (keepLog) log += bytes;
    for (std::size_t end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
        if (partLine_.empty()) {
            OnLine(bytes.substr(0, end));
        } else {
            partLine_ += bytes.substr(0, end);
            OnLine(partLine_);
            partLine_.clear();
        }
        bytes.remove_prefix(end + 1);
    }
    partLine_ += bytes;
}

void Checker::OnClockTurn() {
    turnedAt_ = ModelWorld::Now();
    utcBeforeTurn_ = Platform::Sim::Clock().UtcMilliseconds();
}

// By the wall clock; in the moment of a turn, of racing threads, also by what it showed before.
template <typename Fits>
bool Checker::FitsClock(Fits fits) const {
    return fits(Platform::Sim::Clock().UtcMilliseconds()) ||
           (!world_.exact && turnedAt_ == ModelWorld::Now() && fits(utcBeforeTurn_));
}

// A date is the clock's, whole.
void Checker::CheckDate(std::string_view date) {
    date_ = date;
    if (!FitsClock([&](i64 utc) { return date_ == DateText(utc); })) {
        world_.Fail("the log shows another date than the clock: " + date_);
    }
}

// Each line has the clock's time, below a date of the clock's day of the month: by that alone the log knows a new date.
void Checker::CheckTime(std::string_view line) {
    const auto fits = [&](i64 utc) {
        return line.substr(0, 12) == TimeText(utc) && date_.ends_with(DateText(utc).substr(8));
    };
    if (FitsClock(fits)) return;
    world_.Fail("the log shows another time than the clock, on the " + date_ + ": " + std::string(line));
}

// "hh:mm:ss.mmm|thread|word|source(line): text"; lines without it belong to the message in front.
void Checker::OnLine(std::string_view line) {
    if (line.starts_with("#Date: ")) CheckDate(line.substr(7));
    if (line.size() < 22 || line[2] != ':' || line[12] != '|') return;
    ++world_.counts.logLines;
    CheckTime(line);
    const std::size_t threadEnd = line.find('|', 13);
    const std::size_t wordEnd = line.find('|', threadEnd + 1);
    const std::size_t sourceEnd = line.find_first_of("(:", wordEnd + 1);
    const std::size_t text = line.find(": ", wordEnd + 1);
    if (wordEnd == std::string_view::npos || text == std::string_view::npos || wordEnd - threadEnd != 6) {
        world_.Fail("no line of a log: " + std::string(line));
        return;
    }
    const u64 thread = std::strtoull(line.data() + 13, nullptr, 10);
    OnMessage(thread, std::string(line.substr(threadEnd + 1, 5)),
              std::string(line.substr(wordEnd + 1, sourceEnd - wordEnd - 1)), line.substr(text + 2));
}

// Threads that race may still write by the level that was, or already by the one that comes.
bool Checker::MayShow(const std::string& word, bool ofEngine) const {
    const auto shows = [&](const LogLevels& levels) {
        return ofEngine ? levels.ShowsOfEngine(word) : levels.Shows(word);
    };
    return shows(world_.levels) || (!world_.exact && otherLevelsAt_ == ModelWorld::Now() && shows(otherLevels_));
}

void Checker::OnMessage(u64 thread, const std::string& word, const std::string& source, std::string_view text) {
    const bool ofEngine = text.starts_with("VoIPFileEngine/");
    if (reloaded_ && !MayShow(word, ofEngine)) {
        world_.Fail("a line above the level " + std::to_string(world_.levels.Level()) + ": " + word + "|" +
                    std::string(text));
    }
    if (ofEngine) {
        OnEngineLine(thread, word, text);
    } else if (text.starts_with("Channel ")) {
        OnFeedLine(thread, word, text);
    } else if (text.starts_with("Change log verbosity to ") && !reloaded_) {
        Reload();
    } else if (text.starts_with("Shutdown channel ") || text.starts_with("Creating channel ") ||
               text.starts_with("Change log verbosity to ") || text.starts_with("Announcement ")) {
        OnManagerLine(std::string(text));
    } else if (source == "OrvAudioFeeder" && text.starts_with("[")) {
        seen_.insert(std::string(text.substr(0, 12)));
        if (text.starts_with("[EC000001]") && !linkLost_) world_.Fail("a loss of the connection that was none");
    } else if (word == "Excep") {
        world_.Fail("an exception: " + std::string(text));
    }
}

void Checker::OnEngineLine(u64 thread, const std::string& word, std::string_view text) {
    const bool ofPipe = text.starts_with("VoIPFileEngine/PipeStream(");
    const std::size_t end = text.find(") ");
    if (end == std::string_view::npos) return;
    text.remove_prefix(end + 2);
    const std::string line = word + "|" + std::string(text);
    if (ofPipe) {
        OnSourceLine(line);
    } else if (text.starts_with("Provided (") || text.starts_with("Added chunk, ") ||
               text.starts_with("Remove obsolete data: ")) {
        if (!world_.exact) return;
        std::string wanted;
        if (!world_.box.OnLine(line, ModelWorld::Now(), wanted)) {
            world_.Fail("the default set's line \"" + line + "\" came for \"" + wanted + "\"");
        }
    } else if (text.starts_with("Zeroing out ") || text.starts_with("Not enough data:")) {
        const auto pump = byThread_.find(thread);
        if (pump != byThread_.end()) pump->second->OnPumpLine(line);
    }
}

// Of the connection to a live source; who shares it is told by other lines.
void Checker::OnSourceLine(const std::string& line) {
    if (!world_.exact || line.ends_with(" storage") || line.ends_with("(ies)")) return;
    std::string wanted;
    for (auto& [path, source] : world_.live) {
        if (line.find(path) == std::string::npos) continue;
        if (!source.OnLine(line, wanted)) {
            world_.Fail("a live source's line \"" + line + "\" came for \"" + wanted + "\"");
        }
        return;
    }
    world_.Fail("a line of an unknown live source: " + line);
}

// "Channel <name> as <pipe>[<instance>]:<text>"
void Checker::OnFeedLine(u64 thread, const std::string& word, std::string_view text) {
    const std::size_t close = text.find("]:");
    const std::size_t open = text.rfind('[', close);
    if (close == std::string_view::npos || open == std::string_view::npos) return;
    const i32 instance = std::atoi(text.data() + open + 1);
    const std::string line = word + "|" + std::string(text.substr(close + 2));
    if (instanceOfNone_ < 0) instanceOfNone_ = instance - i64{lastSerial_};
    const auto found = feeds_.find(static_cast<u32>(instance - instanceOfNone_));
    if (found == feeds_.end()) {
        world_.Fail("a line of a feed that is not there: " + std::string(text));
        return;
    }
    FeedModel& feed = *found->second;
    const std::string prefix = "Channel " + feed.Name() + " as " + feed.Pipe() + "[";
    if (!text.starts_with(prefix)) world_.Fail("another feed's line than " + prefix + ": " + std::string(text));
    if (line == " Info|Shutdown" && !MayEnd(feed)) world_.Fail("a feed is shut down that nobody ended: " + prefix);
    if (thread == feed.PumpThread()) {
        feed.OnPumpLine(line);
    } else {
        feed.OnOwnerLine(line);
    }
}

void Checker::OnManagerLine(const std::string& line) {
    if (managerLines_.empty() || managerLines_.front() != line) {
        world_.Fail("the line \"" + line + "\" came for \"" +
                    (managerLines_.empty() ? "no line" : managerLines_.front()) + "\"");
        return;
    }
    managerLines_.pop_front();
}

// --- pipes ----------------------------------------------------------------------------------------------------------

FeedModel* Checker::FeedOn(const std::string& pipe) const {
    const auto found = byPipe_.find(pipe);
    return found == byPipe_.end() ? nullptr : found->second;
}

namespace {

// Those who serve live sound are the driver's, and it tells itself what they do.
bool IsSource(const ModelWorld& world, const std::string& name) {
    return world.live.count(kPipeRoot + name) != 0;
}

}  // namespace

// A feed begins and ends with its pipe's endpoint, whether lines tell of it or not.
void Checker::OnEndpoint(const std::string& name) {
    if (IsSource(world_, name)) return;
    if (building_ != nullptr) building_->EndBuild(true);
    if (builds_.empty() || builds_.front().Text("pipename") != name) {
        world_.Fail("a feed is built that nobody asked for, on \"" + name + "\"");
        return;
    }
    auto feed = std::make_unique<FeedModel>(world_, builds_.front(), ++lastSerial_, Platform::CurrentThreadId());
    builds_.pop_front();
    building_ = byPipe_[name] = feed.get();
    feeds_.emplace(lastSerial_, std::move(feed));
}

void Checker::OnEndpointGone(const std::string& name) {
    FeedModel* feed = FeedOn(name);
    if (feed == nullptr) return;
    if (feed == building_) building_ = nullptr;
    if (!feed->Destroyed() && world_.levels.Shows(" Info")) world_.Fail("the end of a feed is not told: " + name);
    if (!MayEnd(*feed)) world_.Fail("a feed goes that nobody ended: " + name);
    world_.names.Release(name);
    byThread_.erase(feed->PumpThread());
    byPipe_.erase(name);
    feeds_.erase(feed->Serial());
}

// By a change of its own row, of another one under its name, or with the service.
bool Checker::MayEnd(const FeedModel& feed) const {
    return stopping_ || std::count(leaving_.begin(), leaving_.end(), feed.Serial()) != 0 ||
           std::any_of(builds_.begin(), builds_.end(),
                       [&](const Row& row) { return row.Text("pipename") == feed.Pipe(); });
}

FeedModel* Checker::PumpOf(const std::string& pipe) {
    const u64 thread = Platform::CurrentThreadId();
    const auto known = byThread_.find(thread);
    if (known != byThread_.end()) return known->second;
    if (IsSource(world_, pipe)) return nullptr;
    FeedModel* feed = FeedOn(pipe);
    if (feed == nullptr || feed->PumpThread() != 0) {
        world_.Fail("a thread serves \"" + pipe + "\" that is no pump of it");
        return nullptr;
    }
    feed->SetPumpThread(thread);
    byThread_[thread] = feed;
    if (beforeFirstPass) beforeFirstPass();
    return feed;
}

void Checker::OnInstance(const std::string& name, Platform::PipeId id) {
    // Looked at first: the pump's first beat may take a while.
    const i32 error = IsSource(world_, name) ? 0 : world_.names.Try(name);
    if (FeedModel* feed = PumpOf(name)) feed->OnInstance(id, error);
}

void Checker::OnPoll(const std::string& name, Platform::PipeId id, Platform::ConnectState state,
                     Platform::PipeId client) {
    if (FeedModel* feed = PumpOf(name)) feed->OnPoll(id, state, client);
}

void Checker::OnWriting(const std::string& name, Platform::PipeId) {
    if (FeedModel* feed = PumpOf(name)) feed->OnWriting();
}

void Checker::OnWrite(const std::string& name, Platform::PipeId id, const u8* data, i64 taken) {
    FeedModel* feed = PumpOf(name);
    if (feed == nullptr) return;
    const Platform::PipeId client = feed->OnWrite(id, data, taken);
    const u64 now = ModelWorld::Now();
    Mix(&now, sizeof now);
    if (taken <= 0) return;
    Mix(data, static_cast<u64>(taken));
    auto& bytes = sent_[client];
    bytes.insert(bytes.end(), data, data + taken);
}

void Checker::OnConnect(const std::string& name, Platform::PipeId client, Platform::SystemError) {
    const auto source = world_.live.find(kPipeRoot + name);
    if (source == world_.live.end()) return;
    if (client == 0 && source->second.IsServed()) ++world_.counts.refusedConnects;
    std::string wrong;
    if (!world_.exact || source->second.OnTry(client != 0, ModelWorld::Now(), wrong)) return;
    world_.Fail("at the live source \"" + name + "\": " + wrong);
}

void Checker::OnClientRead(Platform::PipeId client, const u8* data, u64 count) {
    world_.counts.clientBytes += count;
    auto& bytes = sent_[client];
    if (bytes.size() < count || !std::equal(data, data + count, bytes.begin())) {
        world_.Fail("a client reads what was not sent to it");
        return;
    }
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
}

void Checker::CheckEnd() {
    for (const auto& [serial, feed] : feeds_) {
        world_.Fail("feed number " + std::to_string(serial) + " on \"" + feed->Pipe() + "\" outlives the service");
    }
    for (const auto& [path, source] : world_.live) {
        if (world_.exact && !source.Missing().empty()) {
            world_.Fail("a line of a live source never came: " + source.Missing());
        }
    }
    world_.counts.nameClashes += world_.names.Clashes();
    world_.counts.nameTakeovers += world_.names.Takeovers();
    if (!world_.box.Missing().empty()) world_.Fail("a line of the default set never came: " + world_.box.Missing());
    if (!managerLines_.empty()) world_.Fail("this line never came: " + managerLines_.front());
    if (!builds_.empty()) world_.Fail("a feed was never built: " + builds_.front().Text("pipename"));
}

}  // namespace OrvSim
