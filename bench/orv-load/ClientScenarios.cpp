// What feeds cost that wait for their clients.
#include <cstdio>

#include "bench/orv-load/Goals.h"
#include "bench/orv-load/Report.h"

namespace OrvLoad {
namespace {

constexpr u32 kFeedsToStop = 200;
constexpr i64 kStall = 10 * kSecond;
// What is due can be this much later as a matter of course: a nap, and the tool's own look.
constexpr i64 kOrdinaryLag = 250 * kMillisecond;

void MeasurePaced(Session& session, const ExchangeOptions& exchange) {
    MeasureOptions measure = session.measure;
    measure.paced = true;
    Json row = {{"what", "paced"}};
    row.update(MeasureService(measure, exchange, exchange.feeds));
    std::fputs(MeasurementTable({row}).c_str(), stdout);
    const u64 missing = row["blocks_missing"].get<u64>();
    session.goals.push_back({std::to_string(exchange.feeds) + " feeds whose clients leave two blocks waiting",
                             "no block skipped; the cost beside it",
                             std::to_string(missing) + " skipped, " + Number(CostOf(row), 3) + " ms",
                             missing == 0 && row["clients_ended"].get<u64>() == 0});
    session.rows.push_back(std::move(row));
}

// A feed ends when its write does, and the feeds end one after the other.
void MeasurePacedStop(Session& session, ExchangeOptions options) {
    options.feeds = kFeedsToStop;
    Exchange exchange(options);
    exchange.StartService();
    Listeners listeners(session.measure.period);
    std::vector<Seat> seats = exchange.Seats(options.feeds);
    for (Seat& seat : seats) seat.paced = true;
    AttachAll(listeners, std::move(seats));
    SleepFor(kSecond);  // by then two blocks wait for each of them
    const i64 took = exchange.StopService(120 * kSecond);
    const Json row = {{"what", "paced stop"}, {"feeds", options.feeds}, {"stop_ms", Milliseconds(took)}};
    std::printf("%s\n", row.dump().c_str());
    session.goals.push_back(
        {"SIGTERM to exit, " + std::to_string(options.feeds) + " feeds whose clients leave two blocks waiting",
         "125 ms a feed at most, one after the other", Number(Milliseconds(took) / 1000, 1) + " s",
         took <= options.feeds * kBlockTime + kSecond});
    session.rows.push_back(row);
}

// All clients stop at once and go on together, as those of a media server do that is held for a while.
void MeasureStall(Session& session, const ExchangeOptions& options) {
    Exchange exchange(options);
    exchange.StartService();
    Listeners listeners(session.measure.period);
    AttachAll(listeners, exchange.Seats(options.feeds));
    listeners.Pause();
    SleepFor(kSecond);  // by then every socket is full
    const i64 before = ProcessorNanoseconds(exchange.Service());
    const i64 begin = Now();
    SleepFor(kStall);
    const i64 cost = ProcessorNanoseconds(exchange.Service()) - before;
    const i64 resumed = Now();
    listeners.Resume();
    const bool whole = WaitFor(60 * kSecond, [&] { return listeners.HaveAllBefore(Now() - kOrdinaryLag); });
    const i64 took = Now() - resumed;
    const u64 ended = listeners.Ended();
    const i64 stop = exchange.StopService(120 * kSecond);
    const double each =
        static_cast<double>(cost) / kMillisecond / options.feeds * kSecond / static_cast<double>(resumed - begin);
    Json row = {{"what", "stall"},
                {"feeds", options.feeds},
                {"stalled_ms_per_feed_second", Rounded(each, 4)},
                {"caught_up", whole},
                {"caught_up_ms", Milliseconds(took)},
                {"clients_ended", ended},
                {"stop_ms", Milliseconds(stop)}};
    std::printf("%s\n", row.dump().c_str());
    session.goals.push_back({"the clients of " + std::to_string(options.feeds) + " feeds take nothing for 11 s",
                             "all go on and get every block; the cost meanwhile beside it",
                             (whole ? "every block there after " + Number(Milliseconds(took) / 1000, 1) + " s"
                                    : std::string("still behind after 60 s")) +
                                 ", " + std::to_string(ended) + " ended; " + Number(each, 3) + " ms meanwhile",
                             whole && ended == 0});
    session.rows.push_back(std::move(row));
}

}  // namespace

void MeasureSlowClients(Session& session) {
    ExchangeOptions options = session.exchange;
    options.feeds = session.feeds;
    MeasurePaced(session, options);
    MeasurePacedStop(session, options);
    MeasureStall(session, options);
}

}  // namespace OrvLoad
