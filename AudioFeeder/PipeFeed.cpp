#include "AudioFeeder/PipeFeed.h"

#include <cstring>
#include <system_error>

#include "AudioFeeder/SharedValues.h"
#include "Platform/Clock.h"
#include "Platform/Random.h"
#include "ServiceProcess/Log.h"

namespace Orv {

namespace {

constexpr char kLogSource[] = "PipeManager";

constexpr u32 kMillisecondsPerSecond = 1000;
constexpr u32 kBlockMilliseconds = 125;
// How far the first block after a rest is overdue: three blocks go out at once.
constexpr u32 kHeadStartMilliseconds = 400;

// How much later than asked a nap may end. A block then leaves that much later at worst, and the next one is due by the
// same grid as ever.
constexpr u32 kLateMilliseconds = 5;

constexpr u8 kSilenceBlock[BlockBytes] = {};

static_assert(std::atomic<LevelSetting>::is_always_lock_free, "a pump reads one at each block");

// The steady clock as the pump counts it, in 32 bits with wrap-around.
u32 NowMilliseconds() {
    return static_cast<u32>(Platform::SteadyMilliseconds());
}

// The feed's own setting, which needs a limit in the row.
LevelSetting OwnLevel(const FeedRow& row) {
    if (VXParamInfo(row.base.Get(), Columns::maxvolume) == nullptr) return {};
    return {LevelFromPercent(row.Number(Columns::maxvolume)), row.Number(Columns::autogain) != 0};
}

// The setting that a new channel starts with: a limit of 0 in the row stands until the first block.
LevelSetting FirstLevel(const FeedRow& row) {
    return VXParamInfo(row.base.Get(), Columns::maxvolume) != nullptr ? OwnLevel(row) : GlobalLevelSetting();
}

std::string MakeLogPrefix(const FeedRow& row, i32 instanceId) {
    return std::string("Channel ") + row.Text(Columns::thename) + " as " + row.Text(Columns::pipename) + "[" +
           std::to_string(instanceId) + "]:";
}

}  // namespace

IPipeFeed::IPipeFeed(const FeedRow& row)
    : instanceId_(NextInstanceId()),
      row_(row.base),
      logPrefix_(MakeLogPrefix(row_, instanceId_)),
      feedType_(row_.Number(Columns::feedtype)),
      playAnnouncements_(row_.Number(Columns::playannouncements) != 0),
      nonstop_(row_.Number(Columns::nonstop) != 0),
      report_(FeedReportsWanted() ? std::make_shared<FeedReport>(row_, instanceId_) : nullptr),
      feedLevel_(OwnLevel(row_)),
      volume_(FirstLevel(row_)),
      listener_(row_.Text(Columns::pipename), logPrefix_) {
    if (volume_.IsOn()) {
        ORV_LOG(Trace) << logPrefix_ << "Volume control: " << DescribeLevelSetting(volume_.InUse());
    } else {
        ORV_LOG(Trace) << logPrefix_ << "Volume control is turned off";
    }
    Start();
    try {
        const std::string threadName = std::string("pump:") + row_.Text(Columns::pipename);
        pumpThread_ = Platform::Thread(threadName.c_str(), [this] { Pump(); });
    } catch (const std::system_error&) {
        // One channel without a thread is told below; it takes no other channel with it.
    }
    if (report_) report_->OnThread(pumpThread_.Joinable());
    // At "Error" in both cases, so that each life of a channel stands out in the log.
    ORV_LOG(Error) << logPrefix_ << (pumpThread_.Joinable() ? "Started" : "Cannot start thread");
}

IPipeFeed::~IPipeFeed() {
    Shutdown();
    MTObjects::THolder<BufferTransportImpl> waiting(new BufferTransportImpl(listener_.TakeWaiting()));
    ORV_LOG(Info) << logPrefix_ << "Destroyed";
}

void IPipeFeed::Shutdown() {
    ORV_LOG(Info) << logPrefix_ << "Shutdown";
    stopFlag_.store(true, std::memory_order_release);
    stopRequest_.Set();
    if (pumpThread_.Joinable()) pumpThread_.Join();
}

void IPipeFeed::SetFeedLevel(const LevelSetting& level) noexcept {
    feedLevel_.store(level, std::memory_order_relaxed);
}

void IPipeFeed::TellRow(const FeedRow& row) {
    if (report_) report_->OnRow(row);
}

bool IPipeFeed::MustStop() const noexcept {
    return channelsStopping.load(std::memory_order_acquire) || stopFlag_.load(std::memory_order_acquire);
}

void IPipeFeed::Pump() {
    runningPumpThreads.fetch_add(1, std::memory_order_acq_rel);
    Platform::AllowLateWaking(kLateMilliseconds);
    Platform::SeedThreadRand(NowMilliseconds());
    ContentEventList events;
    bool restart = true;
    u32 base = 0;  // one block before the next one is due; set where a rest ends
    PumpPulse pulse(row_.Text(Columns::pipename), contentGiver_);
    while (!MustStop()) {
        pulse.Beat();
        ServiceListener();
        if (connections_.empty() && !nonstop_) {
            restart = true;  // nothing is read, so the content stands still until a client comes
            if (report_) report_->OnLevel(LevelThatCounts());
            Nap();
            continue;
        }
        // Looked at once: the first block after a rest would count as late if the clock went on in between.
        const u32 now = NowMilliseconds();
        if (restart) {
            base = now - kHeadStartMilliseconds;
            restart = false;
        }
        const u32 lag = now - base;
        if (lag < kBlockMilliseconds) {
            Nap();
            continue;
        }
        const u8* block = ProduceBlock(events);
        ReportBlock(block, lag > kHeadStartMilliseconds);
        SendToAll(block);
        base += kBlockMilliseconds;  // not "now": a late thread catches up without a nap
    }
    connections_.clear();
    if (report_) report_->OnClients(0);
    ORV_LOG(Info) << logPrefix_ << "closed";
    runningPumpThreads.fetch_sub(1, std::memory_order_acq_rel);
}

bool IPipeFeed::ServiceListener() {
    MTObjects::THolder<BufferTransportImpl> client = listener_.Service();
    if (report_) report_->OnPipe(listener_.LastError());
    if (!client) return false;
    connections_.emplace_back(client, ClientStallSeconds() * kMillisecondsPerSecond);
    if (report_) report_->OnClients(connections_.size());
    ORV_LOG(Info) << logPrefix_ << "New pipe connected ID=" << PipeIdAsPointer(client->Id()) << ". "
                  << connections_.size() << " connection(s) active";
    return true;
}

const u8* IPipeFeed::ProduceBlock(ContentEventList& events) {
    const u8* frame = nullptr;
    if (streamManager_.IsValid()) streamManager_->GetReader()->GetNextFrame(&frame, events);
    const u8* block = frame != nullptr ? ControlVolume(frame) : kSilenceBlock;
    for (const ContentEvent& event : events) OnContentEvent(event);
    events.clear();
    return block;
}

void IPipeFeed::ReportBlock(const u8* block, bool late) noexcept {
    if (report_) report_->OnBlock(block, late, volume_.Gain(), volume_.InUse());
}

LevelSetting IPipeFeed::LevelThatCounts() const noexcept {
    const LevelSetting own = feedLevel_.load(std::memory_order_relaxed);
    return own.maxLevel != 0 ? own : GlobalLevelSetting();
}

const u8* IPipeFeed::ControlVolume(const u8* frame) {
    if (volume_.Follow(LevelThatCounts())) {
        if (volume_.IsOn()) {
            ORV_LOG(Trace) << logPrefix_ << "Volume control has been updated " << DescribeLevelSetting(volume_.InUse());
        } else {
            ORV_LOG(Trace) << logPrefix_ << "Volume control has been turned off";
        }
    }
    if (!volume_.IsOn()) return frame;
    // A frame elsewhere may lie in memory that others hear too, or that cannot be written.
    if (frame != blockBuffer_) std::memcpy(blockBuffer_, frame, BlockBytes);
    volume_.Process(blockBuffer_, BlockSamples);
    i16 percent = 0;
    if (volume_.TakeReport(percent)) {
        ORV_LOG(Debug) << logPrefix_ << "Volume has been raised to " << percent << "%";
    }
    return blockBuffer_;
}

void IPipeFeed::SendToAll(const u8* block) {
    if (connections_.empty()) return;
    if (report_) report_->OnWriting(NowMilliseconds());
    for (auto connection = connections_.begin(); connection != connections_.end();) {
        if (connection->Send(block, BlockSamples)) {
            ++connection;
            continue;
        }
        const Platform::PipeId id = connection->Id();
        if (connection->Stalled()) {
            ORV_LOG(Warn) << logPrefix_ << "Client has taken nothing for " << ClientStallSeconds()
                          << " s and is disconnected. ID=" << PipeIdAsPointer(id);
        }
        connection = connections_.erase(connection);
        ORV_LOG(Info) << logPrefix_ << "Connection closed. ID=" << static_cast<i32>(static_cast<u32>(id)) << ". "
                      << connections_.size() << " connection(s) active";
        if (report_) report_->OnClients(connections_.size());
    }
    if (report_) report_->OnWritten(static_cast<u32>(connections_.size()));
}

}  // namespace Orv
