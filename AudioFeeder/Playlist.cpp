#include "AudioFeeder/Playlist.h"

#include <map>
#include <utility>

namespace Orv {

std::string JoinPath(const std::string& left, const std::string& right) {
    if (left.empty() || left.back() == '/') return left + right;
    return left + "/" + right;
}

FileFinder::FileFinder(const std::string& folder, const std::string& mask)
    : folder_(folder), search_(Platform::SearchFolder(folder, mask.substr(1))) {}

bool FileFinder::Next(std::string& path) {
    if (search_ == nullptr) return false;
    std::string name;
    bool isFolder = false;
    while (search_->Next(name, isFolder)) {
        if (isFolder) continue;
        path = JoinPath(folder_, name);
        return true;
    }
    search_.reset();
    return false;
}

PathList FindPlaylistFiles(const std::string& folder) {
    PathList paths;
    for (const char* mask : {"*.wav", "*.raw"}) {
        FileFinder finder(folder, mask);
        std::string path;
        while (finder.Next(path)) paths.push_back(path);
    }
    return paths;
}

void SortPlaylist(PathList& paths) {
    paths.sort();
}

void ShufflePlaylist(PathList& paths, const std::function<i32()>& draw,
                     const std::function<void(i32 key, const std::string& path)>& drawn) {
    std::multimap<i32, std::string> order;  // puts a key behind its equals
    while (!paths.empty()) {
        const i32 key = draw();
        const auto entry = order.emplace(key, std::move(paths.front()));
        paths.pop_front();
        drawn(key, entry->second);
    }
    for (auto& entry : order) paths.push_back(std::move(entry.second));
}

bool Playlist::Empty() const {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    return paths_.empty();
}

void Playlist::Clear() {
    Assign({});
}

void Playlist::Assign(PathList paths) {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    paths_.swap(paths);
}

bool Playlist::TakeFront(std::string& path) {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    if (paths_.empty()) return false;
    path = std::move(paths_.front());
    paths_.pop_front();
    return true;
}

}  // namespace Orv
