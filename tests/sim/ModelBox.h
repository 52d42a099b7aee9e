// The shared stream "defaultset:": one file round and round, pulled each 10 ms while anybody listens, handed out in
// chunks of a second.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/sim/LogLevels.h"
#include "tests/sim/ModelSet.h"

namespace OrvSim {

class BoxModel {
public:
    BoxModel(SharedFiles& files, const LogLevels& levels) : set_(files, nullptr, 80), levels_(levels) {}

    // The box's thread began here, in nanoseconds.
    void Start(u64 now) { nextTick_ = now / kMillisecond + 10; }
    bool Started() const { return nextTick_ != 0; }
    void Play(const std::string& file, u64 now);
    void Subscribe(const std::shared_ptr<Consumer>& consumer, u64 now);
    void Unsubscribe(const std::shared_ptr<Consumer>& consumer);
    // Makes every tick that lies before `now`; with `inclusive` that of this very millisecond too.
    void CatchUp(u64 now, bool inclusive = false);

    // A line of the box's thread has come at `now`. False when `wanted` should have come, or nothing.
    bool OnLine(const std::string& line, u64 now, std::string& wanted);
    // The first line that has not come though its time is over; empty for none.
    const std::string& Missing() const { return missing_; }

    static void Read(Consumer& consumer, u8* frame, u32 samples, Lines& lines);

private:
    void Provide();
    void ExpectLine(const std::string& line);

    SetModel set_;
    std::vector<std::shared_ptr<Consumer>> consumers_;
    std::vector<i16> filling_;
    u64 nextTick_ = 0;  // in milliseconds
    const LogLevels& levels_;
    Lines lines_;  // that the last chunk must leave, as far as they are seen
    u64 linesAt_ = 0;
    std::string missing_;
};

}  // namespace OrvSim
