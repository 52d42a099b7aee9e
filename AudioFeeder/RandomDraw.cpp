#include "AudioFeeder/RandomDraw.h"

#include <random>

#include "Platform/Random.h"
#include "Platform/Sync.h"

namespace Orv {

namespace {

class TwisterSource : public IRandomSource {
public:
    TwisterSource() : engine_(Platform::RandomSeed()) {}
    u32 Next() override { return static_cast<u32>(engine_()); }

private:
    std::mt19937 engine_;
};

struct ProcessEngine {
    Platform::Mutex mutex;
    TwisterSource twister ORV_GUARDED_BY(mutex);
    IRandomSource* replacement ORV_GUARDED_BY(mutex) = nullptr;
};

ProcessEngine& Engine() {
    static ProcessEngine* const engine = new ProcessEngine;  // never destroyed: pumps draw from it
    return *engine;
}

}  // namespace

i32 UniformFrom(IRandomSource& source, i32 a, i32 b) {
    const u32 low = static_cast<u32>(a);
    const u32 range = static_cast<u32>(b) - low + 1;
    if (range == 0) return static_cast<i32>(low + source.Next());
    u64 product = static_cast<u64>(source.Next()) * range;
    if (static_cast<u32>(product) < range) {
        const u32 threshold = (0U - range) % range;
        while (static_cast<u32>(product) < threshold) product = static_cast<u64>(source.Next()) * range;
    }
    return static_cast<i32>(low + static_cast<u32>(product >> 32));
}

i32 Uniform(i32 a, i32 b) {
    ProcessEngine& engine = Engine();
    Platform::LockGuard<Platform::Mutex> guard(engine.mutex);
    return UniformFrom(engine.replacement != nullptr ? *engine.replacement : engine.twister, a, b);
}

void TakeRandomLock() {
    Platform::LockGuard<Platform::Mutex> guard(Engine().mutex);
}

void SetRandomSource(IRandomSource* source) {
    ProcessEngine& engine = Engine();
    Platform::LockGuard<Platform::Mutex> guard(engine.mutex);
    engine.replacement = source;
}

}  // namespace Orv
