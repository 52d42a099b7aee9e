// Goal: the doctor finds each thing that keeps a feed from being heard, says how to mend it, and ends with the code of
// the worst. Method: a whole exchange in which that one thing is made wrong.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/e2e/Exchange.h"
#include "tests/faults/Disks.h"

namespace OrvTest {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class Doctor : public testing::Test {
protected:
    void SetUp() override {
        exchange_.StartConfig();
        defaultFile_ = exchange_.AddPiece("default.wav", 40.0, 5.0);
        exchange_.AddPiece("Playlist/music/a.wav", 10.0, 5.0);
        exchange_.Must({"parameter", "set", "DEFAULTAUDIOFILE", defaultFile_});
        exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music"});
        exchange_.WriteSettings("[General]\nStatusPath=" + Socket() + "\n");
    }
    std::string Socket() const { return exchange_.Folder() / "state"; }
    std::string Playlist() const { return exchange_.Prompts() + "Playlist/"; }
    // With the pipe there, so that a look finds all in order.
    void StartFeeder() {
        exchange_.StartFeeder();
        ASSERT_TRUE(Eventually([&] { return fs::exists(exchange_.PipeFile("music")); }));
    }
    RunResult Ask(std::vector<std::string> arguments = {"doctor"}) const {
        arguments.insert(arguments.begin(), {exchange_.Program("orvctl"), "-c", exchange_.SettingsFile()});
        return OrvTest::Run(exchange_.Unprivileged(arguments));
    }
    // As the administrator, who may read and write everything.
    RunResult AskAsRoot() const {
        return OrvTest::Run({exchange_.Program("orvctl"), "-c", exchange_.SettingsFile(), "doctor"});
    }
    // The doctor finds this, says that, and ends so.
    void Expect(int code, const std::string& what, const std::string& remedy) {
        const RunResult result = Ask();
        EXPECT_EQ(result.exitCode, code) << result.output << result.error;
        EXPECT_THAT(result.output, AllOf(HasSubstr(what), HasSubstr(remedy)));
    }
    // In the playlist, of the unprivileged user.
    std::string AddSound(const std::string& name, const std::string& rate, const std::string& channels) const {
        const std::string path = Playlist() + "music/" + name;
        const RunResult made = OrvTest::Run(
            {"/usr/bin/sox", "-n", "-r", rate, "-c", channels, "-b", "16", path, "synth", "1", "sine", "440"});
        EXPECT_EQ(made.exitCode, 0) << made.error;
        exchange_.Own(path);
        return path;
    }
    static constexpr int kWarning = 1;
    static constexpr int kFault = 2;

    Exchange exchange_;
    std::string defaultFile_;
};

TEST_F(Doctor, WhereAllIsWellItFindsNothingAndEndsWithNought) {
    StartFeeder();
    const RunResult result = Ask();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "Nothing is wrong.\n");
    EXPECT_THAT(Ask({"doctor", "--json"}).output, HasSubstr("\"exitcode\": 0"));
}

TEST_F(Doctor, FindsThatThereIsNoSettingsFile) {
    fs::remove(exchange_.SettingsFile());
    Expect(kFault, "fault: There is no settings file " + exchange_.SettingsFile(), "`orvctl setup` makes one");
}

TEST_F(Doctor, FindsABadLineInTheSettingsFile) {
    StartFeeder();
    exchange_.WriteSettings("[General]\nStatusPath=" + Socket() + "\n[Broken\n");
    Expect(kWarning, "has a bad line: ", "correct that line");
}

TEST_F(Doctor, NotesAKeyThatIsNearlyOneOfTheServices) {
    exchange_.WriteSettings("[General]\nStatusPath=" + Socket() + "\nClientStalSeconds=30\n");
    StartFeeder();
    Expect(0,
           "note: In the settings file " + exchange_.SettingsFile() + ": ClientStalSeconds under [General] is no key",
           "correct it there");
}

TEST_F(Doctor, FindsAWrongPassword) {
    StartFeeder();
    std::string text = ReadFileText(exchange_.SettingsFile());
    text.replace(text.find("feeder-password"), 15, "not-the-password");
    WriteFileText(exchange_.SettingsFile(), text);
    Expect(kFault, "refuses user \"feeder\" with this password", "orv-config user passwd feeder");
}

// As the packages set it up, with a file of the administrator's own. orvctl looked for the service's folders and state
// in that file, found none, and had nothing to tell of an installed system.
TEST_F(Doctor, WithTheAdministratorsOwnFileTheServicesFileBesideItIsLookedAtToo) {
    StartFeeder();
    EXPECT_EQ(exchange_.Ctl({"doctor"}).output, "Nothing is wrong.\n");
    EXPECT_THAT(exchange_.Ctl({"status"}).output, AllOf(HasSubstr("PIPE"), HasSubstr("music")));
    std::string text = ReadFileText(exchange_.SettingsFile());
    text.replace(text.find("feeder-password"), 15, "not-the-password");
    WriteFileText(exchange_.SettingsFile(), text);
    const RunResult result = exchange_.Ctl({"doctor"});
    EXPECT_EQ(result.exitCode, kFault);
    EXPECT_THAT(result.output, HasSubstr("refuses user \"feeder\" with this password"));
}

TEST_F(Doctor, FindsThatTheServiceIsDownOrWasKilled) {
    Expect(kFault, "The audio feed service is down: nobody has made " + Socket(), "systemctl start orv-audio-feed");
    StartFeeder();
    exchange_.Feeder().Kill();
    Expect(kFault, Socket() + " is a stale socket", "systemctl start orv-audio-feed");
    Expect(kFault, "The pipe of the feed \"music\" is a stale socket, which nobody serves",
           "systemctl start orv-audio-feed");
}

TEST_F(Doctor, FindsThatTheConfigurationIsLost) {
    StartFeeder();
    exchange_.Config().Kill();
    ASSERT_TRUE(exchange_.WaitForLog("[EC000001]"));
    Expect(kFault, "Nobody answers at 127.0.0.1:", "start the Configuration service");
    exchange_.StartConfig();
    Expect(kWarning, "Configuration lost, playing on", "systemctl restart orv-audio-feed");
}

TEST_F(Doctor, FindsThatTheFolderOfThePipesIsMissingOrNotWritable) {
    StartFeeder();
    fs::remove_all(exchange_.PipeFolder());
    Expect(kFault, "The folder of the pipes, " + exchange_.PipeFolder() + ", is missing",
           "systemctl restart orv-audio-feed");
    exchange_.Feeder().Kill();
    fs::create_directory(exchange_.PipeFolder());
    ASSERT_EQ(::chmod(exchange_.PipeFolder().c_str(), 0555), 0);
    exchange_.StartFeeder();
    ASSERT_TRUE(exchange_.WaitForLog("Cannot create new listener for connection. error=13"));
    Expect(kFault, "The feed \"music\" cannot serve its pipe: Permission denied",
           "let the service's user write to the folder of the pipes");
    Expect(kFault, exchange_.PipeFolder() + ", may not be written by this user", "give it the right");
}

// The Configuration service refuses such rows; here a database holds them that something else has written.
TEST_F(Doctor, FindsTwoNamesInOneFile) {
    exchange_.Must({"feed", "add", "other", "--type", "default"});
    exchange_.Config().Stop();
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(exchange_.Database().c_str(), &database), SQLITE_OK);
    const char* change =
        "PRAGMA writable_schema=1; UPDATE sqlite_master SET sql = replace(sql, 'COLLATE NOCASE', '');"
        "DELETE FROM sqlite_master WHERE type = 'index' AND name NOT LIKE 'sqlite_%';";
    sqlite3_exec(database, change, nullptr, nullptr, nullptr);
    sqlite3_close(database);
    ASSERT_EQ(sqlite3_open(exchange_.Database().c_str(), &database), SQLITE_OK);
    char* why = nullptr;
    const int result = sqlite3_exec(database, "UPDATE AUDIOFEED SET pipename = 'MUSIC' WHERE pipename = 'other'",
                                    nullptr, nullptr, &why);
    sqlite3_close(database);
    ASSERT_EQ(result, SQLITE_OK) << why;
    exchange_.StartConfig();
    Expect(kFault, "The feeds \"music\" and \"MUSIC\" have one pipe: both names stand for music",
           "`orvctl feed set MUSIC --pipe NAME`");
}

TEST_F(Doctor, FindsAMissingAndAnEmptyPlaylistFolder) {
    StartFeeder();
    exchange_.Must({"feed", "add", "lone", "--type", "sorted", "--folder", "nowhere"});
    ASSERT_TRUE(Eventually([&] { return fs::exists(exchange_.PipeFile("lone")); }));
    Expect(kWarning, "The feed \"lone\" has no playlist folder " + Playlist() + "nowhere; it plays the default audio",
           "put .wav files into it");
    exchange_.AddFolder("Playlist/nowhere");
    Expect(kWarning, "The feed \"lone\" has an empty playlist folder, " + Playlist() + "nowhere",
           "put .wav files into it");
    fs::remove(defaultFile_);
    Expect(kFault, "The default audio file \"" + defaultFile_ + "\" does not play: it cannot be opened: No such file",
           "orvctl parameter set DEFAULTAUDIOFILE");
    Expect(kFault, "nowhere; it is silent", "put .wav files into it");
}

TEST_F(Doctor, FindsFilesThatCannotBeReadOrHaveTheWrongRateOrAreStereo) {
    StartFeeder();
    AddSound("fast.wav", "44100", "1");
    AddSound("wide.wav", "8000", "2");
    AddSound("secret.wav", "8000", "1");
    ASSERT_EQ(::chmod((Playlist() + "music/secret.wav").c_str(), 0), 0);
    const std::string over = "The feed \"music\" passes over \"" + Playlist() + "music/";
    Expect(kWarning, over + "fast.wav\": its rate is 44100 Hz; only 8000 Hz is played", "`orvctl import`");
    Expect(kWarning, over + "wide.wav\": it is stereo; only mono is played", "`orvctl import`");
    Expect(kWarning, over + "secret.wav\": it cannot be opened: Permission denied", "mend or remove it");
    fs::remove(Playlist() + "music/a.wav");
    Expect(kFault, "The feed \"music\" has no file that plays in ", "`orvctl import`");
}

TEST_F(Doctor, FindsAnAnnouncementThatIsNotHeard) {
    StartFeeder();
    exchange_.Must({"announcement", "add", "hello", "--file", "/none/hello.wav"});
    Expect(kWarning, "The announcement \"hello\" is not heard, \"/none/hello.wav\": it cannot be opened",
           "orvctl announcement set");
}

TEST_F(Doctor, FindsAFileThatIsShadowedByOneInAnotherCase) {
    StartFeeder();
    exchange_.AddPiece("Playlist/music/A.WAV", 20.0, 1.0);
    Expect(kWarning, "\"" + Playlist() + "music/A.WAV\" is never played: \"a.wav\" has the same name in another case",
           "rename one of the two");
}

TEST_F(Doctor, FindsAClientThatTakesNothing) {
    StartFeeder();
    Client client(exchange_, "music");
    ASSERT_TRUE(client.WaitForBlocks(2));
    client.Pause(true);
    EXPECT_TRUE(Eventually([&] { return Ask().exitCode == kFault; }, 15000));
    Expect(kFault, "The feed \"music\" waits for a client that has taken nothing for ", "ss -xp");
}

TEST_F(Doctor, FindsAFullDisk) {
    if (const std::string why = WhyNoDisks(); !why.empty()) GTEST_SKIP() << why;
    StartFeeder();
    const std::string logs = exchange_.Folder() / "d/Data/Logs";
    const SmallDisk disk(logs, 2048);
    WriteFileText(logs + "/much", std::string(1'900'000, 'x'));
    const RunResult nearly = Ask();
    std::string rest(200'000, 'x');
    std::ofstream more(logs + "/more", std::ios::binary);
    more.write(rest.data(), static_cast<std::streamsize>(rest.size())).flush();
    more.close();
    const RunResult full = Ask();
    EXPECT_EQ(nearly.exitCode, 0) << "a tenth is left: " << nearly.output;
    EXPECT_EQ(full.exitCode, kFault) << full.output;
    EXPECT_THAT(full.output, HasSubstr("The disk of the logs, " + logs + ", is full: "));
    EXPECT_THAT(full.output, HasSubstr("make room there"));
}

TEST_F(Doctor, FindsAFullDiskOfTheDatabase) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can make a small disk";
    StartFeeder();
    // Where the package has it, on a small disk that this doctor alone sees.
    const std::string disk =
        "mount -t tmpfs -o size=2m none /var/lib && mkdir -p /var/lib/Orv/Config && "
        "head -c 4000000 /dev/zero >/var/lib/Orv/Config/much 2>/dev/null; exec \"$@\"";
    const RunResult result = OrvTest::Run({"/usr/bin/unshare", "--mount", "/bin/sh", "-c", disk, "sh",
                                           exchange_.Program("orvctl"), "-c", exchange_.SettingsFile(), "doctor"});
    EXPECT_EQ(result.exitCode, kFault) << result.output << result.error;
    EXPECT_THAT(result.output, HasSubstr("The disk of the database, /var/lib/Orv/Config, is full: "));
    EXPECT_THAT(result.output, Not(HasSubstr("The disk of the logs")));
}

// Root may read and write everything, and so its doctor found nothing of what the service could not.
TEST_F(Doctor, AsRootItFindsWhatTheServiceMayNotReadOrWrite) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root may do what the service may not";
    StartFeeder();
    EXPECT_EQ(AskAsRoot().output, "Nothing is wrong.\n");
    const std::string secret = AddSound("secret.wav", "8000", "1");
    ASSERT_EQ(::chown(secret.c_str(), 0, 0), 0);
    ASSERT_EQ(::chmod(secret.c_str(), 0600), 0);
    RunResult result = AskAsRoot();
    EXPECT_EQ(result.exitCode, kWarning) << result.output;
    EXPECT_THAT(result.output,
                HasSubstr("The feed \"music\" passes over \"" + secret + "\": it cannot be opened: Permission denied"));
    const std::string logs = exchange_.Folder() / "d/Data/Logs";
    ASSERT_EQ(::chmod(logs.c_str(), 0555), 0);
    result = AskAsRoot();
    EXPECT_EQ(result.exitCode, kWarning) << result.output;
    EXPECT_THAT(result.output, HasSubstr("The service may not write its logs to " + logs));
    ASSERT_EQ(::chmod(exchange_.PipeFolder().c_str(), 0555), 0);
    result = AskAsRoot();
    EXPECT_EQ(result.exitCode, kFault) << result.output;
    EXPECT_THAT(result.output, AllOf(HasSubstr("The folder of the pipes, " + exchange_.PipeFolder() +
                                               ", may not be written by the service"),
                                     HasSubstr("needs ReadWritePaths= in the packaged unit")));
    ::chmod(logs.c_str(), 0755);
}

TEST_F(Doctor, AsRootItSeesTheFilesAsTheServiceDoes) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can hide a folder from a process";
    exchange_.WriteSettings("[General]\nStatusPath=" + Socket() + "\n");
    // As the packaged unit hides /home and others.
    ProcessOptions options;
    options.command = {"/usr/bin/unshare",
                       "--mount",
                       "/bin/sh",
                       "-c",
                       "mount -t tmpfs none \"" + Playlist() + "music\" && exec \"$@\"",
                       "sh"};
    for (const std::string& word :
         exchange_.Unprivileged({exchange_.Program("orv-audio-feed"), "-c", exchange_.SettingsFile()})) {
        options.command.push_back(word);
    }
    Process feeder(options);
    ASSERT_TRUE(Eventually([&] { return fs::exists(exchange_.PipeFile("music")); }));
    const RunResult result = AskAsRoot();
    EXPECT_EQ(result.exitCode, kWarning) << result.output;
    EXPECT_THAT(result.output, HasSubstr("The feed \"music\" has an empty playlist folder, " + Playlist() + "music"));
    EXPECT_EQ(feeder.Stop(), 0);
    EXPECT_THAT(AskAsRoot().output, HasSubstr("lies below /tmp, which the packaged unit hides from the service"))
        << "no process is there to see with";
}

// The service remembers the last file that failed, and the doctor warned of it for as long as the feed lived.
TEST_F(Doctor, AFileThatWasMendedOrRemovedIsWorthANoteAndNoMore) {
    const std::string first = AddSound("0.wav", "44100", "1");  // no client moves the feed beyond it
    StartFeeder();
    const std::string failed = "\"" + first + "\" did not play";
    ASSERT_TRUE(Eventually([&] { return Ask({"status"}).output.find(failed) != std::string::npos; }));
    Expect(kWarning, "The feed \"music\" passes over \"" + first + "\": its rate is 44100 Hz", "`orvctl import`");
    AddSound("0.wav", "8000", "1");
    const std::string note = "note: The feed \"music\" could not play \"" + first + "\": its rate is 44100 Hz";
    Expect(0, note, "it can be played now.\nNothing is wrong.\n");
    fs::remove(first);
    Expect(0, note, "it is not to be played any more.\nNothing is wrong.\n");
}

// Without StatusPath nobody could tell that the service was down: the doctor found nothing wrong.
TEST_F(Doctor, WithoutAToldStateAMissingPipeIsAFault) {
    exchange_.WriteSettings();
    Expect(kFault, "The pipe of the feed \"music\" is missing", "systemctl start orv-audio-feed");
    StartFeeder();
    EXPECT_EQ(Ask().exitCode, 0) << Ask().output;
    EXPECT_EQ(exchange_.Feeder().Stop(), 0);
    Expect(kFault, "The pipe of the feed \"music\" is missing", "systemctl start orv-audio-feed");
}

TEST_F(Doctor, SaysHowToLetTheServiceTellItsState) {
    exchange_.WriteSettings();
    StartFeeder();
    const RunResult result = Ask();
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_THAT(result.output, HasSubstr("note: The audio feed service does not tell its state"));
    EXPECT_THAT(result.output, HasSubstr("write StatusPath=/run/Orv/status/feed under [General] in "));
}

}  // namespace
}  // namespace OrvTest
