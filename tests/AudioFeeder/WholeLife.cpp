#include "tests/AudioFeeder/WholeLife.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "AudioFeeder/AudioFeederHost.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/Preload.h"
#include "AudioFeeder/SharedValues.h"
#include "ConfigClient/ConfigConnection.h"
#include "ConfigClient/ObjectList.h"
#include "Platform/LocalServer.h"
#include "Platform/sim/SimFailures.h"
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "ServiceProcess/Log.h"
#include "ServiceProcess/ProcessEntry.h"
#include "ServiceProcess/ServiceHost.h"

namespace FeederTest {

const std::vector<std::string> LifeFeeds{"sorted", "shuffled", "default", "talking", "held", "late", "batched"};
const std::vector<std::string> LifeTestThreads{"driver", "listener"};

namespace {

constexpr char kSettings[] =
    "[General]\nAppDataPath=/data\nStatusPath=/run/status\nPreloadFiles=\"Playlist/held\"\n"
    "[ConfService]\nconfNIC=10.0.0.1\nConfPort=5060\nconfUser=feeder\nconfPass=secret\n";
constexpr const char* kTables[] = {"AUDIOFEED", "AUDIOFEEDCONTENT", "ANNOUNCEMENT", "PARAMETER"};
constexpr u32 kWatchdogMilliseconds = 30'000;

// Every draw has its least outcome.
class LeastDraws : public Orv::IRandomSource {
public:
    LeastDraws() { Orv::SetRandomSource(this); }
    ~LeastDraws() override { Orv::SetRandomSource(nullptr); }
    u32 Next() override { return 1; }
};

// A link on which connecting and calling can fail. A call that fails ends its connection.
class FallibleConnector : public VX::ILinkConnector {
public:
    explicit FallibleConnector(VX::ILinkConnector& connector) : connector_(connector) {}
    std::unique_ptr<VX::ILink> Connect(const std::string& host, u32 port, const std::string& credentials,
                                       VX::ILinkEvents& events, VX::PeerInfo& peer, bool& authFailed) override {
        authFailed = false;
        if (Platform::Sim::Failures().Fails(Platform::Sim::Operation::Other, "link connect")) return nullptr;
        auto link = connector_.Connect(host, port, credentials, events, peer, authFailed);
        return link != nullptr ? std::make_unique<Link>(std::move(link)) : nullptr;
    }

private:
    class Link : public VX::ILink {
    public:
        explicit Link(std::unique_ptr<VX::ILink> link) : link_(std::move(link)) {}
        bool Call(u32 number, const VX::ParamListHolder& request, VX::ParamListHolder& reply) override {
            reply = {};
            if (Platform::Sim::Failures().Fails(Platform::Sim::Operation::Other, "link call")) {
                link_->Close();
                return false;
            }
            return link_->Call(number, request, reply);
        }
        void Close() override { link_->Close(); }

    private:
        std::unique_ptr<VX::ILink> link_;
    };

    VX::ILinkConnector& connector_;
};

void PutFeed(FakeConfigService& config, i32 id, const char* name, i32 type, i32 announcements = 0, i32 volume = 0) {
    config.Put("AUDIOFEED", id,
               {{"idaudiofeed", id},
                {"pipename", name},
                {"thename", name},
                {"feedtype", type},
                {"playannouncements", announcements},
                {"minannouncementpause", 1},
                {"maxannouncementpause", 1},
                {"maxvolume", volume}});
}

void Furnish(Platform::Sim::Simulation& sim, FakeConfigService& config) {
    Platform::Sim::SimFiles& files = sim.Files();
    files.AddFile("/Bin/OrvPhoneSystem.ini", kSettings);
    files.AddFolder("/var/lib/Orv");
    u32 seed = 1;
    // Two files, so that there is a change from one to the next: 9,000 and 11,000 samples.
    for (const char* feed : {"sorted", "shuffled", "talking", "held", "late", "batched", "gone"}) {
        const std::string folder = std::string("/root/Playlist/") + feed + "/";
        files.AddFile(folder + feed + "1.wav", WavBytes(Noise(9'000, seed++)));
        if (std::strcmp(feed, "sorted") == 0) files.AddFile(folder + feed + "2.raw", RawBytes(Noise(11'000, seed++)));
    }
    files.AddFile("/root/default.raw", RawBytes(Noise(17'000, seed++)));
    files.AddFile("/root/talking.raw", RawBytes(Noise(3'000, seed++)));
    config.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    config.PutParameter(2, "IVRPROMPTPATH", "/root");
    config.PutParameter(3, "DEFAULTAUDIOFILE", "/root/default.raw");
    PutFeed(config, 1, "sorted", 3);
    PutFeed(config, 2, "shuffled", 2);
    PutFeed(config, 3, "default", 0);
    PutFeed(config, 4, "talking", 3, 1);
    PutFeed(config, 5, "held", 3);
    PutFeed(config, 6, "gone", 3);
    config.Put("ANNOUNCEMENT", 1,
               {{"idannouncement", 1}, {"thename", "b"}, {"thetype", 0}, {"thefile", "/root/talking.raw"}});
}

std::string TextOfRow(HVXPARAMLIST row) {
    std::string text;
    for (VXParamRecord record = VXGetFirstParam(row); record != nullptr; record = VXGetNextParam(row, record)) {
        const char* key = VXRecordKey(record);
        const char* value = VXGetStringValue(row, key);
        text += std::string(key) + "=" + (value != nullptr ? value : std::to_string(VXGetInt32Value(row, key))) + ";";
    }
    return text;
}

std::vector<std::string> CompareTables(FakeConfigService& config) {
    std::vector<std::string> faults;
    for (const char* table : kTables) {
        const auto list = ConfigConnection::GetList(table);
        if (!list.IsValid()) {
            faults.push_back(std::string(table) + " is not there");
            continue;
        }
        std::vector<i32> ids;
        list->GetIds(ids);
        std::vector<i32> wanted;
        for (const auto& [id, row] : config.Rows(table)) wanted.push_back(id);
        std::sort(ids.begin(), ids.end());
        if (ids != wanted) faults.push_back(std::string(table) + " has other ids");
        for (const auto& [id, row] : config.Rows(table)) {
            const std::string had = TextOfRow(list->GetRow(id).Get());
            if (had != TextOfRow(row.Get())) faults.push_back(std::string(table) + " has " + had);
        }
    }
    return faults;
}

class Driver {
public:
    Driver(Platform::Sim::Simulation& sim, FakeConfigService& config, bool asService, LifeStory& story)
        : sim_(sim), config_(config), asService_(asService), story_(story) {}

    void Drive() {
        // At whole tenths of a second, as the pumps nap: a connection that comes at the second try changes no phase.
        // What follows happens between the ticks of pumps and boxes, so that their order is always the same.
        for (int tries = 0; tries < 250 && !ended && *ConfigConnection::GetServerName() == '\0'; ++tries) Sleep(100);
        Sleep(1'033);
        std::map<std::string, std::unique_ptr<Listener>> listeners;
        const auto listen = [&](const char* pipe) {
            if (sim_.Pipes().IsServed(pipe)) listeners[pipe] = std::make_unique<Listener>(pipe);
        };
        for (const char* pipe : {"sorted", "shuffled", "default", "talking", "held", "gone"}) listen(pipe);
        Sleep(3'011);
        Change();
        Sleep(1'013);
        for (const char* pipe : {"late", "batched"}) listen(pipe);
        Sleep(4'017);
        for (const auto& [pipe, listener] : listeners) story_.heard[pipe] = listener->Heard();
        LookBeforeTheEnd();
        listeners.clear();
        if (ended) return;
        if (asService_) {
            sim_.Service().SendControl(1);
        } else {
            sim_.SendStopSignal();
        }
    }

    bool ended = false;

private:
    void Change() {
        if (ended) return;
        PutFeed(config_, 1, "sorted", 3, 0, 100);
        config_.Tell("AUDIOFEED", "Updated", 1);
        PutFeed(config_, 2, "shuffled", 3);
        config_.Tell("AUDIOFEED", "Updated", 2);
        PutFeed(config_, 7, "late", 3);
        config_.Tell("AUDIOFEED", "Inserted", 7);
        config_.Put("ANNOUNCEMENT", 2,
                    {{"idannouncement", 2}, {"thename", "a"}, {"thetype", 1}, {"thefile", "\\\\.\\pipe\\held"}});
        config_.Tell("ANNOUNCEMENT", "Inserted", 2);
        PutFeed(config_, 8, "batched", 3);
        config_.Erase("AUDIOFEED", 6);
        config_.TellTransaction(1, "AUDIOFEED", {6}, {8});
    }

    void LookBeforeTheEnd() {
        if (ended) return;
        story_.served = sim_.Pipes().ServedNames();
        for (const std::string& pipe : story_.served) story_.heardLast[pipe] = Client(pipe).ReadBlocks(4).size();
        Platform::SystemError error = 0;
        Platform::AskLocalServer("/run/status", "GET /status HTTP/1.0\r\n\r\n", 1'000, 1 << 20, story_.state, error);
        story_.tableFaults = CompareTables(config_);
    }

    Platform::Sim::Simulation& sim_;
    FakeConfigService& config_;
    const bool asService_;
    LifeStory& story_;
};

std::string LeftOver(Platform::Sim::Simulation& sim) {
    const auto files = sim.Files().Counters();
    const auto pipes = sim.Pipes().Counters();
    std::string text;
    for (const auto& [what, count] :
         {std::pair{"files", files.filesAlive}, std::pair{"reads", files.readRecordsAlive},
          std::pair{"searches", files.searchesAlive}, std::pair{"pipes", pipes.endpointsAlive},
          std::pair{"instances", pipes.instancesAlive}, std::pair{"clients", pipes.clientsAlive}}) {
        if (count != 0) text += std::to_string(count) + " " + what + " ";
    }
    for (const std::string& thread : sim.ThreadNames()) {
        if (thread != "main") text += "thread " + thread + " ";
    }
    return text;
}

}  // namespace

u64 LifeStory::CountLog(const std::string& part) const {
    return static_cast<u64>(std::count_if(
        log.begin(), log.end(), [&](const LogLine& line) { return line.text.find(part) != std::string::npos; }));
}

LifeStory Live(bool asService, const std::function<void()>& begin, const std::function<void(i32)>& end) {
    LifeStory story;
    LeastDraws draws;
    Platform::Sim::Simulation sim;
    FakeConfigService config;
    FallibleConnector connector(config.Exchange());
    VXSetConnector(&connector);
    Furnish(sim, config);
    sim.Service().RunAsService(asService);
    if (asService) sim.Service().SetWatchdog(kWatchdogMilliseconds);
    sim.Run([&] {
        Orv::channelsStopping.store(false);
        Orv::LogWriter::Instance().SetLogLevel(3);
        Driver driver(sim, config, asService, story);
        Platform::Thread driving("driver", [&] { driver.Drive(); });
        char program[] = "orv-audio-feed";
        char option[] = "-c";
        char settings[] = "/Bin/OrvPhoneSystem.ini";
        char* arguments[] = {program, option, settings, nullptr};
        begin();
        story.exitCode = Orv::ProcessEntry(3, arguments, &Orv::MakeAudioFeederHost);
        driver.ended = true;
        end(story.exitCode);
        driving.Join();
        if (sim.Files().Exists("/data/Data/Logs")) story.log = ReadLog("/data/Data/Logs");
        Orv::LogWriter::Instance().CloseLog();
        Orv::ClearServices();
        story.leftOver = LeftOver(sim);
        for (const auto& status : sim.Service().Statuses()) story.states.push_back(status.currentState);
        if (Orv::IPipeManager::Existing().IsValid()) Orv::IPipeManager::Instance() = nullptr;
        Orv::channelsStopping.store(false);
        Orv::SetPreload({});
        Orv::MemoryFileCache::Instance().Clear();
    });
    VXSetConnector(nullptr);
    return story;
}

}  // namespace FeederTest
