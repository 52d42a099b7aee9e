// Goal: clients that come and go in masses harm nobody and leave nothing behind: who listens hears every sample, and
// after them, and after as many changes, the service takes what it took before. Method: 20 feeds with a listener each;
// threads, descriptors and memory by the kernel's count.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <set>

#include "tests/faults/Feeds.h"
#include "tests/support/Effort.h"

namespace fs = std::filesystem;

namespace OrvTest {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kFeeds = 20;
constexpr long kMemoryKilobytes = 1024;
// How much gRPC's pools may have grown.
constexpr long kPoolThreads = 4;

// Connects round the feeds, in bursts that a pump, which takes one client in each pass, cannot take at once, so that
// they queue. One in ten stays for a while and reads; the others leave at once.
class Flood {
public:
    Flood(const Exchange& exchange, Chance& chance) : exchange_(exchange), chance_(chance) {}
    ~Flood() {
        for (const Guest& guest : guests_) ::close(guest.socket);
    }

    // `burst` at once to each feed.
    void Run(int connects, milliseconds duration, int burst) {
        const auto begin = steady_clock::now();
        for (int i = 0; i < connects; ++i) {
            const int together = i - i % (burst * kFeeds);
            while (steady_clock::now() - begin < duration * together / connects) Read();
            const int socket = TryConnect(exchange_.PipeFile(Feeds::Name(i % kFeeds)));
            if (socket < 0) {
                ++refused_;
            } else if (chance_.Below(10) == 0) {
                guests_.push_back({socket, steady_clock::now() + milliseconds(chance_.Between(100, 3000))});
            } else {
                ::close(socket);
            }
        }
        while (!guests_.empty()) Read();
    }
    int Refused() const { return refused_; }
    long BytesRead() const { return bytes_; }

private:
    struct Guest {
        int socket;
        steady_clock::time_point leaves;
    };
    void Read() {
        const auto now = steady_clock::now();
        char bytes[8192];
        for (auto guest = guests_.begin(); guest != guests_.end();) {
            for (ssize_t count = 0; (count = ::recv(guest->socket, bytes, sizeof bytes, MSG_DONTWAIT)) > 0;) {
                bytes_ += count;
            }
            if (now < guest->leaves) {
                ++guest;
                continue;
            }
            ::close(guest->socket);
            guest = guests_.erase(guest);
        }
        ::poll(nullptr, 0, 2);
    }

    const Exchange& exchange_;
    Chance& chance_;
    std::vector<Guest> guests_;
    int refused_ = 0;
    long bytes_ = 0;
};

class ClientFlood : public testing::Test {
protected:
    ClientFlood() {
        exchange_.StartConfig();
        feeds_ = std::make_unique<Feeds>(exchange_, kFeeds);
        filesBefore_ = Files();
        exchange_.StartFeeder();
        machine_.emplace();
        listeners_ = feeds_->Listen();
    }
    // All that lies in the exchange's folder but the service's log.
    std::set<std::string> Files() const {
        std::set<std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(exchange_.Folder().Path())) {
            if (entry.path().string().find("/Data/Logs/") == std::string::npos) files.insert(entry.path());
        }
        return files;
    }

    Exchange exchange_;
    std::unique_ptr<Feeds> feeds_;
    std::set<std::string> filesBefore_;
    std::optional<SleepWitness> machine_;
    std::vector<std::unique_ptr<Client>> listeners_;
    Chance chance_;
};

TEST_F(ClientFlood, ThousandsOfConnectsTakeNoSampleFromWhoListensAndLeaveNothingBehind) {
    const int connects = Effort(2000, 10000);
    ASSERT_TRUE(WaitForAll(listeners_, 16));
    const Footprint before = SteadyFootprintOf(exchange_.Feeder().Pid());
    Flood flood(exchange_, chance_);
    const auto begin = steady_clock::now();
    flood.Run(connects, milliseconds(6 * connects), Effort(50, 125));  // 10,000 in a minute
    const auto flooded = steady_clock::now();
    EXPECT_EQ(flood.Refused(), 0);

    // A feed takes one at each pass of its pump, also those that have left.
    const auto taken = [&] { return exchange_.LogTexts("]:New pipe connected ID=").size(); };
    const auto wanted = static_cast<std::size_t>(connects - flood.Refused() + kFeeds);
    EXPECT_TRUE(Eventually(
        [&] {
            std::this_thread::sleep_for(milliseconds(500));
            return taken() == wanted;
        },
        60000))
        << taken() << " of " << wanted;
    const auto drained = steady_clock::now();
    const Footprint after = SteadyFootprintOf(exchange_.Feeder().Pid(), before.descriptors);
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.ownThreads, before.ownThreads);
    EXPECT_LE(after.threads, before.threads + kPoolThreads);
    // A client's descriptor is closed before its line is written.
    EXPECT_TRUE(exchange_.WaitForLog("Connection closed. ID=", 10000, wanted - kFeeds));
    EXPECT_EQ(exchange_.LogTexts("Connection closed. ID=").size(), wanted - kFeeds);
    const auto least =
        static_cast<std::size_t>(std::chrono::duration_cast<milliseconds>(drained - begin).count() / 125);
    ASSERT_TRUE(WaitForAll(listeners_, least));
    feeds_->ExpectAllExact(listeners_, least, *machine_);
    const double late = feeds_->ExpectInTime(listeners_, *machine_);
    std::printf(
        "%d connects in %ld ms, all taken after %ld ms more; worst lateness of a listener %.0f ms, of the machine "
        "%.0f ms; %ld bytes read by those that stayed; private memory %ld KB before, %ld KB after\n",
        connects, static_cast<long>(std::chrono::duration_cast<milliseconds>(flooded - begin).count()),
        static_cast<long>(std::chrono::duration_cast<milliseconds>(drained - flooded).count()), late,
        machine_->WorstMilliseconds(), flood.BytesRead(), before.privateDirtyKilobytes, after.privateDirtyKilobytes);
    EXPECT_EQ(exchange_.Feeder().Stop(20000), 0);
}

// Rows of feeds, announcements and parameters change in transactions of 50 rows, and end as they began.
TEST_F(ClientFlood, AThousandChangesAndAThousandClientsLeaveThreadsDescriptorsAndMemoryAsTheyWere) {
    const int changes = Effort(1000, 10000);
    const int clients = Effort(1000, 10000);
    constexpr int kRows = 50;
    const auto rows = [](int state) {
        Json all;
        for (int i = 0; i < 20; ++i) {
            const std::string number = std::to_string(i);
            all["announcements"].push_back(
                {{"name", "a" + number}, {"file", "/" + number + "-" + std::to_string(state)}, {"kind", "over"}});
            if (i < 18) all["parameters"].push_back({{"name", "X" + number}, {"value", std::to_string(state)}});
        }
        // Two of the twelve feeds without listeners are built anew each time, the others change their level.
        for (int i = 0; i < 12; ++i) {
            Json feed{{"pipe", "idle" + std::to_string(i)}, {"type", "default"}, {"max-volume", 10 + state % 80}};
            if (i < 2) feed["nonstop"] = state % 2 == 1;
            all["feeds"].push_back(feed);
        }
        return all.dump();
    };
    exchange_.Must({"apply", "-"}, rows(0));
    ASSERT_TRUE(exchange_.WaitForLog("Channel  as idle11[32]:Started"));
    // Every feed has played its file once and opened it anew.
    ASSERT_TRUE(WaitForAll(listeners_, 56));
    const Footprint before = SteadyFootprintOf(exchange_.Feeder().Pid());

    std::thread visitors([&] {
        Flood flood(exchange_, chance_);
        flood.Run(clients, milliseconds(6 * clients), 1);
        EXPECT_EQ(flood.Refused(), 0);
    });
    for (int step = changes / kRows - 1; step >= 0; --step) exchange_.Must({"apply", "-"}, rows(step));
    visitors.join();
    exchange_.Must({"announcement", "add", "last", "--file", "/last.wav", "--kind", "over"});
    exchange_.Must({"announcement", "remove", "last"});
    ASSERT_TRUE(exchange_.WaitForLog("Announcement delete: last", 60000));
    const auto changed = exchange_.LogTexts("Announcement updated: a").size();
    EXPECT_EQ(changed, static_cast<std::size_t>(20 * (changes / kRows + 1)));
    const Footprint after = SteadyFootprintOf(exchange_.Feeder().Pid(), before.descriptors);
    EXPECT_EQ(after.ownThreads, before.ownThreads);
    EXPECT_LE(after.threads, before.threads + kPoolThreads);
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_LE(after.privateDirtyKilobytes, before.privateDirtyKilobytes + kMemoryKilobytes);
    const std::size_t least = listeners_[0]->Size() / Model::BlockBytes;
    ASSERT_TRUE(WaitForAll(listeners_, least));
    feeds_->ExpectAllExact(listeners_, least, *machine_);
    const double late = feeds_->ExpectInTime(listeners_, *machine_);

    EXPECT_EQ(exchange_.Feeder().Stop(20000), 0);
    EXPECT_EQ(exchange_.Config().Stop(20000), 0);
    EXPECT_EQ(ProcessesNaming(exchange_.Folder().Path()), std::vector<std::string>());
    EXPECT_TRUE(fs::is_empty(exchange_.PipeFolder())) << "a socket is left";
    std::vector<std::string> left;
    for (const std::string& file : Files()) {
        const std::string name = file.substr(exchange_.Folder().Path().size() + 1);
        const bool ours = name == "OrvPhoneSystem.ini" || name.rfind("feeder.", 0) == 0 || name.rfind("bin/", 0) == 0;
        if (!filesBefore_.contains(file) && !ours && name != "p") left.push_back(name);
    }
    EXPECT_EQ(left, std::vector<std::string>()) << "files are left";
    std::printf(
        "%d changes, %d clients: %ld and %ld threads, %ld and %ld descriptors, %ld and %ld KB of private "
        "memory before and after; worst lateness of a listener %.0f ms, of the machine %.0f ms\n",
        changes, clients, before.threads, after.threads, before.descriptors, after.descriptors,
        before.privateDirtyKilobytes, after.privateDirtyKilobytes, late, machine_->WorstMilliseconds());
}

}  // namespace
}  // namespace OrvTest
