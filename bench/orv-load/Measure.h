// One measured stretch of a process that serves pipes, with clients on them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bench/orv-load/Exchange.h"
#include "bench/orv-load/ProcessCost.h"
#include "bench/orv-load/ServiceLog.h"

namespace OrvLoad {

using Json = nlohmann::ordered_json;

double Rounded(double value, int digits);
double Milliseconds(i64 nanoseconds);  // to a tenth

struct MeasureOptions {
    double seconds = 30;            // that are measured
    double settle = 5;              // between the last client's first block and the first that counts
    i64 period = 2 * kMillisecond;  // see Listeners
    bool paced = false;             // clients that take one block each 125 ms, see Seat
};

// Settles, then measures. `before` is the machine without the process. All figures "per feed" divide by `feeds`.
// `log`, if any, is the service's: then it is told which reads came late.
Json Measure(const MeasureOptions& options, pid_t process, u32 feeds, Listeners& listeners, const Machine& before,
             const ServiceLog* log = nullptr);

// A service with `exchange.feeds` feeds and `clients` clients on them, from its start to its end.
Json MeasureService(const MeasureOptions& options, const ExchangeOptions& exchange, u32 clients);
// The floor of as many threads, in a process of its own, with `clients` clients.
Json MeasureFloor(const MeasureOptions& options, u32 threads, u32 clients);

// Attaches a client to each seat and waits for its first block; throws when one gets none.
void AttachAll(Listeners& listeners, std::vector<Seat> seats);

}  // namespace OrvLoad
