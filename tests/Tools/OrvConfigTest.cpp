// Goal: the daemon starts, stops and refuses to start as told. Method: the real program in a temporary folder.
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "tests/Tools/ServedDatabase.h"

namespace OrvTest {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

class OrvConfig : public ServedDatabase {
protected:
    std::string Log() const { return ReadFileText(folder_ / "config.log"); }
    RunResult Start(const std::string& database, const std::vector<std::string>& more = {"--port", "0"}) {
        std::vector<std::string> command = {OrvConfigProgram, "serve", "--database", database};
        command.insert(command.end(), more.begin(), more.end());
        return OrvTest::Run(command, "", 10000);
    }
    // A start as another user, whose file the database is.
    std::vector<std::string> ServedByAnother(const std::string& database) {
        if (::geteuid() == 0) {
            EXPECT_EQ(::chown(database.c_str(), Nobody, Nobody), 0);
        }
        return AsAnother({OrvConfigProgram, "serve", "--database", database, "--port", "0"});
    }
    void ExpectNoStart(const RunResult& result, int code, const std::string& text) {
        EXPECT_FALSE(result.timedOut);
        EXPECT_EQ(result.exitCode, code);
        EXPECT_THAT(result.error, HasSubstr(text));
    }
    RunResult User(const std::vector<std::string>& arguments, const std::string& input = "") {
        std::vector<std::string> command = {OrvConfigProgram, "user"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        command.insert(command.end(), {"--database", database_});
        return OrvTest::Run(command, input);
    }
    void Sql(const std::string& sql) {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(database_.c_str(), &database), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(database);
    }
};

TEST_F(OrvConfig, ItStopsOnEitherSignalWithCodeZeroAndLeavesOneFileWithEverything) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Must({"parameter", "set", "COLOUR", std::to_string(signal)});
        server_.Signal(signal);
        ASSERT_TRUE(server_.WaitFor(10000));
        EXPECT_EQ(server_.ExitCode(), 0);
        EXPECT_FALSE(std::filesystem::exists(database_ + "-wal"));
        EXPECT_FALSE(std::filesystem::exists(database_ + "-shm"));
        EXPECT_THAT(Log(), HasSubstr("Info  Stopped"));
        Serve();
        EXPECT_EQ(MustJson({"parameter", "show", "COLOUR"})["value"], std::to_string(signal));
    }
}

TEST_F(OrvConfig, EachLineOfItsLogIsDated) {
    std::istringstream lines(Log());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        EXPECT_THAT(line, MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} "
                                       "(Info |Warn |Error) .*"));
    }
    EXPECT_GE(count, 1);
}

TEST_F(OrvConfig, WrongCredentialsAreToldInTheLog) {
    EXPECT_EQ(CtlAs(WriteSettings("feeder", "wrong"), {"status"}).exitCode, 4);
    EXPECT_THAT(Log(), HasSubstr("Wrong credentials from 127.0.0.1:"));
    EXPECT_THAT(Log(), HasSubstr("for user \"feeder\""));
}

TEST_F(OrvConfig, UnderAServiceManagerItTellsThatItIsReady) {
    ASSERT_EQ(server_.Stop(), 0);
    const std::string path = folder_ / "notify";
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ProcessOptions options;
    options.command = {OrvConfigProgram, "--database", database_, "--port", port_};
    options.errorFile = folder_ / "config.log";
    options.environment = {{"NOTIFY_SOCKET", path}};
    server_ = Process(options);
    std::string told;
    const auto hears = [&](const std::string& word) {
        return Eventually([&] {
            char buffer[512];
            const ssize_t count = ::recv(socket, buffer, sizeof(buffer), MSG_DONTWAIT);
            if (count > 0) told += std::string(buffer, static_cast<std::size_t>(count)) + "\n";
            return told.find(word) != std::string::npos;
        });
    };
    EXPECT_TRUE(hears("READY=1")) << told;
    Must({"status"});
    server_.Signal(SIGTERM);
    EXPECT_TRUE(hears("STOPPING=1")) << told;
    ASSERT_TRUE(server_.WaitFor(10000));
    EXPECT_EQ(server_.ExitCode(), 0);
    ::close(socket);
}

TEST_F(OrvConfig, ATakenPortIsToldWithWhatToDo) {
    ExpectNoStart(Start(folder_ / "other.db", {"--port", port_}), 1,
                  "orv-config cannot listen on 127.0.0.1:" + port_ +
                      ": Address already in use; stop what uses the port, or choose another with --port");
}

TEST_F(OrvConfig, ADatabaseIsServedByOneProcessAtATime) {
    ExpectNoStart(Start(database_), 1, "is served by another orv-config");
    Must({"feed", "add", "still-fine"});
    server_.Kill();
    Serve();
    EXPECT_EQ(MustJson({"feed", "list"}).size(), 1u) << "a killed one leaves no lock behind";
}

TEST_F(OrvConfig, ADatabaseThatCannotBeTrustedIsRefusedWithWhatToDo) {
    ASSERT_EQ(server_.Stop(), 0);
    ExpectNoStart(Start(folder_ / "missing/config.db"), 1, "check that its folder is there");
    WriteFileText(folder_ / "text", std::string(5000, 'x'));
    ExpectNoStart(Start(folder_ / "text"), 1, "this is no database");
    Sql("PRAGMA user_version = 9");
    ExpectNoStart(Start(database_), 1, "was written by a newer orv-config");
}

TEST_F(OrvConfig, ADatabaseThatIsNotWritableIsRefused) {
    ASSERT_EQ(server_.Stop(), 0);
    std::filesystem::permissions(database_, std::filesystem::perms{0400});
    ExpectNoStart(OrvTest::Run(ServedByAnother(database_), "", 10000), 1, "Permission denied");
}

TEST_F(OrvConfig, ADatabaseInAFolderThatIsNotWritableIsRefused) {
    // Its write-ahead log is made beside it.
    ASSERT_EQ(server_.Stop(), 0);
    const std::string folder = folder_ / "closed";
    std::filesystem::create_directory(folder);
    std::filesystem::copy_file(database_, folder + "/config.db");
    const std::vector<std::string> command = ServedByAnother(folder + "/config.db");
    std::filesystem::permissions(folder, std::filesystem::perms{0555});
    ExpectNoStart(OrvTest::Run(command, "", 10000), 1, "write to the file and its folder");
    std::filesystem::permissions(folder, std::filesystem::perms{0755});
}

TEST_F(OrvConfig, ADamagedDatabaseIsRefusedWithWhatToDoAndLeftAsItWas) {
    ASSERT_EQ(server_.Stop(), 0);
    Sql("INSERT INTO PARAMETER (name, value) WITH RECURSIVE n(i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i "
        "< 60) SELECT 'P' || i, hex(zeroblob(450)) FROM n");
    const std::string whole = ReadFileText(database_);
    ASSERT_GT(whole.size(), 16u * 4096);
    std::string page = whole;
    page.replace(page.size() - 3 * 4096, 4096, std::string(4096, '\xA5'));
    std::string header = whole;
    header.replace(0, 100, std::string(100, '\0'));
    const std::string cut = whole.substr(0, whole.size() / 2);
    for (const auto& [bytes, advice] :
         {std::pair{page, "put back a copy of it"}, std::pair{cut, "put back a copy of it"},
          std::pair{header, "this is no database"}}) {
        WriteFileText(database_, bytes);
        ExpectNoStart(Start(database_), 1, advice);
        EXPECT_EQ(ReadFileText(database_) == bytes, true) << "what may still be saved is not touched";
        for (const char* part : {"-wal", "-shm"}) std::filesystem::remove(database_ + part);
    }
    WriteFileText(database_, whole);
    Serve();
    EXPECT_EQ(MustJson({"parameter", "list"}).size(), 60u) << "the copy that was put back is served";
}

TEST_F(OrvConfig, ADatabaseThatAnotherProgramHoldsIsToldAndServedOnceItIsLetGo) {
    const auto hold = [this](sqlite3** database, const char* how) {
        EXPECT_EQ(sqlite3_open(database_.c_str(), database), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(*database, how, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(*database);
    };
    sqlite3* other = nullptr;
    hold(&other, "BEGIN IMMEDIATE");
    ExpectFailure({"feed", "add", "late"}, 8, "another program holds it, so end that one or wait for it");
    EXPECT_EQ(MustJson({"feed", "list"}).size(), 0u) << "reading goes on";
    sqlite3_close(other);
    Must({"feed", "add", "late"});

    ASSERT_EQ(server_.Stop(), 0);
    hold(&other, "PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE");
    ExpectNoStart(Start(database_), 1, "another program holds it, so end that one or wait for it");
    sqlite3_close(other);
    Serve();
    EXPECT_EQ(MustJson({"feed", "list"}).size(), 1u);
}

TEST_F(OrvConfig, NothingIsAcknowledgedForADatabaseThatHasGoneFromItsPlace) {
    // A change would go into a file that nobody finds again: it was acknowledged, and lost at the next start.
    std::filesystem::rename(database_, folder_ / "aside");
    ExpectFailure({"feed", "add", "lost"}, 8, "is not in its place any more; put it back");
    WriteFileText(database_, ReadFileText(folder_ / "aside"));
    ExpectFailure({"feed", "add", "lost"}, 8, "is not in its place any more; put it back");
    EXPECT_EQ(MustJson({"feed", "list"}).size(), 0u);
    std::filesystem::rename(folder_ / "aside", database_);
    Must({"feed", "add", "kept"});
    ASSERT_EQ(server_.Stop(), 0);
    Serve();
    EXPECT_EQ(MustJson({"feed", "list"}).size(), 1u);
}

TEST_F(OrvConfig, OnlyTheLoopbackIsListenedOn) {
    for (const char* address : {"0.0.0.0", "192.168.1.1", "::", "127.0.0.300", "127.1", "example.org"}) {
        ExpectNoStart(Start(folder_ / "other.db", {"--address", address}), 2, "only an address of the loopback");
    }
}

TEST_F(OrvConfig, BadCommandLinesEndWithCodeTwo) {
    EXPECT_EQ(OrvTest::Run({OrvConfigProgram, "dance"}).exitCode, 2);
    EXPECT_EQ(OrvTest::Run({OrvConfigProgram, "--port", "70000"}).exitCode, 2);
    EXPECT_EQ(OrvTest::Run({OrvConfigProgram, "user"}).exitCode, 2);
    EXPECT_EQ(User({"add", "x"}).exitCode, 2);
    EXPECT_EQ(User({"add", "x", "--role", "king"}).exitCode, 2);
    EXPECT_EQ(OrvTest::Run({OrvConfigProgram, "--help"}).exitCode, 0);
    EXPECT_THAT(OrvTest::Run({OrvConfigProgram, "--version"}).output, HasSubstr("orv-config "));
}

TEST_F(OrvConfig, UsersAreManagedBesideTheRunningService) {
    EXPECT_EQ(User({"add", "late", "--role", "admin", "--password-file", "-"}, "pw\n").output,
              "User \"late\" added.\n");
    EXPECT_EQ(CtlAs(WriteSettings("late", "pw"), {"feed", "add", "x"}).exitCode, 0);
    EXPECT_EQ(User({"list"}).output, "reader  feeder\nadmin   late\nadmin   root\n");
    EXPECT_EQ(User({"passwd", "late", "--password-file", "-"}, "new\n").exitCode, 0);
    EXPECT_EQ(CtlAs(WriteSettings("late", "pw"), {"feed", "list"}).exitCode, 4);
    EXPECT_EQ(CtlAs(WriteSettings("late", "new"), {"feed", "list"}).exitCode, 0);
    EXPECT_EQ(User({"remove", "late"}).exitCode, 0);
    EXPECT_EQ(CtlAs(WriteSettings("late", "new"), {"feed", "list"}).exitCode, 4);
    Must({"feed", "add", "y"});
}

TEST_F(OrvConfig, BadUsersAreRefusedWithTheReason) {
    const auto refused = [&](const std::vector<std::string>& arguments, const std::string& input,
                             const std::string& text) {
        const RunResult result = User(arguments, input);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(result.error, HasSubstr(text));
    };
    refused({"add", "a:b", "--role", "reader", "--password-file", "-"}, "x\n", "the name holds a colon");
    refused({"add", "ab", "--role", "reader", "--password-file", "-"}, "x\"\n", "the password holds a double quote");
    refused({"add", "ab", "--role", "reader", "--password-file", "-"}, "\n", "the password is empty");
    refused({"add", "root", "--role", "reader", "--password-file", "-"}, "x\n", "is there already");
    refused({"remove", "nobody"}, "", "there is no such user");
    refused({"remove", "root"}, "", "the last user of role admin");
    refused({"add", "ab", "--role", "reader", "--password-file", folder_ / "none"}, "", "cannot be read");
    // Without a terminal nobody can be asked.
    if (::access("/dev/tty", R_OK) != 0) refused({"add", "ab", "--role", "reader"}, "", "There is no terminal");
}

TEST_F(OrvConfig, AServiceWithoutUsersSaysHowToMakeOne) {
    ProcessOptions options;
    options.command = {OrvConfigProgram, "--database", folder_ / "fresh.db", "--port", "0"};
    options.errorFile = folder_ / "fresh.log";
    Process fresh(options);
    EXPECT_TRUE(WaitForText(options.errorFile, "orv-config user add NAME --role admin --database"));
    EXPECT_EQ(fresh.Stop(), 0);
}

}  // namespace
}  // namespace OrvTest
