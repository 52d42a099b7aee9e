#include "Tools/orvctl/Import.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "Platform/Files.h"
#include "Platform/NewFile.h"
#include "Platform/Path.h"
#include "Platform/ServiceControl.h"
#include "Platform/Sync.h"
#include "Platform/Terminal.h"
#include "Platform/Thread.h"
#include "Tools/orvctl/Converter.h"
#include "Tools/orvctl/ImportTarget.h"
#include "Tools/orvctl/Report.h"
#include "Tools/orvctl/ToolError.h"

namespace Orv {
namespace {

struct Imported {
    std::string source;
    std::string path;  // where it lies now
    Converted converted;
    bool replaced = false;
};

std::string Number(const char* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// A bar on standard error, when that is a terminal.
class ProgressBar {
public:
    ProgressBar(std::size_t files, bool wanted)
        : files_(files), live_(wanted && Platform::IsTerminal(Platform::StandardStream::Error)) {}
    ~ProgressBar() {
        if (live_) std::fputs("\r\033[K", stderr);
    }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void Show(std::size_t file, double share, const std::string& name) const {
        if (!live_) return;
        constexpr u32 kWidth = 30;
        const double done = (static_cast<double>(file) + std::clamp(share, 0.0, 1.0)) / static_cast<double>(files_);
        const auto filled = static_cast<std::size_t>(done * kWidth);
        const std::string line = "[" + std::string(filled, '#') + std::string(kWidth - filled, ' ') + "] " +
                                 Number("%3.0f", done * 100.0) + "%  " + std::to_string(file + 1) + "/" +
                                 std::to_string(files_) + "  " + name;
        std::fprintf(stderr, "\r\033[K%s", line.substr(0, Platform::TerminalWidth() - 1).c_str());
        std::fflush(stderr);
    }

private:
    const std::size_t files_;
    const bool live_;
};

// The folder itself, and the one above it for feeds; what is above that must be there.
void MakeFolder(const std::string& folder, bool ofFeed) {
    Platform::SystemError error = 0;
    const std::string above = folder.substr(0, folder.find_last_of('/'));
    const bool made = (ofFeed ? Platform::MakeOpenFolder(above, error) && Platform::MakeOpenFolder(folder, error)
                              : Platform::PathExists(folder) || Platform::MakeOpenFolder(folder, error));
    if (made) return;
    throw ToolError(ExitCode::Refused, "The folder " + folder + " cannot be made: " + Platform::SystemErrorText(error) +
                                           "; run this as root, or as who owns the folder above it");
}

// The stop of an import by a signal. As long as nothing was made it ends the process at once, whatever the connection
// waits for; from then on it is only noted.
class ImportStop {
public:
    explicit ImportStop(bool json) : json_(json), onSignal_([this] { Stop(); }) {}

    // Does not come back when there was a stop.
    void BeginMaking() {
        const Platform::LockGuard guard(mutex_);
        making_ = true;
    }
    const std::atomic<bool>& Noted() const { return noted_; }

private:
    void Stop() {
        const Platform::LockGuard guard(mutex_);
        if (!making_) {
            TellError("Stopped; no file was converted", ExitCode::FileRefused, json_);
            std::fflush(stdout);
            std::_Exit(static_cast<int>(ExitCode::FileRefused));
        }
        noted_.store(true, std::memory_order_relaxed);
    }

    const bool json_;
    Platform::Mutex mutex_;
    bool making_ ORV_GUARDED_BY(mutex_) = false;
    std::atomic<bool> noted_{false};
    const Platform::ForegroundStop onSignal_;  // the last one, since it calls Stop() until it is gone
};

class Importer {
public:
    Importer(const ImportTarget& target, const ImportOptions& options, const ConvertSettings& settings,
             const std::atomic<bool>& stop)
        : target_(target), options_(options), settings_(settings), stop_(stop) {}

    Imported Import(const std::string& source, const std::function<void(double)>& progress) {
        Imported outcome{source, {}, {}, false};
        try {
            ImportChecked(source, progress, outcome);
        } catch (const ToolError& error) {
            outcome.converted.refusal = error.what();
        }
        return outcome;
    }

private:
    void ImportChecked(const std::string& source, const std::function<void(double)>& progress, Imported& outcome) {
        std::string name = target_.fileName.empty() ? ImportedName(source) : target_.fileName;
        outcome.replaced = FindClash(name);
        const std::string path = target_.folder + "/" + name;
        // No name that a feed plays, nor one that another import uses at the same time.
        const std::string aside = target_.folder + "/." + std::to_string(Platform::CurrentThreadId()) + "-" +
                                  std::to_string(++counter_) + "." + name + ".new";
        Platform::SystemError error = 0;
        outcome.converted = ConvertFile(source, aside, settings_, progress, stop_);
        if (outcome.converted.refusal.empty() && !Platform::NameFile(aside, path, options_.replace, error)) {
            outcome.converted.refusal = error == Platform::PathExistsError()
                                            ? Clash(name)
                                            : "cannot be put into place: " + Platform::SystemErrorText(error);
        }
        Platform::SystemError ignored = 0;
        if (!outcome.converted.refusal.empty()) {
            Platform::RemoveFile(aside, ignored);
            return;
        }
        outcome.path = path;
        made_.insert(Platform::LowerAscii(name));
    }

    // Names that differ in case only are one name for the service. Whether there is a file to be replaced; `name` is
    // then as that one is spelled.
    bool FindClash(std::string& name) const {
        const std::string lower = Platform::LowerAscii(name);
        if (made_.count(lower) != 0) {
            throw ToolError(ExitCode::FileRefused,
                            "would replace " + name + ", which another file of this import became");
        }
        for (const std::string& there : PlayableFiles(target_.folder)) {
            if (Platform::LowerAscii(there) != lower) continue;
            if (!options_.replace) throw ToolError(ExitCode::FileRefused, Clash(there));
            name = there;
            return true;
        }
        return false;
    }

    std::string Clash(const std::string& name) const {
        return name + " is in the folder already; rename the source, or give --replace";
    }

    const ImportTarget& target_;
    const ImportOptions& options_;
    const ConvertSettings& settings_;
    const std::atomic<bool>& stop_;
    u32 counter_ = 0;
    std::set<std::string> made_;
};

std::string LengthText(double seconds) {
    const auto tenths = static_cast<i64>(std::llround(seconds * 10.0));
    char text[32];
    std::snprintf(text, sizeof text, "%lld:%02lld.%lld", static_cast<long long>(tenths / 600),
                  static_cast<long long>(tenths / 10 % 60), static_cast<long long>(tenths % 10));
    return text;
}

std::string BaseName(const std::string& path) {
    return path.substr(path.find_last_of('/') + 1);
}

void PrintTable(const std::vector<Imported>& outcomes) {
    std::vector<std::vector<std::string>> lines = {{"FILE", "WAS", "LENGTH", "LUFS", "LEVEL", "NOW", "NOTES"}};
    for (const Imported& outcome : outcomes) {
        const Converted& done = outcome.converted;
        if (!done.refusal.empty()) {
            lines.push_back({outcome.source, "-", "-", "-", "-", "refused", done.refusal});
            continue;
        }
        std::string notes = outcome.replaced ? "replaced" : "";
        for (const std::string& note : done.notes) notes += (notes.empty() ? "" : "; ") + note;
        lines.push_back(
            {outcome.source,
             done.format + " " + std::to_string(done.rate) + " Hz " + (done.channels == 1 ? "mono" : "stereo"),
             LengthText(done.seconds), done.lufs ? Number("%.1f", *done.lufs) : "-",
             Number("%+.1f dB", 20.0 * std::log10(done.factor)), BaseName(outcome.path), notes.empty() ? "-" : notes});
    }
    Print(AlignTable(lines));
}

Json ToJson(const std::vector<Imported>& outcomes, const ImportTarget& target, const ImportOptions& options) {
    Json json = {{"folder", TextToJson(target.folder)}, {"files", Json::array()}, {"heard", Json::array()}};
    json["targetlufs"] = options.keepLoudness ? Json() : Json(options.lufs);
    for (const std::string& sentence : target.heard) json["heard"].push_back(TextToJson(sentence));
    for (const Imported& outcome : outcomes) {
        const Converted& done = outcome.converted;
        Json file = {{"source", TextToJson(outcome.source)}};
        if (!done.refusal.empty()) {
            file["refused"] = TextToJson(done.refusal);
        } else {
            file.update({{"path", TextToJson(outcome.path)},
                         {"format", done.format},
                         {"rate", done.rate},
                         {"channels", done.channels},
                         {"seconds", done.seconds},
                         {"lufs", done.lufs ? Json(*done.lufs) : Json()},
                         {"leveldb", 20.0 * std::log10(done.factor)},
                         {"replaced", outcome.replaced},
                         {"notes", done.notes}});
        }
        json["files"].push_back(std::move(file));
    }
    return json;
}

// Null when there is none of that name.
const Row* FindByKey(const std::vector<Row>& rows, int column, const std::string& name) {
    const auto found = std::find_if(rows.begin(), rows.end(), [&](const Row& row) {
        return Platform::LowerAscii(row.Text(column)) == Platform::LowerAscii(name);
    });
    return found == rows.end() ? nullptr : &*found;
}

ImportTarget FindTargetFolder(const CommandContext& context, const Target& service, const ImportOptions& options,
                              bool& preloads) {
    Connection connection(*context.connector, service);
    const PromptSettings settings = FindPromptSettings(context.options.configFile);
    preloads = settings.preloads;
    const std::string root =
        options.prompts.empty() ? PromptsRoot(connection.Rows(Tables()[Parameter]), settings) : options.prompts;
    if (!Platform::PathExists(root)) {
        throw ToolError(ExitCode::BadCommandLine,
                        "The folder of the prompts, " + root + ", is not there. It comes from " +
                            (settings.file.empty() ? std::string("the usual place") : settings.file) +
                            " and the parameter IVRPROMPTPATH; name another one with --prompts");
    }
    if (!options.announcement.empty()) {
        const std::vector<Row> rows = connection.Rows(Tables()[Announcement]);
        return AnnouncementTarget(options.announcement,
                                  FindByKey(rows, AnnouncementColumn::TheName, options.announcement), root);
    }
    const std::vector<Row> feeds = connection.Rows(Tables()[AudioFeed]);
    const Row* feed = FindByKey(feeds, FeedColumn::PipeName, options.feed);
    if (feed == nullptr) {
        throw ToolError(ExitCode::NotFound, "There is no feed \"" + options.feed +
                                                "\"; make it with: orvctl feed add " + options.feed +
                                                " --type shuffled --folder " + options.feed);
    }
    return FeedTarget(*feed, feeds, root, PlayableFiles(FeedFolder(*feed, root)).size());
}

}  // namespace

void ImportFiles(const CommandContext& context, const ImportOptions& options) {
    if (options.feed.empty() == options.announcement.empty()) {
        throw ToolError(ExitCode::BadCommandLine, "Give --feed NAME or --announcement NAME: who is to play the files");
    }
    if (!options.announcement.empty() && options.files.size() != 1) {
        throw ToolError(ExitCode::BadCommandLine, "An announcement has one file");
    }
    ConvertSettings settings{FindConverter(), std::nullopt, options.memoryLimit, options.timeLimit};
    if (!options.keepLoudness) settings.lufs = options.lufs;
    // May ask for a password, and a stop signal ends that at once.
    const Target service = FindTarget(context.options);
    // Before the connection starts threads, on which a stop signal would end the process with a file half made.
    Platform::PrepareProcess();
    ImportStop stop(context.options.json);
    bool preloads = false;
    ImportTarget target = FindTargetFolder(context, service, options, preloads);
    stop.BeginMaking();
    MakeFolder(target.folder, !options.feed.empty());

    Importer importer(target, options, settings, stop.Noted());
    std::vector<Imported> outcomes;
    {
        const ProgressBar bar(options.files.size(), !context.options.json);
        for (const std::string& file : options.files) {
            const std::size_t number = outcomes.size();
            const auto progress = [&](double share) { bar.Show(number, share, file); };
            progress(0.0);
            outcomes.push_back(importer.Import(file, progress));
        }
    }
    const auto refused = static_cast<u64>(std::count_if(
        outcomes.begin(), outcomes.end(), [](const Imported& outcome) { return !outcome.converted.refusal.empty(); }));
    if (refused == outcomes.size()) target.heard.clear();
    if (preloads && std::any_of(outcomes.begin(), outcomes.end(), [](const Imported& o) { return o.replaced; })) {
        target.heard.push_back(
            "A replaced file that PreloadFiles holds in memory is heard after the service's restart.");
    }
    if (context.options.json) {
        PrintJson(ToJson(outcomes, target, options));
    } else {
        PrintTable(outcomes);
        std::string text =
            "\nFolder " + target.folder + ", 8000 Hz mono 16-bit, " +
            (options.keepLoudness ? "loudness as it was" : "loudness " + Number("%.1f LUFS", options.lufs)) + ".\n";
        for (const std::string& sentence : target.heard) text += sentence + "\n";
        Print(text);
    }
    if (refused == 0) return;
    throw ToolError(ExitCode::FileRefused, std::to_string(refused) + " of " + std::to_string(outcomes.size()) +
                                               (outcomes.size() == 1 ? " file was" : " files were") + " refused");
}

}  // namespace Orv
