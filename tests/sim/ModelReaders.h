// What one item of a list gives, frame by frame, written from the rules and the slow and obvious way: files that are
// read ahead in two buffers, compressed or not, gaps, the shared box, and nothing at all.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/sim/ModelDisk.h"
#include "tests/sim/ModelLines.h"
#include "tests/sim/ModelSource.h"

namespace OrvSim {

constexpr u32 kBlockSamples = 1000;
constexpr u32 kBlockBytes = 2 * kBlockSamples;
constexpr u64 kMillisecond = 1'000'000;

// An open file, one for all who play the same path at the same time.
struct OpenedFile {
    std::shared_ptr<DiskFile> file;
    u64 start = 0;
    u64 end = 0;  // 0: wherever the file ends
    bool compressed = false;
};

class SharedFiles {
public:
    SharedFiles(const ModelDisk& disk, const LiveSources& live) : disk_(disk), live_(live) {}
    // Null when it cannot be opened, or is no sound.
    std::shared_ptr<OpenedFile> Get(const std::string& path);
    const ModelDisk& Disk() const { return disk_; }
    // Null when there is none.
    const LiveSource* Live(const std::string& path) const;

private:
    std::shared_ptr<OpenedFile> Open(const std::string& path) const;

    const ModelDisk& disk_;
    const LiveSources& live_;
    std::map<std::string, std::weak_ptr<OpenedFile>> opened_;
};

class FileModel {
public:
    FileModel(SharedFiles& files, std::string path, std::shared_ptr<OpenedFile> opened, u64 now);
    void Rewind(u64 now);
    // Fills `frame` with `bytes` bytes of sound; false at the end.
    bool Next(u64 now, u8* frame, u32 bytes, Lines& lines);

private:
    struct Buffer {
        bool ready = false;
        bool eof = false;
        bool failed = false;
        bool reading = false;
        u64 due = 0;
        u64 position = 0;
        u64 length = 0;
        std::shared_ptr<const std::string> contents;
        u64 bytes = 0;
        u64 consumed = 0;
    };

    // The same of what the file holds.
    bool NextBytes(u64 now, u8* frame, u32 bytes, Lines& lines);
    bool Issue(Buffer& buffer, u64 position, u64 now);
    bool Settle(Buffer& buffer, u64 now);
    bool UpdateStatus(Buffer& buffer, u64 now) { return buffer.ready || Settle(buffer, now); }
    void Prefetch(u64 now) { Issue(back_, front_.position + front_.bytes, now); }
    static u64 Take(Buffer& buffer, u8* to, u64 count);

    const ModelDisk& disk_;
    const std::string path_;
    const std::shared_ptr<OpenedFile> opened_;
    Buffer front_;
    Buffer back_;
    std::deque<i16> decoded_;  // what is left of a compressed block
    bool rewound_ = false;
};

// Who listens to the box.
struct Consumer {
    std::deque<std::shared_ptr<const std::vector<i16>>> chunks;
    u64 position = 0;
};

// One item of a list.
class BoxModel;
class ItemModel {
public:
    enum class Kind { Fake, Gap, File, Box, Live };

    // Opens what `name` says.
    ItemModel(u32 id, const std::string& name, SharedFiles& files, BoxModel* box, u64 now);
    ~ItemModel();
    ItemModel(ItemModel&& other) noexcept;
    ItemModel& operator=(ItemModel&&) = delete;

    u32 Id() const { return id_; }
    Kind GetKind() const { return kind_; }
    void Rewind(u64 now);
    // False at the end. `sounds`: whether there is a frame.
    bool Next(u64 now, u8* frame, u32 bytes, bool& sounds, Lines& lines);
    // Where the last frame lies, if that is in a ring.
    LiveFrame InRing() const { return live_ != nullptr ? live_->Frame() : LiveFrame(); }
    // Whether the last frame was sound of a live source.
    bool IsLive() const { return isLive_; }

private:
    const u32 id_;
    Kind kind_ = Kind::Fake;
    bool realSilence_ = false;
    i64 totalBytes_ = 0;
    i64 remainingBytes_ = 0;
    std::unique_ptr<FileModel> file_;
    BoxModel* box_ = nullptr;
    std::shared_ptr<Consumer> consumer_;
    std::unique_ptr<LiveReader> live_;
    bool isLive_ = false;
};

}  // namespace OrvSim
