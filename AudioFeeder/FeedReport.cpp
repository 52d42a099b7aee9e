#include "AudioFeeder/FeedReport.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "AudioFeeder/ChannelConnection.h"
#include "Platform/Clock.h"
#include "Projects/Common/VoIPFileEngine/ContentCheck.h"
#include "Projects/Common/VoIPFileEngine/ContentName.h"

namespace Orv {

namespace {

using Guard = Platform::LockGuard<Platform::Mutex>;

// Set before the first channel, on the thread that builds it.
std::atomic<bool> reportsWanted{false};

// The pump alone writes, so there is nothing to lock on the bus.
template <typename T>
void Raise(std::atomic<T>& count, T by) noexcept {
    count.store(count.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
}

// Without a branch in the loop, so that a compiler makes it a few instructions for many samples.
i16 PeakOf(const u8* block) noexcept {
    i16 highest = 0;
    i16 lowest = 0;
    for (u32 index = 0; index < BlockSamples; ++index, block += sizeof(i16)) {
        i16 sample;
        std::memcpy(&sample, block, sizeof sample);
        highest = std::max(highest, sample);
        lowest = std::min(lowest, sample);
    }
    return static_cast<i16>(std::max<i32>(highest, std::min(-static_cast<i32>(lowest), 32767)));
}

std::string ReadFailure(Platform::SystemError error) {
    const std::string text = Platform::SystemErrorText(error);
    return "it ended where it could not be read: " + (text.empty() ? "error " + std::to_string(error) : text);
}

}  // namespace

void WantFeedReports(bool wanted) {
    reportsWanted.store(wanted, std::memory_order_relaxed);
}

bool FeedReportsWanted() {
    return reportsWanted.load(std::memory_order_relaxed);
}

FeedReport::FeedReport(const FeedRow& row, i32 instanceId) : instanceId_(instanceId), row_(row) {}

FeedRow FeedReport::Row() const {
    Guard guard(mutex_);
    return row_;
}

// The old row goes with the argument, outside of the mutex.
void FeedReport::OnRow(FeedRow row) {
    Guard guard(mutex_);
    std::swap(row_, row);
}

void FeedReport::OnBlock(const u8* block, bool late, float gain, const LevelSetting& level) noexcept {
    const i16 peak = PeakOf(block);
    Raise<u64>(blocks_, 1);
    if (peak == 0) Raise<u64>(silentBlocks_, 1);
    if (late) Raise<u64>(lateBlocks_, 1);
    peak_.store(peak, std::memory_order_relaxed);
    gain_.store(gain, std::memory_order_relaxed);
    OnLevel(level);
}

void FeedReport::OnLevel(const LevelSetting& level) noexcept {
    level_.store(level, std::memory_order_relaxed);
}

void FeedReport::OnWriting(u32 now) noexcept {
    writingSince_.store(now != 0 ? now : 1, std::memory_order_relaxed);
}

void FeedReport::OnWritten(u32 clients) noexcept {
    writingSince_.store(0, std::memory_order_relaxed);
    Raise<u64>(blocksSent_, clients);
}

void FeedReport::OnMusic(const std::string& name) {
    {
        Guard guard(mutex_);
        music_ = name;
    }
    CheckContent(name);
}

void FeedReport::OnAnnouncement(const std::string& file) {
    Raise<u64>(announcements_, 1);
    {
        Guard guard(mutex_);
        announcement_ = file;
    }
    CheckContent(file);
}

void FeedReport::OnPause() {
    Guard guard(mutex_);
    announcement_.clear();
}

// Looked at without the mutex: it may wait for the disk, as the opening of the content has done just before.
void FeedReport::CheckContent(const std::string& name) {
    std::string reason = WhyNotPlayable(name);
    if (reason.empty()) return;
    Guard guard(mutex_);
    SetBad(name, std::move(reason));
}

// Told as it was given, if it is still known: the reader has it in lower case.
void FeedReport::OnBroken(const std::string& file, Platform::SystemError error) {
    std::string given[2];
    {
        Guard guard(mutex_);
        given[0] = music_;
        given[1] = announcement_;
    }
    std::string name = file;
    for (const std::string& known : given) {
        if (!known.empty() && NormaliseFileName(known) == file) name = known;
    }
    Guard guard(mutex_);
    SetBad(name, ReadFailure(error));
}

void FeedReport::SetBad(const std::string& name, std::string reason) {
    badContent_ = name;
    badReason_ = std::move(reason);
    badSince_ = Platform::SteadyMilliseconds();
}

FeedFigures FeedReport::Read() const {
    FeedFigures figures;
    figures.hasThread = hasThread_.load(std::memory_order_relaxed);
    figures.clients = clients_.load(std::memory_order_relaxed);
    figures.blocks = blocks_.load(std::memory_order_relaxed);
    figures.blocksSent = blocksSent_.load(std::memory_order_relaxed);
    figures.silentBlocks = silentBlocks_.load(std::memory_order_relaxed);
    figures.lateBlocks = lateBlocks_.load(std::memory_order_relaxed);
    figures.announcements = announcements_.load(std::memory_order_relaxed);
    figures.gain = gain_.load(std::memory_order_relaxed);
    figures.peak = peak_.load(std::memory_order_relaxed);
    figures.level = level_.load(std::memory_order_relaxed);
    figures.pipeError = pipeError_.load(std::memory_order_relaxed);
    const u32 since = writingSince_.load(std::memory_order_relaxed);
    const u64 now = Platform::SteadyMilliseconds();
    // A write that began after the clock was read is no wait of 49 days.
    if (since != 0)
        figures.writeMilliseconds = static_cast<u32>(std::max(static_cast<i32>(static_cast<u32>(now) - since), 0));
    Guard guard(mutex_);
    figures.nonstop = row_.Number(Columns::nonstop) != 0;
    figures.music = music_;
    figures.announcement = announcement_;
    figures.badContent = badContent_;
    figures.badReason = badReason_;
    if (!badReason_.empty()) figures.badSeconds = (now - std::min(now, badSince_)) / 1000;
    return figures;
}

}  // namespace Orv
