// Goals about changes while feeds play.
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "bench/orv-load/Goals.h"
#include "bench/orv-load/Marks.h"

namespace OrvLoad {
namespace {

constexpr i64 kPumpPace = 100 * kMillisecond;

// When each client has heard the beginning of the marked file anew.
class Marks {
public:
    explicit Marks(u32 clients) : since_(clients, INT64_MAX), heard_(clients) {}
    BlockTap TapFor(u32 client) {
        return [this, client](u64, const u8* data, i64 arrival) {
            if (since_[client].load() > arrival || heard_[client] != 0 || !IsMark(data)) return;
            heard_[client] = arrival;
        };
    }
    // From now on the mark of that client counts.
    void Await(u32 client) {
        heard_[client] = 0;
        since_[client] = Now();
    }
    // 0: not yet.
    i64 HeardAt(u32 client) const { return heard_[client]; }

private:
    struct Time : std::atomic<i64> {
        Time(i64 value = 0) : std::atomic<i64>(value) {}
        Time(const Time& other) : std::atomic<i64>(other.load()) {}
        using std::atomic<i64>::operator=;
    };
    std::vector<Time> since_;
    std::vector<Time> heard_;
};

ExchangeOptions MarkedExchange(const Session& session, u32 feeds) {
    ExchangeOptions options = session.exchange;
    options.feeds = feeds;
    options.type = "marked";
    options.announcements = false;  // an announcement would cover the mark
    return options;
}

std::vector<Seat> MarkedSeats(const Exchange& exchange, Marks& marks, u32 first, u32 end) {
    std::vector<Seat> seats;
    for (u32 feed = first; feed < end; ++feed) seats.push_back({exchange.PipePath(feed), feed, marks.TapFor(feed)});
    return seats;
}

// Until no feed plays the mark any more.
void LetMarksPass() {
    SleepFor((kMarkSeconds + 2) * kSecond);
}

std::string Text(double value, const char* unit) {
    char text[64];
    std::snprintf(text, sizeof text, "%.1f %s", value, unit);
    return text;
}

void Keep(Session& session, const char* what, Json figures) {
    Json row = {{"what", what}};
    row.update(figures);
    std::printf("%s\n", row.dump().c_str());
    std::fflush(stdout);
    session.rows.push_back(std::move(row));
}

struct FileMark {
    ino_t inode = 0;
    i64 changed = 0;
    bool operator==(const FileMark&) const = default;
};

// What tells one socket of a name from the next; all zeros when there is none.
FileMark MarkOfFile(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return {};
    return {info.st_ino, info.st_ctim.tv_sec * kSecond + info.st_ctim.tv_nsec};
}

}  // namespace

void MeasureManyChanges(Session& session) {
    const u32 half = session.feeds / 2;
    Exchange exchange(MarkedExchange(session, session.feeds));
    exchange.StartService();
    Marks marks(half);
    Listeners changed(session.measure.period);
    Listeners others(session.measure.period);
    std::vector<Seat> seats = exchange.Seats(session.feeds);
    seats.erase(seats.begin(), seats.begin() + half);
    AttachAll(changed, MarkedSeats(exchange, marks, 0, half));
    AttachAll(others, std::move(seats));
    LetMarksPass();

    constexpr i64 kWindow = 10 * kSecond;
    others.BeginWindow();
    SleepFor(kWindow);
    others.Collect();

    std::vector<Orv::Change> changes;
    for (u32 feed = 0; feed < half; ++feed) changes.push_back(FeedChange(feed, "maxvolume", 40));
    for (u32 feed = 0; feed < half; ++feed) marks.Await(feed);
    others.BeginWindow();
    const i64 begin = Now();
    exchange.Apply(changes);
    const i64 applied = Now();
    const auto all = [&] {
        for (u32 feed = 0; feed < half; ++feed) {
            if (marks.HeardAt(feed) == 0) return false;
        }
        return true;
    };
    WaitFor(60 * kSecond, all);
    SleepFor(std::max<i64>(0, begin + kWindow - Now()));
    const u64 missing = others.Collect().missing;
    const Histogram before = others.LatenessIn(0);
    const Histogram during = others.LatenessIn(1);
    u32 unheard = 0;
    i64 last = applied;
    for (u32 feed = 0; feed < half; ++feed) {
        unheard += marks.HeardAt(feed) == 0 ? 1 : 0;
        last = std::max(last, marks.HeardAt(feed));
    }
    const i64 took = last - begin;
    // A window of seconds need not meet the latest phase of a pump; and clients look each `period`.
    const i64 allowed = std::max(before.Max(), kPumpPace) + 2 * session.measure.period;
    Keep(session, "many changes",
         {{"feeds", session.feeds},
          {"changed", half},
          {"call_ms", Milliseconds(applied - begin)},
          {"in_effect_ms", Milliseconds(took)},
          {"not_in_effect", unheard},
          {"others_p99_9_before_ms", Milliseconds(before.Quantile(0.999))},
          {"others_p99_9_during_ms", Milliseconds(during.Quantile(0.999))},
          {"others_max_before_ms", Milliseconds(before.Max())},
          {"others_max_during_ms", Milliseconds(during.Max())},
          {"others_missing", missing}});
    session.goals.push_back(
        {"one transaction, maxvolume of " + std::to_string(half) + " of " + std::to_string(session.feeds) + " feeds",
         "in effect within 2 s",
         unheard == 0 ? Text(Milliseconds(took) / 1000, "s") : std::to_string(unheard) + " never",
         unheard == 0 && took <= 2 * kSecond});
    session.goals.push_back(
        {"latest block of the other feeds meanwhile", "no later than without it",
         Text(Milliseconds(during.Max()), "ms") + ", without it " + Text(Milliseconds(before.Max()), "ms"),
         during.Max() <= allowed && missing == 0});
}

void MeasureOneChange(Session& session) {
    const u32 feeds = session.fewer;
    Exchange exchange(MarkedExchange(session, feeds));
    exchange.StartService();
    Marks marks(feeds);
    Listeners listeners(session.measure.period);
    AttachAll(listeners, MarkedSeats(exchange, marks, 0, feeds));
    LetMarksPass();
    Histogram calls;
    Histogram latency;
    u32 lost = 0;
    for (u32 i = 0; i < session.changes; ++i) {
        const u32 feed = i % feeds;
        if (i >= feeds && feed == 0) LetMarksPass();
        marks.Await(feed);
        const i64 begin = Now();
        exchange.Apply({FeedChange(feed, "maxvolume", 40 + static_cast<i32>(i / feeds))});
        const i64 applied = Now();
        const bool heard = WaitFor(5 * kSecond, [&] { return marks.HeardAt(feed) != 0; });
        lost += heard ? 0 : 1;
        calls.Add(applied - begin);
        latency.Add(std::max<i64>(0, heard ? marks.HeardAt(feed) - applied : 5 * kSecond));
    }
    Keep(session, "one change",
         {{"feeds", feeds},
          {"changes", session.changes},
          {"lost", lost},
          {"call_p50_ms", Milliseconds(calls.Quantile(0.5))},
          {"call_p99_ms", Milliseconds(calls.Quantile(0.99))},
          {"p50_ms", Milliseconds(latency.Quantile(0.5))},
          {"p99_ms", Milliseconds(latency.Quantile(0.99))},
          {"max_ms", Milliseconds(latency.Max())}});
    session.goals.push_back(
        {"one maxvolume, from the answer to the restarted content, " + std::to_string(feeds) + " feeds playing",
         "under 250 ms at p99",
         Text(Milliseconds(latency.Quantile(0.99)), "ms") + ", max " + Text(Milliseconds(latency.Max()), "ms"),
         lost == 0 && latency.Quantile(0.99) < 250 * kMillisecond});
}

void MeasureRebuild(Session& session) {
    const u32 feeds = session.fewer;
    ExchangeOptions options = session.exchange;
    options.feeds = feeds;
    Exchange exchange(options);
    exchange.StartService();
    Listeners listeners(session.measure.period);
    AttachAll(listeners, exchange.Seats(feeds));
    Histogram back;
    u32 lost = 0;
    for (u32 i = 0; i < session.rebuilds; ++i) {
        const u32 feed = i % feeds;
        const std::string path = exchange.PipePath(feed);
        const FileMark old = MarkOfFile(path);
        exchange.Apply({FeedChange(feed, "nonstop", i / feeds % 2 == 0 ? 1 : 0)});
        const i64 applied = Now();
        const bool there = WaitFor(5 * kSecond, [&] {
            const FileMark now = MarkOfFile(path);
            return now != FileMark() && now != old;
        });
        lost += there ? 0 : 1;
        back.Add(Now() - applied);
    }
    Keep(session, "rebuild",
         {{"feeds", feeds},
          {"rebuilds", session.rebuilds},
          {"lost", lost},
          {"p50_ms", Milliseconds(back.Quantile(0.5))},
          {"p99_ms", Milliseconds(back.Quantile(0.99))},
          {"max_ms", Milliseconds(back.Max())}});
    session.goals.push_back(
        {"a rebuilt feed's pipe, " + std::to_string(feeds) + " feeds playing", "back within 250 ms",
         "p99 " + Text(Milliseconds(back.Quantile(0.99)), "ms") + ", max " + Text(Milliseconds(back.Max()), "ms"),
         lost == 0 && back.Max() <= 250 * kMillisecond});
}

void MeasureListeners(Session& session) {
    ExchangeOptions options = session.exchange;
    options.feeds = 1;
    Exchange exchange(options);
    const Machine before = ReadMachine();
    exchange.StartService();
    Listeners listeners(session.measure.period);
    const i64 begin = Now();
    AttachAll(listeners, exchange.Seats(session.listeners));
    const i64 attached = Now() - begin;
    Json row = Measure(session.measure, exchange.Service(), 1, listeners, before);
    row["attached_ms"] = Milliseconds(attached);
    Keep(session, "one feed", row);
    const double cost = row["us_per_block"].get<double>();
    const bool whole = row["blocks_missing"].get<u64>() == 0 && row["clients_ended"].get<u64>() == 0 &&
                       row["clients"].get<u64>() == session.listeners;
    session.goals.push_back({std::to_string(session.listeners) + " listeners on one feed",
                             "attached within 70 s, each gets each block, 10 us per listener and block",
                             "attached in " + Text(Milliseconds(attached) / 1000, "s") + ", " +
                                 row["blocks_missing"].dump() + " missing, " + Text(cost, "us"),
                             whole && attached <= 70 * kSecond && cost <= 10});
}

}  // namespace OrvLoad
