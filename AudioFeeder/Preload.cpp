#include "AudioFeeder/Preload.h"

#include <utility>

#include "AudioFeeder/Playlist.h"
#include "Platform/Files.h"
#include "Platform/Path.h"
#include "Platform/Sync.h"
#include "Projects/Common/VoIPFileEngine/ContentName.h"
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "Projects/Common/VoIPFileEngine/MemoryFilePreloader.h"
#include "ServiceProcess/Log.h"

namespace Orv {
namespace {

constexpr char kLogSource[] = "Preload";

constexpr u64 kMegabyte = 1'048'576;

// Set on the service's thread and read under a turn, which may be taken on another one.
struct Settings {
    Platform::Mutex mutex;
    PreloadSettings value ORV_GUARDED_BY(mutex);
};

Settings& TheSettings() {
    static Settings* const settings = new Settings;
    return *settings;
}

PreloadSettings CurrentSettings() {
    Settings& settings = TheSettings();
    Platform::LockGuard<Platform::Mutex> guard(settings.mutex);
    return settings.value;
}

bool IsAbsolute(const std::string& name) {
    return name.front() == '/' || name.front() == '\\';
}

// The sound files of that folder, or the file of that name; empty when there is neither.
PathList FilesOf(const std::string& name) {
    PathList paths = FindPlaylistFiles(name);
    SortPlaylist(paths);
    if (paths.empty() && IsSoundFileName(name) && Platform::PathExists(Platform::FindOnDisk(name))) {
        paths.push_back(name);
    }
    return paths;
}

}  // namespace

void SetPreload(PreloadSettings settings) {
    if (!settings.megabytesAreValid) {
        ORV_LOG(Warn) << "PreloadMegabytes is no number from 1 to " << PreloadSettings::MostMegabytes << ", "
                      << settings.megabytes << " is taken";
    }
    Settings& current = TheSettings();
    Platform::LockGuard<Platform::Mutex> guard(current.mutex);
    current.value = std::move(settings);
}

bool PreloadWanted() {
    return !CurrentSettings().names.empty();
}

void PreloadFiles(const std::string& root) {
    const PreloadSettings settings = CurrentSettings();
    MemoryFileCache::Instance().Clear();
    MemoryFilePreloader preloader(settings.megabytes * kMegabyte);
    for (const std::string& name : settings.names) {
        PathList paths = FilesOf(name);
        if (!IsAbsolute(name)) paths.splice(paths.end(), FilesOf(JoinPath(root, name)));
        if (paths.empty()) ORV_LOG(Warn) << "There is no sound file to preload under '" << name << "'";
        for (const std::string& path : paths) preloader.Load(path);
    }
    ORV_LOG(Info) << "Files preloaded: " << preloader.Files() << ", " << preloader.Bytes()
                  << " bytes, locked in memory: " << preloader.Locked();
}

}  // namespace Orv
