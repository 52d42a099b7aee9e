// Goal: a program that takes no signals costs the Configuration service a bounded amount of memory, and nobody else
// anything. Method: rebuilds of many feeds at a time, whose signals are large; one client reads them, another does not.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "tests/e2e/Exchange.h"
#include "tests/faults/Tables.h"
#include "tests/support/Effort.h"

namespace OrvTest {
namespace {

// Megabytes of memory of a process.
double Resident(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/statm");
    double all = 0;
    double resident = 0;
    file >> all >> resident;
    return resident * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1048576.0;
}

std::vector<Orv::Change> Each(int feeds, Orv::Action action) {
    std::vector<Orv::Change> changes;
    for (int i = 0; i < feeds; ++i) changes.push_back({"AUDIOFEED", action, 0, "f" + std::to_string(i), {}});
    return changes;
}

TEST(SlowSubscriber, WhatWaitsForItIsBoundedAndNobodyElseWaits) {
    const int feeds = Effort(2000, 10000);
    const bool untilTheEnd = Effort(0, 1) != 0;
    Exchange exchange;
    exchange.StartConfig();
    TableClient writer(exchange.Port());
    ASSERT_TRUE(writer.Apply(Each(feeds, Orv::Action::Put)));
    const std::vector<Orv::Change> rebuilds = Each(feeds, Orv::Action::Rebuild);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(writer.Apply(rebuilds));  // so that the memory for the requests is there

    TableClient prompt(exchange.Port());
    TableClient slow(exchange.Port());
    slow.ShutGate();
    const std::string ended = "does not take its signals";
    const double before = Resident(exchange.Config().Pid());
    double most = before;
    std::size_t transactions = 0;
    // More than the 4 MB that the transport takes by itself, so that the queue is used.
    const std::size_t limit = untilTheEnd ? 5000 : 350;
    while (transactions < limit && exchange.ConfigText().find(ended) == std::string::npos) {
        ASSERT_TRUE(writer.Apply(rebuilds));
        ++transactions;
        most = std::max(most, Resident(exchange.Config().Pid()));
    }
    ASSERT_TRUE(Eventually([&] { return prompt.SignalCount() == transactions; }));
    std::printf("%zu transactions, %zu bytes of ids each: %.1f MB before, %.1f MB at most\n", transactions,
                static_cast<std::size_t>(feeds) * 8, before, most);
    // The bound, and half of it for the transport and the heap.
    EXPECT_LT(most - before, 96.0);
    EXPECT_FALSE(prompt.Closed());
    EXPECT_EQ(slow.SignalCount(), 0u);
    slow.OpenGate();
    if (untilTheEnd) {
        EXPECT_LT(transactions, limit) << "it was never disconnected";
        EXPECT_TRUE(Eventually([&] { return slow.Closed(); }));
        EXPECT_LT(slow.SignalCount(), transactions);
    } else {
        EXPECT_TRUE(Eventually([&] { return slow.SignalCount() == transactions; }));
        EXPECT_FALSE(slow.Closed());
    }
    // What it was told before its end is the beginning of what the others were told.
    const std::vector<std::string> all = prompt.Signals();
    const std::vector<std::string> some = slow.Signals();
    EXPECT_TRUE(std::equal(some.begin(), some.end(), all.begin()));
}

}  // namespace
}  // namespace OrvTest
