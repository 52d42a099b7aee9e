// Goal: another user of the machine gets neither at the sound nor at the rows nor at a password. Method: commands as
// that user, each of which must be refused for want of rights, beside those that show that he can start what he is
// refused.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/e2e/Exchange.h"
#include "tests/support/OtherUser.h"

namespace fs = std::filesystem;

namespace OrvTest {
namespace {

TEST(HostileUser, AnotherUserGetsNeitherAtTheSoundNorAtTheRowsNorAtAPassword) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can be another user";
    Exchange exchange;
    exchange.StartConfig();
    exchange.Must({"feed", "add", "hold", "--type", "sorted", "--folder", "none"});
    exchange.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "5"});
    exchange.WriteSettings("[General]\nStatusPath=" + (exchange.Folder() / "status") + "\n");
    exchange.StartFeeder();
    { Client client(exchange, "hold"); }
    // A wrong password is told nowhere either.
    WriteFileText(exchange.Folder() / "wrong.ini",
                  ReadFileText(exchange.Folder() / "orvctl.ini") + "confPass=wrong-password\n");
    exchange.Own(exchange.Folder() / "wrong.ini");
    EXPECT_NE(OrvTest::Run(
                  exchange.Unprivileged({exchange.Program("orvctl"), "-c", exchange.Folder() / "wrong.ini", "status"}))
                  .exitCode,
              0);
    // The folder is this test's own and nobody else's; on a machine its parents are everybody's. The settings are the
    // administrator's to keep, as the package's are.
    fs::permissions(exchange.Folder().Path(), fs::perms(0755));
    for (const auto& entry : fs::directory_iterator(exchange.Folder().Path())) {
        const std::string ending = entry.path().extension();
        if (ending == ".ini" || ending == ".password") fs::permissions(entry.path(), fs::perms(0600));
    }

    const auto other = [](const std::vector<std::string>& command) {
        return OrvTest::Run(AsUser(65533, command), "", 30'000, {{"LC_ALL", "C"}});
    };
    const auto expectDenied = [&](const std::vector<std::string>& command, const std::string& words) {
        const RunResult result = other(command);
        EXPECT_GT(result.exitCode, 0) << ::testing::PrintToString(command);
        EXPECT_NE(result.error.find(words), std::string::npos)
            << ::testing::PrintToString(command) << ": " << result.error;
        EXPECT_EQ(result.output, "");
    };
    const std::string feeder = std::to_string(exchange.Feeder().Pid());
    const std::string config = std::to_string(exchange.Config().Pid());
    ASSERT_EQ(other({"/bin/ls", exchange.Folder().Path()}).exitCode, 0) << "the other user sees the folder";
    for (const char* program : {"orv-listen", "orvctl"}) {
        EXPECT_EQ(other({exchange.Program(program), "--version"}).exitCode, 0) << "he can start " << program;
    }
    const std::vector<std::string> listen{exchange.Program("orv-listen"), "hold",      "--pipe-folder",
                                          exchange.PipeFolder(),          "--seconds", "1"};
    EXPECT_EQ(OrvTest::Run(exchange.Unprivileged(listen)).exitCode, 0) << "the service's own user hears it";
    expectDenied(listen, "Permission denied");
    for (const char* tail : {"", "-wal", "-shm"}) {
        if (!fs::exists(exchange.Database() + tail)) continue;
        expectDenied({"/bin/cat", exchange.Database() + tail}, "Permission denied");
    }
    for (const std::string& pid : {feeder, config}) {
        expectDenied({"/bin/cat", "/proc/" + pid + "/environ"}, "Permission denied");
        expectDenied({"/bin/ls", "/proc/" + pid + "/fd/"}, "Permission denied");
        const std::string line = other({"/bin/cat", "/proc/" + pid + "/cmdline"}).output;
        EXPECT_NE(line, "");
        EXPECT_EQ(line.find("-password"), std::string::npos) << line;
    }
    expectDenied({exchange.Program("orvctl"), "-c", exchange.SettingsFile(), "status"},
                 "The settings file " + exchange.SettingsFile() + " cannot be opened; check its name and its rights");
    // In all that the programs have written, whoever may read it, no password stands.
    const RunResult readable =
        other({"/bin/grep", "-r", "-l", "-s", "-a", "--devices=skip", "-e", "-password", exchange.Folder().Path()});
    EXPECT_EQ(readable.output, "");
    EXPECT_EQ(exchange.LogText().find("-password"), std::string::npos);
    EXPECT_EQ(ReadFileText(exchange.Folder() / "config.log").find("-password"), std::string::npos);
    for (const char* tail : {"", "-wal"}) {
        EXPECT_EQ(ReadFileText(exchange.Database() + tail).find("-password"), std::string::npos)
            << "only hashes are kept";
    }
    for (const auto& entry : fs::recursive_directory_iterator(exchange.PipeFolder())) {
        struct stat status {};
        ASSERT_EQ(::stat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0007, 0u) << entry.path();
    }
    struct stat status {};
    ASSERT_EQ(::stat((exchange.Folder() / "status").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0007, 0u);
}

}  // namespace
}  // namespace OrvTest
