// Goal: one command brings an installed system to where it plays, says what it made, and can be run again at any time.
// Method: a root of the test's own with the folders that the packages make; no service runs, so the work is done in the
// database itself, which is then read by the Configuration service's own classes.
#include "Tools/orvctl/Setup.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "ConfigService/Store.h"
#include "ConfigService/Users.h"
#include "Platform/PrivateFile.h"
#include "ServiceProcess/CommonSettings.h"
#include "Tools/orvctl/SettingsText.h"
#include "Tools/orvctl/ToolError.h"
#include "VX/Link.h"
#include "tests/support/Process.h"

namespace Orv {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
namespace fs = std::filesystem;

// Nothing here may connect.
class NoConnector : public VX::ILinkConnector {
public:
    std::unique_ptr<VX::ILink> Connect(const std::string&, u32, const std::string&, VX::ILinkEvents&, VX::PeerInfo&,
                                       bool&) override {
        ADD_FAILURE() << "connected";
        return nullptr;
    }
};

class OrvctlSetup : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(folder_ / "etc/orv");
        fs::create_directories(folder_ / "var/lib/Orv/Config");
        fs::create_directories(folder_ / "usr/share/orv");
        OrvTest::WriteFileText(folder_ / "usr/share/orv/default.wav", "sound");
        options_.root = folder_.Path();
    }

    SetupReport Run() { return Orv::SetUp(connector_, options_); }
    void ExpectRefusal(ExitCode code, const std::string& text) {
        try {
            Run();
            ADD_FAILURE() << "nothing was refused";
        } catch (const ToolError& error) {
            EXPECT_EQ(error.Code(), code) << error.what();
            EXPECT_THAT(error.what(), HasSubstr(text));
        }
    }
    std::string Setting(const std::string& file, const char* name) const {
        CommonSettings settings;
        EXPECT_TRUE(settings.Load(file.c_str()));
        EXPECT_THAT(settings.messages, IsEmpty());
        return settings.GetValue(name).AsString();
    }
    bool Accepts(const std::string& user, const std::string& password) const {
        std::string reason;
        const auto users = Users::Open(database_, reason);
        return users != nullptr && users->Verify(users->FindHash(user), password);
    }
    static mode_t ModeOf(const std::string& path) {
        struct stat status {};
        return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }

    OrvTest::TempFolder folder_;
    const std::string service_ = folder_ / "etc/orv/OrvPhoneSystem.ini";
    const std::string administrator_ = folder_ / "etc/orv/orvctl.ini";
    const std::string database_ = folder_ / "var/lib/Orv/Config/orv-config.db";
    SetupOptions options_;
    NoConnector connector_;
};

TEST_F(OrvctlSetup, ACleanSystemGetsUsersSettingsAndAFeed) {
    const SetupReport report = Run();
    EXPECT_THAT(report.kept, IsEmpty());
    EXPECT_THAT(report.made, Contains(StartsWith("User feeder, role reader")));

    EXPECT_EQ(Setting(service_, "[General].AppDataPath"), "/var/lib/Orv/");
    EXPECT_EQ(Setting(service_, "[General].PipePath"), "/run/Orv/pipe");
    EXPECT_EQ(Setting(service_, "[General].StatusPath"), "/run/Orv/status/feed");
    for (const std::string& file : {service_, administrator_}) {
        EXPECT_EQ(Setting(file, "[ConfService].confNIC"), "127.0.0.1");
        EXPECT_EQ(Setting(file, "[ConfService].ConfPort"), "5485");
        const std::string password = Setting(file, "[ConfService].confPass");
        EXPECT_EQ(password.size(), 40u);
        EXPECT_TRUE(Accepts(Setting(file, "[ConfService].confUser"), password)) << file;
    }
    EXPECT_NE(Setting(service_, "[ConfService].confPass"), Setting(administrator_, "[ConfService].confPass"));

    std::string reason;
    const auto users = Users::Open(database_, reason);
    EXPECT_EQ(users->FindRole("feeder"), Role::Reader);
    EXPECT_EQ(users->FindRole("admin"), Role::Admin);
    const auto store = Store::Open(database_, reason);
    Row row;
    ASSERT_TRUE(store->FindRow(Tables()[AudioFeed], "default", row));
    EXPECT_EQ(row.Number(FeedColumn::FeedType), 0);
    ASSERT_TRUE(store->FindRow(Tables()[Parameter], "DEFAULTAUDIOFILE", row));
    EXPECT_EQ(row.Text(ParameterColumn::Value), "/usr/share/orv/default.wav");
}

TEST_F(OrvctlSetup, TheServicesFileIsForItsGroupAndTheAdministratorsForItsOwner) {
    Run();
    EXPECT_EQ(ModeOf(service_), 0640u);
    EXPECT_EQ(ModeOf(administrator_), 0600u);
    EXPECT_EQ(ModeOf(database_) & 077, 0u);
}

TEST_F(OrvctlSetup, ASecondRunMakesNothing) {
    Run();
    const std::string before = OrvTest::ReadFileText(service_) + OrvTest::ReadFileText(administrator_);
    EXPECT_THAT(Run().made, IsEmpty());
    EXPECT_EQ(OrvTest::ReadFileText(service_) + OrvTest::ReadFileText(administrator_), before);
}

TEST_F(OrvctlSetup, WhatIsMissingIsMended) {
    Run();
    fs::remove(service_);
    {
        std::string reason;
        const auto users = Users::Open(database_, reason);
        ASSERT_EQ(users->Add("second", Role::Admin, "x").outcome, UserOutcome::Done);
        ASSERT_EQ(users->Remove("admin").outcome, UserOutcome::Done);
    }
    Run();
    EXPECT_TRUE(Accepts("admin", Setting(administrator_, "[ConfService].confPass")));
    EXPECT_TRUE(Accepts("feeder", Setting(service_, "[ConfService].confPass")));
}

TEST_F(OrvctlSetup, FeedsAndADefaultFileThatAreThereStay) {
    std::string reason;
    {
        const auto store = Store::Open(database_, reason);
        ASSERT_EQ(store
                      ->Apply({{"AUDIOFEED", Action::Add, 0, "mine", {}},
                               {"PARAMETER", Action::Add, 0, "DEFAULTAUDIOFILE", {{"value", std::string("/a.wav")}}}})
                      .outcome,
                  Outcome::Done);
    }
    EXPECT_THAT(Run().kept, Contains("Feeds: 1"));
    const auto store = Store::Open(database_, reason);
    Row row;
    EXPECT_FALSE(store->FindRow(Tables()[AudioFeed], "default", row));
    ASSERT_TRUE(store->FindRow(Tables()[Parameter], "DEFAULTAUDIOFILE", row));
    EXPECT_EQ(row.Text(ParameterColumn::Value), "/a.wav");
}

TEST_F(OrvctlSetup, AWrongPasswordInTheFileIsToldAndMendedOnRequest) {
    Run();
    OrvTest::WriteFileText(
        service_,
        "[General]\nAppDataPath=/srv/orv/ ; mine\n[ConfService]\nConfPort=5485\nconfUser=feeder\nconfpass = old");
    ExpectRefusal(ExitCode::WrongCredentials, "User \"feeder\" has another password than " + service_);
    options_.newPasswords = true;
    Run();
    EXPECT_TRUE(Accepts("feeder", Setting(service_, "[ConfService].confPass")));
    EXPECT_TRUE(Accepts("admin", Setting(administrator_, "[ConfService].confPass")));
    EXPECT_EQ(Setting(service_, "[General].AppDataPath"), "/srv/orv/");
    EXPECT_EQ(ModeOf(service_), 0640u);
}

TEST_F(OrvctlSetup, ThePortOfTheSettingsCountsAndAnotherOneIsRefused) {
    options_.port = 6000;
    Run();
    EXPECT_EQ(Setting(service_, "[ConfService].ConfPort"), "6000");
    options_.port = 0;
    fs::remove(administrator_);
    Run();
    EXPECT_EQ(Setting(administrator_, "[ConfService].ConfPort"), "6000");
    options_.port = 6001;
    ExpectRefusal(ExitCode::BadCommandLine, "is 6000, elsewhere it is 6001");
}

TEST_F(OrvctlSetup, WhatCannotWorkIsToldWithWhatToDo) {
    OrvTest::WriteFileText(service_, "[ConfService]\nConfPort=5485\n");
    ExpectRefusal(ExitCode::BadCommandLine, "There is no confUser under [ConfService] in " + service_);
    OrvTest::WriteFileText(service_, "[ConfService]\nconfUser=feeder\n");
    ExpectRefusal(ExitCode::BadCommandLine, "There is no usable ConfPort");
    fs::remove(service_);
    fs::remove(folder_ / "usr/share/orv/default.wav");
    ExpectRefusal(ExitCode::BadCommandLine, "name one with --default-file");
    fs::remove_all(folder_ / "var/lib/Orv/Config");
    ExpectRefusal(ExitCode::BadCommandLine, "install the package orv-config");
    fs::remove_all(folder_ / "etc/orv");
    ExpectRefusal(ExitCode::BadCommandLine, "install the package orv-audio-feed");
}

// What stands in front of the bad spot would be taken for the whole, and what is missing written anew. The system's own
// files say that they are longer than what can be read of them.
TEST_F(OrvctlSetup, ASettingsFileThatCannotBeReadToItsEndIsToldAndLeft) {
    const std::string shorter = "/sys/kernel/uevent_seqnum";
    if (!fs::exists(shorter)) GTEST_SKIP() << "no " << shorter << " on this machine";
    for (const std::string& file : {service_, administrator_}) {
        fs::create_symlink(shorter, file);
        ExpectRefusal(ExitCode::BadCommandLine, "The settings file " + file + " cannot be read to its end");
        EXPECT_TRUE(fs::is_symlink(file));
        fs::remove(file);
    }
    EXPECT_FALSE(fs::exists(database_));
}

TEST_F(OrvctlSetup, AnAdministratorWhoMayOnlyReadIsRefused) {
    Run();
    OrvTest::WriteFileText(administrator_, OrvTest::ReadFileText(service_));
    ExpectRefusal(ExitCode::Refused, "is no administrator");
}

// --- the text of a settings file ---

TEST(SettingsText, OnlyThePasswordOfItsSectionIsReplaced) {
    EXPECT_EQ(
        ReplacePassword("confPass=a\n[ConfService]\n  CONFPASS =b ; c\r\n# confPass=d\n[Other]\nconfPass=e", "new"),
        "confPass=a\n[ConfService]\nconfPass=\"new\"\n# confPass=d\n[Other]\nconfPass=e");
}

TEST(SettingsText, AMissingPasswordIsAddedToItsSection) {
    EXPECT_EQ(ReplacePassword("[ConfService]\nconfUser=a\n", "p"), "[ConfService]\nconfPass=\"p\"\nconfUser=a\n");
    EXPECT_EQ(ReplacePassword("[ConfService]", "p"), "[ConfService]\nconfPass=\"p\"\n");
    EXPECT_EQ(ReplacePassword("[General]\na=b", "p"), "[General]\na=b\n[ConfService]\nconfPass=\"p\"\n");
    EXPECT_EQ(ReplacePassword("", "p"), "[ConfService]\nconfPass=\"p\"\n");
}

// --- the file operations behind it ---

TEST(ReplaceFile, AFileThatCannotBeWrittenKeepsItsContentAndLeavesNothingAside) {
    OrvTest::TempFolder folder;
    Platform::SystemError error = 0;
    ASSERT_TRUE(Platform::ReplaceFile(folder / "a", "one", Platform::FileReaders::Owner, error));
    ASSERT_TRUE(Platform::ReplaceFile(folder / "a", "two", Platform::FileReaders::Group, error));
    EXPECT_EQ(OrvTest::ReadFileText(folder / "a"), "two");
    fs::create_directory(folder / "b");
    EXPECT_FALSE(Platform::ReplaceFile(folder / "b", "x", Platform::FileReaders::Owner, error));
    EXPECT_NE(error, 0u);
    EXPECT_FALSE(Platform::ReplaceFile(folder / "none/c", "x", Platform::FileReaders::Owner, error));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.Path()), {}), 2);
}

}  // namespace
}  // namespace Orv
