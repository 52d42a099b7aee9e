// What a stream set makes of its two lists, written the slow and obvious way, and one channel's main list of raw files.
#pragma once

#include <cmath>
#include <optional>
#include <vector>

#include "tests/AudioFeeder/FeederWorld.h"

namespace FeederTest {

using Frame = std::optional<Samples>;  // nothing: a null frame

// The main list's level: in steps of one ten-thousandth a sample, up to 1 alone, down to one eighth under the overlay.
class SetModel {
public:
    Samples Mix(const Frame& main, const Frame& overlay) {
        Samples out = Constant(1000, 0);
        for (std::size_t index = 0; index < 1000; ++index) {
            const i16 below = main ? (*main)[index] : i16{0};
            const i16 above = overlay ? (*overlay)[index] : i16{0};
            const i16 level = main ? Scale(below, overlay ? 1250 : 10000) : i16{0};
            out[index] = static_cast<i16>(static_cast<u16>(level) + static_cast<u16>(above));
        }
        return out;
    }
    // The main list was not read: it comes back from silence.
    void Forget() {
        counter_ = 0;
        gain_ = 0.0F;
    }

private:
    i16 Scale(i16 sample, i32 target) {
        if (counter_ == target) return static_cast<i16>(target == 1250 ? std::floor(sample / 8.0) : sample);
        const i32 step = counter_ < target ? 1 : -1;
        counter_ += step;
        if (counter_ == target) {
            gain_ = target == 1250 ? 0.125F : 1.0F;
        } else {
            gain_ = step > 0 ? gain_ + 0.0001F : gain_ - 0.0001F;
        }
        return static_cast<i16>(static_cast<i32>(static_cast<float>(sample) * gain_));
    }

    i32 counter_ = 0;
    float gain_ = 0.0F;
};

// Raw files played one after the other, each ended by one null frame; a short last frame is filled up with zeros. For
// files whose last frame is short and holds no multiple of 4096 samples.
class FilesModel {
public:
    explicit FilesModel(std::vector<Samples> files) : files_(std::move(files)) {}
    Frame Next() {
        const Samples& file = files_[current_ % files_.size()];
        if (position_ >= file.size()) {
            ++current_;
            position_ = 0;
            return std::nullopt;
        }
        Samples frame = Part(file, position_, 1000);
        frame.resize(1000, 0);
        position_ += 1000;
        return frame;
    }

private:
    std::vector<Samples> files_;
    std::size_t current_ = 0;
    std::size_t position_ = 0;
};

// The first `count` blocks of a channel that plays these files and nothing else.
inline Samples ExpectedStream(std::vector<Samples> files, std::size_t count) {
    FilesModel list(std::move(files));
    SetModel set;
    Samples stream;
    for (std::size_t block = 0; block < count; ++block) {
        const Samples out = set.Mix(list.Next(), std::nullopt);
        stream.insert(stream.end(), out.begin(), out.end());
    }
    return stream;
}

// Block number `block` and the `count - 1` after it.
inline Samples Blocks(const Samples& stream, std::size_t block, std::size_t count) {
    return Part(stream, block * 1000, count * 1000);
}

}  // namespace FeederTest
