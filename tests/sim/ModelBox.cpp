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
        if (filling_.size() >= kChunkSamples) Provide();
    }
    // Lines come at the tick itself.
    if (!lines_.empty() && now > linesAt_ && missing_.empty()) missing_ = lines_.front();
}

void BoxModel::ExpectLine(const std::string& line) {
    if (levels_.ShowsOfEngine(line)) lines_.push_back(line);
}

// To the consumers in the order of their subscription.
void BoxModel::Provide() {
    if (!lines_.empty() && missing_.empty()) missing_ = lines_.front();
    const auto chunk = std::make_shared<const std::vector<i16>>(std::move(filling_));
    filling_.clear();
    linesAt_ = nextTick_ * kMillisecond;
    ExpectLine("Trace|Provided (" + std::to_string(consumers_.size()) + ") at " + std::to_string(nextTick_));
    for (const auto& consumer : consumers_) {
        consumer->chunks.push_back(chunk);
        const std::size_t count = consumer->chunks.size();
        ExpectLine("Trace|Added chunk, total=" + std::to_string(count));
        if (count <= 6) continue;
        ExpectLine(" Warn|Remove obsolete data: listsize=" + std::to_string(count));
        consumer->chunks.pop_front();
        consumer->chunks.pop_front();
        consumer->position = 0;
    }
}

bool BoxModel::OnLine(const std::string& line, u64 now, std::string& wanted) {
    CatchUp(now, true);
    wanted = lines_.empty() ? "no line" : lines_.front();
    if (line != wanted) return false;
    lines_.pop_front();
    return true;
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
