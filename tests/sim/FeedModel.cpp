#include "tests/sim/FeedModel.h"

#include <cstdio>
#include <cstring>

namespace OrvSim {

namespace {

using Platform::ConnectState;
using Platform::PipeId;

std::string Hex(PipeId id) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(id));
    return text;
}

std::string ActiveText(std::size_t count) {
    return ". " + std::to_string(count) + " connection(s) active";
}

Level OwnLevel(const Row& row) {
    if (!row.Has("maxvolume")) return {};
    return {LevelOf(row.Number("maxvolume")), row.Number("autogain") != 0};
}

}  // namespace

FeedModel::FeedModel(ModelWorld& world, const Row& row, u32 serial, u64 ownerThread)
    : world_(world),
      row_(row),
      serial_(serial),
      pipe_(row.Text("pipename")),
      name_(row.Text("thename")),
      type_(row.Number("feedtype")),
      nonstop_(row.Number("nonstop") != 0),
      announces_(row.Number("playannouncements") != 0),
      ownerScript_(world.levels),
      pumpScript_(world.levels),
      own_(OwnLevel(row)),
      volume_(row.Has("maxvolume") ? own_ : world.global),
      set_(world.files, &world.box, kBlockSamples) {
    ownerScript_.Expect(volume_.InUse().limit < 1 ? "Trace|Volume control is turned off"
                                                  : "Trace|Volume control: " + Describe(volume_.InUse()));
    BeginStart(ownerThread);
}

void FeedModel::Fail(const std::string& what) const {
    world_.Fail("feed \"" + name_ + "\" on \"" + pipe_ + "\", number " + std::to_string(serial_) + ": " + what);
}

void FeedModel::SetPumpThread(u64 thread) {
    pumpThread_ = thread;
    if (noThread_) Fail("it has a pump, though no thread could be started");
}

void FeedModel::FinishLines(LineScript& script, const char* when) {
    std::string missing;
    if (!script.Finish(missing)) Fail(std::string("this line is missing ") + when + ": " + missing);
}

void FeedModel::EndBuild(bool whole) {
    if (stage_ != Stage::Building) return;
    if (world_.exact) FinishLines(ownerScript_, "when the pump is due");
    ApplyStart();
    if (world_.levels.Shows("Error")) {
        if (whole) Fail("its start is not told");
        return;
    }
    stage_ = Stage::Started;
    if (pumpThread_ != 0 || world_.threadFailures == 0) return;
    --world_.threadFailures;
    noThread_ = true;
}

void FeedModel::BeginUpdate(const Row& row, u64 thread) {
    own_ = {LevelOf(row.Number("maxvolume")), row.Number("autogain") != 0};
    BeginStart(thread);
}

void FeedModel::EndUpdate() {
    FinishLines(ownerScript_, "when an update is over");
    ApplyStart();
}

void FeedModel::OnOwnerLine(const std::string& line) {
    if (line == " Info|Shutdown") {
        stopping_ = true;
        if (stage_ == Stage::Destroyed) Fail("a shutdown behind the end");
        return;
    }
    if (line.starts_with("Error|")) {
        const bool failed = line != "Error|Started";
        if (stage_ != Stage::Building) Fail("a second start");
        if (failed != (world_.threadFailures != 0)) Fail("the start of the pump is told as \"" + line + "\"");
        if (failed && world_.threadFailures != 0) --world_.threadFailures;
        if (world_.exact) FinishLines(ownerScript_, "when it is started");
        ApplyStart();
        stage_ = Stage::Started;
        return;
    }
    if (line == " Info|closed" && pumpThread_ == 0 && stopping_) {
        stage_ = Stage::Closed;  // a pump that was stopped before its first pass
        return;
    }
    if (line == " Info|Destroyed") {
        if (!stopping_) Fail("destroyed without a shutdown");
        if (pumpThread_ != 0 && stage_ != Stage::Closed) Fail("destroyed before its pump had closed");
        stage_ = Stage::Destroyed;
        return;
    }
    if (!world_.exact) return;
    std::string wanted;
    if (!ownerScript_.Take(line, wanted)) Fail("the line \"" + line + "\" came for \"" + wanted + "\"");
}

// --- the pump -------------------------------------------------------------------------------------------------------

void FeedModel::OnInstance(PipeId id, i32 error) {
    BeginPass();
    instanceInPass_ = true;
    if ((id == 0) != (error != 0)) Fail("it has its pipe, or not, against the error " + std::to_string(error));
    if (id != 0) {
        pumpScript_.Expect(" Info|Wait for new connection. ID = " + Hex(id));
        return;
    }
    pumpScript_.Expect("Error|Cannot create new listener for connection. error=" + std::to_string(error));
    Decide();
}

void FeedModel::OnPoll(PipeId id, ConnectState state, PipeId client) {
    if (!instanceInPass_) BeginPass();
    if (state == ConnectState::Connected) {
        connections_.push_back({id, client});
        pumpScript_.Expect(" Info|New pipe connected ID=" + Hex(id) + ActiveText(connections_.size()));
    } else if (state == ConnectState::Failed) {
        pumpScript_.Expect(instanceInPass_ ? " Info|ConnectNamedPipe failed (" : " Info|Connection failed on ID=",
                           true);
    }
    Decide();
}

void FeedModel::BeginPass() {
    EndBuild(false);  // the pump may be quicker than the line that tells of it
    EndPass();
    inPass_ = true;
    instanceInPass_ = false;
    passTime_ = lastWriteTime_ = Now();
    passSourceBytes_ = world_.counts.sourceBytes;
}

void FeedModel::EndPass() {
    if (!inPass_) return;
    inPass_ = false;
    FinishLines(pumpScript_, "at the end of a pass");
    if (!block_) {
        ++world_.counts.naps;
        // The end of the feed may cut one short.
        const u64 due = passTime_ + 100 * kMillisecond;
        if (Now() > due || (!stopping_ && Now() != due)) {
            Fail("a nap of " + std::to_string((Now() - passTime_) / 1000) + " us");
        }
        return;
    }
    if (writing_ < connections_.size()) Fail("a block did not reach every client");
    CheckHold(connections_.empty());
}

// A pump is held up by its clients alone, and while threads race also by a live source that it was the last to play:
// each of the two lists, by its own hand or by that of a change, waits up to a second for the source's thread.
void FeedModel::CheckHold(bool bySource) const {
    const u64 longest = bySource && !world_.exact && lastWriteTime_ == passTime_ ? 4 * 1100 * kMillisecond : 0;
    if (Now() > lastWriteTime_ + longest) Fail("the pump was held up by nothing of its own");
}

// A ring that a client's stall outlasts goes on under the block, and one that begins anew is cleared.
bool FeedModel::RingMayHaveMoved() const {
    constexpr u64 least = LiveSource::kRing - 16384 - kBlockBytes;
    return world_.sourceVanished >= passTime_ || world_.counts.sourceBytes - passSourceBytes_ > least;
}

// By the clock in whole milliseconds, 32 bits of it.
void FeedModel::Decide() {
    instanceInPass_ = false;
    const u32 now = static_cast<u32>(Now() / kMillisecond);
    block_ = false;
    writing_ = 0;
    written_ = 0;
    if (connections_.empty() && !nonstop_) {
        if (!restart_) ++world_.counts.rests;
        restart_ = true;
        return;
    }
    if (restart_) base_ = now - 400;
    restart_ = false;
    if (now - base_ < 125) return;
    base_ += 125;
    block_ = true;
    inRing_ = {};
    played_ = true;
    ++world_.counts.blocks;
    if (world_.exact) Produce();
}

void FeedModel::Produce() {
    Events events;
    Lines lines;
    sounds_ = HasSet() && set_.Next(Now(), samples_, events, lines);
    for (const std::string& line : lines) {
        if (line.starts_with("Trace|Zeroing out") && line.back() == '.') ++world_.counts.lateReads;
        if (world_.levels.ShowsOfEngine(line)) pumpScript_.Expect(line);
    }
    if (sounds_) {
        std::memcpy(input_, samples_, sizeof input_);
        if (volume_.Follow(LevelThatCounts())) {
            pumpScript_.Expect(volume_.InUse().limit < 1
                                   ? "Trace|Volume control has been turned off"
                                   : "Trace|Volume control has been updated " + Describe(volume_.InUse()));
        }
        volume_.Apply(samples_, kBlockSamples);
        if (volume_.InUse().limit <= 0) inRing_ = set_.InRing();
        if (set_.IsLive()) ++world_.counts.liveBlocks;
        i32 percent = 0;
        if (volume_.Report(percent)) {
            pumpScript_.Expect("Debug|Volume has been raised to " + std::to_string(percent) + "%");
        }
    } else {
        std::memset(samples_, 0, sizeof samples_);
    }
    OnEvents(events);
}

// What the block has brought about has taken its effect by now, whether lines tell of it or not.
void FeedModel::OnWriting() {
    FinishLines(pumpScript_, "in front of a write");
    if (written_ != 0) return;
    if (writing_ == 0) CheckHold(true);
    // Each connection has a copy of its own, made when its turn comes.
    if (inRing_.source != nullptr) inRing_.source->Copy(inRing_.place, reinterpret_cast<u8*>(samples_), kBlockBytes);
}

PipeId FeedModel::OnWrite(PipeId id, const u8* data, i64 taken) {
    lastWriteTime_ = Now();
    if (!inPass_ || !block_ || writing_ >= connections_.size()) {
        Fail("a write where none is due");
        return 0;
    }
    const Connection connection = connections_[writing_];
    if (connection.id != id) Fail("a write to another client than the next one");
    if (taken < 0) {
        connections_.erase(connections_.begin() + static_cast<std::ptrdiff_t>(writing_));
        written_ = 0;
        pumpScript_.Expect(" Info|Connection closed. ID=" + std::to_string(static_cast<i32>(static_cast<u32>(id))) +
                           ActiveText(connections_.size()));
        return connection.client;
    }
    const u64 count = static_cast<u64>(taken);
    if (written_ + count > kBlockBytes) {
        Fail("more than 2000 bytes of one block");
        return connection.client;
    }
    auto* samples = reinterpret_cast<u8*>(samples_);
    if (!world_.exact && writing_ == 0) std::memcpy(samples + written_, data, count);
    if (std::memcmp(samples + written_, data, count) != 0 && (world_.exact || !RingMayHaveMoved())) {
        u64 at = 0;
        while (samples[written_ + at] == data[at]) ++at;
        const u64 sample = (written_ + at) / 2;
        i16 got = 0;
        std::memcpy(&got, data + (at & ~u64{1}), sizeof got);
        Fail(std::string(world_.exact ? "not the sound that is due" : "clients hear different sound") + ", sample " +
             std::to_string(sample) + ": " + std::to_string(got) + " for " + std::to_string(samples_[sample]) +
             " (ramp " + std::to_string(set_.Ramp()) + ", gain in use " + Describe(volume_.InUse()) + ")");
    }
    written_ += count;
    if (written_ == kBlockBytes) {
        if (writing_ == 0) CheckLimit();
        written_ = 0;
        ++writing_;
        ++world_.counts.blocksHeard;
    }
    return connection.client;
}

// The block has been heard just as it stands in samples_.
void FeedModel::CheckLimit() const {
    const i32 limit = volume_.InUse().limit;
    if (!world_.exact || !sounds_ || limit <= 0) return;
    for (u32 at = 0; at < kBlockSamples; ++at) {
        if ((samples_[at] > limit || samples_[at] < -limit) && input_[at] != -32768) {
            Fail("a sample of " + std::to_string(samples_[at]) + " above the limit " + std::to_string(limit));
            return;
        }
    }
}

void FeedModel::OnPumpLine(const std::string& line) {
    if (line == " Info|closed") {
        if (!stopping_) Fail("the pump ends without a shutdown");
        EndPass();
        stage_ = Stage::Closed;
        connections_.clear();
        return;
    }
    if (!world_.exact && (line.starts_with("Trace|") || line.starts_with("Debug|") || line.starts_with(" Warn|") ||
                          line.starts_with(" Info|r:"))) {
        return;
    }
    std::string wanted;
    if (!pumpScript_.Take(line, wanted)) Fail("the line \"" + line + "\" came for \"" + wanted + "\"");
}

}  // namespace OrvSim
