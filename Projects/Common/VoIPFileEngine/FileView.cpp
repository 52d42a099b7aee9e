#include "Projects/Common/VoIPFileEngine/FileView.h"

#include <new>
#include <system_error>

#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {
constexpr char kLogSource[] = "VoIPFileEngine/FileView";
}

FileView::FileView(const std::string& path, bool prefetch) {
    if (!Open(path, prefetch)) Close();
}

bool FileView::Open(const std::string& path, bool prefetch) {
    if (IsValid() || path.empty()) return false;
    Platform::SystemError error = 0;
    file_ = Platform::OpenReadFile(path, error);
    if (file_ == nullptr) {
        ORV_ENGINE_LOG(LogErrorSink, "Failed to open file " << path << ", error: " << error);
        return false;
    }
    // Only 32 bits of the length count: a file of 4 GiB or more is not served whole.
    size = static_cast<u32>(file_->Size());
    if (prefetch && !Load()) {
        // The path becomes the name only at the end, so there is none in this message.
        constexpr auto noMemory = static_cast<Platform::SystemError>(std::errc::not_enough_memory);
        ORV_ENGINE_LOG(LogErrorSink, "Failed to map file " << name << ", error: " << noMemory);
        return false;
    }
    name = path;
    return true;
}

bool FileView::Load() {
    image_.reset(new (std::nothrow) u8[size]);
    if (image_ == nullptr) return false;
    // A file that has been cut since it was opened counts as long as it is now.
    size = file_->ReadAt(0, image_.get(), size);
    data = image_.get();
    return true;
}

u64 FileView::Read(void* destination, u64 position, u64 count) {
    if (data != nullptr) return IMemoryFile::Read(destination, position, count);
    if (!Bound(position, count)) return 0;
    return file_->ReadAt(position, destination, count);
}

void FileView::Close() {
    data = nullptr;
    image_.reset();
    file_.reset();
    size = 0;
}

}  // namespace Orv
