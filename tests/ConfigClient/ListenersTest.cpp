// Events of the service, from the signal to the change listener.
#include "ConfigClient/Listeners.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "ConfigWorld.h"
#include "ServiceProcess/Log.h"

namespace {

class UpdateListenerTest : public ConfigWorld {
protected:
    void SetUp() override {
        ConfigWorld::SetUp();
        service_.tables["AUDIOFEED"] = {{1, MakeRow({{"v", "1"}})}, {2, MakeRow({{"v", "2"}})}};
        service_.tables["PARAMETER"] = {{7, MakeRow({{"v", "7"}})}};
    }
    // Connects to both tables, loads them, and listens.
    ListHolder Open() {
        EXPECT_TRUE(Connect({"AUDIOFEED", "PARAMETER"}));
        for (const char* table : {"AUDIOFEED", "PARAMETER"}) {
            const ListHolder list = ConfigConnection::GetList(table);
            list->LoadRows(IdsOf(list));
        }
        service_.calls.clear();
        Listen();
        return ConfigConnection::GetList("AUDIOFEED");
    }
};
using BatchListenerTest = UpdateListenerTest;

TEST_F(UpdateListenerTest, AnUpdateFetchesTheRowAndTellsNewAndOld) {
    Run([&] {
        const ListHolder list = Open();
        service_.tables["AUDIOFEED"][2] = MakeRow({{"v", "2b"}});
        Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Updated", {2}));
        EXPECT_EQ(told_, Texts{"AUDIOFEED Updated 2 2b/2"});
        EXPECT_EQ(service_.calls, Texts{"6 AUDIOFEED 2"});
        EXPECT_EQ(TextOf(list->GetRow(2), "v"), "2b");
    });
}

TEST_F(UpdateListenerTest, AnInsertTellsAnEmptyOldRow) {
    Run([&] {
        const ListHolder list = Open();
        service_.tables["AUDIOFEED"][3] = MakeRow({{"v", "3"}});
        Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Inserted", {3}));
        EXPECT_EQ(told_, Texts{"AUDIOFEED Inserted 3 3/-"});
        EXPECT_EQ(IdsOf(list), (std::vector<i32>{1, 2, 3}));
    });
}

TEST_F(UpdateListenerTest, ADeletionRemovesTheRowWithoutACallAndTellsIt) {
    Run([&] {
        const ListHolder list = Open();
        Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Deleted", {2}));
        EXPECT_EQ(told_, Texts{"AUDIOFEED Deleted 2 -/2"});
        EXPECT_TRUE(service_.calls.empty());
        EXPECT_EQ(IdsOf(list), std::vector<i32>{1});
    });
}

TEST_F(UpdateListenerTest, ADeletionOfAnIdThatIsNotHeldTellsTwoEmptyHolders) {
    Run([&] {
        Open();
        Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Deleted", {77}));
        EXPECT_EQ(told_, Texts{"AUDIOFEED Deleted 77 -/-"});
    });
}

TEST_F(UpdateListenerTest, IdZeroIsSkippedInAnUpdateAndNotInADeletion) {
    Run([&] {
        Open();
        service_.tables["AUDIOFEED"][0] = MakeRow({{"v", "zero"}});
        Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Updated", {0, 1}));
        Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Deleted", {0, 1}));
        EXPECT_EQ(told_, (Texts{"AUDIOFEED Updated 1 1/1", "AUDIOFEED Deleted 0 -/-", "AUDIOFEED Deleted 1 -/1"}));
        EXPECT_EQ(service_.calls, Texts{"6 AUDIOFEED 1"});
    });
}

TEST_F(UpdateListenerTest, TheKindIsHandedOnAsItStandsAndOnlyItsFirstCharacterCounts) {
    Run([&] {
        Open();
        Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Dropped", {2}));
        Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "deleted", {1}));
        VX::ParamListHolder event = MakeRow({{"OC", "AUDIOFEED"}});
        const i32 ids[] = {1};
        VXSetInt32Array(event.Get(), "IDA", ids, 1);
        Raise("UPDOfAUDIOFEED", event);
        EXPECT_EQ(told_, (Texts{"AUDIOFEED Dropped 2 -/2", "AUDIOFEED deleted 1 1/1", "AUDIOFEED  1 1/1"}));
    });
}

TEST_F(UpdateListenerTest, ARowThatCameBackEmptyIsSkippedWithoutAWord) {
    Run([&] {
        const ListHolder list = Open();
        service_.tables["AUDIOFEED"].erase(2);
        Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Updated", {2, 1}));
        EXPECT_EQ(told_, Texts{"AUDIOFEED Updated 1 1/1"});
        EXPECT_EQ(TextOf(list->GetRow(2), "v"), "2");
    });
}

TEST_F(UpdateListenerTest, AnEventForATableWithoutAListChangesNothingAndTellsNobody) {
    Run([&] {
        Open();
        Raise("UPDOfAUDIOFEED", UpdateEvent("USERS", "Updated", {1}));
        Raise("UPDOfAUDIOFEED", UpdateEvent("audiofeed", "Updated", {1}));
        Raise("UPDOfAUDIOFEED", MakeRow({{"TO", "Updated"}}));
        EXPECT_TRUE(told_.empty());
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(UpdateListenerTest, AnEventWithoutIdsTellsNobody) {
    Run([&] {
        Open();
        Raise("UPDOfAUDIOFEED", MakeRow({{"OC", "AUDIOFEED"}, {"TO", "Deleted"}, {"IDA", "no array"}}));
        EXPECT_TRUE(told_.empty());
    });
}

TEST_F(UpdateListenerTest, AnEventWithoutAListGivesMinusOneAndAnyOtherZero) {
    Run([&] {
        Open();
        ConfigConnection::UpdateListener listener;
        VXDBServer::WUpdateEventOut reply{VX::ParamListHolder()};
        EXPECT_EQ(listener.OnEvent(VXDBServer::WUpdateEvent(VX::ParamListHolder()), reply), -1);
        EXPECT_EQ(listener.OnEvent(VXDBServer::WUpdateEvent(MakeRow({})), reply), 0);
        EXPECT_EQ(listener.OnEvent(VXDBServer::WUpdateEvent(UpdateEvent("AUDIOFEED", "Updated", {1})), reply), 0);
        EXPECT_FALSE(reply.list);
    });
}

TEST_F(UpdateListenerTest, WithoutAChangeListenerTheTablesStillFollow) {
    Run([&] {
        const ListHolder list = Open();
        ConfigConnection::ChangeListener = nullptr;
        service_.tables["AUDIOFEED"][2] = MakeRow({{"v", "2b"}});
        Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Updated", {2}));
        Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Deleted", {1}));
        Raise("BATCHUPDATE", BatchEvent(4, {{"PARAMETER", {7}, {}}}));
        EXPECT_EQ(TextOf(list->GetRow(2), "v"), "2b");
        EXPECT_EQ(IdsOf(list), std::vector<i32>{2});
        EXPECT_TRUE(IdsOf(ConfigConnection::GetList("PARAMETER")).empty());
    });
}

// The listener starts a thread that needs the table and waits for it: under a lock that would never end.
TEST_F(UpdateListenerTest, TheListenerIsCalledWithNoLockHeld) {
    Run([&] {
        Open();
        int reads = 0;
        onTell_ = [&](const char*, const char*) {
            Platform::Thread reader("reader", [&] {
                if (TextOf(ConfigConnection::GetList("AUDIOFEED")->GetRow(1), "v") == "1") ++reads;
            });
            reader.Join();
        };
        Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Updated", {2}));
        Raise("BATCHUPDATE", BatchEvent(4, {{"AUDIOFEED", {}, {2}}}));
        EXPECT_EQ(reads, 1 + 4);
    });
}

TEST_F(UpdateListenerTest, AListenerThatThrowsEndsItsEventAndNoOtherAndIsLogged) {
    std::string log;
    Run([&] {
        Open();
        sim_.Files().AddFolder("/log");
        Orv::LogWriter::Instance().OpenLog("/log", 1u << 20);
        onTell_ = [](const char*, const char* kind) {
            if (std::string(kind) == "Inserted") throw std::runtime_error("the reason");
        };
        Raise("BATCHUPDATE", BatchEvent(4, {{"AUDIOFEED", {1}, {}}}));
        Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Updated", {2}));
        EXPECT_EQ(told_, (Texts{"TRANSACTION Inserted 4 /-", "AUDIOFEED Updated 2 2/2"}));
        log = sim_.Files().ReadBack("/log/" + sim_.Files().List("/log").front());
        Orv::LogWriter::Instance().CloseLog();
    });
    EXPECT_NE(log.find("|Excep|ConfigConnection("), std::string::npos) << log;
    EXPECT_TRUE(log.ends_with("): the reason\n")) << log;
}

TEST_F(BatchListenerTest, ATransactionIsToldBetweenItsMarksDeletionsFirstInEachTable) {
    Run([&] {
        Open();
        service_.tables["AUDIOFEED"][2] = MakeRow({{"v", "2b"}});
        service_.tables["AUDIOFEED"][3] = MakeRow({{"v", "3"}});
        service_.tables["PARAMETER"][7] = MakeRow({{"v", "7b"}});
        Raise("BATCHUPDATE", BatchEvent(5, {{"PARAMETER", {}, {7}}, {"AUDIOFEED", {1}, {3, 2}}}));
        EXPECT_EQ(told_, (Texts{"TRANSACTION Inserted 5 /-", "TRANSACTION Updated 5 /-", "PARAMETER Updated 7 7b/7",
                                "AUDIOFEED Deleted 1 -/1", "AUDIOFEED Updated 3 3/-", "AUDIOFEED Updated 2 2b/2",
                                "TRANSACTION Deleted 5 /-"}));
        EXPECT_EQ(service_.calls, (Texts{"7 PARAMETER 7", "7 AUDIOFEED 3 2"}));
    });
}

// So a service has a row's reader end what it has and build it anew.
TEST_F(BatchListenerTest, ARowThatIsDeletedAndUpdatedInOneTransactionIsToldAsGoneAndThenAsNew) {
    Run([&] {
        const ListHolder list = Open();
        Raise("BATCHUPDATE", BatchEvent(5, {{"AUDIOFEED", {2}, {2}}}));
        EXPECT_EQ(told_, (Texts{"TRANSACTION Inserted 5 /-", "TRANSACTION Updated 5 /-", "AUDIOFEED Deleted 2 -/2",
                                "AUDIOFEED Updated 2 2/-", "TRANSACTION Deleted 5 /-"}));
        EXPECT_EQ(IdsOf(list), (std::vector<i32>{1, 2}));
    });
}

TEST_F(BatchListenerTest, ThereIsRoomForTheChangesOfANormalTransactionBeforeTheFirst) {
    EXPECT_GE(ConfigConnection::Connection::Instance().Pending().capacity(), 10240u);
}

TEST_F(BatchListenerTest, AllRowsOfATransactionAreInPlaceBeforeTheFirstIsTold) {
    Run([&] {
        Open();
        service_.tables["AUDIOFEED"][2] = MakeRow({{"v", "2b"}});
        service_.tables["PARAMETER"][7] = MakeRow({{"v", "7b"}});
        Texts seen;
        onTell_ = [&](const char* table, const char* kind) {
            seen.push_back(std::string(table) + " " + kind + ": " +
                           TextOf(ConfigConnection::GetList("AUDIOFEED")->GetRow(2), "v") + " " +
                           TextOf(ConfigConnection::GetList("PARAMETER")->GetRow(7), "v"));
        };
        Raise("BATCHUPDATE", BatchEvent(5, {{"AUDIOFEED", {}, {2}}, {"PARAMETER", {}, {7}}}));
        EXPECT_EQ(seen, (Texts{"TRANSACTION Inserted: 2 7", "TRANSACTION Updated: 2b 7b", "AUDIOFEED Updated: 2b 7b",
                               "PARAMETER Updated: 2b 7b", "TRANSACTION Deleted: 2b 7b"}));
    });
}

TEST_F(BatchListenerTest, ATableUnknownHereStillAdvancesTheTransactionAndSendsTheThreeMarks) {
    Run([&] {
        Open();
        Raise("BATCHUPDATE", BatchEvent(6, {{"USERS", {1}, {2}}}));
        EXPECT_EQ(told_, (Texts{"TRANSACTION Inserted 6 /-", "TRANSACTION Updated 6 /-", "TRANSACTION Deleted 6 /-"}));
        EXPECT_EQ(ConfigConnection::Connection::Instance().LastTransaction(), 6);
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(BatchListenerTest, TheMarksCarryTheLow32BitsOfTheNumber) {
    Run([&] {
        Open();
        Raise("BATCHUPDATE", BatchEvent(0x1F0000005, {}));
        EXPECT_EQ(told_[0], "TRANSACTION Inserted 4026531845 /-");
        EXPECT_EQ(ConfigConnection::Connection::Instance().LastTransaction(), 0x1F0000005);
    });
}

TEST_F(BatchListenerTest, AZeroOrAbsentNumberStillSendsTheMarks) {
    Run([&] {
        Open();
        Raise("BATCHUPDATE", BatchEvent(0, {}));
        Raise("BATCHUPDATE", MakeRow({}));
        const Texts marks{"TRANSACTION Inserted 0 /-", "TRANSACTION Updated 0 /-", "TRANSACTION Deleted 0 /-"};
        Texts twice = marks;
        twice.insert(twice.end(), marks.begin(), marks.end());
        EXPECT_EQ(told_, twice);
        EXPECT_EQ(ConfigConnection::Connection::Instance().LastTransaction(), 0);
    });
}

TEST_F(BatchListenerTest, OnlyNestedListsAreTablesAndOnlyBinaryValuesAreIds) {
    Run([&] {
        Open();
        VX::ParamListHolder event = BatchEvent(8, {});
        VXSetStringValue(event.Get(), "AUDIOFEED", "no list");
        const VX::ParamListHolder changes = MakeRow({{"DELETED", "7"}});
        const i32 ids[] = {7};
        VXSetInt32Array(changes.Get(), "UPDATED", ids, 1);
        VXSetHandleValue(event.Get(), "PARAMETER", changes.Get());
        Raise("BATCHUPDATE", event);
        EXPECT_EQ(told_.size(), 3u);
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(BatchListenerTest, AReplyWithAWrongElementCountAppliesNothingForThatTableAndTheTransactionGoesOn) {
    Run([&] {
        const ListHolder list = Open();
        service_.tables["AUDIOFEED"][2] = MakeRow({{"v", "2b"}});
        service_.tables["PARAMETER"][7] = MakeRow({{"v", "7b"}});
        bool first = true;
        service_.onReply = [&](u32 number, VX::ParamListHolder& reply) {
            if (number == 7 && first) VXSetHandleArray(reply.Get(), "OD", nullptr, 0);
            first = false;
        };
        Raise("BATCHUPDATE", BatchEvent(9, {{"AUDIOFEED", {}, {2}}, {"PARAMETER", {}, {7}}}));
        EXPECT_EQ(told_, (Texts{"TRANSACTION Inserted 9 /-", "TRANSACTION Updated 9 /-", "PARAMETER Updated 7 7b/7",
                                "TRANSACTION Deleted 9 /-"}));
        EXPECT_EQ(TextOf(list->GetRow(2), "v"), "2");
        EXPECT_EQ(ConfigConnection::Connection::Instance().LastTransaction(), 9);
    });
}

TEST_F(BatchListenerTest, ATransactionTellsNothingOfTheOneBefore) {
    Run([&] {
        Open();
        Raise("BATCHUPDATE", BatchEvent(1, {{"AUDIOFEED", {1}, {}}}));
        told_.clear();
        Raise("BATCHUPDATE", BatchEvent(2, {{"AUDIOFEED", {2}, {}}}));
        EXPECT_EQ(told_, (Texts{"TRANSACTION Inserted 2 /-", "TRANSACTION Updated 2 /-", "AUDIOFEED Deleted 2 -/2",
                                "TRANSACTION Deleted 2 /-"}));
        EXPECT_TRUE(ConfigConnection::Connection::Instance().Pending().empty());
    });
}

}  // namespace
