#include "AudioFeeder/AnnouncementTable.h"

#include <gtest/gtest.h>

#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using Orv::AnnouncementTable;
using Orv::FeedRow;
using Texts = std::vector<std::string>;

class AnnouncementTableTest : public testing::Test {
protected:
    void SetUp() override { Table().Clear(); }
    static AnnouncementTable& Table() { return AnnouncementTable::Instance(); }
    static Texts Names() {
        Texts names;
        FeedRow row;
        for (u32 index = 0; Table().RowAt(index, row); ++index) names.push_back(row.Text("thename"));
        return names;
    }

    FeederWorld world_;
};

TEST_F(AnnouncementTableTest, NamesAreOrderedByTheirBytesUnsignedAndCaseIsToldApart) {
    for (const char* name : {"b", "\xC3\xA4", "B", "a", "aa"}) Table().Store(MakeAnnouncement(name, 0, "f"));
    EXPECT_EQ(Names(), (Texts{"B", "a", "aa", "b", "\xC3\xA4"}));
    EXPECT_EQ(Table().Size(), 5U);
}

TEST_F(AnnouncementTableTest, ARowOfTheSameNameIsReplaced) {
    Table().Store(MakeAnnouncement("a", 0, "old"));
    Table().Store(MakeAnnouncement("a", 1, "new"));
    FeedRow row;
    ASSERT_TRUE(Table().RowAt(0, row));
    EXPECT_STREQ(row.Text("thefile"), "new");
    EXPECT_EQ(Table().Size(), 1U);
}

TEST_F(AnnouncementTableTest, APlaceBehindTheLastRowLeavesTheCopyAsItIs) {
    Table().Store(MakeAnnouncement("a", 0, "f"));
    FeedRow row;
    EXPECT_FALSE(Table().RowAt(1, row));
    EXPECT_FALSE(Table().RowAt(0xFFFFFFFF, row));
    EXPECT_FALSE(row.Has("idannouncement"));
}

TEST_F(AnnouncementTableTest, ARowWithoutANameIsKeptUnderTheEmptyName) {
    Table().Store(MakeRow({{"thefile", "f"}}));
    Table().Store(FeedRow());
    EXPECT_EQ(Table().Size(), 1U);
    Table().Erase("");
    EXPECT_EQ(Table().Size(), 0U);
}

TEST_F(AnnouncementTableTest, AnUpdateIsLoggedFromTheNewRowAndStoredUnderItsName) {
    world_.Run([&] {
        Orv::UpdateAnnouncement(MakeAnnouncement("hello", 1, "/h.wav"), FeedRow());
        EXPECT_EQ(world_.LogOf("Announcement"), Texts{" Info|Announcement updated: hello(1)[/h.wav]"});
        EXPECT_EQ(Names(), Texts{"hello"});
    });
}

TEST_F(AnnouncementTableTest, AnAnnouncementWhoseNameChangesStaysInTheTableUnderBothNames) {
    world_.Run([&] {
        const FeedRow before = MakeAnnouncement("before", 0, "/h.wav");
        Orv::UpdateAnnouncement(before, FeedRow());
        Orv::UpdateAnnouncement(MakeAnnouncement("after", 0, "/h.wav"), before);
        EXPECT_EQ(Names(), (Texts{"after", "before"}));
    });
}

TEST_F(AnnouncementTableTest, ADeletionIsLoggedAndErasesTheName) {
    world_.Run([&] {
        Orv::UpdateAnnouncement(MakeAnnouncement("a", 0, "/a.wav"), FeedRow());
        Orv::UpdateAnnouncement(MakeAnnouncement("b", 0, "/b.wav"), FeedRow());
        Orv::DeleteAnnouncement(MakeAnnouncement("a", 7, "/x.wav"));
        Orv::DeleteAnnouncement(FeedRow());
        EXPECT_EQ(world_.LogOf("Announcement delete"),
                  (Texts{" Info|Announcement delete: a(7)[/x.wav]", " Info|Announcement delete: (0)[]"}));
        EXPECT_EQ(Names(), Texts{"b"});
        for (const LogLine& line : world_.Log()) {
            if (line.text.find("Announcement") != std::string::npos) {
                EXPECT_EQ(line.source, "PipeManager");
            }
        }
    });
}

TEST_F(AnnouncementTableTest, OnlyTheBaseListOfARowIsKept) {
    world_.Run([&] {
        FeedRow row = MakeAnnouncement("a", 0, "/a.wav");
        row.overrides = MakeList({{"thefile", "/override.wav"}});
        Orv::UpdateAnnouncement(row, FeedRow());
        FeedRow kept;
        ASSERT_TRUE(Table().RowAt(0, kept));
        EXPECT_STREQ(kept.Text("thefile"), "/a.wav");
    });
}

}  // namespace
