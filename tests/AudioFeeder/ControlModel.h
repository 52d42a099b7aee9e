// What the volume control makes of a channel's blocks, one step of its arithmetic at a time.
#pragma once

#include <cstdlib>

#include "tests/AudioFeeder/FeederData.h"

namespace FeederTest {

// With a limit above 0.
class ControlModel {
public:
    ControlModel(i32 limit, bool autogain) : limit_(static_cast<float>(limit)), autogain_(autogain) {}

    Samples Apply(Samples block) {
        if (autogain_) peak_ = static_cast<i32>(static_cast<double>(peak_) * 0.99);
        for (i16& sample : block) {
            // The magnitude of the lowest sample does not fit in 16 bits and is below every peak.
            if (sample != -32768 && std::abs(static_cast<i32>(sample)) > peak_)
                MeetPeak(std::abs(static_cast<i32>(sample)));
            const float product = static_cast<float>(sample) * gain_;
            i32 whole = static_cast<i32>(product);
            while (whole > 32767) whole -= 65536;
            while (whole < -32768) whole += 65536;
            sample = static_cast<i16>(whole);
        }
        const float level = static_cast<float>(peak_) * gain_;
        if (autogain_ && peak_ >= 1 && limit_ > level) {
            float step = limit_ - level;
            step = step / 20.0F;
            const float wanted = step + level;
            const float factor = wanted / level;
            gain_ = factor * gain_;
        }
        return block;
    }
    void EndOfFile() {
        if (autogain_) return;
        gain_ = 1.0F;
        peak_ = 0;
    }
    float Gain() const { return gain_; }
    i32 Peak() const { return peak_; }

private:
    void MeetPeak(i32 magnitude) {
        peak_ = magnitude;
        const float level = static_cast<float>(magnitude) * gain_;
        if (level <= limit_) return;
        const float factor = limit_ / level;
        gain_ = factor * gain_;
    }

    const float limit_;
    const bool autogain_;
    float gain_ = 1.0F;
    i32 peak_ = 0;
};

}  // namespace FeederTest
