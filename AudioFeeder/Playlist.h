// What a folder gives to play: finding the files, joining paths, shuffling.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <string>

#include "Platform/FolderSearch.h"
#include "Platform/Sync.h"

namespace Orv {

// `left`, then a "/" unless `left` is empty or ends in "/", then `right`. A left text that ends in a backslash gets a
// "/" all the same.
std::string JoinPath(const std::string& left, const std::string& right);

// The files of one folder that match a mask, in the order of the file system's search. Folders are passed over. A
// missing folder is an end at once. Belongs to one thread; reads the disk.
class FileFinder {
public:
    // `mask` is "*" and an extension, such as "*.wav"; the case of A to Z is ignored.
    FileFinder(const std::string& folder, const std::string& mask);
    // The next file, with the folder in front. False at the end; the search is closed by then.
    bool Next(std::string& path);

private:
    std::string folder_;
    std::unique_ptr<Platform::IFolderSearch> search_;
};

// Paths in the order in which they are to be played.
using PathList = std::list<std::string>;

// The folder's "*.wav" files, then its "*.raw" files, each in the finder's order.
PathList FindPlaylistFiles(const std::string& folder);
// Ascending by the bytes of the whole path, a shorter path before a longer one that starts with it.
void SortPlaylist(PathList& paths);
// Draws a key for each path, in the order of the list, and puts the list in the order of the keys; equal keys keep the
// list's order. `drawn` is told each key with its path as it is drawn.
void ShufflePlaylist(PathList& paths, const std::function<i32()>& draw,
                     const std::function<void(i32 key, const std::string& path)>& drawn);

// A channel's files still to be played. Each operation is whole by itself, from any thread, under a lock of moments;
// what has to hold across several of them is the channel's business.
class Playlist {
public:
    bool Empty() const;
    void Clear();
    void Assign(PathList paths);
    // Takes the front path out. False when there is none.
    bool TakeFront(std::string& path);

private:
    mutable Platform::Mutex mutex_;
    PathList paths_ ORV_GUARDED_BY(mutex_);
};

}  // namespace Orv
