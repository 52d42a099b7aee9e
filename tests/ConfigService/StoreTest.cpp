// Goal: what has been acknowledged is in the file, whole transactions only, and a file that cannot be trusted is
// refused. Method: stores over real files, opened again or looked at through SQLite's own eyes.
#include "ConfigService/Store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>

#include "tests/support/Process.h"

namespace Orv {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const Table& Feeds() {
    return Tables()[AudioFeed];
}
const Table& Announcements() {
    return Tables()[Announcement];
}

Change Feed(Action action, const std::string& pipe, std::vector<std::pair<std::string, Value>> values = {}) {
    return {"AUDIOFEED", action, 0, pipe, std::move(values)};
}
Change Saying(Action action, const std::string& name, std::vector<std::pair<std::string, Value>> values = {}) {
    return {"ANNOUNCEMENT", action, 0, name, std::move(values)};
}
Value Text(const char* text) {
    return std::string(text);
}

class StoreTest : public ::testing::Test {
protected:
    void SetUp() override { Open(); }
    void Open() {
        store_.reset();
        std::string reason;
        store_ = Store::Open(path_, reason);
        ASSERT_NE(store_, nullptr) << reason;
    }
    std::string WhyNotOpened() {
        store_.reset();
        std::string reason;
        EXPECT_EQ(Store::Open(path_, reason), nullptr);
        return reason;
    }
    // Another program's statement on the same file.
    void Sql(const std::string& sql) {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(path_.c_str(), &database), SQLITE_OK);
        char* error = nullptr;
        EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, &error), SQLITE_OK) << (error ? error : "");
        sqlite3_free(error);
        sqlite3_close(database);
    }
    void Must(const std::vector<Change>& changes) {
        const ApplyResult result = store_->Apply(changes);
        ASSERT_EQ(result.outcome, Outcome::Done) << (result.errors.empty() ? "" : result.errors.front().text);
    }

    OrvTest::TempFolder folder_;
    const std::string path_ = folder_ / "config.db";
    std::unique_ptr<Store> store_;
};

TEST_F(StoreTest, ANewFileHasFourEmptyTablesAndTransactionNumberZero) {
    for (const Table& table : Tables()) EXPECT_THAT(store_->Ids(table), IsEmpty()) << table.name;
    EXPECT_EQ(store_->LastTransaction(), 0);
}

TEST_F(StoreTest, OnlyTheOwnerCanReadTheFileAndItsLog) {
    Must({Feed(Action::Add, "hold")});
    u32 files = 0;
    for (const auto& file : std::filesystem::directory_iterator(folder_.Path())) {
        EXPECT_EQ(static_cast<u32>(file.status().permissions()), 0600u) << file.path();
        ++files;
    }
    EXPECT_EQ(files, 3u) << "the database, its log and the index of the log";
}

TEST_F(StoreTest, AFileThatOthersCanReadLosesTheirRightsWhenItIsOpened) {
    store_.reset();
    std::filesystem::permissions(path_, std::filesystem::perms{0644});
    Open();
    EXPECT_EQ(static_cast<u32>(std::filesystem::status(path_).permissions()), 0600u);
}

TEST_F(StoreTest, TheLogIsWrittenAheadAndFullySynchronised) {
    Database database(path_);
    EXPECT_EQ(database.QueryNumber("PRAGMA synchronous"), 2);
    Statement mode(database, "PRAGMA journal_mode");
    ASSERT_TRUE(mode.Step());
    EXPECT_EQ(mode.GetText(0), "wal");
}

TEST_F(StoreTest, RowsAndTheTransactionNumberOutliveTheProcess) {
    Must({Feed(Action::Add, "Hold", {{"thename", Text("jazz")}, {"feedtype", 3}})});
    Must({Feed(Action::Add, "other")});
    Open();
    EXPECT_EQ(store_->LastTransaction(), 2);
    Row row;
    ASSERT_TRUE(store_->FindRow(Feeds(), "Hold", row));
    EXPECT_EQ(row.id, 1);
    EXPECT_EQ(row.Text(FeedColumn::TheName), "jazz");
    EXPECT_EQ(row.Number(FeedColumn::FeedType), 3);
}

TEST_F(StoreTest, AColumnThatWasNeverSetIsAbsentAndCanBecomeAbsentAgain) {
    Must({Feed(Action::Add, "hold", {{"maxvolume", 0}, {"thename", Text("")}})});
    Row row;
    ASSERT_TRUE(store_->GetRow(Feeds(), 1, row));
    EXPECT_TRUE(row.Has(FeedColumn::MaxVolume)) << "0 is not the same as absent";
    EXPECT_TRUE(row.Has(FeedColumn::TheName)) << "nor is an empty text";
    EXPECT_FALSE(row.Has(FeedColumn::AutoGain));
    Must({Feed(Action::Set, "hold", {{"maxvolume", Value()}})});
    Open();
    ASSERT_TRUE(store_->GetRow(Feeds(), 1, row));
    EXPECT_FALSE(row.Has(FeedColumn::MaxVolume));
    EXPECT_TRUE(row.Has(FeedColumn::TheName));
}

TEST_F(StoreTest, AnIdIsNeverUsedASecondTime) {
    Must({Feed(Action::Add, "a"), Feed(Action::Add, "b")});
    Must({Feed(Action::Remove, "b")});
    Must({Feed(Action::Add, "c")});
    EXPECT_THAT(store_->Ids(Feeds()), ElementsAre(1, 3));
    Must({Feed(Action::Remove, "c")});
    Open();
    Must({Feed(Action::Add, "d")});
    EXPECT_THAT(store_->Ids(Feeds()), ElementsAre(1, 4));
}

TEST_F(StoreTest, ChangesThatLeaveEveryRowAsItIsAreNoTransaction) {
    Must({Feed(Action::Add, "hold", {{"feedtype", 2}})});
    EXPECT_EQ(store_->Apply({Feed(Action::Set, "hold", {{"feedtype", 2}})}).transaction, 0);
    EXPECT_EQ(store_->Apply({Feed(Action::Put, "hold", {{"feedtype", 2}})}).transaction, 0);
    EXPECT_EQ(store_->Apply({Feed(Action::Drop, "missing")}).transaction, 0);
    EXPECT_EQ(store_->Apply({Feed(Action::Add, "x"), Feed(Action::Remove, "x")}).transaction, 0);
    EXPECT_EQ(store_->Apply({}).transaction, 0);
    EXPECT_EQ(store_->LastTransaction(), 1);
}

TEST_F(StoreTest, PutStatesTheWholeRowAndMakesItWhenMissing) {
    Must({Feed(Action::Put, "hold", {{"feedtype", 2}, {"maxvolume", 50}})});
    Must({Feed(Action::Put, "hold", {{"feedtype", 3}})});
    Row row;
    ASSERT_TRUE(store_->GetRow(Feeds(), 1, row));
    EXPECT_EQ(row.Number(FeedColumn::FeedType), 3);
    EXPECT_FALSE(row.Has(FeedColumn::MaxVolume));
}

TEST_F(StoreTest, AFeedIsFoundByItsPipeNameWhateverItsCaseAndOtherRowsOnlyByTheirExactName) {
    Must({Feed(Action::Add, "Hold"), Saying(Action::Add, "Hello", {{"thefile", Text("a.wav")}})});
    Row row;
    EXPECT_TRUE(store_->FindRow(Feeds(), "hOLD", row));
    EXPECT_FALSE(store_->FindRow(Announcements(), "hello", row));
    EXPECT_TRUE(store_->FindRow(Announcements(), "Hello", row));
}

TEST_F(StoreTest, ARefusedTransactionTellsEachBadChangeAndKeepsNone) {
    const ApplyResult result = store_->Apply(
        {Feed(Action::Add, "good"), Feed(Action::Add, "bad", {{"feedtype", 7}}), Saying(Action::Add, "silent")});
    EXPECT_EQ(result.outcome, Outcome::Refused);
    ASSERT_EQ(result.errors.size(), 2u);
    EXPECT_EQ(result.errors[0].change, 1);
    EXPECT_EQ(result.errors[0].key, "bad");
    EXPECT_EQ(result.errors[0].field, "feedtype");
    EXPECT_EQ(result.errors[1].change, 2);
    EXPECT_EQ(result.errors[1].field, "thefile");
    EXPECT_EQ(store_->LastTransaction(), 0);
    EXPECT_THAT(store_->Ids(Feeds()), IsEmpty());
}

TEST_F(StoreTest, ATransactionTellsWhatBecameOfEachRowInTheOrderOfTheChanges) {
    Must({Feed(Action::Add, "a"), Feed(Action::Add, "b", {{"maxvolume", 3}})});
    const ApplyResult result =
        store_->Apply({Feed(Action::Add, "c"), Feed(Action::Set, "b", {{"maxvolume", 4}, {"pipename", Text("B2")}}),
                       Feed(Action::Remove, "a"), Feed(Action::Set, "c", {{"nonstop", 1}})});
    ASSERT_EQ(result.outcome, Outcome::Done);
    EXPECT_EQ(result.transaction, 2);
    ASSERT_EQ(result.changed.size(), 3u);
    EXPECT_EQ(result.changed[0].id, 3);
    EXPECT_STREQ(result.changed[0].kind, "Inserted");
    EXPECT_THAT(result.changed[0].columns, ElementsAre("pipename", "nonstop"));
    EXPECT_EQ(result.changed[1].id, 2);
    EXPECT_STREQ(result.changed[1].kind, "Updated");
    EXPECT_EQ(result.changed[1].oldKey, "b");
    EXPECT_EQ(result.changed[1].key, "B2");
    EXPECT_THAT(result.changed[1].columns, ElementsAre("pipename", "maxvolume"));
    EXPECT_STREQ(result.changed[2].kind, "Deleted");
    EXPECT_EQ(result.changed[2].key, "a");
}

TEST_F(StoreTest, AColumnThatTurnsFromAbsentToZeroOrEmptyDiffersAndReadsAlike) {
    Must({Feed(Action::Add, "a", {{"autogain", 0}})});
    const ApplyResult result = store_->Apply(
        {Feed(Action::Set, "a", {{"thename", Text("")}, {"nonstop", 0}, {"maxvolume", 5}, {"autogain", Value()}})});
    ASSERT_EQ(result.changed.size(), 1u);
    EXPECT_THAT(result.changed[0].columns, ElementsAre("thename", "nonstop", "maxvolume", "autogain"));
    EXPECT_THAT(result.changed[0].alike, ElementsAre("thename", "nonstop", "autogain"));
}

TEST_F(StoreTest, AnnouncementsMayExchangeTheirNamesInOneTransaction) {
    Must({Saying(Action::Add, "a", {{"thefile", Text("1.wav")}}),
          Saying(Action::Add, "b", {{"thefile", Text("2.wav")}})});
    Must({{"ANNOUNCEMENT", Action::Set, 1, "", {{"thename", Text("b")}}},
          {"ANNOUNCEMENT", Action::Set, 2, "", {{"thename", Text("a")}}}});
    Open();
    Row row;
    ASSERT_TRUE(store_->FindRow(Announcements(), "a", row));
    EXPECT_EQ(row.id, 2);
    ASSERT_TRUE(store_->FindRow(Announcements(), "b", row));
    EXPECT_EQ(row.id, 1);
}

TEST_F(StoreTest, ARemovedFeedTakesItsContentRowsAlong) {
    Must({Feed(Action::Add, "a"), Feed(Action::Add, "b")});
    Must({{"AUDIOFEEDCONTENT", Action::Add, 0, "", {{"fkidaudiofeed", 1}}},
          {"AUDIOFEEDCONTENT", Action::Add, 0, "", {{"fkidaudiofeed", 2}}}});
    const ApplyResult result = store_->Apply({Feed(Action::Remove, "a")});
    ASSERT_EQ(result.changed.size(), 2u);
    EXPECT_THAT(store_->Ids(Tables()[AudioFeedContent]), ElementsAre(2));
}

TEST_F(StoreTest, AContentRowOfNoFeedIsRefused) {
    const ApplyResult result = store_->Apply({{"AUDIOFEEDCONTENT", Action::Add, 0, "", {{"fkidaudiofeed", 9}}}});
    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_EQ(result.errors[0].field, "fkidaudiofeed");
}

TEST_F(StoreTest, SearchComparesTextsExactlyAndNumbersInDecimal) {
    Must(
        {Feed(Action::Add, "a", {{"feedtype", 2}}), Feed(Action::Add, "b", {{"feedtype", 0}}), Feed(Action::Add, "c")});
    const auto search = [&](const char* column, const char* text) {
        std::vector<i32> ids;
        EXPECT_TRUE(store_->Search(Feeds(), column, text, ids));
        return ids;
    };
    EXPECT_THAT(search("feedtype", "2"), ElementsAre(1));
    EXPECT_THAT(search("feedtype", "0"), ElementsAre(2)) << "an absent column is not 0";
    EXPECT_THAT(search("pipename", "A"), IsEmpty());
    EXPECT_THAT(search("pipename", "a"), ElementsAre(1));
    EXPECT_THAT(search("idaudiofeed", "3"), ElementsAre(3));
    std::vector<i32> ids;
    EXPECT_FALSE(store_->Search(Feeds(), "colour", "red", ids));
}

TEST_F(StoreTest, AFailedWriteChangesNothing) {
    Must({Feed(Action::Add, "a")});
    Sql("UPDATE ORV_STATE SET transactionnumber = 40");
    const ApplyResult result = store_->Apply({Feed(Action::Add, "b")});
    EXPECT_EQ(result.outcome, Outcome::Failed);
    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_THAT(result.errors[0].text, HasSubstr("changed by another program"));
    EXPECT_THAT(store_->Ids(Feeds()), ElementsAre(1));
    EXPECT_EQ(store_->LastTransaction(), 1);
    Open();
    EXPECT_EQ(store_->LastTransaction(), 40);
    EXPECT_THAT(store_->Ids(Feeds()), ElementsAre(1));
}

TEST_F(StoreTest, ADiskThatIsFullFailsTheTransactionAndLaterOnesWorkAgain) {
    // A table's trigger stands in for the disk: the write fails inside the transaction, behind its first row.
    Sql("CREATE TRIGGER full BEFORE INSERT ON PARAMETER BEGIN SELECT RAISE(ABORT, 'disk full'); END");
    Open();
    const ApplyResult result =
        store_->Apply({Feed(Action::Add, "a"), {"PARAMETER", Action::Add, 0, "X", {{"value", Text("1")}}}});
    EXPECT_EQ(result.outcome, Outcome::Failed);
    EXPECT_THAT(store_->Ids(Feeds()), IsEmpty());
    Must({Feed(Action::Add, "b")});
    Open();
    EXPECT_EQ(store_->LastTransaction(), 1);
    Row row;
    EXPECT_FALSE(store_->FindRow(Feeds(), "a", row));
    EXPECT_TRUE(store_->FindRow(Feeds(), "b", row));
}

TEST_F(StoreTest, AFeedThatIsBuiltAnewKeepsItsRowAndOnlyTheNumberIsWritten) {
    // Each such row was deleted and written again: a rebuild of 10,000 feeds took a second of the disk.
    Must({Feed(Action::Add, "a"), Feed(Action::Add, "b")});
    Sql("CREATE TRIGGER deleted BEFORE DELETE ON AUDIOFEED BEGIN SELECT RAISE(ABORT, 'written'); END");
    Open();
    const ApplyResult result = store_->Apply({Feed(Action::Rebuild, "a"), Feed(Action::Rebuild, "b")});
    EXPECT_EQ(result.outcome, Outcome::Done);
    EXPECT_EQ(result.changed.size(), 2u);
    Open();
    EXPECT_EQ(store_->LastTransaction(), 2);
    EXPECT_THAT(store_->Ids(Feeds()), ElementsAre(1, 2));
}

TEST_F(StoreTest, AFileOfANewerVersionIsRefusedWithBothVersions) {
    Sql("PRAGMA user_version = 2");
    const std::string reason = WhyNotOpened();
    EXPECT_THAT(reason, HasSubstr("newer orv-config"));
    EXPECT_THAT(reason, HasSubstr("its version is 2, this program knows 1"));
}

TEST_F(StoreTest, ADatabaseOfAnotherProgramIsRefusedAndLeftAlone) {
    store_.reset();
    std::filesystem::remove(path_);
    Sql("CREATE TABLE theirs (x)");
    EXPECT_THAT(WhyNotOpened(), HasSubstr("belongs to another program"));
    Sql("SELECT x FROM theirs");
}

TEST_F(StoreTest, AFileThatIsNoDatabaseIsRefused) {
    store_.reset();
    OrvTest::WriteFileText(path_, std::string(5000, 'x'));
    EXPECT_THAT(WhyNotOpened(), HasSubstr("this is no database"));
}

TEST_F(StoreTest, ADamagedFileIsRefusedAtTheStart) {
    for (int i = 0; i < 300; ++i) Must({Feed(Action::Add, "feed" + std::to_string(i), {{"thename", Text("folder")}})});
    store_.reset();
    std::string bytes = OrvTest::ReadFileText(path_);
    ASSERT_GT(bytes.size(), 3u * 4096);
    // Any page but the first, whose damage would be told as another kind of file.
    for (u64 i = bytes.size() - 4096; i < bytes.size() - 4000; ++i) bytes[i] = static_cast<char>(0xA5);
    OrvTest::WriteFileText(path_, bytes);
    EXPECT_THAT(WhyNotOpened(), HasSubstr("put back a copy"));
}

TEST_F(StoreTest, AMissingFolderIsToldWithWhatToDo) {
    std::string reason;
    EXPECT_EQ(Store::Open(folder_ / "missing/config.db", reason), nullptr);
    EXPECT_THAT(reason, HasSubstr("No such file or directory; check that its folder is there"));
}

TEST_F(StoreTest, AFolderInPlaceOfTheFileIsRefused) {
    std::string reason;
    EXPECT_EQ(Store::Open(folder_.Path(), reason), nullptr);
    EXPECT_THAT(reason, HasSubstr("Is a directory"));
}

TEST_F(StoreTest, TextsAreKeptByteForByte) {
    const std::string latin = "caf\xE9 \xFF";
    Must({Feed(Action::Add, "hold", {{"thename", Value(latin)}})});
    Open();
    Row row;
    ASSERT_TRUE(store_->GetRow(Feeds(), 1, row));
    EXPECT_EQ(row.Text(FeedColumn::TheName), latin);
}

}  // namespace
}  // namespace Orv
