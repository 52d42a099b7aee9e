#include "bench/orv-load/Exchange.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <regex>

#include "ConfigService/AdminProtocol.h"
#include "ConfigService/Wire.h"
#include "Tools/orvctl/ToolError.h"
#include "VX/GrpcLink.h"
#include "bench/orv-load/Marks.h"

namespace fs = std::filesystem;

namespace OrvLoad {
namespace {

constexpr u32 kRowsAtOnce = 1000;
constexpr char kAdmin[] = "admin";
constexpr char kFeeder[] = "feeder";
constexpr char kMusicFolder[] = "music";

constexpr i32 kDefaultSet = 0;
constexpr i32 kShuffled = 2;
constexpr i32 kSorted = 3;

std::string PasswordOf(const std::string& user) {
    return user + "-password";
}

i32 TypeOf(const std::string& type, u32 feed) {
    if (type == "default") return kDefaultSet;
    if (type == "sorted" || type == "marked" || type == "counted") return kSorted;
    if (type == "shuffled") return kShuffled;
    return feed % 2 == 0 ? kSorted : kShuffled;
}

// The first `count` pieces of a folder, in alphabetical order.
std::vector<std::string> Music(const std::string& folder, u32 count) {
    std::vector<std::string> files;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        const fs::path ending = entry.path().extension();
        if (ending == ".wav" || ending == ".raw") files.push_back(entry.path());
    }
    if (files.empty()) throw LoadError("No .wav or .raw file in " + folder + "; name a folder with --music");
    std::sort(files.begin(), files.end());
    if (files.size() > count) files.resize(count);
    return files;
}

Orv::Change Put(const char* table, const std::string& key, std::vector<std::pair<std::string, Orv::Value>> values) {
    return {table, Orv::Action::Put, 0, key, std::move(values)};
}

}  // namespace

std::string FirstPiece(const std::string& folder) {
    return Music(folder, 1).front();
}

bool HasCachedReads(const std::string& file) {
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) Fail("Cannot open " + file);
    char byte = 0;
    const iovec target{&byte, 1};
    const bool has = ::preadv2(descriptor, &target, 1, 0, RWF_NOWAIT) >= 0 || errno == EAGAIN;
    ::close(descriptor);
    return has;
}

// The pipes lie in memory, as those of an installed service do, below /run. On a disk each new name may take the kernel
// most of a millisecond for minutes after thousands were removed, which the end of every run does.
Exchange::Exchange(const ExchangeOptions& options)
    : options_(options),
      folder_(options.keep),
      pipes_(options.keep, ::access(kMemoryFolder, W_OK) == 0 ? kMemoryFolder : "/tmp") {
    if (!options.soundsIn.empty()) sounds_.emplace(options.keep, options.soundsIn);
    CopyMusic();
    StartConfig();
    FillTables();
}

void Exchange::CopyMusic() const {
    const fs::path playlist = fs::path(Prompts()) / "Playlist" / kMusicFolder;
    fs::create_directories(playlist);
    fs::create_directories(LogFolder());
    u32 pieces = options_.pieces;
    if (options_.type == "marked" || options_.type == "counted") {
        // In front of all others, so that the content begins with it.
        const std::string file = playlist / "0.wav";
        options_.type == "marked" ? WriteMarkedFile(file) : WriteCountedFile(file);
        --pieces;
    }
    for (const std::string& file : Music(options_.music, pieces)) {
        fs::copy_file(file, playlist / fs::path(file).filename());
    }
    if (options_.announcement.empty()) return;
    std::error_code error;
    fs::copy_file(options_.announcement, fs::path(Prompts()) / "announcement.wav", error);
    if (error) throw LoadError("Cannot copy " + options_.announcement + "; name a file with --announcement");
}

void Exchange::StartConfig() {
    const std::string program = options_.binaries + "/orv-config";
    const std::string database = folder_ / "c.db";
    for (const auto& [user, role] : {std::pair{kAdmin, "admin"}, std::pair{kFeeder, "reader"}}) {
        const std::string secret = folder_ / (std::string(user) + ".password");
        WriteText(secret, PasswordOf(user));
        Child adding({program, "user", "add", user, "--role", role, "--database", database, "--password-file", secret},
                     folder_ / "user.log");
        if (adding.WaitForEnd(30 * kSecond) != 0) throw LoadError("orv-config user: " + ReadText(folder_ / "user.log"));
    }
    const std::string log = folder_ / "config.log";
    config_ = Child({program, "serve", "--database", database, "--port", "0"}, log);
    const std::regex listening("listening on [^ ]*:([0-9]+)");
    std::smatch match;
    std::string text;
    WaitFor(30 * kSecond, [&] {
        text = ReadText(log);
        return std::regex_search(text, match, listening) || !config_.Running();
    });
    if (match.empty()) throw LoadError("orv-config did not start: " + text);
    port_ = static_cast<u32>(std::stoul(match[1]));
    WriteSettings();
}

void Exchange::WriteSettings() const {
    WriteText(folder_ / "feeder.ini", "[General]\nAppDataPath=" + (folder_ / "d") + "\nPipePath=" + pipes_.Path() +
                                          "\n[ConfService]\nconfNIC=127.0.0.1\nConfPort=" + std::to_string(port_) +
                                          "\nconfUser=" + kFeeder + "\nconfPass=" + PasswordOf(kFeeder) + "\n");
}

Orv::Connection& Exchange::Admin() {
    if (!connector_) connector_ = VX::CreateGrpcConnector();
    if (!admin_) {
        admin_ =
            std::make_unique<Orv::Connection>(*connector_, Orv::Target{"127.0.0.1", port_, kAdmin, PasswordOf(kAdmin)});
    }
    return *admin_;
}

void Exchange::Apply(const std::vector<Orv::Change>& changes) {
    Admin().Apply(changes);
}

void Exchange::FillTables() {
    std::vector<Orv::Change> changes = {
        Put("PARAMETER", "SYSTEMLOGGINGLEVEL", {{"value", std::to_string(options_.logLevel)}}),
        Put("PARAMETER", "AUDIO_PROVIDER_MAX_VOLUME", {{"value", std::to_string(options_.limit)}})};
    if (sounds_) changes.push_back(Put("PARAMETER", "IVRPROMPTPATH", {{"value", Prompts()}}));
    if (options_.type == "default") {
        for (const auto& entry : fs::directory_iterator(fs::path(Prompts()) / "Playlist" / kMusicFolder)) {
            changes.push_back(Put("PARAMETER", "DEFAULTAUDIOFILE", {{"value", entry.path().string()}}));
            break;
        }
    }
    for (u32 i = 0; i < options_.announcementRows && !options_.announcement.empty(); ++i) {
        changes.push_back(Put("ANNOUNCEMENT", "announcement" + std::to_string(i),
                              {{"thetype", i32{0}}, {"thefile", Prompts() + "/announcement.wav"}}));
    }
    Apply(changes);
    for (u32 first = 0; first < options_.feeds; first += kRowsAtOnce) {
        Apply(FeedRows(first, std::min(options_.feeds, first + kRowsAtOnce)));
    }
}

std::vector<Orv::Change> Exchange::FeedRows(u32 first, u32 end) const {
    std::vector<Orv::Change> changes;
    for (u32 feed = first; feed < end; ++feed) {
        changes.push_back(Put("AUDIOFEED", "f" + std::to_string(feed),
                              {{"thename", std::string(kMusicFolder)},
                               {"feedtype", TypeOf(options_.type, feed)},
                               {"nonstop", i32{options_.nonstop}},
                               {"playannouncements", i32{options_.announcements}},
                               {"minannouncementpause", options_.minPause},
                               {"maxannouncementpause", options_.maxPause}}));
    }
    return changes;
}

Orv::Change FeedChange(u32 feed, const char* column, i32 value) {
    return {"AUDIOFEED", Orv::Action::Set, 0, "f" + std::to_string(feed), {{column, value}}};
}

bool Exchange::ServiceIsConnected() {
    VX::ParamListHolder request;
    request.NewList();
    const VX::ParamListHolder status = Admin().Call(Orv::AdminProtocol::CallStatus, request);
    for (const VX::ParamListHolder& peer : Orv::GetLists(status, "peers")) {
        if (Orv::GetText(peer, "user") == kFeeder) return true;
    }
    return false;
}

Exchange::BuildTimes Exchange::StartService(i64 timeout) {
    const i64 start = Now();
    service_ = Child({options_.binaries + "/orv-audio-feed", "-c", folder_ / "feeder.ini"}, folder_ / "feeder.log");
    i64 connected = 0;
    u32 there = 0;
    const bool all = WaitFor(timeout, [&] {
        if (!service_.Running()) throw LoadError("orv-audio-feed has ended: " + ReadText(folder_ / "feeder.log"));
        if (connected == 0 && ServiceIsConnected()) connected = Now();
        while (there < options_.feeds && ::access(PipePath(there).c_str(), F_OK) == 0) ++there;
        return there == options_.feeds;
    });
    if (!all) throw LoadError("Pipe " + PipePath(there) + " did not come");
    const i64 end = Now();
    return {end - start, end - (connected != 0 ? connected : start)};
}

i64 Exchange::StopService(i64 timeout) {
    const i64 start = Now();
    service_.AskToStop();
    const int code = service_.WaitForEnd(timeout);
    const i64 took = Now() - start;
    if (code != 0) {
        throw LoadError("orv-audio-feed did not end as it should: " + service_.Ending() + "\n" +
                        ReadText(folder_ / "feeder.log"));
    }
    return took;
}

std::string Exchange::PipePath(u32 feed) const {
    return pipes_ / ("f" + std::to_string(feed));
}

std::vector<Seat> Exchange::Seats(u32 clients) const {
    std::vector<Seat> seats;
    for (u32 client = 0; client < clients; ++client) {
        const u32 feed = client % options_.feeds;
        seats.push_back({PipePath(feed), feed});
    }
    return seats;
}

bool Exchange::HasCachedReads() const {
    return OrvLoad::HasCachedReads(FirstPiece(Prompts() + "/Playlist/" + kMusicFolder));
}

u64 Exchange::BackedUpLogs() const {
    u64 count = 0;
    std::error_code error;
    for (const auto& entry : fs::recursive_directory_iterator(LogFolder() + "/Backup", error)) {
        count += entry.is_regular_file() ? 1 : 0;
    }
    return count;
}

}  // namespace OrvLoad
