// A table's rows: which of them are fetched and when, and how they stay current.
#include "ConfigClient/ObjectList.h"

#include <gtest/gtest.h>

#include "ObjectListFixture.h"

namespace {

using ConfigConnection::PendingChanges;

TEST_F(ObjectListTest, AtBirthAListKnowsItsIdsAndHasNoRows) {
    Run([&] {
        EXPECT_TRUE(Connect({"AUDIOFEED"}));
        const ListHolder list = ConfigConnection::GetList("AUDIOFEED");
        EXPECT_TRUE(list.IsValid());
        EXPECT_EQ(IdsOf(list), (Ids{1, 2, 5}));
        EXPECT_EQ(service_.calls, Texts{"9 AUDIOFEED"});
    });
}

TEST_F(ObjectListTest, WithoutAReplyAListHasNoIds) {
    Run([&] {
        const ListHolder list(new ConfigConnection::TObjectListImpl(nullptr, "AUDIOFEED"));
        EXPECT_EQ(IdsOf(list), Ids{});
        EXPECT_FALSE(list->GetRow(1));
        EXPECT_FALSE(list->FindRow("pipename", "one", 0));
        list->LoadRows({1, 2});
        PendingChanges pending;
        const i32 ids[] = {1};
        list->ApplyUpdatedRows(ids, 1, pending);
        EXPECT_TRUE(pending.empty());
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ObjectListTest, GetIdsReplacesItsArgumentAndIsAscending) {
    Run([&] {
        const ListHolder list = Open();
        VX::ParamListHolder previous;
        list->SetRow(previous, 3, MakeRow({{"v", "3"}}));
        list->SetRow(previous, -4, MakeRow({{"v", "-4"}}));
        Ids ids{99, 98};
        list->GetIds(ids);
        EXPECT_EQ(ids, (Ids{-4, 1, 2, 3, 5}));
    });
}

TEST_F(ObjectListTest, GetRowZeroIsEmptyAndAsksNobody) {
    Run([&] {
        const ListHolder list = Open();
        EXPECT_FALSE(list->GetRow(0));
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ObjectListTest, GetRowAsksTheServiceOnceAndKeepsTheRow) {
    Run([&] {
        const ListHolder list = Open();
        EXPECT_EQ(TextOf(list->GetRow(2), "v"), "2");
        EXPECT_EQ(TextOf(list->GetRow(2), "v"), "2");
        EXPECT_EQ(service_.calls, Texts{"6 AUDIOFEED 2"});
    });
}

TEST_F(ObjectListTest, GetRowOfARowThatDoesNotExistGivesTheEmptyListAndKeepsNothing) {
    Run([&] {
        const ListHolder list = Open();
        EXPECT_EQ(VXGetParamCount(list->GetRow(77).Get()), 0u);
        EXPECT_EQ(IdsOf(list), (Ids{1, 2, 5}));
        list->GetRow(77);
        EXPECT_EQ(service_.calls, (Texts{"6 AUDIOFEED 77", "6 AUDIOFEED 77"}));
    });
}

TEST_F(ObjectListTest, LoadRowsFetchesAllRowsInOneCall) {
    Run([&] {
        const ListHolder list = Open();
        list->LoadRows(IdsOf(list));
        EXPECT_EQ(service_.calls, Texts{"7 AUDIOFEED 1 2 5"});
        EXPECT_EQ(TextOf(list->GetRow(5), "v"), "5");
        EXPECT_EQ(service_.calls.size(), 1u);
    });
}

TEST_F(ObjectListTest, LoadRowsOfNoIdsAsksNobody) {
    Run([&] {
        Open()->LoadRows({});
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ObjectListTest, LoadRowsSkipsIdZeroAndRowsThatCameBackEmpty) {
    Run([&] {
        service_.tables["AUDIOFEED"][0] = MakeRow({{"v", "zero"}});
        const ListHolder list = Open();
        list->LoadRows({0, 77, 1});
        EXPECT_EQ(service_.calls, Texts{"7 AUDIOFEED 0 77 1"});
        EXPECT_EQ(Found(list, "pipename", "one"), "1");
        EXPECT_EQ(IdsOf(list), (Ids{0, 1, 2, 5}));  // as the service told them; 77 is none of them
    });
}

TEST_F(ObjectListTest, AReplyOfTheWrongShapeLoadsNothing) {
    Run([&] {
        const ListHolder list = Open();
        const auto loadWith = [&](const std::function<void(VX::ParamListHolder&)>& change) {
            service_.onReply = [&change](u32 number, VX::ParamListHolder& reply) {
                if (number == 7) change(reply);
            };
            list->LoadRows({1, 2});
            service_.onReply = nullptr;
            service_.calls.clear();
            list->GetRow(1);  // asks only for a row that is not here
            const bool loaded = service_.calls.empty();
            VX::ParamListHolder removed;
            list->RemoveRow(removed, 1);
            return loaded;
        };
        const auto row = MakeRow({{"v", "1"}});
        const HVXPARAMLIST handles[] = {row.Get(), row.Get(), row.Get()};
        EXPECT_FALSE(loadWith([&](VX::ParamListHolder& reply) { VXSetHandleArray(reply.Get(), "OD", handles, 1); }));
        EXPECT_FALSE(loadWith([&](VX::ParamListHolder& reply) { VXSetHandleArray(reply.Get(), "OD", handles, 3); }));
        EXPECT_FALSE(loadWith([&](VX::ParamListHolder& reply) { VXSetHandleValue(reply.Get(), "OD", row.Get()); }));
        EXPECT_FALSE(loadWith([&](VX::ParamListHolder& reply) { VXSetStringValue(reply.Get(), "OD", "x"); }));
        EXPECT_FALSE(loadWith([&](VX::ParamListHolder& reply) { reply.NewList(); }));
        EXPECT_TRUE(loadWith([](VX::ParamListHolder&) {}));
    });
}

TEST_F(ObjectListTest, ReplacingARowRemovesItsOldKeyAndHandsBackTheOldRow) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        VX::ParamListHolder previous;
        list->SetRow(previous, 2, MakeRow({{"pipename", "new"}, {"v", "2b"}}));
        EXPECT_EQ(TextOf(previous, "v"), "2");
        EXPECT_EQ(Found(list, "pipename", "two"), "-");
        EXPECT_EQ(Found(list, "pipename", "new"), "2b");
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ObjectListTest, ReplacingARowMovesItBehindTheOthersOfItsValue) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        VX::ParamListHolder previous;
        list->SetRow(previous, 1, MakeRow({{"pipename", "one"}, {"v", "1b"}}));
        EXPECT_EQ(Found(list, "pipename", "one", 0), "5");
        EXPECT_EQ(Found(list, "pipename", "one", 1), "1b");
    });
}

TEST_F(ObjectListTest, SetRowOfANewIdInsertsItAndLeavesThePreviousRowAlone) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        VX::ParamListHolder previous;
        list->SetRow(previous, 8, MakeRow({{"pipename", "eight"}, {"v", "8"}}));
        EXPECT_FALSE(previous);
        EXPECT_EQ(IdsOf(list), (Ids{1, 2, 5, 8}));
        EXPECT_EQ(Found(list, "pipename", "eight"), "8");
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ObjectListTest, AddRowNeverReplaces) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        list->AddRow(2, MakeRow({{"pipename", "other"}, {"v", "other"}}));
        EXPECT_EQ(TextOf(list->GetRow(2), "v"), "2");
    });
}

TEST_F(ObjectListTest, ARowInAReadersHandsStaysWholeWhenItIsReplaced) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        const VX::ParamListHolder held = list->GetRow(2);
        VX::ParamListHolder previous;
        list->SetRow(previous, 2, MakeRow({{"v", "2b"}}));
        previous = {};
        EXPECT_EQ(TextOf(held, "v"), "2");
    });
}

TEST_F(ObjectListTest, RemovingARowForgetsIdRowAndKey) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        VX::ParamListHolder removed;
        list->RemoveRow(removed, 2);
        EXPECT_EQ(TextOf(removed, "v"), "2");
        EXPECT_EQ(IdsOf(list), (Ids{1, 5}));
        EXPECT_EQ(Found(list, "pipename", "two"), "-");
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ObjectListTest, RemovingARowThatIsNotHereStillForgetsItsId) {
    Run([&] {
        const ListHolder list = Open();
        VX::ParamListHolder removed = MakeRow({{"v", "x"}});
        list->RemoveRow(removed, 2);
        EXPECT_FALSE(removed);
        EXPECT_EQ(IdsOf(list), (Ids{1, 5}));
    });
}

TEST_F(ObjectListTest, DeletedRowsOfATransactionSkipIdZeroAndTellUnknownIdsWithTwoEmptyHolders) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        PendingChanges pending;
        const i32 ids[] = {2, 0, 77};
        list->ApplyDeletedRows(ids, 3, pending);
        EXPECT_EQ(Told(pending), (Texts{"AUDIOFEED Deleted 2 -/2", "AUDIOFEED Deleted 77 -/-"}));
        EXPECT_EQ(IdsOf(list), (Ids{1, 5}));
    });
}

TEST_F(ObjectListTest, UpdatedRowsOfATransactionAreFetchedInOneCallWithTheIdsAsTheyCame) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        service_.tables["AUDIOFEED"][2] = MakeRow({{"pipename", "zwei"}, {"v", "2b"}});
        service_.tables["AUDIOFEED"][8] = MakeRow({{"pipename", "eight"}, {"v", "8"}});
        PendingChanges pending;
        const i32 ids[] = {8, 0, 2};
        list->ApplyUpdatedRows(ids, 3, pending);
        EXPECT_EQ(service_.calls, Texts{"7 AUDIOFEED 8 0 2"});
        EXPECT_EQ(Told(pending), (Texts{"AUDIOFEED Updated 8 8/-", "AUDIOFEED Updated 2 2b/2"}));
        service_.calls.clear();
        EXPECT_EQ(Found(list, "pipename", "zwei"), "2b");
        EXPECT_EQ(Found(list, "pipename", "two"), "-");
        EXPECT_EQ(Found(list, "pipename", "eight"), "8");
        EXPECT_EQ(IdsOf(list), (Ids{1, 2, 5, 8}));
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ObjectListTest, AnUpdateOfARowThatHasGoneChangesNothingAndIsNotTold) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        service_.tables["AUDIOFEED"].erase(2);
        PendingChanges pending;
        const i32 ids[] = {2};
        list->ApplyUpdatedRows(ids, 1, pending);
        EXPECT_TRUE(pending.empty());
        EXPECT_EQ(TextOf(list->GetRow(2), "v"), "2");
    });
}

TEST_F(ObjectListTest, NoIdsAskNobody) {
    Run([&] {
        const ListHolder list = Open();
        PendingChanges pending;
        list->ApplyUpdatedRows(nullptr, 0, pending);
        list->ApplyDeletedRows(nullptr, 0, pending);
        EXPECT_TRUE(pending.empty());
        EXPECT_TRUE(service_.calls.empty());
    });
}

// A reader must not see a table between its call and what comes of it: the lock is held across the round trip.
TEST_F(ObjectListTest, ReadersWaitWhileACallOfTheListIsOnItsWay) {
    Run([&] {
        const ListHolder list = Open();
        u64 loaded = 0;
        u64 read = 0;
        service_.onReply = [](u32 number, VX::ParamListHolder&) {
            if (number == 7) Platform::SleepMilliseconds(2000);
        };
        Platform::Thread loader("loader", [&] {
            list->LoadRows({1, 2, 5});
            loaded = sim_.Elapsed();
        });
        Platform::SleepMilliseconds(500);
        EXPECT_EQ(TextOf(list->GetRow(1), "v"), "1");
        read = sim_.Elapsed();
        loader.Join();
        EXPECT_EQ(read / 1'000'000, 2000u);
        EXPECT_EQ(loaded / 1'000'000, 2000u);
        EXPECT_EQ(service_.calls, Texts{"7 AUDIOFEED 1 2 5"});  // the reader asked for nothing
    });
}

TEST_F(ObjectListTest, ATableNameIsSentAsGivenAndLowerCasedForASearch) {
    Run([&] {
        const ListHolder list(
            new ConfigConnection::TObjectListImpl(ConfigConnection::Connection::Instance().Application(), "x"));
        EXPECT_STREQ(list->Name(), "x");
        const ListHolder cut(new ConfigConnection::TObjectListImpl(nullptr, std::string(300, 'T').c_str()));
        EXPECT_EQ(std::string(cut->Name()), std::string(255, 'T'));
        const ListHolder feeds = Open();
        EXPECT_STREQ(feeds->Name(), "AUDIOFEED");
        feeds->FindRow("a", "b", 0);
        EXPECT_EQ(service_.calls.back(), "8 audiofeed a=b");
    });
}

}  // namespace
