// Goal: a file goes where the service looks for it, and it is told when it is heard. Method: rows and folders made
// here.
#include "Tools/orvctl/ImportTarget.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "ConfigService/Schema.h"
#include "Tools/orvctl/ToolError.h"
#include "tests/support/Process.h"

namespace Orv {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;
namespace fs = std::filesystem;

Row Feed(i32 id, const std::string& pipe, const std::string& folder, i32 type) {
    Row row;
    row.id = id;
    row.values.assign(Tables()[AudioFeed].columns.size(), Value());
    row.values[FeedColumn::PipeName] = pipe;
    row.values[FeedColumn::TheName] = folder;
    row.values[FeedColumn::FeedType] = type;
    return row;
}

Row TwoTexts(const Table& table, int first, const std::string& name, int second, const std::string& value) {
    Row row;
    row.values.assign(table.columns.size(), Value());
    row.values[static_cast<u32>(first)] = name;
    row.values[static_cast<u32>(second)] = value;
    return row;
}
Row ParameterRow(const std::string& name, const std::string& value) {
    return TwoTexts(Tables()[Parameter], ParameterColumn::Name, name, ParameterColumn::Value, value);
}
Row AnnouncementRow(const std::string& name, const std::string& file) {
    return TwoTexts(Tables()[Announcement], AnnouncementColumn::TheName, name, AnnouncementColumn::TheFile, file);
}

template <typename Function>
std::string Refusal(Function function) {
    try {
        function();
    } catch (const ToolError& error) {
        return error.what();
    }
    return "(none)";
}

TEST(PromptsRoot, TheParameterCountsBeforeTheSettings) {
    const OrvTest::TempFolder folder;
    fs::create_directories(folder / "d/Data/Ivr/Prompts");
    fs::create_directories(folder / "Music");
    const PromptSettings settings{"x.ini", folder / "d/", false};
    EXPECT_EQ(PromptsRoot({}, settings), folder / "d/Data/Ivr/Prompts");
    EXPECT_EQ(PromptsRoot({ParameterRow("IVRPROMPTPATH", "")}, settings), folder / "d/Data/Ivr/Prompts");
    // Another case and a backslash, as the service takes them.
    EXPECT_EQ(PromptsRoot({ParameterRow("IVRPROMPTPATH", folder / "music\\")}, settings), folder / "Music");
}

TEST(PromptSettings, TheFileWithAnAppDataPathCounts) {
    const OrvTest::TempFolder folder;
    OrvTest::WriteFileText(folder / "a.ini", "[General]\nAppDataPath=/srv/x\nPreloadFiles=\"a\"\n");
    const PromptSettings settings = FindPromptSettings(folder / "a.ini");
    EXPECT_EQ(settings.dataPath, "/srv/x");
    EXPECT_TRUE(settings.preloads);
}

// What stood in front of the bad spot was taken for all of it: without its AppDataPath the files went into the usual
// folder, where the service never looks. The system's own files say that they are longer than what can be read of them.
TEST(PromptSettings, AFileThatCannotBeReadToItsEndIsRefused) {
    const std::string shorter = "/sys/kernel/uevent_seqnum";
    if (!fs::exists(shorter)) GTEST_SKIP() << "no " << shorter << " on this machine";
    EXPECT_THAT(Refusal([&] { FindPromptSettings(shorter); }),
                HasSubstr("The settings file " + shorter + " cannot be read to its end; look at its disk"));
}

TEST(FeedTarget, TheFolderIsFoundWhateverItsCaseAndSharersAreNamed) {
    const OrvTest::TempFolder root;
    fs::create_directories(root / "Playlist/Jazz");
    const std::vector<Row> feeds = {Feed(1, "hold", "jazz", 2), Feed(2, "other", "JAZZ", 3), Feed(3, "rock", "rock", 3),
                                    Feed(4, "idle", "jazz", 0)};
    const ImportTarget target = FeedTarget(feeds[0], feeds, root.Path(), 3);
    EXPECT_EQ(target.folder, root / "Playlist/Jazz");
    EXPECT_THAT(target.heard, Contains(HasSubstr("when all 3 files of its present round have been played")));
    EXPECT_THAT(target.heard, Contains(HasSubstr("Feed \"other\" plays the same folder")));
    EXPECT_EQ(target.heard.size(), 3u);
    EXPECT_THAT(FeedTarget(feeds[2], feeds, root.Path(), 0).heard,
                Contains(HasSubstr("at the end of the default audio file")));
}

TEST(FeedTarget, AFeedWithoutAFolderIsRefusedWithWhatToDo) {
    EXPECT_THAT(
        Refusal([] { FeedTarget(Feed(1, "a", "x", 0), {}, "/r", 0); }),
        HasSubstr("plays the default stream, no folder; let it play one with: orvctl feed set a --type shuffled"));
    EXPECT_THAT(Refusal([] { FeedTarget(Feed(1, "a", "", 3), {}, "/r", 0); }), HasSubstr("has no folder"));
}

TEST(AnnouncementTarget, ItsOwnFileCountsAndOtherwiseItsName) {
    const Row row = AnnouncementRow("thanks", "/srv/Voice/thanks.WAV");
    const ImportTarget own = AnnouncementTarget("thanks", &row, "/r");
    EXPECT_EQ(own.folder, "/srv/Voice");
    EXPECT_EQ(own.fileName, "thanks.WAV");
    EXPECT_THAT(own.heard, Contains(HasSubstr("At once")));
    const ImportTarget fresh = AnnouncementTarget("v1.2", nullptr, "/r");
    EXPECT_EQ(fresh.folder + "/" + fresh.fileName, "/r/v1.2.wav");
    EXPECT_THAT(fresh.heard, Contains(HasSubstr("orvctl announcement add v1.2 --file /r/v1.2.wav --kind over")));
}

TEST(AnnouncementTarget, WhatIsNoFileToReplaceIsRefused) {
    for (const char* file : {"\\\\.\\pipe\\radio", "radio.pipe", "a.raw"}) {
        const Row row = AnnouncementRow("a", file);
        EXPECT_THAT(Refusal([&] { AnnouncementTarget("a", &row, "/r"); }), HasSubstr("name a file with")) << file;
    }
    EXPECT_THAT(Refusal([] { AnnouncementTarget("a/b", nullptr, "/r"); }), HasSubstr("separator of folders"));
}

TEST(ImportedName, TheSourcesNameWithAnotherEnding) {
    EXPECT_EQ(ImportedName("/music/a song.FLAC"), "a song.wav");
    EXPECT_EQ(ImportedName("v1.2.mp3"), "v1.2.wav");
    EXPECT_EQ(ImportedName("-x.mp3"), "-x.wav");
    for (const std::string& name : {std::string(""), std::string("/m/.mp3"), std::string("a\nb.mp3"),
                                    std::string("a\\b.mp3"), std::string(250, 'a') + ".mp3"}) {
        EXPECT_THAT(Refusal([&] { ImportedName(name); }), HasSubstr("rename it first")) << name;
    }
}

TEST(PlayableFiles, WhatAFeedPlaysWhateverTheCaseOfItsEnding) {
    const OrvTest::TempFolder folder;
    for (const char* name : {"a.wav", "B.RAW", "c.WAV", "d.mp3", ".1.e.wav.new"})
        OrvTest::WriteFileText(folder / name, "");
    fs::create_directory(folder / "f.wav");
    EXPECT_THAT(PlayableFiles(folder.Path()), UnorderedElementsAre("a.wav", "B.RAW", "c.WAV"));
}

}  // namespace
}  // namespace Orv
