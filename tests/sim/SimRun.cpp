#include "tests/sim/SimRun.h"

#include <exception>

#include "AudioFeeder/AudioFeederHost.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/SharedValues.h"
#include "AudioFeeder/UpdateDispatcher.h"
#include "ConfigClient/ConfigConnection.h"
#include "Projects/Common/VoIPFileEngine/PipeStream.h"
#include "ServiceProcess/Log.h"
#include "tests/sim/Scenario.h"

namespace OrvSim {

namespace {

Checker* listening = nullptr;

// Stands between the configuration client and the dispatcher.
void OnChange(const char* table, const char* kind, u32 id, VX::ParamListHolder* newRow, VX::ParamListHolder* oldRow) {
    const bool mark = std::string(table) == "TRANSACTION";
    listening->BeginChange(table, kind, static_cast<i32>(id), mark ? Row() : FromList(newRow->Get()),
                           mark ? Row() : FromList(oldRow->Get()));
    Orv::OnConfigUpdate(table, kind, id, newRow, oldRow);
    listening->EndChange();
}

class ServiceRun {
public:
    explicit ServiceRun(const RunOptions& options)
        : sim_(options.seed, SimOptions(options)),
          world_(sim_.Files()),
          checker_(world_, options.seed + 1),
          config_(checker_),
          scenario_(options.seed, {options.feeds, options.seconds}, sim_, world_, checker_, config_) {
        world_.exact = !options.racing;
        checker_.keepLog = options.keepLog;
        listening = &checker_;
        VXSetConnector(&config_.Exchange());
        sim_.Pipes().SetObserver(&checker_);
        sim_.Files().SetWriteHook([this](const std::string&, std::string_view bytes) { checker_.OnLogBytes(bytes); });
        sim_.Random().SetDrawHook([this](i32 value) {
            if (world_.exact) world_.shuffleKeys[Platform::CurrentThreadId()].push_back(value);
        });
        sim_.SetTimeHook([this](u64) { checker_.BeforeTimePasses(); });
        scenario_.Prepare();
    }

    RunResult Go() {
        RunResult result;
        try {
            sim_.Run([this] { Serve(); });
            CheckLeftovers();
        } catch (const std::exception& error) {
            result.broken = true;
            world_.Fail(error.what());
        }
        result.good = !world_.Failed();
        result.failure = world_.failure;
        result.failedAtMilliseconds =
            (world_.failedAt - Platform::Sim::SimClock::SteadyStartNanoseconds) / kMillisecond;
        result.hash = checker_.Hash() ^ sim_.Trace();
        result.simulatedMilliseconds = sim_.Elapsed() / kMillisecond;
        result.counts = world_.counts;
        result.log = std::move(checker_.log);
        return result;
    }

private:
    static Platform::Sim::Options SimOptions(const RunOptions& run) {
        Platform::Sim::Options options;
        options.order = Platform::Sim::Order::Seeded;
        if (run.racing) {
            options.preemptOneIn = 20;
            options.spuriousOneIn = 50;
        }
        return options;
    }

    void Serve() {
        Orv::channelsStopping.store(false);
        Orv::LogWriter::Instance().SetLogLevel(3);
        sim_.Service().RunAsService(true);
        Platform::Thread driver("driver", [this] {
            while (ConfigConnection::ChangeListener.load() != &Orv::OnConfigUpdate) Platform::SleepMilliseconds(1);
            ConfigConnection::ChangeListener.store(&OnChange);
            if (world_.exact) KeepSources();
            scenario_.Play();
            checker_.OnStop();
            sim_.Service().SendControl(1);
        });
        Orv::MakeAudioFeederHost(0, nullptr);
        Orv::RunServices();
        Orv::ClearServices();
        driver.Join();
        keepers_.clear();
        Orv::LogWriter::Instance().CloseLog();
        Orv::IPipeManager::Instance() = nullptr;
        ConfigConnection::ChangeListener.store(nullptr);
        Orv::channelsStopping.store(false);
        if (!world_.Failed()) checker_.CheckEnd();
    }

    // Somebody plays each live source all the time, so that no change has to wait for the end of a source's thread;
    // while threads race, many do.
    void KeepSources() {
        for (const std::string& path : scenario_.BeginSources()) {
            MTObjects::THolder<Orv::IPipeStream> keeper(new Orv::IPipeStream);
            if (!keeper->Open(path.c_str(), keptFrame_, sizeof keptFrame_)) world_.Fail("cannot open " + path);
            keepers_.push_back(keeper);
        }
    }

    void CheckLeftovers() {
        const auto pipes = sim_.Pipes().Counters();
        const auto files = sim_.Files().Counters();
        if (pipes.endpointsAlive + pipes.instancesAlive != 0) world_.Fail("a pipe outlives the service");
        if (files.filesAlive + files.readRecordsAlive + files.searchesAlive != 0) {
            world_.Fail("an open file outlives the service");
        }
    }

    Platform::Sim::Simulation sim_;
    ModelWorld world_;
    Checker checker_;
    ConfigSide config_;
    Scenario scenario_;
    std::vector<MTObjects::THolder<Orv::IPipeStream>> keepers_;
    u8 keptFrame_[kBlockBytes] = {};
};

}  // namespace

RunResult Run(const RunOptions& options) {
    return ServiceRun(options).Go();
}

RunOptions OptionsOf(u64 seed) {
    RunOptions options;
    options.seed = seed;
    options.racing = seed % 4 == 0;
    return options;
}

std::string Replay(const RunOptions& options) {
    return "orv-sim --seed " + std::to_string(options.seed) + " --feeds " + std::to_string(options.feeds) +
           " --seconds " + std::to_string(options.seconds) + (options.racing ? " --racing yes" : " --racing no");
}

}  // namespace OrvSim
