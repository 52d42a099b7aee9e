// Searches of a table: what its indexes answer, and what goes to the service.
#include <gtest/gtest.h>

#include "ConfigClient/ObjectList.h"
#include "ObjectListFixture.h"

namespace {

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

}  // namespace
