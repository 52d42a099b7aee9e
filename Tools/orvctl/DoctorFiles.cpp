#include <algorithm>
#include <map>

#include "Platform/Files.h"
#include "Platform/FolderSearch.h"
#include "Platform/Path.h"
#include "Projects/Common/VoIPFileEngine/ContentCheck.h"
#include "Projects/Common/VoIPFileEngine/ContentName.h"
#include "Tools/orvctl/Doctor.h"
#include "Tools/orvctl/ImportTarget.h"

namespace Orv {
namespace {

constexpr u32 kReadBytes = 65'536;
constexpr char kImport[] = "`orvctl import` brings files of other kinds into the form that is played";

std::string Join(const std::string& left, const std::string& right) {
    return Platform::AppendPath(left, right);
}

struct Folder {
    bool exists = false;
    std::vector<std::string> names;  // of the sound files
};

Folder ListFolder(const std::string& parent, const std::string& path) {
    Folder folder;
    std::string name;
    bool isFolder = false;
    const std::string last = Platform::LowerAscii(path.substr(path.find_last_of("/\\") + 1));
    const auto siblings = Platform::SearchFolder(parent, "");
    while (siblings->Next(name, isFolder)) {
        if (isFolder && Platform::LowerAscii(name) == last) folder.exists = true;
    }
    for (const char* extension : {".wav", ".raw"}) {
        const auto search = Platform::SearchFolder(path, extension);
        while (search->Next(name, isFolder)) {
            if (!isFolder) folder.names.push_back(name);
        }
    }
    std::sort(folder.names.begin(), folder.names.end());
    return folder;
}

bool IsPreloaded(const FeedPlan& plan, const std::string& path) {
    const std::string wanted = Platform::LowerAscii(path);
    return std::any_of(plan.preload.begin(), plan.preload.end(), [&](const std::string& name) {
        const bool absolute = name.front() == '/' || name.front() == '\\';
        std::string place = Platform::LowerAscii(absolute ? name : Join(plan.promptRoot, name));
        while (place.size() > 1 && place.back() == '/') place.pop_back();
        return wanted == place || wanted.rfind(place + "/", 0) == 0;
    });
}

std::string PlaylistFolder(const FeedPlan& plan) {
    return Platform::FindOnDisk(Join(plan.promptRoot, "Playlist"));
}

// A disk that fails may give a file's beginning all the same.
bool ReadsToItsEnd(const std::string& path) {
    Platform::SystemError error = 0;
    const auto file = Platform::OpenReadFile(path, error);
    if (file == nullptr) return true;  // it plays from elsewhere
    std::vector<u8> buffer(kReadBytes);
    for (u64 position = 0; position < file->Size();) {
        const u64 count = file->ReadAt(position, buffer.data(), buffer.size());
        if (count == 0) return false;
        position += count;
    }
    return true;
}

// Whether a row names the content by itself.
bool IsNamed(const FeedPlan& plan, const std::string& content) {
    const std::string wanted = NormaliseFileName(content);
    return wanted == NormaliseFileName(plan.defaultFile) ||
           std::any_of(plan.announcements.begin(), plan.announcements.end(), [&](const Row& row) {
               return wanted == NormaliseFileName(row.Text(AnnouncementColumn::TheFile));
           });
}

// Whether it is a file in the folder of a feed.
bool IsInPlaylist(const FeedPlan& plan, const std::string& content) {
    const std::string wanted = NormaliseFileName(content);
    const std::string playlists = PlaylistFolder(plan);
    return Platform::PathExists(Platform::FindOnDisk(wanted)) &&
           std::any_of(plan.feeds.begin(), plan.feeds.end(), [&](const Row& feed) {
               const std::string folder = NormaliseFileName(Join(playlists, feed.Text(FeedColumn::TheName))) + "/";
               return PlaysFolder(feed) && wanted.rfind(folder, 0) == 0;
           });
}

// Of names that differ in case alone, the service plays one: all lower case if there is such, else the bytewise
// smallest.
void CheckShadows(const std::string& folder, const std::vector<std::string>& names, Ailments& ailments) {
    std::map<std::string, std::vector<std::string>> byLower;
    for (const std::string& name : names) byLower[Platform::LowerAscii(name)].push_back(name);
    for (const auto& [lower, spellings] : byLower) {
        if (spellings.size() < 2) continue;
        const std::string found = Platform::FindOnDisk(Join(folder, lower));
        const std::string played = found.substr(found.rfind('/') + 1);
        for (const std::string& name : spellings) {
            if (name == played) continue;
            ailments.Add(
                Severity::Warning,
                "\"" + Join(folder, name) + "\" is never played: \"" + played + "\" has the same name in another case",
                "rename one of the two");
        }
    }
}

class ContentDoctor {
public:
    ContentDoctor(const FeedPlan& plan, Ailments& ailments) : plan_(plan), ailments_(ailments) {}

    void CheckDefault() {
        if (plan_.defaultFile.empty()) {
            ailments_.Add(Severity::Note, "There is no default audio file, so feeds without files are silent",
                          "set one with `orvctl parameter set DEFAULTAUDIOFILE FILE`");
            return;
        }
        const std::string why = WhyNotPlayable(plan_.defaultFile);
        defaultPlays_ = why.empty() || IsPreloaded(plan_, plan_.defaultFile);
        if (defaultPlays_) return;
        ailments_.Add(Severity::Fault, "The default audio file \"" + plan_.defaultFile + "\" does not play: " + why,
                      "set another one with `orvctl parameter set DEFAULTAUDIOFILE FILE`; " + std::string(kImport));
    }

    void CheckFeed(const Row& feed) {
        const std::string name = "The feed \"" + feed.Text(FeedColumn::PipeName) + "\"";
        if (!PlaysFolder(feed)) return;
        const std::string& folder = feed.Text(FeedColumn::TheName);
        const Severity severity = defaultPlays_ ? Severity::Warning : Severity::Fault;
        const std::string instead = defaultPlays_ ? "; it plays the default audio file" : "; it is silent";
        if (folder.empty()) {
            ailments_.Add(severity, name + " has no playlist folder" + instead,
                          "name one with `orvctl feed set " + feed.Text(FeedColumn::PipeName) + " --folder NAME`");
            return;
        }
        const std::string playlists = PlaylistFolder(plan_);
        const std::string path = Platform::FindOnDisk(Join(playlists, folder));
        const Folder found = ListFolder(playlists, path);
        if (found.names.empty()) {
            ailments_.Add(
                severity,
                name + (found.exists ? " has an empty playlist folder, " : " has no playlist folder ") + path + instead,
                "put .wav files into it, 8000 Hz, mono, 16 bits; " + std::string(kImport));
            return;
        }
        CheckShadows(path, found.names, ailments_);
        u64 good = 0;
        for (const std::string& file : found.names) good += CheckFile(name, Join(path, file)) ? 1 : 0;
        if (good == 0) {
            ailments_.Add(Severity::Fault, name + " has no file that plays in " + path + ", so it is silent", kImport);
        }
    }

    void CheckAnnouncement(const Row& row) {
        const std::string& file = row.Text(AnnouncementColumn::TheFile);
        const std::string why = WhyNotPlayable(file);
        if (why.empty() || IsPreloaded(plan_, file)) return;
        ailments_.Add(
            Severity::Warning,
            "The announcement \"" + row.Text(AnnouncementColumn::TheName) + "\" is not heard, \"" + file + "\": " + why,
            "give it another file with `orvctl announcement set`; " + std::string(kImport));
    }

private:
    bool CheckFile(const std::string& feed, const std::string& path) {
        const std::string why = WhyFileNotPlayable(path);
        if (why.empty() || IsPreloaded(plan_, path)) return true;
        // Two feeds may share a folder.
        if (!ailments_.Mentions("\"" + path + "\": ")) {
            ailments_.Add(Severity::Warning, feed + " passes over \"" + path + "\": " + why,
                          "mend or remove it; " + std::string(kImport));
        }
        return false;
    }

    const FeedPlan& plan_;
    Ailments& ailments_;
    bool defaultPlays_ = false;
};

}  // namespace

void CheckContents(const FeedPlan& plan, Ailments& ailments) {
    ContentDoctor doctor(plan, ailments);
    doctor.CheckDefault();
    for (const Row& feed : plan.feeds) doctor.CheckFeed(feed);
    for (const Row& row : plan.announcements) doctor.CheckAnnouncement(row);
}

void CheckHiddenFolders(const FeedPlan& plan, Ailments& ailments) {
    std::vector<std::string> paths = {plan.promptRoot, plan.defaultFile};
    for (const Row& row : plan.announcements) paths.push_back(row.Text(AnnouncementColumn::TheFile));
    for (const std::string& path : paths) {
        for (const char* folder : {"/home", "/root", "/tmp", "/var/tmp"}) {
            if (path.rfind(std::string(folder) + "/", 0) != 0) continue;
            ailments.Add(Severity::Note,
                         "\"" + path + "\" lies below " + folder + ", which the packaged unit hides from the service",
                         "put it elsewhere, below /var/lib/Orv/Data/Ivr/Prompts for instance");
        }
    }
}

Standing LookAgain(const FeedPlan& plan, const std::string& content) {
    const bool plays = IsPreloaded(plan, content) || WhyNotPlayable(content).empty();
    if (plays && ReadsToItsEnd(NormaliseFileName(content))) return Standing::Plays;
    if (!plan.known || IsNamed(plan, content) || IsInPlaylist(plan, content)) return Standing::StillBad;
    return Standing::Gone;
}

}  // namespace Orv
