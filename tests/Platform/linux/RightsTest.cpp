// Goal: what is done with lent rights may do what their owner may, and sees what the process sees that has them;
// nothing of it stays with this process. Method: files that nobody else may read, and a process with a mount of its
// own.
#include "Platform/Rights.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

#include "Platform/Diagnosis.h"
#include "Platform/Files.h"
#include "tests/support/Process.h"

namespace Platform {
namespace {

using OrvTest::TempFolder;
using OrvTest::WriteFileText;

constexpr u32 kNobody = 65534;

bool Opens(const std::string& path) {
    SystemError error = 0;
    return OpenReadFile(path, error) != nullptr;
}

TEST(Rights, OfThisProcessAreWhatTheSystemTellsIt) {
    Rights rights;
    ASSERT_TRUE(RightsOfProcess(static_cast<u64>(::getpid()), rights));
    EXPECT_EQ(rights.user, ::geteuid());
    EXPECT_EQ(rights.group, ::getegid());
    EXPECT_EQ(rights.process, static_cast<u64>(::getpid()));
    std::vector<gid_t> groups(static_cast<std::size_t>(::getgroups(0, nullptr)));
    ASSERT_GE(::getgroups(static_cast<int>(groups.size()), groups.data()), 0);
    EXPECT_THAT(rights.groups, ::testing::UnorderedElementsAreArray(groups));
    EXPECT_FALSE(RightsOfProcess(u64{1} << 40, rights)) << "no process has such a number";
}

TEST(Rights, OfAnOwnerAreThoseOfTheFilesUser) {
    const TempFolder folder;
    Rights rights;
    ASSERT_TRUE(RightsOfOwner(folder.Path(), rights));
    EXPECT_EQ(rights.user, ::geteuid());
    EXPECT_EQ(rights.process, 0u);
    EXPECT_THAT(rights.groups, ::testing::Contains(rights.group));
    EXPECT_FALSE(RightsOfOwner(folder / "none", rights));
    if (::geteuid() != 0) return;
    // A user that no list has keeps the group of the file.
    constexpr u32 kUnknown = 3'999'999'999;
    ASSERT_EQ(::chown(folder.Path().c_str(), kUnknown, 7), 0);
    ASSERT_TRUE(RightsOfOwner(folder.Path(), rights));
    EXPECT_EQ(rights.user, kUnknown);
    EXPECT_EQ(rights.group, 7u);
    EXPECT_THAT(rights.groups, ::testing::ElementsAre(7u));
}

TEST(Rights, WithoutBeingRootNothingIsLentAndNothingIsRun) {
    const Rights nobody{kNobody, kNobody, {}, 0};
    bool ran = false;
    auto lent = Lent::Rights;
    const auto borrow = [&] { lent = RunWithRights(nobody, [&] { ran = true; }); };
    ::geteuid() == 0 ? void(RunWithRights(nobody, borrow)) : borrow();
    EXPECT_EQ(lent, Lent::Nothing);
    EXPECT_FALSE(ran);
}

TEST(Rights, OfAnotherUserHoldForTheWorkAndForNothingElse) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can lend";
    const TempFolder folder;
    ASSERT_EQ(::chmod(folder.Path().c_str(), 0755), 0);
    WriteFileText(folder / "secret", "x");
    WriteFileText(folder / "grouped", "x");
    ASSERT_EQ(::chmod((folder / "secret").c_str(), 0600), 0);
    ASSERT_EQ(::chmod((folder / "grouped").c_str(), 0640), 0);
    ASSERT_EQ(::chown((folder / "grouped").c_str(), 0, 4711), 0);
    bool secret = true;
    bool grouped = false;
    FolderState state = FolderState::Usable;
    const auto look = [&] {
        secret = Opens(folder / "secret");
        grouped = Opens(folder / "grouped");
        state = ProbeFolder(folder.Path());
    };
    EXPECT_EQ(RunWithRights({kNobody, kNobody, {4711}, 0}, look), Lent::Rights);
    EXPECT_FALSE(secret);
    EXPECT_TRUE(grouped);
    EXPECT_EQ(state, FolderState::NotWritable);
    EXPECT_TRUE(Opens(folder / "secret")) << "root again";
    EXPECT_EQ(ProbeFolder(folder.Path()), FolderState::Usable);
    EXPECT_THROW(RunWithRights({kNobody, kNobody, {}, 0}, [] { throw std::runtime_error("x"); }), std::runtime_error);
}

TEST(Rights, OfAProcessComeWithItsViewOfTheFiles) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can lend";
    const TempFolder folder;
    ASSERT_EQ(::chmod(folder.Path().c_str(), 0777), 0);
    WriteFileText(folder / "hidden", "x");
    OrvTest::ProcessOptions options;
    options.command = {"/usr/bin/unshare", "--mount", "/bin/sh", "-c",
                       "mount -t tmpfs none " + folder.Path() + " && touch " + (folder / "inside") +
                           " && exec setpriv --reuid=65534 --regid=65534 --groups=4711 sleep 600"};
    const OrvTest::Process process(options);
    Rights rights;
    ASSERT_TRUE(OrvTest::Eventually(
        [&] { return RightsOfProcess(static_cast<u64>(process.Pid()), rights) && rights.user == kNobody; }));
    EXPECT_EQ(rights.group, kNobody);
    EXPECT_THAT(rights.groups, ::testing::ElementsAre(4711u));
    bool inside = false;
    bool hidden = true;
    EXPECT_EQ(RunWithRights(rights,
                            [&] {
                                inside = PathExists(folder / "inside");
                                hidden = PathExists(folder / "hidden");
                            }),
              Lent::RightsAndView);
    EXPECT_TRUE(inside);
    EXPECT_FALSE(hidden);
    EXPECT_TRUE(PathExists(folder / "hidden")) << "this process's own view is what it was";
    rights.process = u64{1} << 40;
    EXPECT_EQ(RunWithRights(rights, [&] { hidden = PathExists(folder / "hidden"); }), Lent::Rights);
    EXPECT_TRUE(hidden);
}

}  // namespace
}  // namespace Platform
