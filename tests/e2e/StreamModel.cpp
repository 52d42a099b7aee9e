#include "tests/e2e/StreamModel.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace Model {
namespace {

Block ToBlock(const Bytes& bytes) {
    Block block{};
    for (std::size_t i = 0; i < BlockSamples; ++i) {
        const unsigned low = bytes[2 * i];
        const unsigned high = bytes[2 * i + 1];
        block[i] = static_cast<std::int16_t>(static_cast<std::uint16_t>(low | (high << 8)));
    }
    return block;
}

std::int16_t Truncate(float value) {
    return static_cast<std::int16_t>(static_cast<std::int32_t>(value));
}

}  // namespace

FilePlayer::FilePlayer(Sound sound) : audio_(std::move(sound.audio)), compressed_(sound.compressed) {
    frontBytes_ = std::min(ReadBytes, audio_.size());
    eof_ = frontBytes_ == 0;
}

std::optional<Block> FilePlayer::Next(const LateRead* late) {
    if (compressed_) return NextDecoded();
    if (eof_) return std::nullopt;
    Bytes block(BlockBytes, 0);
    if (late != nullptr && *late == LateRead::ThisStretch) return ToBlock(block);

    const auto copy = [&](std::size_t at, std::size_t count) {
        std::copy_n(audio_.begin() + static_cast<std::ptrdiff_t>(frontStart_ + consumed_), count,
                    block.begin() + static_cast<std::ptrdiff_t>(at));
        consumed_ += count;
    };
    const std::size_t first = std::min(BlockBytes, frontBytes_ - consumed_);
    copy(0, first);
    if (first == BlockBytes) return ToBlock(block);

    frontStart_ += frontBytes_;
    frontBytes_ = std::min(ReadBytes, audio_.size() - frontStart_);
    consumed_ = 0;
    if (late != nullptr) return ToBlock(block);
    if (frontBytes_ == 0) {
        eof_ = true;
        return ToBlock(block);
    }
    copy(first, std::min(BlockBytes - first, frontBytes_));
    return ToBlock(block);
}

std::optional<Block> FilePlayer::NextDecoded() {
    if (consumed_ >= audio_.size()) return std::nullopt;
    Bytes block(audio_.begin() + static_cast<std::ptrdiff_t>(consumed_),
                audio_.begin() + static_cast<std::ptrdiff_t>(std::min(audio_.size(), consumed_ + BlockBytes)));
    block.resize(BlockBytes, 0);
    consumed_ += BlockBytes;
    return ToBlock(block);
}

void LevelControl::Apply(Block& block) {
    if (limit_ == 0) return;
    const float limit = static_cast<float>(limit_);
    if (autogain_) peak_ = static_cast<int>(static_cast<double>(peak_) * 0.99);
    for (std::int16_t& sample : block) {
        // The magnitude of the lowest sample does not fit 16 bits; it is below every peak.
        const int magnitude = sample == -32768 ? -32768 : std::abs(static_cast<int>(sample));
        if (magnitude > peak_) {
            peak_ = magnitude;
            const float level = static_cast<float>(magnitude) * gain_;
            if (level > limit) {
                const float factor = limit / level;
                gain_ = factor * gain_;
            }
        }
        sample = Truncate(static_cast<float>(sample) * gain_);
    }
    const float level = static_cast<float>(peak_) * gain_;
    if (autogain_ && peak_ >= 1 && limit > level) {
        const float gap = limit - level;
        const float step = gap / 20.0f;
        const float wanted = step + level;
        const float factor = wanted / level;
        gain_ = factor * gain_;
    }
    Report();
}

void LevelControl::Report() {
    const int percent = static_cast<std::int16_t>(static_cast<int>(static_cast<double>(gain_) * 100.0));
    if (std::abs(percent - reported_) <= 10) return;
    reported_ = percent;
    reports_.push_back(percent);
}

void LevelControl::EndOfFile() {
    if (autogain_) return;
    gain_ = 1.0f;
    peak_ = 0;
}

Feed::Feed(NextMusic music) : music_(std::move(music)), file_(FilePlayer(music_())) {}

Feed::Feed(NextMusic music, unsigned pauseSeconds, Draw draw)
    : music_(std::move(music)), draw_(std::move(draw)), pauseSeconds_(pauseSeconds), file_(FilePlayer(music_())) {
    StartPause();
}

void Feed::Restart(NextMusic music) {
    music_ = std::move(music);
    file_.emplace(music_());
    mask_ = 3;
}

void Feed::StartPause() {
    overlay_ = Overlay::Pause;
    gapBlocks_ = pauseSeconds_ * 8;
    mask_ = 3;
}

std::optional<Block> Feed::StepMain(const LateRead* late, bool& musicOver) {
    auto block = file_->Next(late);
    musicOver = !block.has_value();
    return block;
}

std::optional<Block> Feed::StepOverlay(bool& leadInOver, bool& pauseOver, bool& announcementOver) {
    switch (overlay_) {
        case Overlay::None:
            return std::nullopt;
        case Overlay::Pause:
            if (gapBlocks_ > 0) {
                --gapBlocks_;
            } else {
                pauseOver = true;
            }
            return std::nullopt;
        case Overlay::Announcing:
            break;
    }
    if (leadIn_) {
        if (gapBlocks_ > 0) {
            --gapBlocks_;
            return Block{};
        }
        leadIn_ = false;
        leadInOver = true;  // and the announcement begins in this same block
    }
    auto block = announcement_->Next(nullptr);
    announcementOver = !block.has_value();
    return block;
}

Block Feed::Mix(const std::optional<Block>& main, const std::optional<Block>& overlay) {
    if (!main) return overlay ? *overlay : Block{};
    Block out{};
    for (std::size_t i = 0; i < BlockSamples; ++i) {
        const std::int16_t music = (*main)[i];
        const int target = overlay ? 1250 : 10000;
        std::int16_t scaled = 0;
        if (ramp_ == target) {
            scaled = overlay ? static_cast<std::int16_t>(music >> 3) : music;
        } else {
            const bool up = ramp_ < target;
            ramp_ += up ? 1 : -1;
            if (ramp_ == target) {
                gain_ = overlay ? 0.125f : 1.0f;
            } else {
                gain_ = up ? gain_ + 0.0001f : gain_ - 0.0001f;
            }
            scaled = Truncate(static_cast<float>(music) * gain_);
        }
        const int sum = scaled + (overlay ? (*overlay)[i] : 0);
        out[i] = static_cast<std::int16_t>(static_cast<std::uint16_t>(sum & 0xFFFF));
    }
    return out;
}

Block Feed::Next(const LateRead* late) {
    bool musicOver = false;
    bool leadInOver = false;
    bool pauseOver = false;
    bool announcementOver = false;
    std::optional<Block> main;
    std::optional<Block> overlay;
    if ((mask_ & 1) != 0) {
        main = StepMain(late, musicOver);
    } else {
        ramp_ = 0;
        gain_ = 0.0f;
    }
    if ((mask_ & 2) != 0) overlay = StepOverlay(leadInOver, pauseOver, announcementOver);
    mixed_ = Mix(main, overlay);
    Block block = mixed_;
    if (main || overlay) level_.Apply(block);

    if (musicOver) {
        level_.EndOfFile();
        file_.emplace(music_());
        mask_ = 3;
    }
    if (leadInOver) mask_ = stopsMusic_ ? 2 : 3;
    if (announcementOver) StartPause();
    if (pauseOver) {
        if (auto announcement = draw_()) {
            overlay_ = Overlay::Announcing;
            leadIn_ = true;
            gapBlocks_ = 8;
            announcement_.emplace(std::move(announcement->audio));
            stopsMusic_ = announcement->stopsMusic;
            mask_ = 3;
        } else {
            StartPause();
        }
    }
    return block;
}

Bytes AudioOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    Bytes bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (bytes.size() < 12 || std::memcmp(bytes.data(), "RIFF", 4) != 0) return bytes;
    std::size_t at = 12;
    while (at + 8 <= bytes.size()) {
        const std::size_t length = bytes[at + 4] | (bytes[at + 5] << 8) | (bytes[at + 6] << 16) |
                                   (static_cast<std::size_t>(bytes[at + 7]) << 24);
        if (std::memcmp(bytes.data() + at, "data", 4) == 0) {
            const std::size_t begin = at + 8;
            const std::size_t end = std::min(bytes.size(), begin + length);
            return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
                         bytes.begin() + static_cast<std::ptrdiff_t>(end));
        }
        at += 8 + length;
    }
    throw std::runtime_error("no data chunk in " + path);
}

}  // namespace Model
