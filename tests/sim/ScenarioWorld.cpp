#include <cerrno>

#include "tests/sim/ModelAdpcm.h"
#include "tests/sim/Scenario.h"

namespace OrvSim {

namespace {

void Append32(std::string& bytes, u32 value) {
    for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<char>(value >> shift));
}

void Append16(std::string& bytes, u32 value) {
    bytes.push_back(static_cast<char>(value));
    bytes.push_back(static_cast<char>(value >> 8));
}

// Of 16-bit samples, or of 4-bit ones in blocks.
std::string WavHeader(u32 soundBytes, bool compressed) {
    std::string bytes = "RIFF";
    Append32(bytes, 36 + soundBytes);
    bytes += "WAVEfmt ";
    Append32(bytes, 16);
    Append16(bytes, compressed ? 17 : 1);
    Append16(bytes, 1);
    Append32(bytes, 8000);
    Append32(bytes, compressed ? 4055 : 16000);
    Append16(bytes, compressed ? kAdpcmBlock : 2);
    Append16(bytes, compressed ? 4 : 16);
    bytes += "data";
    Append32(bytes, soundBytes);
    return bytes;
}

}  // namespace

Scenario::Scenario(u64 seed, const ScenarioOptions& options, Platform::Sim::Simulation& sim, ModelWorld& world,
                   Checker& checker, ConfigSide& config)
    : rng_(seed), clockRng_(~seed), options_(options), sim_(sim), world_(world), checker_(checker), config_(config) {}

// Blocks whose headers are sound ones but for a few, with any nibbles; the last one may be short, even for a header.
std::string Scenario::MakeCompressed(u64 bytes) {
    std::string sound = WavHeader(static_cast<u32>(bytes), true);
    for (u64 at = 0; at < bytes; ++at) {
        u64 byte = rng_.Below(256);
        if (at % kAdpcmBlock == 2) byte = rng_.Chance(3) ? 89 + rng_.Below(167) : rng_.Below(89);
        sound.push_back(static_cast<char>(byte));
    }
    return sound;
}

// Noise of some loudness, up to full scale, with the lowest sample here and there; a few are odd, short or no sound.
std::string Scenario::MakeSound(bool wav) {
    const u64 longest = options_.seconds > 3600 ? 60 : 7;
    u64 bytes = 2 * (rng_.Chance(10) ? rng_.Below(1500) : rng_.Below(longest * 8000));
    if (rng_.Chance(10)) bytes = bytes / 8192 * 8192;
    if (rng_.Chance(10)) ++bytes;
    if (wav && rng_.Chance(25)) return MakeCompressed(bytes / 4);
    std::string sound = wav ? WavHeader(static_cast<u32>(bytes), false) : std::string();
    if (wav && rng_.Chance(5)) return "no sound at all, and longer than the shortest header of one";
    const i64 loudness = rng_.Chance(30) ? 32767 : rng_.Between(50, 20000);
    u64 noise = rng_.Next();
    const bool lowest = rng_.Chance(10);
    for (u64 at = 0; at + 1 < bytes; at += 2) {
        noise = noise * 6364136223846793005U + 1442695040888963407U;
        i64 sample = static_cast<i64>(noise >> 40) % (2 * loudness + 1) - loudness;
        if (lowest && (noise >> 33) % 500 == 0) sample = -32768;
        Append16(sound, static_cast<u32>(sample));
    }
    if (bytes % 2 != 0) sound.push_back('x');
    return sound;
}

std::string Scenario::NewPath(const std::string& folder) {
    return folder + "/" + std::string(1, static_cast<char>('a' + rng_.Below(26))) + std::to_string(nextFile_++) +
           (rng_.Chance(50) ? ".wav" : ".raw");
}

Row Scenario::MakeFeed(i32 id) {
    const i32 pause = static_cast<i32>(rng_.Between(1, 9));
    Row row;
    row.fields["idaudiofeed"] = id;
    row.fields["pipename"] = "p" + std::to_string(id);
    row.fields["thename"] = "f" + std::to_string(rng_.Below(folders_.size()));
    row.fields["feedtype"] =
        rng_.Chance(2) ? 7 : static_cast<i32>(rng_.Below(10) < 3 ? rng_.Below(2) : rng_.Between(2, 3));
    row.fields["nonstop"] = rng_.Chance(40) ? 1 : 0;
    row.fields["playannouncements"] = rng_.Chance(50) ? 1 : 0;
    row.fields["minannouncementpause"] = pause;
    row.fields["maxannouncementpause"] = pause + static_cast<i32>(rng_.Below(6));
    if (rng_.Chance(70)) row.fields["maxvolume"] = static_cast<i32>(rng_.Between(-1, 101));
    if (rng_.Chance(50)) row.fields["autogain"] = static_cast<i32>(rng_.Below(2));
    return row;
}

std::string Scenario::AnyFile() {
    const std::vector<std::string> paths = world_.disk.Paths();
    if (paths.empty() || rng_.Chance(5)) return "/nowhere/at/all.wav";
    if (rng_.Chance(3)) return "";
    return paths[rng_.Below(paths.size())];
}

// Under any of its names.
std::string Scenario::AnySource() {
    const std::string digit = std::to_string(rng_.Below(world_.live.size()));
    constexpr const char* forms[] = {"\\\\.\\pipe\\live", "live", "/any/where/Live"};
    const u64 form = rng_.Below(std::size(forms));
    return forms[form] + digit + (form == 0 ? "" : rng_.Chance(50) ? ".pipe" : ".PIPE");
}

std::vector<std::string> Scenario::BeginSources() {
    std::vector<std::string> paths;
    for (auto& [path, source] : world_.live) {
        source.Begin(sim_.Now());
        paths.push_back(path);
    }
    return paths;
}

Row Scenario::MakeAnnouncement(i32 id) {
    Row row;
    if (!rng_.Chance(4)) row.fields["idannouncement"] = id;
    row.fields["thename"] = "a" + std::to_string(rng_.Below(12));
    row.fields["thetype"] = static_cast<i32>(rng_.Below(3));
    row.fields["thefile"] = rng_.Chance(8) ? AnySource() : AnyFile();
    return row;
}

Row Scenario::Parameter(i32 id, const char* name, const std::string& value) const {
    Row row;
    row.fields["idparameter"] = id;
    row.fields["name"] = std::string(name);
    row.fields["value"] = value;
    return row;
}

void Scenario::Prepare() {
    for (const char* digit : {"0", "1"}) {
        const std::string path = std::string(kPipeRoot) + "live" + digit;
        world_.live.try_emplace(path, path, world_.levels);
    }
    sim_.Files().AddFile("/Bin/OrvPhoneSystem.ini",
                         "[General]\nAppDataPath=/data\n"
                         "[ConfService]\nconfNIC=10.0.0.1\nConfPort=5060\nconfUser=feeder\nconfPass=secret\n");
    const u64 folders = options_.feeds + 1;  // the last one stays empty at first
    for (u64 folder = 0; folder < folders; ++folder) {
        folders_.push_back(std::string(kRoot) + "/Playlist/f" + std::to_string(folder));
        sim_.Files().AddFolder(folders_.back());
        const u64 files = folder + 1 == folders ? 0 : rng_.Below(5);
        for (u64 file = 0; file < files; ++file) {
            const std::string path = NewPath(folders_.back());
            world_.disk.Add(path, MakeSound(path.ends_with(".wav")));
        }
    }
    for (const char* path : {"/data/default.wav", "/data/other.raw"}) {
        defaults_.push_back(path);
        world_.disk.Add(path, MakeSound(defaults_.back().ends_with(".wav")));
    }
    for (int file = 0; file < 3; ++file) {
        const std::string path = NewPath("/data/said");
        world_.disk.Add(path, MakeSound(path.ends_with(".wav")));
    }
    // Each pump gets a beat of its own. Two that open the same file at the same moment, while it vanishes, may find it
    // or not, and both are right.
    if (world_.exact) {
        checker_.beforeFirstPass = [this, beats = rng_.Fork()]() mutable { SleepOdd(beats, 0, 99); };
    }
    // Pipes that take a block in parts.
    if (rng_.Chance(15)) sim_.Pipes().SetWriteLimit(rng_.Between(100, 1999));
    config_.Put("PARAMETER", 1,
                Parameter(1, "SYSTEMLOGGINGLEVEL", std::to_string(rng_.Chance(60) ? 3 : rng_.Between(1, 5))));
    config_.Put("PARAMETER", 2, Parameter(2, "DEFAULTAUDIOFILE", defaults_[rng_.Below(2)]));
    config_.Put("PARAMETER", 3, Parameter(3, "IVRPROMPTPATH", kRoot));
    if (rng_.Chance(60)) {
        config_.Put("PARAMETER", 4, Parameter(4, "AUDIO_PROVIDER_MAX_VOLUME", std::to_string(rng_.Below(101))));
    }
    if (rng_.Chance(60)) config_.Put("PARAMETER", 5, Parameter(5, "AUDIO_PROVIDER_ENABLE_AUTOGAIN", "1"));
    for (u32 feed = 1; feed <= options_.feeds; ++feed) {
        Row row = MakeFeed(static_cast<i32>(feed));
        // Another feed's name from the start, in whatever case.
        if (feed > 1 && rng_.Chance(10)) row.fields["pipename"] = AnyCase(rng_, "p" + std::to_string(feed - 1));
        config_.Put("AUDIOFEED", static_cast<i32>(feed), row);
    }
    const u64 announcements = rng_.Below(5);
    for (u64 id = 1; id <= announcements; ++id) {
        config_.Put("ANNOUNCEMENT", static_cast<i32>(id), MakeAnnouncement(static_cast<i32>(id)));
    }
}

void Scenario::Play() {
    while (!checker_.Reloaded() && !Over()) Platform::SleepMilliseconds(1);
    Platform::SleepMilliseconds(200);
    std::vector<Platform::Thread> threads;
    for (u32 client = 0; client < 2 * options_.feeds; ++client) {
        threads.emplace_back("client", [this, rng = rng_.Fork()] { Clients(rng); });
    }
    threads.emplace_back("changes", [this, rng = rng_.Fork()] { ChangeThings(rng); });
    for (auto& [path, source] : world_.live) {
        threads.emplace_back("source", [this, rng = rng_.Fork(), &source = source] { ServeSource(rng, source); });
    }
    threads.emplace_back("disk", [this, rng = rng_.Fork()] { BreakDisk(rng); });
    const u64 end = sim_.Now() + options_.seconds * 1000 * kMillisecond;
    while (!Over() && sim_.Now() < end) Platform::SleepMilliseconds(500);
    over_ = true;
    for (Platform::Thread& thread : threads) thread.Join();
    if (!world_.Failed()) SettleDown();
}

void Scenario::SettleDown() {
    for (u32 second = 0; linkUp_ && second < 120 && !checker_.Settled(); ++second) Platform::SleepMilliseconds(1000);
    if (linkUp_ && !checker_.Settled()) world_.Fail("changes have not come two minutes later");
    // What follows from a link that was lost in the run's last moment is left to a thread that has yet to get its turn.
    if (!linkUp_) Platform::SleepMilliseconds(1000);
    CheckTables("at the end");
    if (!linkUp_ && world_.levels.Shows("Error") && !checker_.Saw("[EC000001]: "))
        world_.Fail("the loss of the connection is not told within a second");
}

}  // namespace OrvSim
