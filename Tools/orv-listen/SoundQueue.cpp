#include "Tools/orv-listen/SoundQueue.h"

namespace Orv {

u64 SoundQueue::Push(const u8* bytes, u64 count) {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    bytes_.insert(bytes_.end(), bytes, bytes + count);
    u64 dropped = 0;
    if (bytes_.size() > limit_) {
        dropped = bytes_.size() - limit_;
        // An even count: whatever half of a sample stands in front, the same half does afterwards.
        if (dropped % 2 != 0) ++dropped;
        bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(dropped));
    }
    changed_.NotifyOne();
    return dropped;
}

bool SoundQueue::Take(std::vector<u8>& out) {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    while (bytes_.empty() && !closed_) changed_.Wait(mutex_);
    out.assign(bytes_.begin(), bytes_.end());
    bytes_.clear();
    return !out.empty();
}

void SoundQueue::Close() {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    closed_ = true;
    changed_.NotifyAll();
}

}  // namespace Orv
