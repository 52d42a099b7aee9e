// Goal: orvctl does what its words say, and tells when a change is heard. Method: the real programs over a real
// connection, one temporary folder each.
#include <gmock/gmock.h>

#include "tests/Tools/ServedDatabase.h"

namespace OrvTest {
namespace {

using ::testing::HasSubstr;
using Json = nlohmann::json;

using Orvctl = ServedDatabase;

// --- feeds
// ------------------------------------------------------------------------------------------------------------

TEST_F(Orvctl, AFeedIsAddedListedShownChangedRenamedAndRemoved) {
    EXPECT_EQ(Must({"feed", "list"}), "There are no feeds.\n");
    EXPECT_THAT(Must({"feed", "add", "hold", "--type", "sorted", "--folder", "jazz", "--announcements", "on",
                      "--min-pause", "5", "--max-pause", "9", "--max-volume", "80"}),
                HasSubstr("Feed \"hold\" added.\n  At once: its pipe is there."));
    EXPECT_EQ(Must({"feed", "list"}),
              "PIPE  FOLDER  TYPE    NONSTOP  ANNOUNCE  MIN-PAUSE  MAX-PAUSE  VOLUME  AUTOGAIN\n"
              "hold  jazz    sorted  -        on        5          9          80      -\n");
    EXPECT_EQ(Must({"feed", "show", "HOLD"}),
              "id             1\npipe           hold\nfolder         jazz\ntype           sorted\n"
              "nonstop        -\nannouncements  on\nmin-pause      5\nmax-pause      9\nmax-volume     80\n"
              "autogain       -\n");
    EXPECT_THAT(Must({"feed", "set", "hold", "--pipe", "wait"}),
                HasSubstr("Feed \"wait\" changed (was \"hold\").\n  At once: the feed is built anew"));
    EXPECT_THAT(Must({"feed", "remove", "wait"}), HasSubstr("Feed \"wait\" removed.\n  At once: its pipe is gone"));
    EXPECT_EQ(Must({"feed", "list"}), "There are no feeds.\n");
}

TEST_F(Orvctl, ColumnNamesAndNumbersAreTakenAsWellAsWords) {
    Must({"feed", "add", "hold", "--feedtype", "3", "--thename", "jazz", "--nonstop", "1", "--playannouncements", "0",
          "--minannouncementpause", "0", "--maxannouncementpause", "9", "--maxvolume", "80", "--autogain", "yes"});
    EXPECT_EQ(MustJson({"feed", "show", "hold"}),
              Json::parse(R"({"id":1,"pipe":"hold","folder":"jazz","type":"sorted","nonstop":true,
                              "announcements":false,"min-pause":0,"max-pause":9,"max-volume":80,"autogain":true})"));
    Must({"feed", "set", "hold", "--pipename", "other", "--nonstop", "2"});
    EXPECT_EQ(MustJson({"feed", "show", "other"})["nonstop"], 2);
}

TEST_F(Orvctl, UnsetMakesAColumnAbsent) {
    Must({"feed", "add", "hold", "--max-volume", "80", "--autogain", "on"});
    Must({"feed", "set", "hold", "--unset", "max-volume", "--unset", "autogain"});
    EXPECT_EQ(MustJson({"feed", "show", "hold"}), Json::parse(R"({"id":1,"pipe":"hold"})"));
}

TEST_F(Orvctl, AfterEachChangeItIsToldWhenItIsHeard) {
    Must({"feed", "add", "hold", "--min-pause", "1", "--max-pause", "2"});
    const std::string pauses = Must({"feed", "set", "hold", "--min-pause", "2"});
    EXPECT_THAT(pauses, HasSubstr("goes on with its next file, still with the old pauses"));
    EXPECT_THAT(pauses, HasSubstr("The new pauses count from the feed's next rebuild: change its pipe"));
    EXPECT_THAT(Must({"feed", "set", "hold", "--max-volume", "5"}), HasSubstr("its clients stay connected"));
    EXPECT_THAT(Must({"feed", "set", "hold", "--max-volume", "5"}), HasSubstr("Nothing to change"));
    EXPECT_THAT(Must({"announcement", "add", "a", "--file", "/a.wav"}), HasSubstr("from the next announcement on"));
    EXPECT_THAT(Must({"announcement", "set", "a", "--name", "b"}),
                HasSubstr("Under its old name \"a\" it is drawn as before until the audio feed service's next start"));
    EXPECT_THAT(Must({"announcement", "remove", "b"}), HasSubstr("At once: it is drawn no more"));
    EXPECT_THAT(Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "2"}), HasSubstr("At once."));
    EXPECT_THAT(Must({"parameter", "set", "IVRPROMPTPATH", "/x"}), HasSubstr("at its next playlist"));
    EXPECT_THAT(Must({"parameter", "remove", "SYSTEMLOGGINGLEVEL"}),
                HasSubstr("At the audio feed service's next start"));
}

// Such a feed plays the default file, or nothing, and nothing was said.
TEST_F(Orvctl, AFolderThatIsNotThereIsTakenWithAWarning) {
    const std::string file = folder_ / "place.ini";
    WriteFileText(file, "[General]\nAppDataPath=" + folder_.Path() + "\n" + ReadFileText(settings_));
    const std::string playlist = folder_ / "Data/Ivr/Prompts/Playlist";
    const auto warned = [&](const std::vector<std::string>& arguments) {
        const RunResult result = CtlAs(file, arguments);
        EXPECT_EQ(result.exitCode, 0) << result.error;
        return result.error;
    };
    const std::string missing = "orvctl: warning: feed \"hold\" has no files to play as it stands: \"" + playlist +
                                "/jazz\" is missing on this machine; put .wav files there, or: orvctl import FILE "
                                "--feed hold\n";
    EXPECT_EQ(warned({"feed", "add", "hold", "--type", "sorted", "--folder", "jazz"}), missing);
    EXPECT_EQ(warned({"feed", "set", "hold", "--max-volume", "50"}), "") << "it is about something else";
    EXPECT_EQ(warned({"feed", "set", "hold", "--type", "default"}), "") << "the folder is just a name in the log";
    EXPECT_EQ(warned({"feed", "set", "HOLD", "--type", "shuffled"}), missing);
    EXPECT_EQ(CtlAs(file, {"apply", "-"}, R"({"feeds": [{"pipe": "hold", "type": "sorted", "folder": "jazz"}]})").error,
              missing);
    std::filesystem::create_directories(playlist + "/jazz");
    EXPECT_EQ(warned({"feed", "set", "hold", "--folder", "Jazz"}), "") << "found whatever its case";
    WriteFileText(playlist + "/song", "x");
    EXPECT_EQ(warned({"feed", "set", "hold", "--folder", "song", "--pipe", "wait"}),
              "orvctl: warning: feed \"wait\" has no files to play as it stands: \"" + playlist +
                  "/song\" is no folder; name another one with: orvctl feed set wait --folder NAME\n");

    std::filesystem::permissions(playlist + "/jazz", std::filesystem::perms{0});
    const RunResult other =
        OrvTest::Run(AsAnother({OrvctlProgram, "-c", file, "feed", "set", "wait", "--folder", "jazz"}));
    EXPECT_EQ(other.exitCode, 0);
    EXPECT_EQ(other.error, "orvctl: warning: whether feed \"wait\" has files to play is not known: \"" + playlist +
                               "/jazz\" may not be read by this user; `orvctl doctor` as root looks with the "
                               "service's rights\n");
}

// --- announcements, parameters, users
// -----------------------------------------------------------------------------------

TEST_F(Orvctl, AnAnnouncementIsAddedListedShownChangedAndRemoved) {
    Must({"announcement", "add", "hello", "--file", "/srv/hello.wav", "--kind", "over"});
    Must({"announcement", "set", "hello", "--kind", "alone"});
    EXPECT_EQ(Must({"announcement", "list"}), "NAME   KIND   FILE\nhello  alone  /srv/hello.wav\n");
    EXPECT_EQ(MustJson({"announcement", "show", "hello"}),
              Json::parse(R"({"id":1,"name":"hello","kind":"alone","file":"/srv/hello.wav"})"));
    Must({"announcement", "remove", "hello"});
    EXPECT_EQ(MustJson({"announcement", "list"}), Json::array());
}

// A slip in the name of the default file silences the whole exchange, and nothing was said.
TEST_F(Orvctl, AFileThatDoesNotPlayIsTakenWithAWarning) {
    const RunResult missing = Ctl({"parameter", "set", "DEFAULTAUDIOFILE", "/srv/none.wav"});
    EXPECT_EQ(missing.exitCode, 0);
    EXPECT_EQ(missing.error,
              "orvctl: warning: \"/srv/none.wav\" does not play as it stands: it cannot be opened: No such file or "
              "directory\n");
    const std::string text = folder_ / "letter.wav";
    WriteFileText(text, std::string(100, 'x'));
    EXPECT_THAT(Ctl({"announcement", "add", "a", "--file", text}).error, HasSubstr("letter.wav\" does not play"));
    const std::string raw = folder_ / "sound.raw";
    WriteFileText(raw, std::string(16000, '\0'));
    for (const std::string& name : {raw, std::string("\\\\.\\pipe\\radio"), std::string("relative.wav")}) {
        EXPECT_EQ(Ctl({"announcement", "set", "a", "--file", name}).error, "") << name;
    }
}

TEST_F(Orvctl, AParameterIsSetWhetherItIsThereOrNot) {
    Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "2"});
    Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "3"});
    Must({"parameter", "add", "DEFAULTAUDIOFILE", "/srv/default.wav"});
    EXPECT_EQ(Must({"parameter", "list"}),
              "NAME                VALUE\nSYSTEMLOGGINGLEVEL  3\nDEFAULTAUDIOFILE    /srv/default.wav\n");
    ExpectFailure({"parameter", "add", "SYSTEMLOGGINGLEVEL", "4"}, 1, "is there already");
    Must({"parameter", "remove", "DEFAULTAUDIOFILE"});
    EXPECT_EQ(MustJson({"parameter", "show", "SYSTEMLOGGINGLEVEL"})["value"], "3");
}

TEST_F(Orvctl, UsersAreAddedListedShownChangedAndRemoved) {
    const std::string file = folder_ / "password";
    WriteFileText(file, "first\n");
    EXPECT_THAT(Must({"user", "add", "second", "--role", "reader", "--new-password-file", file}),
                HasSubstr("User \"second\" added."));
    EXPECT_EQ(Must({"user", "list"}), "USER    ROLE\nfeeder  reader\nroot    admin\nsecond  reader\n");
    EXPECT_EQ(MustJson({"user", "show", "second"}), Json::parse(R"({"name":"second","role":"reader"})"));
    const std::string settings = WriteSettings("second", "first");
    EXPECT_EQ(CtlAs(settings, {"feed", "list"}).exitCode, 0);
    EXPECT_EQ(CtlAs(settings, {"feed", "add", "x"}).exitCode, 6);
    Must({"user", "set", "second", "--role", "admin"});
    EXPECT_EQ(CtlAs(settings, {"feed", "add", "x"}).exitCode, 0);
    Must({"user", "set", "second", "--new-password-file", "-"}, "other\n");
    EXPECT_EQ(CtlAs(settings, {"feed", "list"}).exitCode, 4);
    Must({"user", "remove", "second"});
    EXPECT_EQ(CtlAs(WriteSettings("second", "other"), {"feed", "list"}).exitCode, 4);
}

TEST_F(Orvctl, NamesAndPasswordsThatTheSettingsFileCannotCarryAreRefused) {
    for (const char* password : {"a\"b\n", "a\tb\n", " a\n", "a \n", "\n"}) {
        const RunResult result = Ctl({"user", "add", "x", "--role", "reader", "--new-password-file", "-"}, password);
        EXPECT_EQ(result.exitCode, 1) << password;
        EXPECT_THAT(result.error, HasSubstr("user \"x\", password: ")) << password;
    }
    const RunResult result = Ctl({"user", "add", "a:b", "--role", "reader", "--new-password-file", "-"}, "ok\n");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.error, HasSubstr("holds a colon"));
    ExpectFailure({"user", "remove", "root"}, 1, "is the last user of role admin; add another admin first");
}

// --- files
// ------------------------------------------------------------------------------------------------------------

TEST_F(Orvctl, ApplyingAnExportChangesNothing) {
    Must({"feed", "add", "hold", "--type", "shuffled", "--folder", "", "--nonstop", "2", "--max-volume", "0"});
    Must({"feed", "add", "J\xC3\xBCrgen's \"pipe\" \\ 1"});
    Must({"feed", "add", "latin", "--folder", "caf\xE9"});
    Must({"announcement", "add", "hello", "--file", "C:\\x.wav", "--kind", "7"});
    Must({"parameter", "set", "COLOUR", ""});
    Must({"parameter", "set", "NOTHING"});
    const std::string exported = Must({"export"});
    const Json status = MustJson({"status"});
    EXPECT_THAT(Must({"apply", "-"}, exported), HasSubstr("Nothing to change"));
    EXPECT_EQ(Must({"export"}), exported);
    EXPECT_EQ(MustJson({"status"})["transaction"], status["transaction"]);
    const std::string file = folder_ / "rows.json";
    WriteFileText(file, exported);
    Must({"feed", "remove", "hold"});
    Must({"parameter", "remove", "COLOUR"});
    EXPECT_THAT(Must({"apply", file}), HasSubstr("Feed \"hold\" added."));
    EXPECT_EQ(Json::parse(Must({"export"}))["feeds"].size(), 3u);
}

TEST_F(Orvctl, AppliedRowsStateTheirWholeContentInOneTransaction) {
    Must({"feed", "add", "hold", "--max-volume", "5"});
    Must({"feed", "add", "old"});
    const Json before = MustJson({"status"});
    const std::string output = Must({"apply", "-"}, R"({
        "feeds": [{"pipe": "hold", "type": "sorted", "thename": "x", "nonstop": true}, {"pipename": "new", "type": 0}],
        "announcements": [{"name": "a", "file": "/a.wav"}],
        "parameters": [{"name": "SYSTEMLOGGINGLEVEL", "value": "2"}],
        "remove": {"feeds": ["old", "never-there"]}})");
    EXPECT_THAT(output, HasSubstr("Feed \"old\" removed."));
    EXPECT_THAT(output, HasSubstr("Feed \"hold\" changed."));
    EXPECT_EQ(MustJson({"status"})["transaction"], before["transaction"].get<int>() + 1);
    EXPECT_EQ(Json::parse(Must({"export"})), Json::parse(R"({
        "feeds": [{"pipe": "hold", "folder": "x", "type": "sorted", "nonstop": true},
                  {"pipe": "new", "type": "default"}],
        "announcements": [{"name": "a", "file": "/a.wav"}],
        "parameters": [{"name": "SYSTEMLOGGINGLEVEL", "value": "2"}]})"));
}

TEST_F(Orvctl, AnAppliedFileWithOneBadRowChangesNothingAndTellsEachReason) {
    const RunResult result = Ctl({"apply", "-"}, R"({"feeds": [{"pipe": "a"}, {"pipe": "b", "max-volume": 101},
                                                              {"pipe": "c", "min-pause": 3}]})");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.error, HasSubstr("orvctl: feed \"b\", --max-volume: is 101; it is a percentage"));
    EXPECT_THAT(result.error, HasSubstr("orvctl: feed \"c\", --min-pause: is 3, above"));
    EXPECT_EQ(Must({"feed", "list"}), "There are no feeds.\n");
}

// --- status
// -----------------------------------------------------------------------------------------------------------

TEST_F(Orvctl, StatusTellsTheTablesTheTransactionAndWhoElseIsConnected) {
    Must({"feed", "add", "hold"});
    EXPECT_THAT(Must({"status"}), HasSubstr("Last transaction  1\n"));
    Json status;
    EXPECT_TRUE(Eventually([&] { return (status = MustJson({"status"}))["peers"].empty(); }));
    EXPECT_EQ(status["transaction"], 1);
    EXPECT_EQ(status["tables"], Json::parse(R"({"ANNOUNCEMENT":0,"AUDIOFEED":1,"AUDIOFEEDCONTENT":0,"PARAMETER":0})"));
    EXPECT_EQ(status["database"], database_);
    // Nothing in it depends on when it is asked; only who connected just before may still be seen leaving.
    EXPECT_TRUE(Eventually([&] { return MustJson({"status"}) == status; }));
}

// --- crash safety
// -----------------------------------------------------------------------------------------------------

// Each round commits one transaction of two rows after another from a process of its own until the service is killed;
// afterwards every acknowledged one is there, and none is there by half.
TEST_F(Orvctl, WhatWasAcknowledgedSurvivesAKillOfTheService) {
    int acknowledged = 0;
    for (int round = 0; round < 4; ++round) {
        const std::string marks = folder_ / "acknowledged";
        WriteFileText(marks, "");
        std::string script = "i=" + std::to_string(acknowledged) +
                             "; while :; do i=$((i+1)); printf "
                             "'{\"parameters\": [{\"name\": \"left\", \"value\": \"%d\"}, {\"name\": \"right\", "
                             "\"value\": \"%d\"}]}' $i $i | "
                             "'" +
                             OrvctlProgram + "' -c '" + settings_ + "' apply - >/dev/null 2>&1 || exit; echo $i >> '" +
                             marks + "'; done";
        ProcessOptions options;
        options.command = {"/bin/sh", "-c", script};
        Process writer(options);
        ASSERT_TRUE(Eventually([&] { return !ReadFileText(marks).empty(); }, 30000));
        std::this_thread::sleep_for(std::chrono::milliseconds(40 + 60 * round));
        server_.Kill();
        ASSERT_TRUE(writer.WaitFor(20000));
        std::istringstream lines(ReadFileText(marks));
        for (int number = 0; lines >> number;) acknowledged = number;
        Serve();
        const int left = std::stoi(MustJson({"parameter", "show", "left"})["value"].get<std::string>());
        const int right = std::stoi(MustJson({"parameter", "show", "right"})["value"].get<std::string>());
        EXPECT_EQ(left, right);
        EXPECT_GE(left, acknowledged);
        EXPECT_LE(left, acknowledged + 1) << "the one whose answer was lost may stand";
        EXPECT_EQ(MustJson({"status"})["transaction"], left);
        acknowledged = left;
    }
}

}  // namespace
}  // namespace OrvTest
