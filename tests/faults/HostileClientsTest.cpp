// Goal: whoever connects to the Configuration service's port without knowing a password can send what he likes: nothing
// ends, hangs or grows without a limit, and those who know theirs are answered meanwhile. Method: connections that
// speak HTTP/2 by hand, seeded garbage, and a feed whose changes must go on arriving.
#include <gtest/gtest.h>
#include <sys/resource.h>

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

// The network library's own listening ended for good when there was no descriptor for a connection.
TEST_F(HostileClients, ThousandsOfIdleConnectionsEndNeitherTheLinkNorTheListening) {
    const int connections = Effort(2'000, 8'000);
    ExpectServed();
    const long memory = FigureOf(Config(), "VmRSS");
    const long descriptors = DescriptorsOf(Config());
    std::vector<Http2Peer> slow;  // half a preface, byte by byte
    std::vector<Http2Peer> idle;
    for (int i = 0; i < 20; ++i) slow.emplace_back(port_);
    for (int i = 0; i < connections; ++i) {
        idle.emplace_back(port_);
        ASSERT_TRUE(idle.back().Connected()) << i;
        if (i % 100 == 0) {
            for (const Http2Peer& peer : slow)
                peer.Send(Http2Peer::Preface().substr(static_cast<std::size_t>(i / 100) % 20, 1));
        }
    }
    const long held = DescriptorsOf(Config());
    EXPECT_LT(held, 1024) << "the service has descriptors left for itself";
    ExpectTheFeedPlaysOn();
    EXPECT_TRUE(exchange_.LogTexts("Connection with configuration server is lost").empty());
    // Who says nothing is dropped after 10 s; then whoever comes is served again, while the others still try.
    ExpectServed(60'000);
    for (Http2Peer& peer : slow) EXPECT_TRUE(peer.WaitForEnd(30'000));
    idle.clear();
    EXPECT_TRUE(Eventually([&] { return DescriptorsOf(Config()) <= descriptors + 4; }, 30'000));
    const long grown = FigureOf(Config(), "VmHWM") - memory;
    std::printf("%d idle connections: %ld descriptors held at most; memory grew by %ld kB at most\n", connections, held,
                grown);
    EXPECT_LT(grown, 256 * kMegabyte);
    ExpectServed();
}

}  // namespace
}  // namespace OrvTest
