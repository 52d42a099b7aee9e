#include <algorithm>
#include <cerrno>
#include <iterator>

#include "ConfigClient/ConfigConnection.h"
#include "ConfigClient/ObjectList.h"
#include "tests/sim/Scenario.h"

namespace OrvSim {

void Scenario::SleepOdd(Rng& rng, u64 low, u64 high) {
    const u64 milliseconds = low + rng.Below(high - low + 1);
    const u64 odd = world_.exact ? 100'001 + rng.Below(700'000) : 0;
    const u64 end = sim_.Now() + milliseconds * kMillisecond + odd;
    sim_.AdvanceTo(world_.exact ? end / 2 * 2 : end);
}

// --- clients --------------------------------------------------------------------------------------------------------

void Scenario::Clients(Rng rng) {
    while (!Over()) {
        SleepOdd(rng, 100, 9'000);
        const Table& feeds = config_.Rows("AUDIOFEED");
        if (feeds.empty()) continue;
        std::string pipe = std::next(feeds.begin(), static_cast<i64>(rng.Below(feeds.size())))->second.Text("pipename");
        if (rng.Chance(20)) pipe = AnyCase(rng, pipe);
        Platform::SystemError error = 0;
        const auto client = Platform::ConnectPipe(pipe, error);
        if (client == nullptr) continue;
        ++world_.counts.clients;
        Listen(rng, *client);
        checker_.OnClientLeft(client->Id());
    }
}

void Scenario::Listen(Rng& rng, Platform::IPipeClient& client) {
    const u64 end = sim_.Now() + rng.Below(25'000) * kMillisecond;
    const bool stalls = rng.Chance(15);
    const bool slow = rng.Chance(5);
    while (sim_.Now() < end && !Over()) {
        u8 buffer[3000];
        u64 taken = 0;
        Platform::SystemError error = 0;
        const auto outcome = client.Read(buffer, slow ? 777 : sizeof buffer, 300, taken, error);
        if (outcome == Platform::IPipeClient::Outcome::Closed) return;
        if (taken != 0) checker_.OnClientRead(client.Id(), buffer, taken);
        if (slow) SleepOdd(rng, 10, 60);
        if (!stalls || !rng.Chance(3)) continue;
        ++world_.counts.stalledClients;
        SleepOdd(rng, 500, 12'000);
    }
}

// --- changes --------------------------------------------------------------------------------------------------------

void Scenario::ChangeThings(Rng rng) {
    const u64 loseAt = rng.Chance(15) ? sim_.Now() + rng.Below(options_.seconds) * 1000 * kMillisecond : ~u64{0};
    config_.beforeAnswer = [this, delays = rng.Fork()]() mutable {
        // Never no time at all: each change comes at a moment of its own, apart from what pumps do.
        if (slowMilliseconds_ != 0 && !Over()) ++world_.counts.slowCalls;
        SleepOdd(delays, 0, Over() ? 0 : slowMilliseconds_);
    };
    while (!Over()) {
        SleepOdd(rng, 50, 12'000);
        if (sim_.Now() >= loseAt) {
            ++world_.counts.linksLost;
            linkUp_ = false;
            checker_.OnLinkLost();
            config_.Exchange().Stop();
            break;
        }
        CheckTables("while it runs");
        slowMilliseconds_ = rng.Chance(10) ? static_cast<u32>(rng.Between(1, 4'000)) : 0;
        const u64 burst = rng.Chance(15) ? 1 + rng.Below(6) : 1;
        alone_ = burst == 1;
        for (u64 change = 0; change < burst; ++change) ChangeOne(rng);
    }
    slowMilliseconds_ = 0;
}

void Scenario::ChangeOne(Rng& rng) {
    const u64 which = rng.Below(100);
    if (which < 50) {
        ChangeFeed(rng);
    } else if (which < 70) {
        ChangeAnnouncement(rng);
    } else if (which < 88) {
        ChangeParameter(rng);
    } else {
        ChangeMany(rng);
    }
}

void Scenario::ChangeFeed(Rng& rng) {
    const Table& feeds = config_.Rows("AUDIOFEED");
    const u64 which = rng.Below(100);
    if (feeds.empty() || (which < 6 && feeds.size() < options_.feeds + 2)) {
        const i32 id = nextId_++;
        config_.Commit({"AUDIOFEED", id, MakeFeed(id)});
        return;
    }
    auto [id, row] = *std::next(feeds.begin(), static_cast<i64>(rng.Below(feeds.size())));
    if (which < 12 && feeds.size() > 1) {
        config_.Commit({"AUDIOFEED", id, std::nullopt});
        return;
    }
    if (Clashes(row.Text("pipename")) && rng.Chance(50)) {
        row.fields["pipename"] = "p" + std::to_string(id);
    } else if (which < 60) {  // leaves the feed standing
        row.fields["maxvolume"] = static_cast<i32>(rng.Between(0, 100));
        row.fields["autogain"] = static_cast<i32>(rng.Below(2));
        row.fields["minannouncementpause"] = 1;
    } else if (which < 74) {
        row.fields["pipename"] = OtherPipeName(rng, id);
    } else {
        const std::string pipe = row.Text("pipename");
        row = MakeFeed(id);
        row.fields["pipename"] = pipe;
    }
    if (which > 92 && alone_ && linkUp_ && checker_.Settled() && slowMilliseconds_ == 0) {
        const Row& old = feeds.at(id);
        const bool rebuild = old.Text("thename") != row.Text("thename");
        FeedModel* feed = checker_.FeedOn(row.Text("pipename"));
        // Only where the next start of a thread is sure to be this pump's.
        if (rebuild && feed != nullptr && feed->Clients() == 0 && !SourcesMayStart()) {
            sim_.FailThreadStarts(1);
            ++world_.threadFailures;
            ++world_.counts.threadFaults;
        }
    }
    config_.Commit({"AUDIOFEED", id, row});
}

std::string Scenario::AnyCase(Rng& rng, std::string name) const {
    for (char& letter : name) {
        if (letter == 'p' || letter == 'P') letter = rng.Chance(50) ? 'p' : 'P';
        if (letter == 'x' || letter == 'X') letter = rng.Chance(50) ? 'x' : 'X';
    }
    return name;
}

// A new one, its own in another case, or another feed's in whatever case, so that the two clash.
std::string Scenario::OtherPipeName(Rng& rng, i32 id) {
    const Table& feeds = config_.Rows("AUDIOFEED");
    const std::string pipe = feeds.at(id).Text("pipename");
    const u64 which = rng.Below(10);
    if (which < 3) return AnyCase(rng, pipe);
    if (which < 7) {
        const auto& other = *std::next(feeds.begin(), static_cast<i64>(rng.Below(feeds.size())));
        std::string name = AnyCase(rng, other.second.Text("pipename"));
        // The very same one less often: there the later one is all that is left.
        if (name == other.second.Text("pipename") && rng.Chance(50)) name[0] = name[0] == 'p' ? 'P' : 'p';
        return name;
    }
    return pipe.size() < 12 ? pipe + "x" : "p" + std::to_string(id);
}

// Whether another row has the name, in whatever case.
bool Scenario::Clashes(const std::string& pipe) {
    u32 rows = 0;
    for (const auto& [id, row] : config_.Rows("AUDIOFEED")) {
        if (ModelNames::Fold(row.Text("pipename")) == ModelNames::Fold(pipe)) ++rows;
    }
    return rows > 1;
}

// Whether the thread of a live source may be started at any moment. Byte by byte all of them run all the time.
bool Scenario::SourcesMayStart() const {
    return !world_.exact &&
           (!PipePathOf(world_.defaultFile).empty() ||
            std::any_of(world_.announcements.begin(), world_.announcements.end(),
                        [](const auto& said) { return !PipePathOf(said.second.Text("thefile")).empty(); }));
}

void Scenario::ChangeAnnouncement(Rng& rng) {
    const Table& rows = config_.Rows("ANNOUNCEMENT");
    const u64 which = rng.Below(100);
    if (rows.empty() || (which < 35 && rows.size() < 6)) {
        const i32 id = nextId_++;
        config_.Commit({"ANNOUNCEMENT", id, MakeAnnouncement(id)});
        return;
    }
    const i32 id = std::next(rows.begin(), static_cast<i64>(rng.Below(rows.size())))->first;
    if (which < 55) {
        config_.Commit({"ANNOUNCEMENT", id, std::nullopt});
    } else {
        config_.Commit({"ANNOUNCEMENT", id, MakeAnnouncement(id)});
    }
}

// Often the one at which everything is told. Never the one at which nothing is while threads race: their order is then
// known by lines alone.
std::string Scenario::AnyLevel(Rng& rng) const {
    if (rng.Chance(35)) return "3";
    if (rng.Chance(10)) return rng.Chance(50) ? "12" : "";
    return std::to_string(rng.Between(world_.exact ? 0 : 1, 5));
}

void Scenario::ChangeParameter(Rng& rng) {
    const u64 which = rng.Below(6);
    if (which == 0) config_.Commit({"PARAMETER", 1, Parameter(1, "SYSTEMLOGGINGLEVEL", AnyLevel(rng))});
    if (which == 1)
        config_.Commit({"PARAMETER", 2,
                        Parameter(2, "DEFAULTAUDIOFILE",
                                  rng.Chance(10)   ? ""
                                  : rng.Chance(30) ? AnySource()
                                                   : AnyFile())});
    if (which == 2) {
        const std::string percent = rng.Chance(10) ? "none" : std::to_string(rng.Between(-5, 120));
        config_.Commit({"PARAMETER", 4, Parameter(4, "AUDIO_PROVIDER_MAX_VOLUME", percent)});
    }
    if (which == 3) {
        config_.Commit({"PARAMETER", 5, Parameter(5, "AUDIO_PROVIDER_ENABLE_AUTOGAIN", rng.Chance(60) ? "1" : "11")});
    }
    if (which == 4) config_.Commit({"PARAMETER", 5, std::nullopt});
    if (which == 5) config_.Commit({"AUDIOFEEDCONTENT", static_cast<i32>(rng.Between(1, 4)), MakeAnnouncement(1)});
}

void Scenario::ChangeMany(Rng& rng) {
    std::vector<ConfigSide::Change> changes;
    for (const char* name : {"AUDIOFEED", "ANNOUNCEMENT"}) {
        const bool feeds = std::string(name) == "AUDIOFEED";
        for (const auto& [id, row] : config_.Rows(name)) {
            if (!rng.Chance(30)) continue;
            Row changed = feeds ? MakeFeed(id) : MakeAnnouncement(id);
            if (feeds) changed.fields["pipename"] = rng.Chance(15) ? OtherPipeName(rng, id) : row.Text("pipename");
            const bool gone = !feeds && rng.Chance(30);
            changes.push_back({name, id, gone ? std::nullopt : std::optional<Row>(changed)});
        }
    }
    if (rng.Chance(30)) changes.push_back({"AUDIOFEEDCONTENT", 77, MakeAnnouncement(77)});
    config_.CommitBatch(changes);
}

// --- the disk, sockets ----------------------------------------------------------------------------------------------

void Scenario::BreakDisk(Rng rng) {
    while (!Over()) {
        SleepOdd(rng, 50, 6'000);
        if (clockRng_.Chance(5)) TurnClock();
        if (rng.Chance(10)) {
            const Table& feeds = config_.Rows("AUDIOFEED");
            if (feeds.empty()) continue;
            const Row& row = std::next(feeds.begin(), static_cast<i64>(rng.Below(feeds.size())))->second;
            const u32 times = static_cast<u32>(rng.Between(1, 5));
            ++world_.counts.socketFaults;
            if (rng.Chance(50)) {
                sim_.Pipes().FailInstances(row.Text("pipename"), EMFILE, times);
                world_.names.Fail(row.Text("pipename"), EMFILE, times);
            } else {
                sim_.Pipes().FailPolls(row.Text("pipename"), ECONNABORTED, times);
            }
            continue;
        }
        const std::vector<std::string> paths = world_.disk.Paths();
        if (paths.empty() || rng.Chance(12)) {
            const std::string path = NewPath(folders_[rng.Below(folders_.size())]);
            world_.disk.Add(path, MakeSound(path.ends_with(".wav")));
            continue;
        }
        BreakOne(rng, paths[rng.Below(paths.size())]);
    }
}

// Back or on by less than an hour, by days, or by years; or to the last moment of a day.
void Scenario::TurnClock() {
    constexpr i64 kMinute = 60'000;
    constexpr i64 kDay = 24 * 60 * kMinute;
    Platform::Sim::SimClock& clock = sim_.Clock();
    const i64 now = clock.UtcMilliseconds();
    const u64 which = clockRng_.Below(4);
    i64 to = now + clockRng_.Between(-59 * kMinute, 59 * kMinute);
    if (which == 0) to += clockRng_.Between(-40, 40) * kDay;
    if (which == 1) to += clockRng_.Between(-2, 3) * 365 * kDay;
    if (which == 2) to = now / kDay * kDay + kDay - clockRng_.Between(1, 5'000);
    checker_.OnClockTurn();
    clock.SetUtcMilliseconds(std::max<i64>(to, 0));
    ++world_.counts.clockTurns;
}

void Scenario::BreakOne(Rng& rng, const std::string& path) {
    ModelDisk& disk = world_.disk;
    const bool wav = path.ends_with(".wav");
    ++world_.counts.diskFaults;
    switch (rng.Below(8)) {
        case 0:
            disk.SetUnreadable(path, true);
            return;
        case 1:
            // What lies in front is the header and the first read, which plain reads fetch.
            disk.SetFailing(path, true, 4096 + rng.Below(30'000));
            return;
        case 2:
        case 3:
            // Only overlapped reads may be late: a plain one holds up whoever opens the file.
            if (!wav) disk.SetDelay(path, static_cast<u32>(rng.Between(1, 3'000)));
            return;
        case 4:
            disk.Truncate(path, disk.SizeOf(path) == 0 ? 0 : rng.Below(disk.SizeOf(path)));
            return;
        case 5:
            if (disk.Paths().size() > options_.feeds) disk.Remove(path);
            return;
        default:
            disk.SetUnreadable(path, false);
            disk.SetFailing(path, false, 0);
            disk.SetDelay(path, 0);
            disk.Replace(path, MakeSound(wav));
            return;
    }
}

// --- the tables -----------------------------------------------------------------------------------------------------

void Scenario::CheckTables(const std::string& when) {
    if (!checker_.Settled() || world_.Failed()) return;
    ++world_.counts.tableChecks;
    for (const char* name : {"AUDIOFEED", "AUDIOFEEDCONTENT", "ANNOUNCEMENT", "PARAMETER"}) {
        const auto list = ConfigConnection::GetList(name);
        if (!linkUp_) {
            // They go with the connection, in a moment.
            if (list.IsValid() && over_) world_.Fail(std::string("the table ") + name + " outlives its connection");
            continue;
        }
        if (!list.IsValid()) {
            world_.Fail(std::string("no table ") + name + " " + when);
            return;
        }
        std::vector<i32> ids;
        list->GetIds(ids);
        Table held;
        for (const i32 id : ids) held[id] = FromList(list->GetRow(id).Get());
        if (!checker_.Settled()) return;
        if (held != config_.Rows(name)) world_.Fail(std::string("the table ") + name + " is not the service's " + when);
    }
}

}  // namespace OrvSim
