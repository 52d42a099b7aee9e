// Live sound from a pipe that another process serves: the ring that holds what has come, the readers that follow it,
// and the lines that tell of the connection.
#pragma once

#include <array>
#include <map>
#include <string>
#include <string_view>

#include "Platform/Types.h"
#include "tests/sim/LogLevels.h"
#include "tests/sim/ModelLines.h"

namespace OrvSim {

constexpr char kPipeRoot[] = "\\\\.\\pipe\\";

// The path of the pipe that a content name stands for: a pipe's path itself, or any name that ends in ".pipe", in
// whatever case. Empty for every other name.
std::string PipePathOf(const std::string& content);

// One pipe, in use from Begin() on; all who play it read one ring.
class LiveSource {
public:
    static constexpr u32 kRing = 65536;
    static constexpr u64 kRetry = 100'000'000;

    LiveSource(std::string path, const LogLevels& levels) : path_(std::move(path)), levels_(levels) {}

    // --- what happens, in nanoseconds
    // Somebody wants to hear it, while nobody serves it.
    void Begin(u64 now);
    // It is served now.
    void Serve();
    void Send(const u8* bytes, u64 count, u64 now);
    // Its server goes.
    void Vanish(u64 now);
    // The next `times` tries to connect fail, whoever is there.
    void Refuse(u32 times) { refusals_ = times; }
    // The source's thread tries to connect. False with what is wrong about that.
    bool OnTry(bool connected, u64 now, std::string& wrong);

    // A line of the source's thread. False when `wanted` should have come, or nothing.
    bool OnLine(const std::string& line, std::string& wanted);
    // The first line that should have come before now; empty for none.
    std::string Missing() const { return lines_.empty() ? std::string() : lines_.front(); }
    // Whether a try should have come before now.
    bool IsOverdue(u64 now) const { return !connected_ && now > tryDue_; }
    // From now on until it is found at the latest.
    u64 LongestWait() const { return kRetry * (1 + refusals_ / 2); }
    bool IsServed() const { return served_; }

    // The end of what can be read, in whole samples; and the bytes that lie in the ring for a place of the stream.
    u64 Head() const { return written_ / 2 * 2; }
    void Copy(u64 place, u8* to, u32 bytes) const;
    const std::string& Path() const { return path_; }

private:
    void ExpectLine(const std::string& line);
    std::string Connected() const;

    const std::string path_;
    const LogLevels& levels_;
    u64 written_ = 0;
    u64 sentAt_ = 0;  // the last bytes
    std::array<u8, kRing> ring_ = {};
    bool served_ = false;
    bool connected_ = false;  // the service, whether its server has looked or not
    bool everConnected_ = false;
    bool waiting_ = false;  // the next try is that of the wait for a place
    u64 tryDue_ = 0;
    u32 refusals_ = 0;
    Lines lines_;  // that must come now
};

// By path.
using LiveSources = std::map<std::string, LiveSource>;

// A frame that is handed out just where it lies in a ring: who holds it hears what becomes of the ring.
struct LiveFrame {
    const LiveSource* source = nullptr;  // null: it is a copy
    u64 place = 0;
};

// One who plays it.
class LiveReader {
public:
    explicit LiveReader(const LiveSource& source) : source_(source) {}
    void Rewind() { position_ = 0; }
    // Fills the frame; false with silence, for want of sound.
    bool Next(u8* frame, u32 bytes);
    const LiveFrame& Frame() const { return frame_; }

private:
    const LiveSource& source_;
    u64 position_ = 0;
    LiveFrame frame_;
};

}  // namespace OrvSim
