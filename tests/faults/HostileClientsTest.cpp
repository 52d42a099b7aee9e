// Goal: whoever connects to the Configuration service's port without knowing a password can send what he likes: nothing
// ends, hangs or grows without a limit, and those who know theirs are answered meanwhile. Method: connections that
// speak HTTP/2 by hand, seeded garbage, and a feed whose changes must go on arriving.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <random>
#include <regex>
#include <thread>
#include <vector>

#include "tests/e2e/Exchange.h"
#include "tests/faults/Http2Peer.h"
#include "tests/faults/ProcessFigures.h"
#include "tests/support/Effort.h"

namespace OrvTest {
namespace {

constexpr long kMegabyte = 1024;  // in kB

class HostileClients : public ::testing::Test {
protected:
    HostileClients() {
        exchange_.StartConfig();
        exchange_.Must({"feed", "add", "hold", "--type", "sorted", "--folder", "none"});
        exchange_.StartFeeder();
        std::smatch match;
        const std::string settings = ReadFileText(exchange_.Folder() / "orvctl.ini");
        if (std::regex_search(settings, match, std::regex("ConfPort=([0-9]+)"))) port_ = std::stoi(match[1]);
        client_.emplace(exchange_, "hold");
        // The descriptors of thousands of connections of ours.
        rlimit limit{};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    pid_t Config() { return exchange_.Config().Pid(); }

    // A change that an administrator makes arrives at the feed: the service answers, and its link stands.
    void ExpectServed(int milliseconds = 30'000) {
        const std::string volume = std::to_string(1 + changes_++ % 90);
        EXPECT_TRUE(Eventually(
            [&] {
                return exchange_.Ctl({"feed", "set", "hold", "--max-volume", volume}).exitCode == 0;
            },
            milliseconds));
        const std::string name = "probe" + std::to_string(changes_);
        exchange_.Must({"announcement", "add", name, "--file", "/none.wav"});
        EXPECT_TRUE(exchange_.WaitForLog("Announcement updated: " + name));
        EXPECT_TRUE(exchange_.LogTexts("Connection with configuration server is lost").empty());
    }
    void ExpectTheFeedPlaysOn() {
        const std::size_t heard = client_->Size();
        EXPECT_TRUE(client_->WaitForBytes(heard + 4 * Model::BlockBytes));
        EXPECT_TRUE(exchange_.Feeder().Running());
    }
    std::string Garbage(std::size_t size) {
        std::string bytes(size, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random_());
        return bytes;
    }
    std::size_t Below(std::size_t bound) { return random_() % bound; }

    // Something between nearly right and nonsense.
    std::string HostileBytes() {
        const std::string preface = Http2Peer::Preface();
        const std::string login = Http2Peer::LoginRequest("admin:wrong");
        switch (Below(12)) {
            case 0:
                return Garbage(Below(65536));
            case 1:
                return preface.substr(0, Below(preface.size()));
            case 2:
                return preface + Garbage(Below(4096));
            case 3: {  // frames of every type with any flags
                std::string bytes = preface;
                for (std::size_t i = Below(200); i > 0; --i) {
                    bytes += Http2Peer::Frame(static_cast<int>(Below(12)), static_cast<int>(Below(256)),
                                              static_cast<std::uint32_t>(Below(9)), Garbage(Below(40)));
                }
                return bytes;
            }
            case 4:  // a frame of 16 MB
                return preface + std::string("\xff\xff\xff", 3) + static_cast<char>(Below(10)) + Garbage(60'000);
            case 5:  // a login whose message is garbage
                return preface + Http2Peer::Headers(1, "/orv.vx.Link/Open") +
                       Http2Peer::Frame(0, 1, 1, Http2Peer::Prefix(500) + Garbage(500));
            case 6:  // a call of somebody who has not logged in
                return preface + Http2Peer::Headers(1, "/orv.vx.Link/Call") +
                       Http2Peer::Frame(0, 1, 1, Http2Peer::Prefix(300) + Garbage(300));
            case 7:
                return preface + Http2Peer::Headers(1, "/orv.vx.Link/" + std::string(Below(80), 'x')) +
                       Http2Peer::Frame(0, 1, 1, Garbage(Below(100)));
            case 8: {  // pings and settings without end
                std::string bytes = preface;
                for (int i = 0; i < 2000; ++i) {
                    bytes += Http2Peer::Frame(i % 2 == 0 ? 6 : 4, 0, 0, i % 2 == 0 ? Garbage(8) : Garbage(6));
                }
                return bytes;
            }
            case 9: {  // streams that are opened and given up
                std::string bytes = preface;
                for (std::uint32_t stream = 1; stream < 1000; stream += 2) {
                    bytes += Http2Peer::Headers(stream, "/orv.vx.Link/Open") +
                             Http2Peer::Frame(3, 0, stream, std::string(4, '\0'));
                }
                return bytes;
            }
            case 10: {  // headers that never end
                std::string bytes = preface + Http2Peer::Frame(1, 0, 1, Garbage(100));
                for (int i = 0; i < 10; ++i) bytes += Http2Peer::Frame(9, 0, 1, Garbage(16'000));
                return bytes;
            }
            default:
                return preface + login.substr(0, Below(login.size()));
        }
    }

    Exchange exchange_;
    std::optional<Client> client_;
    int port_ = 0;
    int changes_ = 0;
    std::mt19937 random_{20240531};
};

TEST_F(HostileClients, GarbageOfEveryKindHurtsNobody) {
    const int connections = Effort(400, 10'000);
    ExpectServed();
    const long memory = FigureOf(Config(), "VmRSS");
    const long threads = FigureOf(Config(), "Threads");
    const long descriptors = DescriptorsOf(Config());
    std::vector<Http2Peer> open;  // some stay
    for (int i = 0; i < connections; ++i) {
        Http2Peer peer(port_);
        peer.Send(HostileBytes());
        if (i % 3 == 0) peer.Receive(5);
        if (i % 5 == 0) open.push_back(std::move(peer));
        if (open.size() > 50) open.erase(open.begin());
        if (i % 200 == 199) ExpectServed();
    }
    open.clear();
    ExpectServed();
    ExpectTheFeedPlaysOn();
    ASSERT_TRUE(exchange_.Config().Running());
    EXPECT_TRUE(Eventually([&] { return DescriptorsOf(Config()) <= descriptors + 4; }, 30'000))
        << DescriptorsOf(Config()) << " descriptors, " << descriptors << " before";
    EXPECT_LE(FigureOf(Config(), "Threads"), threads + 8);
    const long grown = FigureOf(Config(), "VmHWM") - memory;
    std::printf("%d connections with garbage; memory grew by %ld kB at most\n", connections, grown);
    EXPECT_LT(grown, 256 * kMegabyte);
}

// gRPC takes in a message of any length as a whole before it looks at its limit.
TEST_F(HostileClients, HalfMessagesOfStrangersAreCutOffBeforeTheyTakeMemory) {
    ExpectServed();
    const long memory = FigureOf(Config(), "VmRSS");
    std::atomic<std::uint64_t> most{0};
    std::vector<std::thread> strangers;
    for (int i = 0; i < 16; ++i) {
        strangers.emplace_back([&] {
            for (int again = 0; again < Effort(4, 100); ++again) {
                Http2Peer peer(port_);
                const std::uint64_t sent = peer.SendHalfMessage(
                    Http2Peer::Preface() + Http2Peer::Headers(1, "/orv.vx.Link/Call"), 2'000'000'000, 1u << 30);
                std::uint64_t before = most.load();
                while (before < sent && !most.compare_exchange_weak(before, sent)) {
                }
            }
        });
    }
    ExpectServed();
    for (std::thread& stranger : strangers) stranger.join();
    const long grown = FigureOf(Config(), "VmHWM") - memory;
    std::printf("16 strangers with messages of 2 GB: the most that one could send was %llu kB; memory grew by %ld kB\n",
                static_cast<unsigned long long>(most.load() / 1024), grown);
    // A hash takes 32 of them, and most of what went lay in the sockets. Looked at only now and then, each stranger had
    // brought in up to 23 MB.
    EXPECT_LT(grown, 128 * kMegabyte);
    ExpectServed();
    ExpectTheFeedPlaysOn();
}

// Peers who send the right beginning of a login a byte a second, each until it is ended. On a thread of their own.
class SlowPeers {
public:
    enum From { Preface, Headers, Message, Kinds };  // the part that comes slowly; what stands before it comes at once

    SlowPeers(int port, int ofEach) : start_(std::chrono::steady_clock::now()) {
        const std::string preface = Http2Peer::Preface();
        const std::string headers = Http2Peer::Headers(1, "/orv.vx.Link/Open");
        // With the longest of its credentials the message alone takes more than two minutes.
        const std::string login = preface + Http2Peer::LoginRequest("admin:" + std::string(119, 'x'));
        const std::size_t begun[] = {0, preface.size(), preface.size() + headers.size()};
        for (int i = 0; i < ofEach * Kinds; ++i) {
            peers_.push_back({Http2Peer(port), i % Kinds, login.substr(begun[i % Kinds]), 0});
            EXPECT_TRUE(peers_.back().peer.Send(login.substr(0, begun[i % Kinds])));
            ++left_[i % Kinds];
        }
        thread_ = std::thread([this] { Run(); });
    }
    ~SlowPeers() { Stop(); }
    // How many of a kind are still connected.
    int Left(From kind) const { return left_[kind].load(); }
    // They go; afterwards the seconds that each one of a kind stayed can be asked for.
    void Stop() {
        stop_.store(true);
        if (thread_.joinable()) thread_.join();
    }
    std::vector<double> Stayed(From kind) const {
        std::vector<double> seconds;
        for (const Peer& each : peers_) {
            if (each.kind == kind) seconds.push_back(each.stayed);
        }
        return seconds;
    }

private:
    struct Peer {
        Http2Peer peer;
        int kind;
        std::string rest;
        double stayed;
        bool ended = false;
    };

    double Seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }
    void Run() {
        for (std::size_t second = 0; !stop_.load();) {
            const bool due = Seconds() >= static_cast<double>(second);
            for (Peer& each : peers_) {
                if (each.ended) continue;
                if (due && second < each.rest.size()) each.peer.Send(each.rest.substr(second, 1));
                int type = 0;
                while (type >= 0) type = each.peer.Receive(0).type;
                each.stayed = Seconds();
                each.ended = type == -1;
                if (each.ended) --left_[each.kind];
            }
            if (due) ++second;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        for (Peer& each : peers_) {
            Http2Peer gone = std::move(each.peer);
        }
    }

    const std::chrono::steady_clock::time_point start_;
    std::vector<Peer> peers_;
    std::array<std::atomic<int>, Kinds> left_{};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

// The network library's own listening ended for good when there was no descriptor for a connection.
TEST_F(HostileClients, ThousandsOfIdleConnectionsEndNeitherTheLinkNorTheListening) {
    const int connections = Effort(2'000, 8'000);
    ExpectServed();
    const long memory = FigureOf(Config(), "VmRSS");
    const long descriptors = DescriptorsOf(Config());
    SlowPeers slow(port_, 20);
    std::vector<Http2Peer> idle;
    for (int i = 0; i < connections; ++i) {
        idle.emplace_back(port_);
        ASSERT_TRUE(idle.back().Connected()) << i;
    }
    const long held = DescriptorsOf(Config());
    EXPECT_LT(held, 1024) << "the service has descriptors left for itself";
    ExpectTheFeedPlaysOn();
    EXPECT_TRUE(exchange_.LogTexts("Connection with configuration server is lost").empty());
    // Who says nothing is dropped after 10 s; then whoever comes is served again, while the others still try.
    ExpectServed(60'000);
    EXPECT_TRUE(Eventually([&] { return slow.Left(SlowPeers::Preface) == 0; }, 30'000));
    idle.clear();
    // Who is in the midst of a login may take a minute; only a long run waits for it.
    const bool waits = Effort(0, 1) != 0;
    EXPECT_TRUE(!waits || Eventually([&] { return slow.Left(SlowPeers::Headers) + slow.Left(SlowPeers::Message) == 0; },
                                     120'000));
    ExpectServed();
    slow.Stop();
    for (const SlowPeers::From kind : {SlowPeers::Preface, SlowPeers::Headers, SlowPeers::Message}) {
        const std::vector<double> seconds = slow.Stayed(kind);
        const auto [first, last] = std::minmax_element(seconds.begin(), seconds.end());
        std::printf("slow from part %d of a login on: %d of %zu left after %.1f to %.1f s\n", kind, slow.Left(kind),
                    seconds.size(), *first, *last);
        const bool ended = slow.Left(kind) < 20;
        EXPECT_GE(*first, !ended ? 0 : kind == SlowPeers::Preface ? 9 : 55) << "what they sent was right";
        EXPECT_LE(*last, kind == SlowPeers::Preface ? 50 : 120);
    }
    EXPECT_TRUE(Eventually([&] { return DescriptorsOf(Config()) <= descriptors + 4; }, 30'000));
    const long grown = FigureOf(Config(), "VmHWM") - memory;
    std::printf("%d idle connections: %ld descriptors held at most; memory grew by %ld kB at most\n", connections, held,
                grown);
    EXPECT_LT(grown, 256 * kMegabyte);
    ExpectServed();
}

}  // namespace
}  // namespace OrvTest
