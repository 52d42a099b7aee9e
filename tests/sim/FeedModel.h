// One feed by the rules: when its pump makes a block, what is in it, who gets it, and which lines tell of it.
//
// The model goes beside the service: each look that the pump takes at its pipe begins a pass, and there the model
// decides whether a block is due and works it out. What the pump then writes, and logs, must be just that.
#pragma once

#include <list>
#include <map>
#include <string>
#include <vector>

#include "Platform/NamedPipe.h"
#include "tests/sim/LineScript.h"
#include "tests/sim/ModelWorld.h"

namespace OrvSim {

class FeedModel {
public:
    FeedModel(ModelWorld& world, const Row& row, u32 serial, u64 ownerThread);
    FeedModel(const FeedModel&) = delete;
    FeedModel& operator=(const FeedModel&) = delete;

    const std::string& Pipe() const { return pipe_; }
    const std::string& Name() const { return name_; }
    // Of the feeds of this run, from 1 on.
    u32 Serial() const { return serial_; }
    u64 PumpThread() const { return pumpThread_; }
    void SetPumpThread(u64 thread);
    // Whether its end has been told.
    bool Destroyed() const { return stage_ == Stage::Destroyed; }
    bool Stopping() const { return stopping_; }
    bool Played() const { return played_; }

    // Its owner has built it, or is known to be done with its content at least.
    void EndBuild(bool whole);
    // It is going to be shut down, and no line will tell.
    void StopUntold() { stopping_ = true; }
    // A change that leaves the feed standing, from its beginning to its end.
    void BeginUpdate(const Row& row, u64 thread);
    void EndUpdate();
    // Lines of threads other than the pump.
    void OnOwnerLine(const std::string& line);

    // What the pump does.
    // `error`: by which the try must have failed, 0 for none.
    void OnInstance(Platform::PipeId id, i32 error);
    void OnPoll(Platform::PipeId id, Platform::ConnectState state, Platform::PipeId client);
    void OnWriting();
    // Gives the client's id for bytes that were taken.
    Platform::PipeId OnWrite(Platform::PipeId id, const u8* data, i64 taken);
    void OnPumpLine(const std::string& line);

    // Clients that the feed serves now.
    std::size_t Clients() const { return connections_.size(); }

private:
    enum class Stage { Building, Started, Closed, Destroyed };
    struct Connection {
        Platform::PipeId id;
        Platform::PipeId client;
    };

    void Fail(const std::string& what) const;
    bool Sorted() const { return type_ == 3; }
    bool HasSet() const { return type_ >= 0 && type_ <= 3; }
    u64 Now() const { return ModelWorld::Now(); }

    // --- content, ModelContent.cpp
    void BeginStart(u64 thread);
    void ApplyStart();
    void ExpectPlaylist(LineScript& script, u64 thread);
    std::string TakeMusic(std::string& line);
    void ExpectPause(LineScript& script, u64 thread, std::function<void(i32)> then);
    void ExpectNextMusic();
    void ExpectNextAnnouncement();
    void OnEvents(const Events& events);
    void PlayPause(i32 seconds);

    // --- the pump, FeedModel.cpp
    void EndPass();
    void FinishLines(LineScript& script, const char* when);
    void BeginPass();
    void Decide();
    void Produce();
    void CheckLimit() const;
    void CheckHold(bool bySource) const;
    bool RingMayHaveMoved() const;
    Level LevelThatCounts() const { return own_.limit != 0 ? own_ : world_.global; }

    ModelWorld& world_;
    const Row row_;
    const u32 serial_;
    const std::string pipe_;
    const std::string name_;
    const i32 type_;
    const bool nonstop_;
    const bool announces_;
    u64 pumpThread_ = 0;
    Stage stage_ = Stage::Building;
    bool stopping_ = false;
    bool noThread_ = false;

    LineScript ownerScript_;
    LineScript pumpScript_;
    bool starting_ = false;
    std::vector<std::pair<u32, std::string>> startMusic_;
    i32 startPause_ = 0;

    Level own_;
    VolumeModel volume_;
    SetModel set_;
    std::list<std::string> playlist_;
    std::multimap<i32, std::string> shuffled_;
    u32 announcementMask_ = 3;

    std::vector<Connection> connections_;
    bool restart_ = true;
    bool played_ = false;
    u32 base_ = 0;
    bool inPass_ = false;
    bool instanceInPass_ = false;
    u64 passTime_ = 0;
    u64 lastWriteTime_ = 0;
    bool block_ = false;
    bool sounds_ = false;
    LiveFrame inRing_;         // where the block lies, if that is in a ring
    u64 passSourceBytes_ = 0;  // of all sources, when the pass began
    i16 samples_[kBlockSamples] = {};
    i16 input_[kBlockSamples] = {};
    std::size_t writing_ = 0;  // of connections_
    u64 written_ = 0;          // bytes of the block to that one
};

}  // namespace OrvSim
