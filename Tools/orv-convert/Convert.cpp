#include "Tools/orv-convert/Convert.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "Tools/orv-convert/Resampler.h"

namespace Orv {
namespace {

constexpr u64 kPieceFrames = 65536;
// Left and right that leave so little of each other when mixed were never meant to be.
constexpr double kCancelled = 0.01;

std::string Text(const char* format, double value) {
    char text[160];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// Reads the file as one channel.
class Mono {
public:
    explicit Mono(ISoundFile& file) : file_(file) {}

    // False at the end.
    bool Read() {
        const std::vector<float>& frames = file_.Read(kPieceFrames);
        const u64 channels = file_.Channels();
        samples_.resize(frames.size() / channels);
        for (u64 i = 0; i < samples_.size(); ++i) {
            if (channels == 1) {
                samples_[i] = Finite(frames[i]);
                continue;
            }
            const float left = Finite(frames[2 * i]);
            const float right = Finite(frames[2 * i + 1]);
            samples_[i] = (left + right) * 0.5F;
            power_ += (static_cast<double>(left) * left + static_cast<double>(right) * right) * 0.5;
            mixed_ += static_cast<double>(samples_[i]) * samples_[i];
        }
        read_ += samples_.size();
        return !samples_.empty();
    }

    const std::vector<float>& Samples() const { return samples_; }
    u64 FramesRead() const { return read_; }
    bool Cancels() const { return power_ > 0.0 && mixed_ < kCancelled * power_; }

private:
    // Files of floats may hold what is no number.
    static float Finite(float sample) { return std::isfinite(sample) ? sample : 0.0F; }

    ISoundFile& file_;
    std::vector<float> samples_;
    u64 read_ = 0;
    double power_ = 0.0;
    double mixed_ = 0.0;
};

[[noreturn]] void TooLong(const ConvertLimits& limits) {
    throw Refusal(Text("is longer than %.0f minutes; cut it into pieces", limits.longestSeconds / 60.0));
}

// Rounded to the nearest; no dither, so that silence stays silence on its way through the telephone's code.
std::vector<i16> ToSamples(const std::vector<float>& sound, double factor) {
    std::vector<i16> samples(sound.size());
    for (u64 i = 0; i < sound.size(); ++i) {
        const double value = std::clamp(static_cast<double>(sound[i]) * factor * 32768.0, -32768.0, 32767.0);
        samples[i] = static_cast<i16>(static_cast<i32>(std::lrint(value)));
    }
    return samples;
}

void Put(std::string& out, u32 value, u32 bytes) {
    for (u32 i = 0; i < bytes; ++i) out.push_back(static_cast<char>(value >> (8 * i)));
}

}  // namespace

Conversion Convert(ISoundFile& file, std::optional<double> targetLufs, const ConvertLimits& limits,
                   const ProgressFunction& progress) {
    const auto most = static_cast<u64>(limits.longestSeconds * file.Rate());
    if (file.StatedFrames() > most) TooLong(limits);
    Conversion result;
    result.format = file.Format();
    result.rate = file.Rate();
    result.channels = file.Channels();

    const auto resampler = MakeResampler(file.Rate());
    std::vector<float> sound;
    if (file.StatedFrames() != 0) {
        sound.reserve(static_cast<u64>(static_cast<double>(file.StatedFrames()) * kFeedRate / file.Rate()) + 16384);
    }
    Mono mono(file);
    while (mono.Read()) {
        if (mono.FramesRead() > most) TooLong(limits);
        resampler->Add(mono.Samples().data(), mono.Samples().size(), sound);
        if (file.StatedFrames() != 0) {
            progress(std::min(1.0, static_cast<double>(mono.FramesRead()) / static_cast<double>(file.StatedFrames())));
        }
    }
    resampler->Finish(sound);
    if (sound.empty()) throw Refusal("holds no sound");

    result.before = MeasureLoudness(sound);
    result.change = ChangeFor(result.before, targetLufs);
    result.samples = ToSamples(sound, result.change.factor);
    if (mono.Cancels()) result.notes.push_back("left and right cancel each other: little is left in one channel");
    if (result.before.truePeak == 0.0) {
        result.notes.push_back("is silent");
    } else if (targetLufs && !result.before.lufs) {
        result.notes.push_back("too short or too quiet to measure: its level was kept");
    }
    if (result.change.heldByPeak && targetLufs && result.before.lufs) {
        const double reached = *result.before.lufs + 20.0 * std::log10(result.change.factor);
        result.notes.push_back(Text("held at %.1f LUFS by its peaks", reached));
    } else if (result.change.heldByPeak) {
        result.notes.push_back(
            Text("lowered by %.1f dB, or its peaks would be cut off", -20.0 * std::log10(result.change.factor)));
    }
    return result;
}

std::string WavBytes(const std::vector<i16>& samples) {
    const u32 bytes = static_cast<u32>(samples.size() * 2);
    std::string out;
    out.reserve(44 + bytes);
    out += "RIFF";
    Put(out, 36 + bytes, 4);
    out += "WAVEfmt ";
    Put(out, 16, 4);
    Put(out, 1, 2);              // PCM
    Put(out, 1, 2);              // one channel
    Put(out, kFeedRate, 4);      // samples a second
    Put(out, kFeedRate * 2, 4);  // bytes a second
    Put(out, 2, 2);              // bytes a sample
    Put(out, 16, 2);             // bits a sample
    out += "data";
    Put(out, bytes, 4);
    for (const i16 sample : samples) Put(out, static_cast<u16>(sample), 2);
    return out;
}

}  // namespace Orv
