// What a feed's clients must hear, worked out block by block from the rules of playing and from the bytes of the
// files. It shares no code with the service: everything here is written the slow and obvious way.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Model {

constexpr std::size_t BlockBytes = 2000;
constexpr std::size_t BlockSamples = BlockBytes / 2;
constexpr std::size_t ReadBytes = 8192;

using Bytes = std::vector<std::uint8_t>;
using Block = std::array<std::int16_t, BlockSamples>;

// A read that came late, as the log tells it: "Zeroing out <bytes> <reason>". Either the stretch being played is still
// on its way and the whole block is silent, or the next stretch is and the rest of the block is.
enum class LateRead { ThisStretch, NextStretch };

// The sound of one file. A compressed one is given as it sounds, decoded, and has no stretches: its last block is
// filled up, and nothing follows it.
struct Sound {
    Sound(Bytes bytes, bool wasCompressed = false) : audio(std::move(bytes)), compressed(wasCompressed) {}  // NOLINT

    Bytes audio;
    bool compressed;
};

// One sound file while it plays, read in two alternating stretches of 8192 bytes.
class FilePlayer {
public:
    explicit FilePlayer(Sound sound);
    // The next block; nothing when the file has ended.
    std::optional<Block> Next(const LateRead* late);

private:
    std::optional<Block> NextDecoded();

    Bytes audio_;
    bool compressed_ = false;
    std::size_t frontStart_ = 0;
    std::size_t frontBytes_ = 0;
    std::size_t consumed_ = 0;
    bool eof_ = false;
};

// One announcement: its sound, and whether the music stops for it.
struct Announcement {
    Bytes audio;
    bool stopsMusic;
};

// The limiter and its autogain, one step of its arithmetic at a time.
class LevelControl {
public:
    // `limit` is a level, 0 to 32767; 0 leaves all as it is.
    LevelControl(int limit, bool autogain) : limit_(limit), autogain_(autogain) {}
    void Apply(Block& block);
    void EndOfFile();
    // The gain in percent, each time it has moved by more than ten points.
    const std::vector<int>& Reports() const { return reports_; }

private:
    void Report();

    int limit_;
    bool autogain_;
    float gain_ = 1.0f;
    int peak_ = 0;
    int reported_ = 100;
    std::vector<int> reports_;
};

// One channel from the first block after its content was (re)started.
class Feed {
public:
    // Gives the audio of the next file of the main list, each time it is asked. Both callables keep their state by
    // value, so that a copy of the feed goes its own way.
    using NextMusic = std::function<Sound()>;
    // The outcome of one draw at the end of a pause: an announcement, or nothing for another pause.
    using Draw = std::function<std::optional<Announcement>()>;

    explicit Feed(NextMusic music);
    // With announcements after pauses of `pauseSeconds`.
    Feed(NextMusic music, unsigned pauseSeconds, Draw draw);

    // Another limit, from the next block on.
    void SetLevel(int limit, bool autogain) { level_ = LevelControl(limit, autogain); }
    // The main list begins anew, at the level it has.
    void Restart(NextMusic music);

    // `late` applies to the music file's read of this block.
    Block Next(const LateRead* late = nullptr);
    // The last block as it was before the limiter.
    const Block& Mixed() const { return mixed_; }
    const LevelControl& Level() const { return level_; }

private:
    enum class Overlay { None, Pause, Announcing };

    std::optional<Block> StepMain(const LateRead* late, bool& musicOver);
    std::optional<Block> StepOverlay(bool& leadInOver, bool& pauseOver, bool& announcementOver);
    Block Mix(const std::optional<Block>& main, const std::optional<Block>& overlay);
    void StartPause();

    NextMusic music_;
    Draw draw_;
    unsigned pauseSeconds_ = 0;
    std::optional<FilePlayer> file_;
    Overlay overlay_ = Overlay::None;
    unsigned gapBlocks_ = 0;  // blocks left of a pause or a lead-in
    bool leadIn_ = false;
    std::optional<FilePlayer> announcement_;
    bool stopsMusic_ = false;
    unsigned mask_ = 3;
    int ramp_ = 0;
    float gain_ = 0.0f;
    Block mixed_{};
    LevelControl level_{0, false};
};

// The samples of a WAV file's data chunk (the first chunk of that name), or all bytes of any other file.
Bytes AudioOf(const std::string& path);

}  // namespace Model
