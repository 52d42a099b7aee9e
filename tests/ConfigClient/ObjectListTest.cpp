// One table against a service in the same process: what is answered locally, what goes to the service, and how rows and
// indexes stay current. The calls that reached the service are the witness.
#include "ConfigClient/ObjectList.h"

#include <gtest/gtest.h>

#include "ConfigWorld.h"

namespace {

using ConfigConnection::PendingChanges;
using Ids = std::vector<i32>;

class ObjectListTest : public ConfigWorld {
protected:
    void SetUp() override {
        ConfigWorld::SetUp();
        service_.tables["AUDIOFEED"] = {{1, MakeRow({{"pipename", "one"}, {"v", "1"}, {"number", 11}})},
                                        {2, MakeRow({{"pipename", "two"}, {"v", "2"}, {"number", 22}})},
                                        {5, MakeRow({{"pipename", "one"}, {"v", "5"}, {"number", 55}})}};
    }
    // Connects with a text index on pipename, before any row is read.
    ListHolder Open(const char* field = "pipename") {
        const ListHolder list = ConnectTo("AUDIOFEED");
        ConfigConnection::CreateIndex("AUDIOFEED", field, nullptr);
        return list;
    }
    ListHolder OpenAndLoad() {
        const ListHolder list = Open();
        list->LoadRows(IdsOf(list));
        service_.calls.clear();
        return list;
    }
    static std::string Found(const ListHolder& list, const char* field, const char* value, i32 n = 0) {
        return TextOf(list->FindRow(field, value, n), "v");
    }
    // "table kind id new/old" of each.
    static Texts Told(const PendingChanges& pending) {
        Texts texts;
        for (const auto& change : pending) {
            texts.push_back(change.table + " " + change.kind + " " + std::to_string(change.id) + " " +
                            TextOf(change.newRow, "v") + "/" + TextOf(change.oldRow, "v"));
        }
        return texts;
    }
};

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

TEST_F(ObjectListTest, ACompleteIndexSettlesTheSearchWithoutTheService) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        EXPECT_EQ(Found(list, "pipename", "two"), "2");
        EXPECT_EQ(Found(list, "pipename", "three"), "-");
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ObjectListTest, OfTwoRowsWithOneValueTheOneAddedFirstIsFoundFirst) {
    Run([&] {
        const ListHolder list = Open();
        list->LoadRows({5, 2, 1});
        service_.calls.clear();
        EXPECT_EQ(Found(list, "pipename", "one", 0), "5");
        EXPECT_EQ(Found(list, "pipename", "one", 1), "1");
        EXPECT_EQ(Found(list, "pipename", "one", 2), "-");
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ObjectListTest, ARowNotLoadedYetSendsTheSearchToTheServiceAndTheFoundRowIsAdded) {
    Run([&] {
        const ListHolder list = Open();
        list->LoadRows({1, 2});
        service_.calls.clear();
        EXPECT_EQ(Found(list, "pipename", "one", 1), "5");
        EXPECT_EQ(service_.calls, (Texts{"8 audiofeed pipename=one", "6 AUDIOFEED 5"}));
        service_.calls.clear();
        EXPECT_EQ(Found(list, "pipename", "one", 1), "5");  // now the index is complete
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ObjectListTest, AFoundRowThatIsHereAlreadyIsNotFetchedAgain) {
    Run([&] {
        const ListHolder list = Open();
        list->LoadRows({1});
        service_.calls.clear();
        EXPECT_EQ(Found(list, "pipename", "one"), "1");
        EXPECT_EQ(service_.calls, Texts{"8 audiofeed pipename=one"});
    });
}

TEST_F(ObjectListTest, AFieldWithoutAnIndexIsSearchedByTheService) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        EXPECT_EQ(Found(list, "v", "2"), "2");
        EXPECT_EQ(Found(list, "v", "7"), "-");
        EXPECT_EQ(service_.calls, (Texts{"8 audiofeed v=2", "8 audiofeed v=7"}));
    });
}

TEST_F(ObjectListTest, ASearchByTheServiceWithoutAUsableAnswerIsEmpty) {
    Run([&] {
        const ListHolder list = Open();
        EXPECT_EQ(Found(list, "v", "2", 1), "-");
        EXPECT_EQ(Found(list, "v", "2", -1), "-");
        service_.onReply = [](u32 number, VX::ParamListHolder& reply) {
            if (number == 8) SetIds(reply, "ids", {0, 2});
        };
        EXPECT_EQ(Found(list, "v", "2", 0), "-");
        EXPECT_EQ(Found(list, "v", "2", 1), "2");
        service_.onReply = [](u32 number, VX::ParamListHolder& reply) {
            if (number == 8) reply.NewList();
        };
        EXPECT_EQ(Found(list, "v", "2", 0), "-");
    });
}

TEST_F(ObjectListTest, ANullValueIsSearchedAsTheEmptyText) {
    Run([&] {
        const ListHolder list = Open();
        EXPECT_EQ(Found(list, "v", nullptr), "-");
        EXPECT_EQ(service_.calls, Texts{"8 audiofeed v="});
    });
}

TEST_F(ObjectListTest, AnIntegerFieldStaysOutOfATextIndexSoThatEverySearchGoesToTheService) {
    Run([&] {
        const ListHolder list = Open("number");
        list->LoadRows(IdsOf(list));
        service_.calls.clear();
        Found(list, "number", "11");
        Found(list, "number", "11");
        EXPECT_EQ(service_.calls, (Texts{"8 audiofeed number=11", "8 audiofeed number=11"}));
    });
}

TEST_F(ObjectListTest, OneRowWithoutTheIndexedFieldSendsEverySearchToTheService) {
    Run([&] {
        service_.tables["AUDIOFEED"][9] = MakeRow({{"v", "9"}});
        const ListHolder list = OpenAndLoad();
        EXPECT_EQ(Found(list, "pipename", "two"), "2");
        EXPECT_EQ(service_.calls, Texts{"8 audiofeed pipename=two"});
    });
}

TEST_F(ObjectListTest, ATextIndexStaysCompleteOnlyWhileEveryRowHasTheFieldAsAText) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        VX::ParamListHolder previous;
        list->SetRow(previous, 5, MakeRow({{"pipename", 5}, {"v", "5b"}}));
        Found(list, "pipename", "two");
        EXPECT_EQ(service_.calls, Texts{"8 audiofeed pipename=two"});
        service_.calls.clear();
        list->SetRow(previous, 5, MakeRow({{"pipename", "five"}, {"v", "5c"}}));
        EXPECT_EQ(Found(list, "pipename", "five"), "5c");
        EXPECT_TRUE(service_.calls.empty());
    });
}

// An index counts entries. A row that is indexed twice leaves an entry that no id leads to.
TEST_F(ObjectListTest, AnOrphanEntryMakesACompleteTableLookIncomplete) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        list->AddRow(2, list->GetRow(2));  // four entries, three ids
        EXPECT_EQ(Found(list, "pipename", "two"), "2");
        EXPECT_EQ(service_.calls, Texts{"8 audiofeed pipename=two"});
    });
}

TEST_F(ObjectListTest, AnOrphanEntryMakesAnIncompleteTableLookComplete) {
    Run([&] {
        const ListHolder list = Open();
        list->LoadRows({1, 2});
        list->AddRow(2, list->GetRow(2));  // three entries, three ids, and row 5 is not here
        service_.calls.clear();
        EXPECT_EQ(Found(list, "pipename", "one", 1), "-");
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ObjectListTest, AnOrphanEntryOutlivesItsRowWithoutHarm) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        list->AddRow(2, list->GetRow(2));
        VX::ParamListHolder removed;
        list->RemoveRow(removed, 2);
        removed = {};
        service_.tables["AUDIOFEED"].erase(2);
        list->AddRow(9, MakeRow({{"pipename", "nine"}, {"v", "9"}}));  // four entries, three ids
        EXPECT_EQ(Found(list, "pipename", "two"), "-");                // asked of the service, which has none
        list->AddRow(10, MakeRow({{"v", "10"}}));                      // no such field: four entries, four ids
        service_.calls.clear();
        EXPECT_EQ(Found(list, "pipename", "two"), "-");  // the orphan's id has no row any more
        EXPECT_EQ(Found(list, "pipename", "nine"), "9");
        EXPECT_TRUE(service_.calls.empty());
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

TEST_F(ObjectListTest, AnIndexMadeTwiceKeepsItsEntries) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        list->AddFieldIndex("pipename", true);
        list->AddFieldIndex("pipename", false);
        EXPECT_EQ(Found(list, "pipename", "two"), "2");
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ObjectListTest, AnIndexMadeAfterTheRowsStartsEmpty) {
    Run([&] {
        const ListHolder list = OpenAndLoad();
        list->AddFieldIndex("v", true);
        EXPECT_EQ(Found(list, "v", "2"), "2");
        EXPECT_EQ(service_.calls, Texts{"8 audiofeed v=2"});
    });
}

// An integer index is complete, but a search by text finds nothing in it.
TEST_F(ObjectListTest, AnIntegerIndexTakesIntegersAndAnswersNoSearchByText) {
    Run([&] {
        const ListHolder list = ConnectTo("AUDIOFEED");
        list->AddFieldIndex("number", false);
        list->LoadRows(IdsOf(list));
        service_.calls.clear();
        EXPECT_EQ(Found(list, "number", "11"), "-");
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ObjectListTest, ACombinedIndexIsNamedAfterBothFieldsAndFollowsItsRows) {
    Run([&] {
        const ListHolder list = ConnectTo("AUDIOFEED");
        ConfigConnection::CreateIndex("AUDIOFEED", "number", "pipename");
        list->LoadRows(IdsOf(list));
        service_.calls.clear();
        EXPECT_EQ(Found(list, "number_pipename", "x"), "-");  // complete: the service is not asked
        EXPECT_TRUE(service_.calls.empty());
        VX::ParamListHolder previous;
        list->SetRow(previous, 2, MakeRow({{"number", 1}}));  // no key any more: incomplete
        Found(list, "number_pipename", "x");
        EXPECT_EQ(service_.calls, Texts{"8 audiofeed number_pipename=x"});
    });
}

TEST_F(ObjectListTest, ANullOrEmptySecondFieldMakesATextIndex) {
    Run([&] {
        const ListHolder list = ConnectTo("AUDIOFEED");
        ConfigConnection::CreateIndex("AUDIOFEED", "pipename", "");
        list->LoadRows(IdsOf(list));
        service_.calls.clear();
        EXPECT_EQ(Found(list, "pipename", "two"), "2");
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ObjectListTest, CreateIndexMakesTheListWhenItIsMissing) {
    Run([&] {
        ConnectTo("AUDIOFEED");
        service_.tables["PARAMETER"] = {{4, MakeRow({{"name", "X"}, {"v", "4"}})}};
        ConfigConnection::CreateIndex("PARAMETER", "name", nullptr);
        const ListHolder list = ConfigConnection::GetList("PARAMETER");
        EXPECT_EQ(IdsOf(list), Ids{4});
        EXPECT_EQ(TextOf(list->FindRow("name", "X", 0), "v"), "4");
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
