// Goal: orvctl names what is wrong with a command, a settings file or a connection, says what to do, and ends with the
// right code. Method: the real programs over a real connection, one temporary folder each.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/Tools/ServedDatabase.h"

namespace OrvTest {
namespace {

using ::testing::HasSubstr;
using Json = nlohmann::json;

using Orvctl = ServedDatabase;

// --- exit codes
// -------------------------------------------------------------------------------------------------------

TEST_F(Orvctl, CodeOneARefusalNamesTheFieldAndTheFix) {
    ExpectFailure({"feed", "add", "hold", "--type", "7"}, 1, "feed \"hold\", --type: is 7; use 0 (the default stream)");
    ExpectFailure({"feed", "add", "hold", "--min-pause", "-5"}, 1, "--min-pause: is -5");
    ExpectFailure({"feed", "add", ""}, 1, "--pipe: is empty");
    ExpectFailure({"announcement", "add", "a"}, 1, "announcement \"a\", --file: is missing; name the sound file");
    ExpectFailure({"parameter", "set", "AUDIO_PROVIDER_MAX_VOLUME", "200"}, 1, "give a percentage from 0 to 100");
    ExpectFailure({"feed", "add", "a\nb"}, 1, "control character");
    const RunResult json = Ctl({"feed", "add", "hold", "--type", "7", "--json"});
    EXPECT_EQ(json.exitCode, 1);
    EXPECT_EQ(Json::parse(json.output)["exitcode"], 1);
}

TEST_F(Orvctl, CodeTwoForWhatTheCommandLineOrAFileGetsWrong) {
    ExpectFailure({}, 2, "");
    ExpectFailure({"dance"}, 2, "");
    ExpectFailure({"feed", "add"}, 2, "name");
    ExpectFailure({"feed", "set", "hold"}, 2, "Nothing to set");
    ExpectFailure({"feed", "add", "hold", "--max-volume", "loud"}, 2,
                  "--max-volume: \"loud\" cannot be used; give a whole number");
    ExpectFailure({"feed", "add", "hold", "--max-volume", "3000000000"}, 2, "2147483647");
    ExpectFailure({"feed", "add", "hold", "--type", "loud"}, 2, "give one of default, linein, shuffled, sorted");
    ExpectFailure({"feed", "set", "hold", "--unset", "colour"}, 2, "there are pipe, folder");
    ExpectFailure({"apply", folder_ / "missing.json"}, 2, "No such file");
    ExpectFailure({"--port", "70000", "feed", "list"}, 2, "70000");
    const RunResult broken = Ctl({"apply", "-"}, "{");
    EXPECT_EQ(broken.exitCode, 2);
    EXPECT_THAT(broken.error, HasSubstr("The file is no JSON"));
}

TEST_F(Orvctl, CodeTwoForASettingsFileThatIsMissingOrEmpty) {
    const RunResult missing = CtlAs(folder_ / "missing.ini", {"feed", "list"});
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_THAT(missing.error, HasSubstr("missing.ini cannot be opened; check its name and its rights"));
    const std::string empty = folder_ / "empty.ini";
    WriteFileText(empty, "[ConfService]\nConfPort=\nnonsense\n");
    const RunResult result = CtlAs(empty, {"feed", "list"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.error, HasSubstr("(2): Warning: Key [ConfService].ConfPort has empty value"));
    EXPECT_THAT(result.error, HasSubstr("Invalid line {nonsense}. Ignored."));
    EXPECT_THAT(result.error,
                HasSubstr("no usable ConfPort: write ConfPort under [ConfService] in " + empty + ", or give --port"));
    WriteFileText(empty, "[ConfService]\nConfPort=" + port_ + "\nconfUser=root\n");
    EXPECT_THAT(CtlAs(empty, {"feed", "list"}).error, HasSubstr("no usable confPass"));
    WriteFileText(empty, "[ConfService]\nConfPort=" + port_ + "\nconfPass=x\n");
    EXPECT_THAT(CtlAs(empty, {"feed", "list"}).error, HasSubstr("no usable confUser"));
}

TEST_F(Orvctl, CodesThreeToSix) {
    ExpectFailure({"feed", "show", "gone"}, 5, "feed \"gone\": does not exist");
    ExpectFailure({"feed", "set", "gone", "--nonstop", "on"}, 5, "does not exist");
    ExpectFailure({"feed", "remove", "gone"}, 5, "does not exist");
    ExpectFailure({"parameter", "remove", "gone"}, 5, "does not exist");
    ExpectFailure({"user", "show", "gone"}, 5, "does not exist");
    ExpectFailure({"user", "remove", "gone"}, 5, "there is no such user");
    const RunResult wrong = CtlAs(WriteSettings("feeder", "wrong"), {"feed", "list"});
    EXPECT_EQ(wrong.exitCode, 4);
    EXPECT_THAT(wrong.error, HasSubstr("refuses user \"feeder\""));
    const std::string reader = WriteSettings("feeder", "quiet");
    EXPECT_EQ(CtlAs(reader, {"feed", "list"}).exitCode, 0);
    EXPECT_EQ(CtlAs(reader, {"status"}).exitCode, 0);
    const RunResult forbidden = CtlAs(reader, {"feed", "add", "x"});
    EXPECT_EQ(forbidden.exitCode, 6);
    EXPECT_THAT(forbidden.error, HasSubstr("may only read; a user of role admin can do this"));
    EXPECT_EQ(server_.Stop(), 0);
    ExpectFailure({"feed", "list"}, 3, "Nobody answers at 127.0.0.1:" + port_);
}

// --- the connection
// ---------------------------------------------------------------------------------------------------

TEST_F(Orvctl, TheCommandLineGoesBeforeTheSettingsFileAndCanReplaceIt) {
    const std::string file = folder_ / "password";
    WriteFileText(file, "quiet\n");
    EXPECT_EQ(Ctl({"--user", "feeder", "--password-file", file, "feed", "add", "x"}).exitCode, 6);
    const RunResult alone = OrvTest::Run({OrvctlProgram, "feed", "add", "x", "--host", "127.0.0.1", "--port", port_,
                                          "--user", "root", "--password-file", "-"},
                                         "secret\n");
    EXPECT_EQ(alone.exitCode, 0) << alone.error;
}

// As from a password manager, or from a program that writes rows.
TEST_F(Orvctl, APasswordAndAFileOfRowsMayComeFromACommand) {
    const std::string orvctl = std::string("'") + OrvctlProgram + "' --host 127.0.0.1 --port " + port_ +
                               " --user root --password-file <(echo secret) ";
    const RunResult applied =
        OrvTest::Run({"/bin/bash", "-c", orvctl + R"(apply <(echo '{"feeds": [{"pipe": "a"}]}'))"});
    EXPECT_EQ(applied.exitCode, 0) << applied.error;
    EXPECT_THAT(applied.output, HasSubstr("Feed \"a\" added."));
    const RunResult input =
        OrvTest::Run({"/bin/bash", "-c",
                      "echo secret | '" + std::string(OrvctlProgram) + "' --host 127.0.0.1 --port " + port_ +
                          " --user root --password-file /dev/stdin feed list"});
    EXPECT_EQ(input.exitCode, 0) << input.error;
}

// It waited without end, and said nothing.
TEST_F(Orvctl, APipeThatNobodyWritesToIsToldAfterAMoment) {
    const std::string fifo = folder_ / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string why = fifo + " cannot be read: it is a pipe, and nobody has opened it for writing within 5 s";
    ExpectFailure({"apply", fifo}, 2, "The file " + why);
    ExpectFailure({"--user", "root", "--password-file", fifo, "feed", "list"}, 2, "The password file " + why);
}

TEST_F(Orvctl, SettingsCheckTellsWhatIsWrongWithAFile) {
    EXPECT_THAT(Must({"settings", "check"}), HasSubstr("has all that a connection needs"));
    const std::string bad = folder_ / "bad.ini";
    WriteFileText(bad, "[ConfService\nConfPort=70000\n");
    ExpectFailure({"settings", "check", bad}, 2, "Invalid section name '[ConfService'");
    ExpectFailure({"settings", "check", bad}, 2, "no usable ConfPort");
}

TEST_F(Orvctl, SettingsCheckTellsWhatIsProbablyMeantOtherwise) {
    const std::string file = folder_ / "slips.ini";
    WriteFileText(file, "[general]\nPipePath=/run/Orv/pipe\n" + ReadFileText(settings_));
    const RunResult result = Ctl({"settings", "check", file});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(
        result.error,
        "orvctl: " + file + ": PipePath stands under [general], where it does not count; move it under [General]\n");
}

TEST_F(Orvctl, SettingsCheckLooksAtTheFilesToPreload) {
    const std::string file = folder_ / "preload.ini";
    const auto write = [&](const std::string& keys) {
        WriteFileText(file, "[General]\n" + keys + "\n" + OrvTest::ReadFileText(settings_));
    };
    write("PreloadFiles=\"Playlist/hold\" \"" + settings_ + "\"\nPreloadMegabytes=16");
    EXPECT_THAT(Must({"settings", "check", file}), HasSubstr("has all that a connection needs"));
    write("PreloadMegabytes=0");
    ExpectFailure({"settings", "check", file}, 2, "PreloadMegabytes under [General] in " + file + " is no number");
    write("PreloadFiles=");
    ExpectFailure({"settings", "check", file}, 2, "PreloadFiles under [General] in " + file + " names nothing");
    write("PreloadFiles=/no/such/folder");
    ExpectFailure({"settings", "check", file}, 2, "names /no/such/folder, which is not there");
}

TEST_F(Orvctl, SettingsCheckLooksAtTheTimeForClientsThatTakeNothing) {
    const std::string file = folder_ / "clients.ini";
    const auto write = [&](const std::string& seconds) {
        WriteFileText(file, "[General]\nClientStallSeconds=" + seconds + "\n" + OrvTest::ReadFileText(settings_));
    };
    write("30");
    EXPECT_THAT(Must({"settings", "check", file}), HasSubstr("has all that a connection needs"));
    write("never");
    ExpectFailure({"settings", "check", file}, 2,
                  "ClientStallSeconds under [General] in " + file + " is no number of seconds");
}

TEST_F(Orvctl, SettingsCheckLooksAtTheSocketOfTheState) {
    const std::string file = folder_ / "state.ini";
    const auto write = [&](const std::string& path) {
        WriteFileText(file, "[General]\nStatusPath=" + path + "\n" + OrvTest::ReadFileText(settings_));
    };
    write(folder_ / "state");
    EXPECT_THAT(Must({"settings", "check", file}), HasSubstr("has all that a connection needs"));
    write("state");
    ExpectFailure({"settings", "check", file}, 2, "StatusPath under [General] in " + file + " is no whole path");
    write(settings_);
    ExpectFailure({"settings", "check", file}, 2, "names " + settings_ + ", which is no socket");
    write("/" + std::string(107, 'x'));
    ExpectFailure({"settings", "check", file}, 2, "is longer than the 107 bytes that a socket's path may have");
}

TEST_F(Orvctl, HelpAndVersionAreThereForEachCommand) {
    EXPECT_THAT(Must({"--help"}), HasSubstr("Exit codes: 0 done"));
    EXPECT_THAT(Must({"--version"}), HasSubstr("orvctl "));
    for (const char* table : {"feed", "announcement", "parameter", "user"}) {
        EXPECT_THAT(Must({table, "--help"}), HasSubstr("remove"));
        for (const char* command : {"list", "show", "add", "set", "remove"}) Must({table, command, "--help"});
    }
    EXPECT_THAT(Must({"feed", "add", "--help"}), HasSubstr("--type,--feedtype default|linein|shuffled|sorted"));
}

// "A subcommand is required" was the answer, whatever had been typed.
TEST_F(Orvctl, AWordThatIsNoCommandIsNamed) {
    RunResult result = Ctl({"fed", "list"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.error, "orvctl: \"fed\" is no command here; \"orvctl --help\" lists those that there are.\n");
    result = Ctl({"feed", "lst"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.error, "orvctl: \"lst\" is no command here; \"orvctl feed --help\" lists those that there are.\n");
    EXPECT_EQ(Ctl({"feed"}).error,
              "orvctl: a command is missing; \"orvctl feed --help\" lists those that there are.\n");
    EXPECT_EQ(Ctl({}).error, "orvctl: a command is missing; \"orvctl --help\" lists those that there are.\n");
}

}  // namespace
}  // namespace OrvTest
