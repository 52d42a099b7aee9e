#include "Platform/FolderSearch.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>
#include <utility>

#include "Platform/Path.h"
#include "Platform/PathText.h"
#include "Platform/ThreadWait.h"
#include "Platform/linux/NativePath.h"

namespace Platform {
namespace {

class FolderSearch final : public IFolderSearch {
public:
    FolderSearch(DIR* folder, std::string extension) : folder_(folder), extension_(std::move(extension)) {}
    ~FolderSearch() override { Close(); }
    FolderSearch(const FolderSearch&) = delete;
    FolderSearch& operator=(const FolderSearch&) = delete;

    bool Next(std::string& name, bool& isFolder) override {
        const ThreadWaitScope waiting(ThreadWait::Disk);
        while (folder_ != nullptr) {
            const dirent* entry = ::readdir(folder_);
            if (entry == nullptr) {
                Close();
                break;
            }
            if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
            name = entry->d_name;
            if (!EndsWithIgnoringCase(name, extension_)) continue;
            isFolder = IsFolder(*entry);
            return true;
        }
        return false;
    }

private:
    // A link is what it leads to, and not every file system tells the kind with the name.
    bool IsFolder(const dirent& entry) const {
        if (entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
        struct stat info {};
        return ::fstatat(::dirfd(folder_), entry.d_name, &info, 0) == 0 && S_ISDIR(info.st_mode);
    }

    void Close() {
        if (folder_ != nullptr) ::closedir(std::exchange(folder_, nullptr));
    }

    DIR* folder_;  // null at the end
    const std::string extension_;
};

}  // namespace

std::unique_ptr<IFolderSearch> SearchFolder(const std::string& folder, const std::string& extension) {
    const ThreadWaitScope waiting(ThreadWait::Disk);
    DIR* opened = CanBeNamed(folder) ? ::opendir(FindOnDisk(folder).c_str()) : nullptr;
    return std::make_unique<FolderSearch>(opened, extension);
}

}  // namespace Platform
