// Goal: no name makes a program bind, write or open what the rules do not allow, or say what is not true in its log.
// Method: seeded hostile values in every place where a name can stand, the file system compared before and behind, and
// what the processes hold open looked at while they run.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <random>
#include <regex>
#include <set>
#include <sstream>

#include "ConfigService/AdminProtocol.h"
#include "ConfigService/Wire.h"
#include "VX/GrpcLink.h"
#include "tests/ConfigClient/FakeConfigService.h"
#include "tests/e2e/Exchange.h"
#include "tests/faults/HostileValues.h"
#include "tests/faults/Traces.h"
#include "tests/support/Effort.h"

namespace fs = std::filesystem;

namespace OrvTest {
namespace {

class HostileNames : public ::testing::Test {
protected:
    HostileNames() : values_(20240531, exchange_.Folder().Path()) {
        // Deep enough that a few "../" stay where they are seen.
        pipes_ = exchange_.Folder() / "deep/er/still/p";
        outside_ = exchange_.Folder() / "outside";
        fs::create_directories(exchange_.Folder() / "deep/er/still");
        fs::create_directories(outside_);
        WriteFileText(outside_ + "/kept.wav", "kept");
        fs::create_symlink("/dev/zero", outside_ + "/zero.raw");
        EXPECT_EQ(::mkfifo((outside_ + "/fifo.wav").c_str(), 0666), 0);
        const std::string playlist = exchange_.AddFolder("Playlist");
        fs::create_symlink(outside_, playlist + "/link");
        fs::create_symlink(".", playlist + "/loop");
        fs::create_symlink(outside_ + "/kept.wav", playlist + "/outside.wav");
        fs::create_symlink("/dev/zero", playlist + "/zero.raw");
        EXPECT_EQ(::mkfifo((playlist + "/fifo.wav").c_str(), 0666), 0);
        for (const auto& entry : fs::recursive_directory_iterator(exchange_.Folder().Path()))
            exchange_.Own(entry.path());
        logs_ = exchange_.Folder() / "d/Data/Logs";
    }

    void WriteSettings(const std::string& port, const std::string& more = "") {
        WriteFileText(exchange_.SettingsFile(), "[General]\nAppDataPath=" + (exchange_.Folder() / "d") +
                                                    "\nPipePath=" + pipes_ + "\n" + more +
                                                    "[ConfService]\nconfNIC=127.0.0.1\nConfPort=" + port +
                                                    "\nconfUser=feeder\nconfPass=feeder-password\n");
        exchange_.Own(exchange_.SettingsFile());
    }
    std::map<std::string, std::string> Disk(std::vector<std::string> free = {}) const {
        free.insert(free.end(),
                    {logs_, pipes_, exchange_.Folder() / "feeder.out", exchange_.Folder() / "feeder.err",
                     exchange_.Folder() / "config.log", exchange_.SettingsFile(), exchange_.Folder() / "bin",
                     exchange_.Database(), exchange_.Database() + "-wal", exchange_.Database() + "-shm"});
        return Snapshot(exchange_.Folder().Path(), free);
    }
    // Each line of the service's log begins as the rules say: no value has made one of its own.
    static void ExpectWholeLines(const std::string& text) {
        const std::regex whole(
            "[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}\\|[0-9]{8,}\\|.{5}\\|[A-Za-z]*(\\([0-9]+\\))?: |#Date: |"
            "    (application|local|remote):");  // who has connected is told in four lines
        std::istringstream log(text);
        for (std::string line; std::getline(log, line);) {
            if (!std::regex_search(line.substr(0, 100), whole, std::regex_constants::match_continuous)) {
                ADD_FAILURE() << "no whole line: " << line.substr(0, 300);
                return;
            }
            EXPECT_FALSE(line.starts_with("13:05:09.123|00000001|")) << line;
        }
    }
    // While the service runs: it has bound sockets in the folder of the pipes alone, and opened files to read alone.
    // `linked` is a file of the system's that a link of the test's own lets it read.
    void ExpectNothingOutside(const std::string& linked = "") {
        const pid_t feeder = exchange_.Feeder().Pid();
        for (const std::string& path : BoundBy(feeder)) {
            const bool inside =
                path.starts_with(pipes_ + "/") && path.find('/', pipes_.size() + 1) == std::string::npos;
            EXPECT_TRUE(inside) << "bound: " << path;
        }
        for (const std::string& open : Suspicious(feeder, logs_)) {
            EXPECT_EQ(open, linked);
        }
        if (fs::exists(pipes_)) {
            for (const auto& entry : fs::recursive_directory_iterator(pipes_)) {
                EXPECT_TRUE(fs::is_socket(fs::symlink_status(entry.path()))) << entry.path();
            }
        }
    }

    Exchange exchange_;
    HostileValues values_;
    std::string pipes_;
    std::string outside_;
    std::string logs_;
};

TEST_F(HostileNames, TheLooksAtDiskAndProcessSeeWhatIsThere) {
    const auto before = Disk();
    WriteFileText(outside_ + "/kept.wav", "changed");
    const std::string path = outside_ + "/new";
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const int device = ::open("/dev/zero", O_RDONLY);
    const int written = ::open((outside_ + "/kept.wav").c_str(), O_WRONLY);
    const int logged = ::open((logs_ + "/log").c_str(), O_WRONLY | O_CREAT, 0600);
    EXPECT_TRUE(BoundBy(::getpid()).contains(path));
    EXPECT_TRUE(Suspicious(::getpid(), logs_).contains("/dev/zero"));
    EXPECT_TRUE(Suspicious(::getpid(), logs_).contains(outside_ + "/kept.wav"));
    EXPECT_FALSE(Suspicious(::getpid(), logs_).contains(logs_ + "/log"));
    EXPECT_EQ(Difference(before, Disk()), "changed: " + outside_ + "/kept.wav\nnew: " + path + "\n");
    for (const int each : {socket, device, written, logged}) ::close(each);
}

// The rows come from a service of the test's own, which takes what orv-config refuses.
TEST_F(HostileNames, InRowsTheyBindAndOpenNothingThatTheRulesDoNotAllow) {
    const int rounds = Effort(3, 16);
    constexpr int kRows = 40;
    long most = 0;
    int sockets = 0;
    for (int round = 0; round < rounds; ++round) {
        FakeConfigService service;
        const auto value = [&] { return values_.Next(false); };
        for (i32 id = 1; id <= kRows; ++id) {
            const std::string texts[] = {value(), value(), value(), value()};
            service.tables["AUDIOFEED"][id] = MakeRow({{"idaudiofeed", id},
                                                       {"pipename", texts[0].c_str()},
                                                       {"thename", texts[1].c_str()},
                                                       {"feedtype", 2 + id % 2},
                                                       {"nonstop", 1},
                                                       {"playannouncements", 1}});
            service.tables["ANNOUNCEMENT"][id] = MakeRow({{"idannouncement", id},
                                                          {"thename", texts[2].c_str()},
                                                          {"thetype", id % 2},
                                                          {"thefile", texts[3].c_str()}});
        }
        const std::string file = value();
        service.tables["PARAMETER"][1] =
            MakeRow({{"idparameter", 1}, {"name", "DEFAULTAUDIOFILE"}, {"value", file.c_str()}});
        service.tables["PARAMETER"][2] = MakeRow({{"idparameter", 2}, {"name", "SYSTEMLOGGINGLEVEL"}, {"value", "3"}});
        const std::string good = "good" + std::to_string(round);
        service.tables["AUDIOFEED"][kRows + 1] =
            MakeRow({{"idaudiofeed", 99}, {"pipename", good.c_str()}, {"thename", "none"}, {"feedtype", 3}});
        std::string reason;
        const auto server = VX::CreateGrpcServer("127.0.0.1", 0, service, reason);
        ASSERT_NE(server, nullptr) << reason;
        WriteSettings(std::to_string(server->Port()));
        const auto before = Disk();

        exchange_.StartFeeder(true);
        ASSERT_TRUE(exchange_.WaitForLog(" as " + good + "[", 30'000));
        // A few announcements of each feed, whose lead-in takes a second.
        const std::size_t played = exchange_.LogTexts("Play announcement: ").size();
        EXPECT_TRUE(exchange_.WaitForLog("Play announcement: ", 30'000, played + 60));
        for (int look = 0; look < 5; ++look) ExpectNothingOutside();
        sockets += static_cast<int>(BoundBy(exchange_.Feeder().Pid()).size());
        EXPECT_TRUE(fs::is_socket(pipes_ + "/" + good));
        const std::string status = ReadFileText("/proc/" + std::to_string(exchange_.Feeder().Pid()) + "/status");
        most = std::max(most, std::stol(status.substr(status.find("VmHWM:") + 6)));
        ASSERT_EQ(exchange_.Feeder().Stop(30'000), 0);
        EXPECT_EQ(Difference(before, Disk()), "");
        EXPECT_TRUE(!fs::exists(pipes_) || fs::is_empty(pipes_)) << "no socket is left";
    }
    ExpectWholeLines(exchange_.LogText());
    std::printf("%d hostile values in rows, %d sockets bound, %ld kB at most\n", values_.Given(), sockets, most);
    EXPECT_GE(values_.Given(), 300);
    EXPECT_LT(most, 200 * 1024);
}

// A file plays for an eighth of a second: ten feeds share them.
TEST_F(HostileNames, AsFilesOfPlaylistsEachIsPlayedOrPassedOver) {
    constexpr int kFeeds = 10;
    const std::string sound(2000, '\x10');
    FakeConfigService service;
    std::vector<std::string> folders;
    for (int feed = 0; feed < kFeeds; ++feed) {
        const std::string name = "music" + std::to_string(feed);
        folders.push_back(exchange_.AddFolder("Playlist/" + name));
        fs::create_symlink("/dev/zero", folders.back() + "/dev.raw");
        fs::create_symlink(folders.back() + "/self.raw", folders.back() + "/self.raw");
        fs::create_symlink("/proc/self/environ", folders.back() + "/environ.raw");
        EXPECT_EQ(::mkfifo((folders.back() + "/pipe.raw").c_str(), 0666), 0);
        service.tables["AUDIOFEED"][feed + 1] = MakeRow({{"idaudiofeed", feed + 1},
                                                         {"pipename", name.c_str()},
                                                         {"thename", name.c_str()},
                                                         {"feedtype", 3},
                                                         {"nonstop", 1}});
    }
    std::set<std::string> names{"dev.raw", "self.raw", "environ.raw", "pipe.raw"};
    const std::size_t wanted = names.size() + static_cast<std::size_t>(Effort(100, 400));
    while (names.size() < wanted) {
        std::string name = values_.Next(false).substr(0, 200);
        std::replace(name.begin(), name.end(), '/', '_');
        name += names.size() % 2 == 0 ? ".raw" : ".wav";
        if (!names.insert(name).second) continue;
        const std::string path = folders[names.size() % kFeeds] + "/" + name;
        WriteFileText(path, sound);
        exchange_.Own(path);
    }
    service.tables["PARAMETER"][1] = MakeRow({{"idparameter", 1}, {"name", "SYSTEMLOGGINGLEVEL"}, {"value", "3"}});
    std::string reason;
    const auto server = VX::CreateGrpcServer("127.0.0.1", 0, service, reason);
    ASSERT_NE(server, nullptr) << reason;
    WriteSettings(std::to_string(server->Port()));
    const auto before = Disk();
    exchange_.StartFeeder(true);
    std::set<std::string> waiting;
    const bool all = Eventually(
        [&] {
            waiting = names;
            for (const std::string& text : exchange_.LogTexts("Start next audio file ")) {
                waiting.erase(text.substr(text.rfind('/') + 1));
            }
            return waiting.empty();
        },
        120'000);
    EXPECT_TRUE(all) << waiting.size() << " never began: " << ::testing::PrintToString(waiting);
    // A link is followed to whatever regular file it leads to, the service's own environment too, which plays as sound.
    const std::string environment = "/proc/" + std::to_string(exchange_.Feeder().Pid()) + "/environ";
    for (int look = 0; look < 20; ++look) ExpectNothingOutside(environment);
    ASSERT_EQ(exchange_.Feeder().Stop(30'000), 0);
    EXPECT_EQ(Difference(before, Disk()), "");
    ExpectWholeLines(exchange_.LogText());
    std::printf("%zu hostile file names, and links and a pipe, each begun\n", wanted - 4);
}

// The exception to one line for each event: a statement is written as it stands, and a file's name may hold a line
// feed.
TEST_F(HostileNames, ALineFeedInTheNameOfASoundFileContinuesItsLineOnTheNextAndNothingElseDiffers) {
    pipes_ = exchange_.PipeFolder();  // a client listens
    const std::string folder = exchange_.AddFolder("Playlist/music");
    for (const auto& [name, sample] : {std::pair{"/a.raw", '\x10'}, {"/b\nc.raw", '\x20'}, {"/d.raw", '\x08'}}) {
        WriteFileText(folder + name, std::string(8000, sample));
        exchange_.Own(folder + name);
    }
    FakeConfigService service;
    service.tables["AUDIOFEED"][1] =
        MakeRow({{"idaudiofeed", 1}, {"pipename", "music"}, {"thename", "music"}, {"feedtype", 3}, {"nonstop", 1}});
    service.tables["PARAMETER"][1] = MakeRow({{"idparameter", 1}, {"name", "SYSTEMLOGGINGLEVEL"}, {"value", "3"}});
    std::string reason;
    const auto server = VX::CreateGrpcServer("127.0.0.1", 0, service, reason);
    ASSERT_NE(server, nullptr) << reason;
    WriteSettings(std::to_string(server->Port()));
    exchange_.StartFeeder(true);
    {
        Client client(exchange_, "music");
        Model::Block block;
        block.fill(0x2020);
        EXPECT_TRUE(Eventually(
            [&] {
                const std::vector<Model::Block> heard = client.Blocks();
                return std::find(heard.begin(), heard.end(), block) != heard.end();
            },
            60'000));
        EXPECT_TRUE(exchange_.WaitForLog("/d.raw opened as", 60'000));
    }
    ASSERT_EQ(exchange_.Feeder().Stop(30'000), 0);

    // The line feed and what follows it stand as they are. With a letter instead, each line is whole, and the same is
    // told of this file as of the one before.
    const std::string name = "/b\nc.raw";
    std::string text = exchange_.LogText();
    EXPECT_NE(text.find("Start next audio file " + folder + name + "\n"), std::string::npos);
    for (auto at = text.find(name); at != std::string::npos; at = text.find(name))
        text.replace(at, name.size(), "/b+c.raw");
    ExpectWholeLines(text);
    const auto told = [&](const std::string& file) {
        std::set<std::string> kinds;
        std::istringstream log(text);
        for (std::string line; std::getline(log, line);) {
            const auto at = line.find(file);
            if (at == std::string::npos) continue;
            const auto source = line.find('|', line.find('|', line.find('|') + 1) + 1);
            kinds.insert(line.substr(source, at - source) + line.substr(at + file.size()));
        }
        return kinds;
    };
    EXPECT_GE(told("/a.raw").size(), 4u) << "begun, opened, shared and let go";
    EXPECT_EQ(told("/b+c.raw"), told("/a.raw"));
}

TEST_F(HostileNames, InSettingsTheyWriteNothingOutsideTheFolderOfTheLogs) {
    const int rounds = Effort(5, 40);
    constexpr int kTogether = 4;
    const auto folder = [&](int i) { return exchange_.Folder() / ("d/s" + std::to_string(i)); };
    const auto log = [&](int i) {
        std::string text;
        for (const auto& entry : fs::recursive_directory_iterator(folder(i) + "/Data/Logs")) {
            if (entry.is_regular_file()) text += ReadFileText(entry.path());
        }
        return text;
    };
    for (int round = 0; round < rounds; ++round) {
        std::vector<Process> services;
        std::vector<std::string> logFolders;
        for (int i = 0; i < kTogether; ++i) {
            logFolders.push_back(folder(i) + "/Data/Logs");
            fs::create_directories(logFolders.back());
            const auto value = [&] { return values_.Next(true); };
            const std::string settings = exchange_.Folder() / ("d/settings" + std::to_string(i));
            WriteFileText(settings, "[General]\nAppDataPath=" + folder(i) + "\nPipePath=" + pipes_ + "\n" + value() +
                                        "=" + value() + "\n[" + value() + "]\n" + value() +
                                        "\n[ConfService]\nConfPort=" + value() + "\nconfUser=" + value() +
                                        "\nconfPass=" + value() + "\nconfNIC=" + value() + "\n");
            exchange_.Own(settings);
        }
        for (const auto& entry : fs::recursive_directory_iterator(exchange_.Folder() / "d"))
            exchange_.Own(entry.path());
        const auto before = Disk(logFolders);
        for (int i = 0; i < kTogether; ++i) {
            ProcessOptions options;
            options.command = exchange_.Unprivileged(
                {exchange_.Program("orv-audio-feed"), "-c", exchange_.Folder() / ("d/settings" + std::to_string(i))});
            options.workingFolder = exchange_.Folder() / "deep/er/still";
            services.emplace_back(options);
        }
        for (int i = 0; i < kTogether; ++i) {
            Process& service = services[static_cast<std::size_t>(i)];
            EXPECT_TRUE(Eventually([&] { return log(i).find("Starting service") != std::string::npos; }, 20'000));
            // With what is left of the keys it tries to connect, to nobody, or waits for settings that have them all.
            Eventually([&] { return log(i).find("Connecting to Configuration service on ") != std::string::npos; },
                       500);
            EXPECT_EQ(BoundBy(service.Pid()), std::set<std::string>{});
            EXPECT_EQ(service.Stop(40'000), 0);
            ExpectWholeLines(log(i));
        }
        EXPECT_EQ(Difference(before, Disk(logFolders)), "");
        for (int i = 0; i < kTogether; ++i) fs::remove_all(folder(i));
    }
    std::printf("%d hostile values in settings\n", values_.Given());
}

// The rule for texts in rows, written out: none of the 65 control characters of Unicode, in UTF-8, and no more than
// 4,096 bytes, whatever they are.
bool MayBeKept(const std::string& text) {
    for (int code = 0; code < 0xA0; ++code) {
        if (code >= 0x20 && code < 0x7F) continue;
        std::string control(1, static_cast<char>(code));
        if (code >= 0x80) control.insert(0, 1, '\xC2');
        if (text.find(control) != std::string::npos) return false;
    }
    return text.size() <= 4096;
}

// What the Configuration service takes is what it can keep.
TEST_F(HostileNames, InChangesTheyAreRefusedOrKeptAndEachIsOneLineOfTheLog) {
    exchange_.StartConfig();
    std::smatch match;
    const std::string settings = ReadFileText(exchange_.Folder() / "orvctl.ini");
    ASSERT_TRUE(std::regex_search(settings, match, std::regex("ConfPort=([0-9]+)")));
    struct NoEvents : VX::ILinkEvents {
        void OnSignal(const std::string&, VX::ParamListHolder) override {}
        void OnClosed() override {}
    } events;
    VX::PeerInfo peer;
    bool refused = false;
    const auto link = VX::CreateGrpcConnector()->Connect("127.0.0.1", static_cast<u32>(std::stoi(match[1])),
                                                         "admin:admin-password", events, peer, refused);
    ASSERT_NE(link, nullptr);
    const auto before = Disk();
    int kept = 0;
    int longest = 0;  // of those that are kept
    int tooLong = 0;
    const int changes = Effort(200, 1000);
    for (int i = 0; i < changes; ++i) {
        const std::string key = values_.Next(true);
        const std::string text = values_.Next(true);
        Orv::Change change{"ANNOUNCEMENT", Orv::Action::Put, 0, key, {{"thefile", text}}};
        if (i % 3 == 1) change = {"AUDIOFEED", Orv::Action::Put, 0, key, {{"thename", text}}};
        if (i % 3 == 2) change = {"PARAMETER", Orv::Action::Put, 0, key, {{"value", text}}};
        VX::ParamListHolder reply;
        ASSERT_TRUE(link->Call(Orv::AdminProtocol::CallApply, Orv::ChangesToList({change}), reply)) << i;
        std::string word;
        const Orv::ApplyResult result = Orv::ResultFromList(reply, word);
        const bool good = !key.empty() && MayBeKept(key) && MayBeKept(text) && !(text.empty() && i % 3 == 0);
        EXPECT_EQ(result.outcome == Orv::Outcome::Done, good) << word << " " << i;
        kept += good ? 1 : 0;
        longest += good && (key.size() == 4096 || text.size() == 4096) ? 1 : 0;
        tooLong += key.size() == 4097 || text.size() == 4097 ? 1 : 0;
    }
    link->Close();
    EXPECT_GT(kept, changes / 10);
    EXPECT_LT(kept, changes);
    EXPECT_GT(longest, 0);
    EXPECT_GT(tooLong, 0);
    EXPECT_EQ(exchange_.Config().Stop(30'000), 0);
    EXPECT_EQ(Difference(before, Disk()), "");
    const std::regex dated("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:.]{12} (Info |Warn |Error) .*|orv-config: listening on .*");
    std::istringstream log(ReadFileText(exchange_.Folder() / "config.log"));
    for (std::string line; std::getline(log, line);) EXPECT_TRUE(std::regex_match(line, dated)) << line;
    std::printf("%d hostile values in changes, %d of %d changes kept, %d with 4,096 bytes; %d with 4,097 bytes\n",
                values_.Given(), kept, changes, longest, tooLong);
}

}  // namespace
}  // namespace OrvTest
