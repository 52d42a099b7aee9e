// Goal: who guesses passwords on the Configuration service's port gets nowhere fast, takes little of the machine, and
// keeps nobody waiting who knows his. Method: ten peers, each from an address of its own, guess as fast as they are
// answered, while others log in.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

#include "tests/e2e/Exchange.h"
#include "tests/faults/Http2Peer.h"
#include "tests/faults/Neighbour.h"
#include "tests/faults/ProcessFigures.h"
#include "tests/support/Effort.h"

namespace OrvTest {
namespace {

using Clock = std::chrono::steady_clock;
using Answer = Http2Peer::Answer;

constexpr int kPeers = 10;
constexpr long kOneHashKilobytes = 32 * 1024;
constexpr long kRightLoginMilliseconds = 2000;
constexpr double kCalmMilliseconds = 100;  // by which a calm machine is late at worst

long MillisecondsSince(Clock::time_point begin) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count());
}

class Logins : public ::testing::Test {
protected:
    Logins() {
        exchange_.StartConfig();
        std::smatch match;
        const std::string settings = ReadFileText(exchange_.Folder() / "orvctl.ini");
        if (std::regex_search(settings, match, std::regex("ConfPort=([0-9]+)"))) port_ = std::stoi(match[1]);
    }
    // The milliseconds that a right login takes; -1 when it fails.
    long LogIn(const std::string& credentials, const std::string& from) const {
        const auto begin = Clock::now();
        Http2Peer peer(port_, from);
        return peer.Login(credentials, 60'000) == Answer::Welcomed ? MillisecondsSince(begin) : -1;
    }
    std::vector<std::string> ConfigLog() const {
        std::vector<std::string> lines;
        std::istringstream text(ReadFileText(exchange_.Folder() / "config.log"));
        for (std::string line; std::getline(text, line);) lines.push_back(line);
        return lines;
    }
    void AddUser(const std::string& name) const {
        const std::string file = exchange_.Folder() / "new.password";
        WriteFileText(file, name + "-password");
        exchange_.Own(file);
        exchange_.Must({"user", "add", name, "--role", "reader", "--new-password-file", file});
    }

    Exchange exchange_;
    int port_ = 0;
};

TEST_F(Logins, TenPeersWhoGuessAreSlowedDownAndKeepNobodyWaiting) {
    const int guesses = Effort(10, 100);  // of each peer
    for (const char* name : {"late", "later"}) AddUser(name);
    ASSERT_GE(LogIn("feeder:feeder-password", "127.0.0.1"), 0);
    const long calm = LogIn("later:later-password", "127.0.0.1");  // with a hash of its own
    ASSERT_GE(calm, 0);
    const long memory = FigureOf(exchange_.Config().Pid(), "VmHWM");

    std::atomic<int> guessing{kPeers};
    std::atomic<int> tooEarly{0};
    std::atomic<int> otherwise{0};
    std::vector<std::thread> peers;
    for (int peer = 0; peer < kPeers; ++peer) {
        peers.emplace_back([&, peer] {
            const std::string from = "127.0.0." + std::to_string(10 + peer);
            const auto begin = Clock::now();
            for (int guess = 1; guess <= guesses; ++guess) {
                const std::string user = guess % 3 == 0 ? "nobody" : "admin";
                Http2Peer connection(port_, from);
                const Answer answer = connection.Login(user + ":guess" + std::to_string(guess), 60'000);
                if (answer != Answer::Refused) ++otherwise;
                // The fourth is the first that takes its turn; each one after it is a second later at least.
                if (MillisecondsSince(begin) < (guess - 4) * 1000L) ++tooEarly;
            }
            --guessing;
        });
    }
    const SleepWitness machine;
    long slowest = 0;
    int tooSlow = 0;
    int right = 0;
    long first = -1;
    while (guessing > 0) {
        // From an address of its own, and from that of a peer who guesses.
        const auto begin = Clock::now();
        const long took = LogIn("feeder:feeder-password", right % 2 == 0 ? "127.0.0.1" : "127.0.0.12");
        EXPECT_GE(took, 0) << "a right login is welcomed";
        slowest = std::max(slowest, took < 0 ? 60'000 : took);
        const double late = machine.WorstAround(begin, Clock::now());
        // Nothing is added on a calm machine.
        if (took >= kRightLoginMilliseconds + (late < kCalmMilliseconds ? 0 : 2 * static_cast<long>(late))) ++tooSlow;
        if (++right == 10) first = LogIn("late:late-password", "127.0.0.1");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    for (std::thread& peer : peers) peer.join();
    const long grown = FigureOf(exchange_.Config().Pid(), "VmHWM") - memory;
    std::printf(
        "%d wrong logins of %d peers; %d right ones meanwhile, the slowest took %ld ms; the first of a user %ld ms "
        "(%ld ms when it was calm); memory grew by %ld kB at most; the machine was late by %.0f ms at most\n",
        kPeers * guesses, kPeers, right, slowest, first, calm, grown, machine.WorstMilliseconds());

    EXPECT_EQ(otherwise, 0) << "every wrong login is answered with a refusal";
    EXPECT_EQ(tooEarly, 0);
    EXPECT_GE(right, 10);
    EXPECT_EQ(tooSlow, 0) << "the slowest took " << slowest << " ms";
    EXPECT_GE(first, 0);
    // It waits for the hash under way and for those that came before it, one of each peer at most. 2 s, unless the
    // machine is slow at hashing just now.
    EXPECT_LT(first, std::max(kRightLoginMilliseconds, (kPeers + 2) * calm));
    // The first hash is in the figure before; a second one beside it would need as much again.
    EXPECT_LT(grown, kOneHashKilobytes - 8 * 1024) << "one hash at a time";

    std::vector<int> told(kPeers, 0);
    const std::regex dated("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:.]{12} (Info |Warn |Error) .*|orv-config: listening on .*");
    for (const std::string& line : ConfigLog()) {
        EXPECT_TRUE(std::regex_match(line, dated)) << line;
        EXPECT_EQ(line.find("guess"), std::string::npos) << "what was guessed is not told: " << line;
        for (int peer = 0; peer < kPeers; ++peer) {
            const std::string who = "Wrong credentials from 127.0.0." + std::to_string(10 + peer) + ":";
            if (line.find(who) != std::string::npos) ++told[static_cast<std::size_t>(peer)];
        }
    }
    for (const int lines : told) EXPECT_EQ(lines, guesses) << "one line of the log for each";
}

}  // namespace
}  // namespace OrvTest
