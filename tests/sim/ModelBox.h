// The shared stream "defaultset:": one file round and round, pulled each 10 ms while anybody listens, handed out in
// chunks of a second.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/sim/ModelSet.h"

namespace OrvSim {

class BoxModel {
public:
    explicit BoxModel(SharedFiles& files) : set_(files, nullptr, 80) {}

    // The box's thread began here, in nanoseconds.
    void Start(u64 now) { nextTick_ = now / kMillisecond + 10; }
    bool Started() const { return nextTick_ != 0; }
    void Play(const std::string& file, u64 now);
    void Subscribe(const std::shared_ptr<Consumer>& consumer, u64 now);
    void Unsubscribe(const std::shared_ptr<Consumer>& consumer);
    // Makes every tick that lies before `now`; with `inclusive` that of this very millisecond too.
    void CatchUp(u64 now, bool inclusive = false);

    // A chunk is handed out: whether one is full, and to how many.
    bool Provide(u64& consumers);
    // The next consumer, in the order of subscription, has got it. Its count of chunks; 0 when there is none left.
    u64 Deliver(bool& droppedOld);

    static void Read(Consumer& consumer, u8* frame, u32 samples, Lines& lines);

private:
    SetModel set_;
    std::vector<std::shared_ptr<Consumer>> consumers_;
    std::vector<std::shared_ptr<Consumer>> waiting_;  // still to get the chunk that is being handed out
    std::shared_ptr<const std::vector<i16>> chunk_;
    std::vector<i16> filling_;
    std::vector<std::shared_ptr<const std::vector<i16>>> full_;
    u64 nextTick_ = 0;  // in milliseconds
};

}  // namespace OrvSim
