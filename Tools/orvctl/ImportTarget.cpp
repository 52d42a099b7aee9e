#include "Tools/orvctl/ImportTarget.h"

#include <algorithm>

#include "ConfigService/Schema.h"
#include "Platform/Files.h"
#include "Platform/FolderSearch.h"
#include "Platform/Path.h"
#include "ServiceProcess/CommonSettings.h"
#include "ServiceProcess/DataDirectory.h"
#include "ServiceProcess/PreloadSettings.h"
#include "Tools/orvctl/SettingsText.h"
#include "Tools/orvctl/ToolError.h"

namespace Orv {
namespace {

constexpr char kServiceFile[] = "/etc/orv/OrvPhoneSystem.ini";
constexpr i64 kShuffled = 2;
constexpr i64 kSorted = 3;

[[noreturn]] void Refuse(const std::string& text) {
    throw ToolError(ExitCode::Refused, text);
}

bool ReadPromptSettings(const std::string& path, PromptSettings& found) {
    CommonSettings settings;
    if (path.empty() || !Platform::PathExists(path) || !settings.Load(path.c_str())) return false;
    // It may be the one that names the folder, only further behind.
    if (!settings.whole) throw ToolError(ExitCode::BadCommandLine, CutShort(path));
    const SettingsValue data = settings.GetValue("[General].AppDataPath");
    if (!data.Exists()) return false;
    found = {path, data.AsString(), settings.GetValue("[General].PreloadFiles").Exists()};
    return true;
}

// As the service finds it: relative to its own working folder, whatever the case.
std::string OnDisk(const std::string& path) {
    const bool absolute = !path.empty() && (path.front() == '/' || path.front() == '\\');
    std::string whole;
    if (!Platform::MakeAbsolutePath(absolute ? path : Platform::AppendPath(GetDataDirectory(), path), whole))
        return path;
    return Platform::FindOnDisk(whole);
}

bool EndsIn(const std::string& text, const std::string& end) {
    return text.size() > end.size() && Platform::LowerAscii(text).ends_with(end);
}

}  // namespace

PromptSettings FindPromptSettings(const std::string& path) {
    PromptSettings found;
    const std::string usual = Platform::ProgramDataFolder() + "/Orv/Bin/OrvPhoneSystem.ini";
    for (const std::string& file : {path, std::string(kServiceFile), usual}) {
        if (ReadPromptSettings(file, found)) return found;
    }
    found.dataPath = Platform::ProgramDataFolder() + "/Orv/";
    return found;
}

std::string PromptsRoot(const std::vector<Row>& parameters, const PromptSettings& settings) {
    for (const Row& row : parameters) {
        if (row.Text(ParameterColumn::Name) == "IVRPROMPTPATH" && !row.Text(ParameterColumn::Value).empty()) {
            return OnDisk(row.Text(ParameterColumn::Value));
        }
    }
    return OnDisk(Platform::AppendPath(settings.dataPath, "Data/Ivr/Prompts"));
}

bool PlaysFolder(const Row& feed) {
    return feed.Number(FeedColumn::FeedType) == kShuffled || feed.Number(FeedColumn::FeedType) == kSorted;
}

std::string FeedFolder(const Row& feed, const std::string& root) {
    return OnDisk(root + "/Playlist/" + feed.Text(FeedColumn::TheName));
}

ImportTarget FeedTarget(const Row& feed, const std::vector<Row>& feeds, const std::string& root, u64 filesThere) {
    const std::string name = feed.Text(FeedColumn::PipeName);
    if (!PlaysFolder(feed)) {
        Refuse("feed \"" + name + "\" plays the default stream, no folder; let it play one with: orvctl feed set " +
               name + " --type shuffled --folder " + name);
    }
    if (feed.Text(FeedColumn::TheName).empty()) {
        Refuse("feed \"" + name + "\" has no folder; give it one with: orvctl feed set " + name + " --folder " + name);
    }
    ImportTarget target;
    target.folder = FeedFolder(feed, root);
    if (filesThere == 0) {
        target.heard.push_back("Feed \"" + name +
                               "\" builds its list at the end of the default audio file, which it plays while its "
                               "folder is empty.");
    } else {
        target.heard.push_back("Feed \"" + name + "\" builds its list anew, with what is new, when all " +
                               std::to_string(filesThere) + (filesThere == 1 ? " file" : " files") +
                               " of its present round have been played.");
    }
    for (const Row& other : feeds) {
        const bool shares = PlaysFolder(other) && !other.Text(FeedColumn::TheName).empty() && other.id != feed.id &&
                            FeedFolder(other, root) == target.folder;
        if (shares) {
            target.heard.push_back("Feed \"" + other.Text(FeedColumn::PipeName) +
                                   "\" plays the same folder, and does so at its own next round.");
        }
    }
    target.heard.push_back("To build it at once: orvctl feed rebuild " + name +
                           ", which makes its clients connect again; a change of its --max-volume or --autogain does "
                           "it without that.");
    return target;
}

ImportTarget AnnouncementTarget(const std::string& name, const Row* announcement, const std::string& root) {
    const std::string file = announcement == nullptr ? "" : announcement->Text(AnnouncementColumn::TheFile);
    ImportTarget target;
    if (file.empty()) {
        target.folder = root;
        target.fileName = ImportedName(name + ".wav");
        if (name.find_first_of("/\\") != std::string::npos) {
            Refuse("announcement \"" + name +
                   "\": a file cannot be called so, since its name holds a separator of folders");
        }
        const std::string path = root + "/" + target.fileName;
        target.heard = {announcement == nullptr
                            ? "It is not drawn yet. Add it with: orvctl announcement add " + name + " --file " + path +
                                  " --kind over"
                            : "Announcement \"" + name +
                                  "\" has no file yet. Give it this one with: orvctl announcement set " + name +
                                  " --file " + path};
        return target;
    }
    const std::string set = "; name a file with: orvctl announcement set " + name + " --file PATH.wav";
    if (Platform::LowerAscii(file).starts_with("\\\\.\\pipe\\") || EndsIn(file, ".pipe")) {
        Refuse("announcement \"" + name + "\" plays the live source " + file + set);
    }
    if (!EndsIn(file, ".wav")) Refuse("announcement \"" + name + "\" plays " + file + ", which is no WAV file" + set);
    const std::string path = OnDisk(file);
    const std::size_t slash = path.find_last_of('/');
    target.folder = slash == 0 ? "/" : path.substr(0, slash);
    target.fileName = path.substr(slash + 1);
    target.heard = {"At once: from the next time that announcement \"" + name + "\" is drawn."};
    return target;
}

std::vector<std::string> PlayableFiles(const std::string& folder) {
    std::vector<std::string> names;
    for (const char* extension : {".wav", ".raw"}) {
        const auto search = Platform::SearchFolder(folder, extension);
        std::string name;
        bool isFolder = false;
        while (search->Next(name, isFolder)) {
            if (!isFolder) names.push_back(name);
        }
    }
    return names;
}

std::string ImportedName(const std::string& source) {
    const std::size_t slash = source.find_last_of('/');
    std::string name = slash == std::string::npos ? source : source.substr(slash + 1);
    const std::size_t dot = name.find_last_of('.');
    if (dot != std::string::npos && dot != 0) name.resize(dot);
    const bool control = std::any_of(name.begin(), name.end(), [](char c) { return static_cast<u8>(c) < 0x20; });
    // What begins with a dot is hidden from people, and a backslash separates folders for the service.
    const bool usable = !name.empty() && name.front() != '.' && name.find('\\') == std::string::npos && !control;
    if (!usable || name.size() > 240) {
        throw ToolError(
            ExitCode::FileRefused,
            "has a name that the service could not use (empty, hidden, too long, with a backslash or a control "
            "character); rename it first");
    }
    return name + ".wav";
}

}  // namespace Orv
