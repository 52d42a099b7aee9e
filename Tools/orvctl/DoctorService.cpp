#include <map>

#include "Platform/Diagnosis.h"
#include "Platform/NamedPipe.h"
#include "Tools/orvctl/Doctor.h"

namespace Orv {
namespace {

using Platform::FolderState;
using Platform::SocketState;

constexpr double kStalledMilliseconds = 2000;
constexpr u64 kMegabyte = 1'048'576;
constexpr u64 kFullBytes = 1 * kMegabyte;
constexpr u64 kNearlyFullBytes = 100 * kMegabyte;

constexpr char kStart[] = "start it with `systemctl start orv-audio-feed` and look at `journalctl -u orv-audio-feed`";
constexpr char kDropIn[] =
    "give the user it runs as the right; a folder of your own needs ReadWritePaths= in the packaged unit as well "
    "(`systemctl edit orv-audio-feed`)";
constexpr char kRestart[] = "restart it with `systemctl restart orv-audio-feed`";

std::string TextOf(const Json& json, const char* key) {
    return json.contains(key) && json[key].is_string() ? json[key].get<std::string>() : std::string();
}
double NumberOf(const Json& json, const char* key) {
    return json.contains(key) && json[key].is_number() ? json[key].get<double>() : 0.0;
}

// The service remembers the last content that failed for as long as the feed lives; it may have been mended since.
void CheckBadContent(const std::string& feed, const Json& bad, const FeedPlan& plan, Ailments& ailments) {
    const std::string file = TextOf(bad, "name");
    if (ailments.Mentions("\"" + file + "\"")) return;
    const std::string what = feed + " could not play \"" + file + "\": " + TextOf(bad, "reason") + " (" +
                             std::to_string(static_cast<u64>(NumberOf(bad, "seconds_ago"))) + " s ago)";
    switch (LookAgain(plan, file)) {
        case Standing::Plays:
            ailments.Add(Severity::Note, what + "; it can be played now", "");
            return;
        case Standing::Gone:
            ailments.Add(Severity::Note, what + "; it is not to be played any more", "");
            return;
        case Standing::StillBad:
            break;
    }
    ailments.Add(Severity::Warning, what, "mend or remove it; it is tried again when its turn comes");
}

void CheckFeedState(const Json& feed, const FeedPlan& plan, Ailments& ailments) {
    const std::string pipe = feed.contains("row") ? TextOf(feed["row"], "pipename") : "";
    const std::string name = "The feed \"" + pipe + "\"";
    if (TextOf(feed, "state") == "dead") {
        ailments.Add(
            Severity::Fault, name + " has no thread, and plays nothing",
            "make room for threads (TasksMax= of the unit, ulimit -u), then `orvctl feed rebuild " + pipe + "`");
    }
    if (const std::string error = TextOf(feed, "pipe_error"); !error.empty()) {
        ailments.Add(Severity::Fault, name + " cannot serve its pipe: " + error,
                     "let the service's user write to the folder of the pipes (PipePath under [General]), end whatever "
                     "else serves that name, and raise LimitNOFILE= of the unit when too many files are open; it is "
                     "tried again at once");
    }
    if (const double waits = NumberOf(feed, "write_milliseconds"); waits > kStalledMilliseconds) {
        ailments.Add(
            Severity::Fault,
            name + " waits for a client that has taken nothing for " + std::to_string(static_cast<u64>(waits / 1000)) +
                " s, and so do its other clients",
            "end or mend that program; `ss -xp` shows who is connected to the pipe. With ClientStallSeconds=30 "
            "under [General] the service ends such clients by itself");
    }
    if (feed.contains("bad_content") && feed["bad_content"].is_object())
        CheckBadContent(name, feed["bad_content"], plan, ailments);
}

}  // namespace

void CheckState(const Json& state, const FeedPlan& plan, Ailments& ailments) {
    const Json& configuration = state["configuration"];
    const std::string link = TextOf(configuration, "state");
    if (link == "lost") {
        ailments.Add(Severity::Warning,
                     "Configuration lost, playing on: no change reaches the audio feed service any more", kRestart);
    } else if (link == "waiting") {
        ailments.Add(Severity::Fault, "The audio feed service has no connection to the Configuration service yet",
                     "see to it that orv-config runs and that confNIC, ConfPort, confUser and confPass are right; it "
                     "is tried each ten seconds");
    }
    for (const Json& feed : state["feeds"]) CheckFeedState(feed, plan, ailments);
}

void CheckSilence(const std::string& path, const std::string& reason, Ailments& ailments) {
    Platform::SystemError error = 0;
    const SocketState state = Platform::ProbeSocket(path, error);
    const std::string error_text = Platform::SystemErrorText(error);
    switch (state) {
        case SocketState::Absent:
            ailments.Add(Severity::Fault, "The audio feed service is down: nobody has made " + path, kStart);
            return;
        case SocketState::Stale:
            ailments.Add(Severity::Fault,
                         "The audio feed service is down: " + path + " is a stale socket, which it left at its end",
                         kStart);
            return;
        case SocketState::NotASocket:
            ailments.Add(Severity::Fault, path + " (StatusPath under [General]) is no socket",
                         "remove it or give another path, then " + std::string(kRestart));
            return;
        case SocketState::Unreachable:
            ailments.Add(Severity::Fault, "The audio feed service cannot be asked on " + path + ": " + error_text,
                         "run this as root or as a member of the service's group");
            return;
        case SocketState::Served:
            break;
    }
    ailments.Add(
        Severity::Fault, "The audio feed service does not answer on " + path + ": " + reason,
        "run this as root or as a member of the service's group; if it is so all the same, " + std::string(kRestart));
}

void CheckPipeFolder(const std::string& folder, ServiceLife service, LooksAs looksAs, Ailments& ailments) {
    const bool serviceRuns = service == ServiceLife::Runs;
    const std::string name = "The folder of the pipes, " + folder + ",";
    const FolderState state = Platform::ProbeFolder(folder);
    switch (state) {
        case FolderState::Missing:
            ailments.Add(
                serviceRuns ? Severity::Fault : Severity::Warning, name + " is missing",
                serviceRuns ? kRestart : "the service makes it when it may; see to the rights of the folder above");
            return;
        case FolderState::NotAFolder:
            ailments.Add(Severity::Fault, name + " is no folder",
                         "remove it, or give another PipePath under [General]");
            return;
        case FolderState::NotReadable:
        case FolderState::NotWritable:
            break;
        case FolderState::Usable:
            return;
    }
    const bool readable = state != FolderState::NotReadable;
    const std::string what = name + (readable ? " may not be written by " : " may not be read by ");
    if (looksAs == LooksAs::Service) {
        ailments.Add(Severity::Fault, what + "the service", kDropIn);
    } else if (readable) {
        ailments.Add(Severity::Warning, what + "this user",
                     "if the service runs as this user, give it the right; else run this as root or as that user");
    } else {
        ailments.Add(Severity::Note, what + "this user", "run this as root or as the service's user");
    }
}

void CheckLogFolder(const std::string& folder, Ailments& ailments) {
    const std::string nearest = NearestFolder(folder);
    if (Platform::ProbeFolder(nearest) == FolderState::Usable) return;
    ailments.Add(Severity::Warning,
                 "The service may not write its logs to " + folder +
                     (nearest == folder ? "" : ", which is missing: " + nearest + " is not for it to write to"),
                 kDropIn);
}

void CheckPipes(const std::vector<Row>& feeds, ServiceLife service, Ailments& ailments) {
    const bool serviceRuns = service == ServiceLife::Runs;
    std::map<std::string, std::string> pipeByFile;
    for (const Row& feed : feeds) {
        const std::string& pipe = feed.Text(FeedColumn::PipeName);
        const std::string file = Platform::PipeFileName(pipe);
        const auto [place, isNew] = pipeByFile.try_emplace(file, pipe);
        if (!isNew) {
            ailments.Add(
                Severity::Fault,
                "The feeds \"" + place->second + "\" and \"" + pipe + "\" have one pipe: both names stand for " + file,
                "give one of them another name with `orvctl feed set " + pipe + " --pipe NAME`");
            continue;
        }
        Platform::SystemError error = 0;
        const SocketState state = Platform::ProbePipe(pipe, error);
        if (state == SocketState::Stale) {
            ailments.Add(Severity::Fault,
                         "The pipe of the feed \"" + pipe + "\" is a stale socket, which nobody serves",
                         serviceRuns ? "build it anew with `orvctl feed rebuild " + pipe + "`" : kStart);
        } else if (state == SocketState::NotASocket) {
            ailments.Add(Severity::Fault, "Where the pipe of the feed \"" + pipe + "\" should be is a file: " + file,
                         "remove it from the folder of the pipes");
        } else if (state == SocketState::Absent && service != ServiceLife::Down) {
            // Of a service that is known to be down this is told once.
            const std::string rebuild = "build it anew with `orvctl feed rebuild " + pipe + "`";
            ailments.Add(
                Severity::Fault, "The pipe of the feed \"" + pipe + "\" is missing",
                serviceRuns ? rebuild : "if the service is down, " + std::string(kStart) + "; else " + rebuild);
        }
    }
}

void CheckDisk(const std::string& what, const std::string& path, Ailments& ailments) {
    u64 total = 0;
    u64 available = 0;
    Platform::SystemError error = 0;
    if (!Platform::DiskSpace(path, total, available, error)) return;
    // A small file system is nearly full by its own measure.
    const u64 little = std::min(kNearlyFullBytes, total / 20);
    const bool full = available < std::min(kFullBytes, total / 20);
    if (!full && available >= little) return;
    ailments.Add(full ? Severity::Fault : Severity::Warning,
                 "The disk of " + what + ", " + path + ", is " + (full ? "full" : "nearly full") + ": " +
                     std::to_string(available / 1024) + " KB are left",
                 "make room there: remove old logs, or move other files away");
}

}  // namespace Orv
