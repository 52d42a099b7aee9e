#include "tests/sim/ModelReaders.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "tests/sim/ModelAdpcm.h"
#include "tests/sim/ModelBox.h"

namespace OrvSim {

namespace {

constexpr u64 kReadBytes = 8192;
constexpr u64 kFormatTag = 20;  // where it stands in the plainest header
constexpr char kAdpcmTag = 17;

u32 U32At(const std::string& bytes, u64 at) {
    u32 value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

}  // namespace

std::shared_ptr<OpenedFile> SharedFiles::Get(const std::string& path) {
    if (auto shared = opened_[path].lock()) return shared;
    auto opened = Open(path);
    opened_[path] = opened;
    return opened;
}

const LiveSource* SharedFiles::Live(const std::string& path) const {
    const auto found = live_.find(path);
    return found == live_.end() ? nullptr : &found->second;
}

// The driver writes the plainest header only: 44 bytes, the data behind them.
std::shared_ptr<OpenedFile> SharedFiles::Open(const std::string& path) const {
    auto opened = std::make_shared<OpenedFile>();
    opened->file = disk_.Open(path);
    if (opened->file == nullptr) return nullptr;
    if (!path.ends_with(".wav")) return opened;
    const std::string& bytes = *opened->file->bytes;
    if (bytes.size() <= 44 || bytes.compare(0, 4, "RIFF") != 0 || U32At(bytes, 4) > bytes.size()) return nullptr;
    const u64 length = std::min<u64>(U32At(bytes, 40), bytes.size() - 44);
    opened->compressed = bytes[kFormatTag] == kAdpcmTag;
    opened->start = 44;
    opened->end = length != 0 ? 44 + length : 0;
    return opened;
}

FileModel::FileModel(SharedFiles& files, std::string path, std::shared_ptr<OpenedFile> opened, u64 now)
    : disk_(files.Disk()), path_(std::move(path)), opened_(std::move(opened)) {
    Rewind(now);
}

void FileModel::Rewind(u64 now) {
    if (rewound_) return;
    rewound_ = true;
    front_ = {};
    back_ = {};
    decoded_.clear();
    if (Issue(front_, opened_->start, now)) Prefetch(now);
}

bool FileModel::Issue(Buffer& buffer, u64 position, u64 now) {
    u64 length = kReadBytes;
    buffer.ready = buffer.eof = buffer.failed = buffer.reading = false;
    buffer.bytes = buffer.consumed = 0;
    if (opened_->end != 0) {
        if (position >= opened_->end) {
            buffer.ready = buffer.eof = true;
            return false;
        }
        length = std::min(length, opened_->end - position);
    }
    buffer.position = position;
    buffer.length = length;
    buffer.reading = true;
    buffer.due = now + disk_.FaultsOf(path_).delay * kMillisecond;
    return Settle(buffer, now);
}

bool FileModel::Settle(Buffer& buffer, u64 now) {
    if (!buffer.reading) return false;  // it has failed, or has found the end
    if (now < buffer.due) return false;
    buffer.reading = false;
    const DiskFaults& faults = disk_.FaultsOf(path_);
    if (faults.failing && buffer.position + buffer.length > faults.firstBad) {
        buffer.failed = true;
        return false;
    }
    buffer.contents = opened_->file->bytes;
    const u64 size = buffer.contents->size();
    buffer.bytes = buffer.position < size ? std::min(buffer.length, size - buffer.position) : 0;
    buffer.ready = true;
    buffer.eof = buffer.bytes == 0;
    return !buffer.eof;
}

u64 FileModel::Take(Buffer& buffer, u8* to, u64 count) {
    if (!buffer.ready) return 0;
    const u64 taken = std::min(buffer.bytes - buffer.consumed, count);
    if (taken != 0) std::memcpy(to, buffer.contents->data() + buffer.position + buffer.consumed, taken);
    buffer.consumed += taken;
    return taken;
}

bool FileModel::Next(u64 now, u8* frame, u32 bytes, Lines& lines) {
    if (!opened_->compressed) return NextBytes(now, frame, bytes, lines);
    u8 block[kAdpcmBlock];
    while (decoded_.size() * sizeof(i16) < bytes && NextBytes(now, block, kAdpcmBlock, lines)) {
        for (const i16 sample : DecodeAdpcm(block, kAdpcmBlock)) decoded_.push_back(sample);
    }
    if (decoded_.empty()) return false;
    for (u32 at = 0; at < bytes; at += sizeof(i16)) {
        const i16 sample = decoded_.empty() ? i16{0} : decoded_.front();
        if (!decoded_.empty()) decoded_.pop_front();
        std::memcpy(frame + at, &sample, sizeof sample);
    }
    return true;
}

bool FileModel::NextBytes(u64 now, u8* frame, u32 bytes, Lines& lines) {
    const auto finish = [&](u64 have, const char* reason) {
        std::memset(frame + have, 0, bytes - have);
        if (have != bytes) lines.push_back("Trace|Zeroing out " + std::to_string(bytes - have) + " " + reason);
        return true;
    };
    rewound_ = false;
    if (front_.failed || front_.eof) return false;
    if (!front_.ready) {
        if (!UpdateStatus(front_, now)) return finish(0, "Operation is in progress...");
        Prefetch(now);
    }
    const u64 got = Take(front_, frame, bytes);
    if (got == bytes) return true;
    std::swap(front_, back_);
    if (!UpdateStatus(front_, now)) return finish(got, "Back buffer is not ready...");
    if (!front_.failed && !front_.eof) Prefetch(now);
    return finish(got + Take(front_, frame + got, bytes - got), "");
}

ItemModel::ItemModel(u32 id, const std::string& name, SharedFiles& files, BoxModel* box, u64 now) : id_(id) {
    if (name.size() >= 3 && name.front() == '#' && name.back() == '#') {
        kind_ = Kind::Gap;
        realSilence_ = name[1] == '#';
        totalBytes_ = remainingBytes_ = i64{std::atoi(name.c_str() + (realSilence_ ? 2 : 1))} * 16000;
    } else if (name == "defaultset:" && box != nullptr) {
        kind_ = Kind::Box;
        box_ = box;
        consumer_ = std::make_shared<Consumer>();
        box_->Subscribe(consumer_, now);
    } else if (name.ends_with(".wav") || name.ends_with(".raw")) {
        auto opened = files.Get(name);
        if (opened == nullptr) return;
        kind_ = Kind::File;
        file_ = std::make_unique<FileModel>(files, name, std::move(opened), now);
    } else if (const LiveSource* source = files.Live(PipePathOf(name))) {
        kind_ = Kind::Live;
        live_ = std::make_unique<LiveReader>(*source);
    }
}

ItemModel::ItemModel(ItemModel&& other) noexcept = default;

ItemModel::~ItemModel() {
    if (box_ != nullptr && consumer_ != nullptr) box_->Unsubscribe(consumer_);
}

void ItemModel::Rewind(u64 now) {
    remainingBytes_ = totalBytes_;
    if (file_ != nullptr) file_->Rewind(now);
    if (live_ != nullptr) live_->Rewind();
}

bool ItemModel::Next(u64 now, u8* frame, u32 bytes, bool& sounds, Lines& lines) {
    sounds = false;
    switch (kind_) {
        case Kind::Fake:
            return false;
        case Kind::Gap:
            if (remainingBytes_ < 1) return false;
            remainingBytes_ -= bytes;
            sounds = realSilence_;
            std::memset(frame, 0, bytes);
            return true;
        case Kind::File:
            return sounds = file_->Next(now, frame, bytes, lines);
        case Kind::Box:
            box_->CatchUp(now);
            BoxModel::Read(*consumer_, frame, bytes / 2, lines);
            return sounds = true;
        case Kind::Live:
            isLive_ = live_->Next(frame, bytes);
            return sounds = true;
    }
    return false;
}

}  // namespace OrvSim
