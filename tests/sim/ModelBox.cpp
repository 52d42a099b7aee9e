#include "tests/sim/ModelBox.h"

#include <algorithm>
#include <cstring>

#include "Platform/Clock.h"

namespace OrvSim {

namespace {
constexpr std::size_t kChunkSamples = 8000;
}

void BoxModel::Play(const std::string& file, u64 now) {
    CatchUp(now);
    set_.Switch(true, 0, true, {{0, file}}, now);
}

void BoxModel::Subscribe(const std::shared_ptr<Consumer>& consumer, u64 now) {
    CatchUp(now);
    consumers_.push_back(consumer);
}

void BoxModel::Unsubscribe(const std::shared_ptr<Consumer>& consumer) {
    CatchUp(Platform::SteadyNanoseconds());
    std::erase(consumers_, consumer);
}

void BoxModel::CatchUp(u64 now, bool inclusive) {
    if (!Started()) return;
    for (; inclusive ? nextTick_ * kMillisecond <= now : nextTick_ * kMillisecond < now; nextTick_ += 10) {
        if (consumers_.empty()) {
            filling_.clear();
            continue;
        }
        i16 frame[kBlockSamples];
        Events events;
        Lines lines;
        if (!set_.Next(nextTick_ * kMillisecond, frame, events, lines)) continue;
        filling_.insert(filling_.end(), frame, frame + 80);
        if (filling_.size() < kChunkSamples) continue;
        full_.push_back(std::make_shared<const std::vector<i16>>(std::move(filling_)));
        filling_.clear();
    }
}

bool BoxModel::Provide(u64& consumers) {
    if (full_.size() != 1) return false;
    chunk_ = full_.front();
    full_.clear();
    waiting_ = consumers_;
    consumers = consumers_.size();
    return true;
}

u64 BoxModel::Deliver(bool& droppedOld) {
    droppedOld = false;
    if (waiting_.empty()) return 0;
    Consumer& consumer = *waiting_.front();
    waiting_.erase(waiting_.begin());
    consumer.chunks.push_back(chunk_);
    const u64 count = consumer.chunks.size();
    if (count > 6) {
        droppedOld = true;
        consumer.chunks.pop_front();
        consumer.chunks.pop_front();
        consumer.position = 0;
    }
    return count;
}

void BoxModel::Read(Consumer& consumer, u8* frame, u32 samples, Lines& lines) {
    u32 have = 0;
    while (have < samples) {
        if (consumer.chunks.empty()) {
            lines.push_back(" Warn|Not enough data:" + std::to_string(samples) + "(" + std::to_string(have) + ")");
            std::memset(frame + 2 * have, 0, 2 * (samples - have));
            return;
        }
        if (consumer.position >= kChunkSamples) {
            consumer.chunks.pop_front();
            consumer.position = 0;
            continue;
        }
        const u64 taken = std::min<u64>(samples - have, kChunkSamples - consumer.position);
        std::memcpy(frame + 2 * have, consumer.chunks.front()->data() + consumer.position, 2 * taken);
        consumer.position += taken;
        have += static_cast<u32>(taken);
    }
}

}  // namespace OrvSim
