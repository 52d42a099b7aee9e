#include "Tools/orv-convert/Resampler.h"

#include <soxr.h>

#include <cmath>
#include <new>
#include <type_traits>

namespace Orv {
namespace {

class SameRate final : public IResampler {
public:
    void Add(const float* samples, u64 count, std::vector<float>& out) override {
        out.insert(out.end(), samples, samples + count);
    }
    void Finish(std::vector<float>&) override {}
};

class SoxrResampler final : public IResampler {
public:
    explicit SoxrResampler(u32 fromRate) : ratio_(static_cast<double>(kFeedRate) / fromRate) {
        const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
        const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, SOXR_LINEAR_PHASE);
        soxr_error_t error = nullptr;
        handle_.reset(soxr_create(fromRate, kFeedRate, 1, &error, &io, &quality, nullptr));
        if (handle_ == nullptr) throw std::bad_alloc();
    }

    void Add(const float* samples, u64 count, std::vector<float>& out) override {
        for (u64 used = 0; used < count;) used += Process(samples + used, count - used, out);
    }

    void Finish(std::vector<float>& out) override {
        for (u64 before = out.size() + 1; before != out.size();) {
            before = out.size();
            Process(nullptr, 0, out);
        }
    }

private:
    // The input that was used.
    u64 Process(const float* samples, u64 count, std::vector<float>& out) {
        const u64 begin = out.size();
        const u64 room = static_cast<u64>(std::ceil(static_cast<double>(count) * ratio_)) + 4096;
        out.resize(begin + room);
        std::size_t used = 0;
        std::size_t made = 0;
        const soxr_error_t error = soxr_process(handle_.get(), samples, count, &used, out.data() + begin, room, &made);
        out.resize(begin + made);
        if (error != nullptr) throw std::bad_alloc();
        return used;
    }

    struct Delete {
        void operator()(soxr_t handle) const { soxr_delete(handle); }
    };
    const double ratio_;
    std::unique_ptr<std::remove_pointer_t<soxr_t>, Delete> handle_;
};

}  // namespace

std::unique_ptr<IResampler> MakeResampler(u32 fromRate) {
    if (fromRate == kFeedRate) return std::make_unique<SameRate>();
    return std::make_unique<SoxrResampler>(fromRate);
}

}  // namespace Orv
