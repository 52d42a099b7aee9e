// The files of one folder.
#pragma once

#include <memory>
#include <string>

namespace Platform {

// One pass over a folder. One thread at a time; reads the disk as it goes, and holds a descriptor until its end.
class IFolderSearch {
public:
    virtual ~IFolderSearch() = default;
    // The next name that matches, without its folder, and whether it is a folder itself. False at the end. The order is
    // the file system's own. "." and ".." are never given.
    virtual bool Next(std::string& name, bool& isFolder) = 0;
};

// `extension` is a mask's fixed tail, ".wav" for "*.wav"; the case of A to Z is ignored. The folder is found whatever
// its case. Never null: a folder that does not exist or cannot be read gives a search that is at its end at once.
std::unique_ptr<IFolderSearch> SearchFolder(const std::string& folder, const std::string& extension);

}  // namespace Platform
