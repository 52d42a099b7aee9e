#include "Platform/NewFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "Platform/Files.h"
#include "tests/support/Process.h"

namespace Platform {
namespace {

using OrvTest::ReadFileText;
using OrvTest::TempFolder;
using OrvTest::WriteFileText;

mode_t ModeOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(NewFile, ItIsReadableForEverybodyWhateverTheUsersMask) {
    const TempFolder folder;
    const mode_t before = ::umask(077);
    SystemError error = 0;
    const auto file = CreateNewFile(folder / "a", error);
    ::umask(before);
    ASSERT_NE(file, nullptr) << SystemErrorText(error);
    EXPECT_TRUE(file->Write("one ", 4, error));
    EXPECT_TRUE(file->Write("two", 3, error));
    EXPECT_TRUE(file->Finish(error));
    EXPECT_EQ(ReadFileText(folder / "a"), "one two");
    EXPECT_EQ(ModeOf(folder / "a"), 0644u);
}

TEST(NewFile, OneThatIsThereIsNeverTaken) {
    const TempFolder folder;
    WriteFileText(folder / "a", "mine");
    SystemError error = 0;
    EXPECT_EQ(CreateNewFile(folder / "a", error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(EEXIST));
    EXPECT_EQ(ReadFileText(folder / "a"), "mine");
}

TEST(NewFile, ALinkIsNotFollowed) {
    const TempFolder folder;
    SystemError error = 0;
    ASSERT_EQ(::symlink("elsewhere", (folder / "link").c_str()), 0);
    EXPECT_EQ(CreateNewFile(folder / "link", error), nullptr);
    EXPECT_FALSE(PathExists(folder / "elsewhere"));
}

TEST(NameFile, AFileInTheWayIsKeptOrReplacedAsAsked) {
    const TempFolder folder;
    WriteFileText(folder / "new", "new");
    WriteFileText(folder / "old", "old");
    SystemError error = 0;
    EXPECT_FALSE(NameFile(folder / "new", folder / "old", false, error));
    EXPECT_EQ(error, PathExistsError());
    EXPECT_EQ(ReadFileText(folder / "old"), "old");
    EXPECT_TRUE(NameFile(folder / "new", folder / "old", true, error));
    EXPECT_EQ(ReadFileText(folder / "old"), "new");
    EXPECT_FALSE(PathExists(folder / "new"));
    EXPECT_TRUE(NameFile(folder / "old", folder / "free", false, error));
    EXPECT_FALSE(NameFile(folder / "none", folder / "x", false, error));
    EXPECT_EQ(error, static_cast<SystemError>(ENOENT));
}

TEST(MakeOpenFolder, AFileInItsPlaceIsTold) {
    const TempFolder folder;
    SystemError error = 0;
    EXPECT_TRUE(MakeOpenFolder(folder / "d", error));
    EXPECT_EQ(ModeOf(folder / "d"), 0755u);
    EXPECT_TRUE(MakeOpenFolder(folder / "d", error)) << "it is there already";
    WriteFileText(folder / "f", "");
    EXPECT_FALSE(MakeOpenFolder(folder / "f", error));
    EXPECT_EQ(error, static_cast<SystemError>(ENOTDIR));
    EXPECT_TRUE(RemoveFile(folder / "f", error));
    EXPECT_FALSE(RemoveFile(folder / "f", error));
}

}  // namespace
}  // namespace Platform
