#include "tests/faults/DueBlocks.h"

#include <algorithm>
#include <utility>

namespace OrvTest {
namespace {

constexpr int kFullRamp = 10'000;

std::int16_t SampleAt(const Model::Bytes& audio, std::size_t index) {
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(audio[2 * index] | (audio[2 * index + 1] << 8)));
}

bool SilentFrom(const Model::Block& block, std::size_t from) {
    return std::all_of(block.begin() + static_cast<std::ptrdiff_t>(from), block.end(),
                       [](std::int16_t sample) { return sample == 0; });
}

// A feed's music fades in, a step for each sample.
std::int16_t Faded(std::int16_t sample, int& ramp, float& gain) {
    if (ramp == kFullRamp) return sample;
    gain = ++ramp == kFullRamp ? 1.0f : gain + 0.0001f;
    return static_cast<std::int16_t>(static_cast<float>(sample) * gain);
}

}  // namespace

std::vector<ToldBlock> ToldBlocks(const std::vector<LogEntry>& log, const std::string& pipe) {
    const std::string start = "Start next audio file ";
    const std::string silence = "Zeroing out ";
    const auto came = std::find_if(log.begin(), log.end(), [&](const LogEntry& entry) {
        return entry.text.find(" as " + pipe + "[") != std::string::npos &&
               entry.text.find("]:New pipe connected") != std::string::npos;
    });
    std::vector<ToldBlock> told;
    for (auto entry = came; entry != log.end(); ++entry) {
        if (entry->thread != came->thread) continue;
        if (const auto at = entry->text.find(start); at != std::string::npos) {
            told.push_back({entry->text.substr(at + start.size())});
        } else if (const auto zeros = entry->text.find(silence); zeros != std::string::npos) {
            const bool late = entry->text.find("Operation is in progress...") != std::string::npos ||
                              entry->text.find("Back buffer is not ready...") != std::string::npos;
            told.push_back({"", std::stoul(entry->text.substr(zeros + silence.size())) / 2, late});
        }
    }
    return told;
}

DueBlocks::DueBlocks(std::vector<ToldBlock> told, Contents contents, const std::string& firstFile)
    : told_(std::move(told)), contents_(std::move(contents)), file_(firstFile), playing_(contents_(firstFile)) {}

bool DueBlocks::Take(const Model::Block& block) {
    if (end_ == End::NotYet && TakeSound(block, block.size())) {
        lastLate_ = 0;
        return true;
    }
    if (next_ == told_.size()) return false;
    const ToldBlock& told = told_[next_++];
    if (!told.nextFile.empty()) {
        if (!SilentFrom(block, 0)) return false;
        Begin(told.nextFile);
        return true;
    }
    if (told.silent > block.size() || !TakeSound(block, block.size() - told.silent)) return false;
    (told.late ? seen_.late : seen_.ends) += told.silent;
    lastLate_ = told.late ? told.silent : 0;
    if (end_ == End::NotYet) {
        if (!told.late) end_ = told.silent < block.size() ? End::LastBlock : End::SilentBlock;
        return true;
    }
    if (end_ != End::LastBlock || told.late || told.silent != block.size()) return false;
    end_ = End::SilentBlock;
    return true;
}

std::string DueBlocks::Describe() const {
    std::string text = file_ + " at sample " + std::to_string(position_);
    for (std::size_t i = next_ > 0 ? next_ - 1 : 0; i < std::min(next_ + 3, told_.size()); ++i) {
        const ToldBlock& told = told_[i];
        text += (i < next_ ? ", told last: " : ", told next: ") +
                (told.nextFile.empty() ? std::to_string(told.silent) + (told.late ? " late" : " silent")
                                       : "next file " + told.nextFile);
    }
    return text;
}

void DueBlocks::Begin(const std::string& file) {
    const auto whole = std::find_if(playing_.begin(), playing_.end(), [this](const Model::Bytes* content) {
        return position_ != 0 && content->size() / 2 == position_;
    });
    seen_.turns.push_back({file_, position_, whole == playing_.end() ? nullptr : *whole});
    if (position_ == 0) {
        seen_.badFiles.push_back(file_);
        seen_.mostInARow = std::max(seen_.mostInARow, ++inARow_);
    }
    // A late read that brought the end of the file was no late disk's.
    seen_.late -= lastLate_;
    seen_.ends += std::exchange(lastLate_, 0);
    file_ = file;
    playing_ = contents_(file);
    position_ = 0;
    end_ = End::NotYet;
}

// So many samples of what plays, and silence behind them.
bool DueBlocks::TakeSound(const Model::Block& block, std::size_t count) {
    if (!SilentFrom(block, count)) return false;
    std::vector<const Model::Bytes*> still;
    int ramp = ramp_;
    float gain = gain_;
    for (const Model::Bytes* content : playing_) {
        if (content->size() / 2 < position_ + count) continue;
        ramp = ramp_;
        gain = gain_;
        bool same = true;
        for (std::size_t i = 0; i < block.size(); ++i) {
            const std::int16_t sample = i < count ? SampleAt(*content, position_ + i) : std::int16_t{0};
            const std::int16_t faded = Faded(sample, ramp, gain);
            same = same && block[i] == faded;
        }
        if (same) still.push_back(content);
    }
    if (still.empty()) return false;
    playing_ = std::move(still);
    position_ += count;
    if (count != 0) inARow_ = 0;
    ramp_ = ramp;
    gain_ = gain;
    return true;
}

}  // namespace OrvTest
