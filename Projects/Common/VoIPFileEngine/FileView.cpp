#include "Projects/Common/VoIPFileEngine/FileView.h"

#include <algorithm>

#include "Platform/Memory.h"
#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {
constexpr char kLogSource[] = "VoIPFileEngine/FileView";
}

FileView::FileView(const std::string& path, bool prefetch, bool lock) {
    if (!Open(path, prefetch, lock)) Close();
}

FileView::~FileView() {
    Close();
}

bool FileView::Open(const std::string& path, bool prefetch, bool lock) {
    if (IsValid() || path.empty()) return false;
    Platform::SystemError error = 0;
    file_ = Platform::OpenReadFile(path, error);
    if (file_ == nullptr) {
        ORV_ENGINE_LOG(LogErrorSink, "Failed to open file " << path << ", error: " << error);
        return false;
    }
    // Only 32 bits of the length count: a file of 4 GiB or more is not served whole.
    size = static_cast<u32>(file_->Size());
    if ((prefetch || lock) && !Map(path)) return false;
    if (prefetch) TouchPages();
    if (lock) Lock();
    name = path;
    return true;
}

// The path becomes the name only at the end of Open(), so there is none in these messages.
bool FileView::Map(const std::string& path) {
    Platform::SystemError error = 0;
    mapping_ = FileMapping::Create(path, size, error);
    if (mapping_ == nullptr) {
        ORV_ENGINE_LOG(LogErrorSink, "Failed to create file mapping of " << name << ", error: " << error);
        return false;
    }
    u64 mapped = 0;
    data = mapping_->Map(*file_, mapped, error);
    if (data == nullptr) {
        ORV_ENGINE_LOG(LogErrorSink, "Failed to map file " << name << ", error: " << error);
        return false;
    }
    // A mapping of others may be of what the file was before.
    size = std::min(size, mapped);
    file_.reset();
    return true;
}

void FileView::TouchPages() const {
    const u64 stride = Platform::PageSize();
    const volatile u8* const bytes = data;
    u32 sum = 0;
    for (u64 position = 0; position < size; position += stride) sum += bytes[position];
    static_cast<void>(sum);
}

void FileView::Lock() {
    if (!locked && mapping_ != nullptr) locked = mapping_->Lock();
}

u64 FileView::Read(void* destination, u64 position, u64 count) {
    if (data != nullptr) return IMemoryFile::Read(destination, position, count);
    if (!Bound(position, count)) return 0;
    return file_->ReadAt(position, destination, count);
}

void FileView::Close() {
    if (locked) mapping_->Unlock();
    locked = false;
    data = nullptr;
    mapping_.reset();
    file_.reset();
    size = 0;
}

}  // namespace Orv
