#include "bench/orv-load/Measure.h"

#include <algorithm>
#include <cmath>

#include "bench/orv-load/Child.h"
#include "bench/orv-load/Marks.h"

namespace OrvLoad {
namespace {

constexpr char kOwnProgram[] = "/proc/self/exe";

i64 FromSeconds(double seconds) {
    return static_cast<i64>(seconds * kSecond);
}

Json DescribeLateness(const Heard& heard) {
    return {{"p50_ms", Milliseconds(heard.lateness.Quantile(0.5))},
            {"p99_ms", Milliseconds(heard.lateness.Quantile(0.99))},
            {"p99_9_ms", Milliseconds(heard.lateness.Quantile(0.999))},
            {"max_ms", Milliseconds(heard.lateness.Max())},
            {"over_125_ms", heard.lateBlocks},
            {"early_ms", Milliseconds(heard.earliest)}};
}

}  // namespace

double Rounded(double value, int digits) {
    const double scale = std::pow(10.0, digits);
    return std::round(value * scale) / scale;
}

double Milliseconds(i64 nanoseconds) {
    return Rounded(static_cast<double>(nanoseconds) / kMillisecond, 1);
}

void AttachAll(Listeners& listeners, std::vector<Seat> seats) {
    listeners.Attach(std::move(seats));
    if (!listeners.WaitForFirstBlocks(120 * kSecond)) throw LoadError("A client got no block in 120 s");
}

Json Measure(const MeasureOptions& options, pid_t process, u32 feeds, Listeners& listeners, const Machine& before,
             const ServiceLog* log) {
    SleepFor(FromSeconds(options.settle));
    const LateReads lateBefore = log != nullptr ? log->CountLateReads() : LateReads();
    const Counters countersBefore = ReadCounters(process);
    listeners.BeginWindow();
    const Machine machineBefore = ReadMachine();
    const i64 costBefore = ProcessorNanoseconds(process);
    const i64 begin = Now();
    SleepFor(FromSeconds(options.seconds));
    const i64 cost = ProcessorNanoseconds(process) - costBefore;
    const i64 took = Now() - begin;
    const Machine machine = ReadMachine();
    listeners.EndWindow();
    const Counters counters = ReadCounters(process);
    const Holding holding = ReadHolding(process);
    const Heard heard = listeners.Collect();

    const double seconds = static_cast<double>(took) / kSecond;
    const double feedSeconds = seconds * feeds;
    const double perBlock = std::max(1.0, static_cast<double>(heard.blocks));
    const auto kernel = static_cast<double>(machine.kernelBytes) - static_cast<double>(before.kernelBytes);
    const i64 user = counters.userTime - countersBefore.userTime;
    const i64 system = counters.systemTime - countersBefore.systemTime;
    Json row = {
        {"feeds", feeds},
        {"clients", heard.clients},
        {"seconds", Rounded(seconds, 2)},
        {"ms_per_feed_second", Rounded(static_cast<double>(cost) / kMillisecond / feedSeconds, 4)},
        {"user_share", Rounded(static_cast<double>(user) / std::max<double>(1, static_cast<double>(user + system)), 3)},
        {"switches_per_feed_second",
         Rounded(static_cast<double>(counters.switches - countersBefore.switches) / feedSeconds, 2)},
        {"read_calls_per_feed_second",
         Rounded(static_cast<double>(counters.readCalls - countersBefore.readCalls) / feedSeconds, 3)},
        {"read_bytes", counters.readBytes - countersBefore.readBytes},
        {"disk_bytes", counters.diskBytes - countersBefore.diskBytes},
        {"us_per_block", Rounded(static_cast<double>(cost) / kMicrosecond / perBlock, 2)},
        {"blocks", heard.blocks},
        {"blocks_missing", heard.missing},
        {"blocks_silent", heard.silentBlocks},
        {"clients_torn", heard.torn},
        {"clients_ended", heard.ended},
        {"drift_blocks", heard.drift},
        {"lateness", DescribeLateness(heard)},
        {"pss_kib_per_feed", Rounded(static_cast<double>(holding.pssBytes) / 1024 / feeds, 1)},
        {"kernel_kib_per_feed", Rounded(kernel / 1024 / feeds, 1)},
        {"kernel_stack_kib_per_feed",
         Rounded((static_cast<double>(machine.kernelStackBytes) - static_cast<double>(before.kernelStackBytes)) / 1024 /
                     feeds,
                 1)},
        {"threads", holding.threads},
        {"descriptors", holding.descriptors},
        {"descriptors_per_feed", Rounded(static_cast<double>(holding.descriptors) / feeds, 2)},
        {"listeners_ms_per_client_second", Rounded(static_cast<double>(heard.ownTime) / kMillisecond / seconds /
                                                       std::max<double>(1, static_cast<double>(heard.clients)),
                                                   4)},
        {"processors_busy",
         Rounded(static_cast<double>(machine.busyTime - machineBefore.busyTime) / static_cast<double>(took), 2)}};
    if (log != nullptr) {
        const LateReads late = log->CountLateReads();
        row["reads_late"] = late.reads - lateBefore.reads;
        row["blocks_late_disk"] = late.wholeBlocks - lateBefore.wholeBlocks;
    }
    return row;
}

Json MeasureService(const MeasureOptions& options, const ExchangeOptions& exchangeOptions, u32 clients) {
    Exchange exchange(exchangeOptions);
    const Machine before = ReadMachine();
    const Exchange::BuildTimes built = exchange.StartService();
    CountedCheck counted(clients);  // outlives the listeners
    Listeners listeners(options.period);
    std::vector<Seat> seats = exchange.Seats(clients);
    const bool isCounted = exchangeOptions.type == "counted";
    for (u32 i = 0; i < clients && isCounted; ++i) seats[i].tap = counted.TapFor(i);
    for (Seat& seat : seats) seat.paced = options.paced;
    AttachAll(listeners, std::move(seats));
    const ServiceLog log(exchange.LogFolder());
    Json row = Measure(options, exchange.Service(), exchangeOptions.feeds, listeners, before,
                       exchangeOptions.logLevel == ServiceLog::kLevelOfReads ? &log : nullptr);
    row["cached_reads"] = exchange.HasCachedReads();
    if (isCounted) {
        row["counted_continued"] = counted.Continued();
        row["counted_broken"] = counted.Broken();
        row["counted_unsettled"] = counted.Unsettled();
    }
    row["built_ms"] = Milliseconds(built.fromConnection);
    listeners.Hurry();  // the stop waits for each write, and so for each paced client in turn
    row["stop_ms"] = Milliseconds(exchange.StopService(120 * kSecond));
    // What the sockets still hold is read to its end.
    WaitFor(2 * kSecond, [&] { return listeners.Ended() == clients; });
    row["ends_heard"] = listeners.Ended();
    row["logs_backed_up"] = exchange.BackedUpLogs();
    return row;
}

Json MeasureFloor(const MeasureOptions& options, u32 threads, u32 clients) {
    const RunFolder folder(false);
    const Machine before = ReadMachine();
    Child floor({kOwnProgram, "floor-process", "--folder", folder.Path(), "--count", std::to_string(threads)},
                folder / "floor.log");
    std::vector<Seat> seats;
    for (u32 i = 0; i < clients; ++i) seats.push_back({folder / ("f" + std::to_string(i % threads)), i % threads});
    Listeners listeners(options.period);
    AttachAll(listeners, std::move(seats));
    // Without clients nothing tells that all threads run.
    WaitFor(10 * kSecond, [&] { return ReadHolding(floor.Pid()).threads >= threads; });
    Json row = Measure(options, floor.Pid(), threads, listeners, before);
    floor.Stop();
    return row;
}

}  // namespace OrvLoad
