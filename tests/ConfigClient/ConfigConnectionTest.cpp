#include "ConfigClient/ConfigConnection.h"

#include <gtest/gtest.h>

#include "ConfigWorld.h"

namespace {

class ConfigConnectionTest : public ConfigWorld {
protected:
    using ConfigWorld::ConfigWorld;
    void SetUp() override {
        ConfigWorld::SetUp();
        service_.tables["AUDIOFEED"] = {{1, MakeRow({{"v", "1"}})}, {2, MakeRow({{"v", "2"}})}};
    }
};

TEST_F(ConfigConnectionTest, ConnectingFetchesTheIdsOfEachTableInTheGivenOrder) {
    Run([&] {
        EXPECT_TRUE(Connect({"AUDIOFEED", "AUDIOFEEDCONTENT", "ANNOUNCEMENT", "PARAMETER"}));
        EXPECT_EQ(service_.calls, (Texts{"9 AUDIOFEED", "9 AUDIOFEEDCONTENT", "9 ANNOUNCEMENT", "9 PARAMETER"}));
        EXPECT_STREQ(ConfigConnection::GetServerName(), "ConfigService");
        EXPECT_EQ(IdsOf(ConfigConnection::GetList("AUDIOFEED")), (std::vector<i32>{1, 2}));
        EXPECT_TRUE(ConfigConnection::GetList("PARAMETER").IsValid());
    });
}

TEST_F(ConfigConnectionTest, TheCredentialsGoOutWithTheirTerminatingZero) {
    Run([&] {
        EXPECT_TRUE(Connect({}));
        EXPECT_EQ(service_.credentials, std::string("user:secret\0", 12));
    });
}

TEST_F(ConfigConnectionTest, AServiceThatIsNotThereOrRefusesGivesFalseAndNoName) {
    Run([&] {
        service_.refuse = true;
        EXPECT_FALSE(Connect({"AUDIOFEED"}));
        exchange_.Stop();
        EXPECT_FALSE(Connect({"AUDIOFEED"}));
        EXPECT_STREQ(ConfigConnection::GetServerName(), "");
        EXPECT_FALSE(ConfigConnection::GetList("AUDIOFEED"));
        EXPECT_TRUE(service_.calls.empty());
    });
}

TEST_F(ConfigConnectionTest, BeforeTheFirstConnectionThereIsNothing) {
    Run([&] {
        EXPECT_STREQ(ConfigConnection::GetServerName(), "");
        EXPECT_FALSE(ConfigConnection::GetList("AUDIOFEED"));
        EXPECT_TRUE(ConfigConnection::Disconnect());
    });
}

TEST_F(ConfigConnectionTest, ListsAreFoundByTheBytesOfTheirNames) {
    Run([&] {
        EXPECT_TRUE(Connect({"AUDIOFEED"}));
        EXPECT_TRUE(ConfigConnection::GetList(std::string("AUDIOFEED").c_str()).IsValid());
        EXPECT_FALSE(ConfigConnection::GetList("audiofeed"));
        EXPECT_FALSE(ConfigConnection::GetList("AUDIOFEE"));
        EXPECT_FALSE(ConfigConnection::GetList(nullptr));
    });
}

TEST_F(ConfigConnectionTest, DisconnectingForgetsAllTablesAndTheName) {
    Run([&] {
        EXPECT_TRUE(Connect({"AUDIOFEED"}));
        EXPECT_TRUE(ConfigConnection::Disconnect());
        EXPECT_FALSE(ConfigConnection::GetList("AUDIOFEED"));
        EXPECT_STREQ(ConfigConnection::GetServerName(), "");
        EXPECT_TRUE(ConfigConnection::Disconnect());
    });
}

TEST_F(ConfigConnectionTest, AReaderThatStillHoldsAListKeepsADeadCopy) {
    Run([&] {
        const ListHolder list = ConnectTo("AUDIOFEED");
        list->LoadRows({1});
        ConfigConnection::Disconnect();
        service_.calls.clear();
        EXPECT_EQ(TextOf(list->GetRow(1), "v"), "1");
        EXPECT_FALSE(list->GetRow(2));
        EXPECT_TRUE(service_.calls.empty());
        EXPECT_EQ(IdsOf(list), (std::vector<i32>{1, 2}));
    });
}

TEST_F(ConfigConnectionTest, TheNameReadBeforeADisconnectStaysWhole) {
    Run([&] {
        EXPECT_TRUE(Connect({}));
        const char* name = ConfigConnection::GetServerName();
        ConfigConnection::Disconnect();
        EXPECT_STREQ(name, "ConfigService");
    });
}

// The host compares the lost application's name with the connected one's on the library's thread.
TEST_F(ConfigConnectionTest, TheNameStandsUntilTheLossIsToldAndDisconnectIsCalled) {
    static std::string nameAtLoss;
    static std::string lost;
    Run([&] {
        VXSetDisconnectListener([](const char* application, u64, u64) -> i32 {
            lost = application;
            nameAtLoss = ConfigConnection::GetServerName();
            ConfigConnection::Disconnect();
            return 0;
        });
        const ListHolder list = ConnectTo("AUDIOFEED");
        exchange_.Stop();
        EXPECT_FALSE(list->GetRow(1));  // a call that finds nobody changes no state
        EXPECT_STREQ(ConfigConnection::GetServerName(), "ConfigService");
        Platform::SleepMilliseconds(100);
        EXPECT_STREQ(ConfigConnection::GetServerName(), "");
        VXSetDisconnectListener(nullptr);
    });
    EXPECT_EQ(lost, "ConfigService");
    EXPECT_EQ(nameAtLoss, "ConfigService");
}

// A table must never be taken for whole because the service died while it was read.
TEST_F(ConfigConnectionTest, AServiceLostWhileTablesAreReadGivesFalseAndLeavesNothingBehind) {
    Run([&] {
        service_.tables["PARAMETER"] = {{7, MakeRow({{"v", "7"}})}};
        service_.onReply = [&](u32, VX::ParamListHolder&) {
            if (service_.calls.size() == 2) exchange_.Stop();
        };
        EXPECT_FALSE(Connect({"AUDIOFEED", "PARAMETER", "ANNOUNCEMENT"}));
        EXPECT_EQ(service_.calls, (Texts{"9 AUDIOFEED", "9 PARAMETER"}));
        EXPECT_STREQ(ConfigConnection::GetServerName(), "");
        for (const char* table : {"AUDIOFEED", "PARAMETER", "ANNOUNCEMENT"}) {
            EXPECT_FALSE(ConfigConnection::GetList(table)) << table;
        }
        service_.onReply = nullptr;
        exchange_.Resume();
        EXPECT_TRUE(Connect({"AUDIOFEED", "PARAMETER", "ANNOUNCEMENT"}));
        EXPECT_EQ(IdsOf(ConfigConnection::GetList("PARAMETER")), std::vector<i32>{7});
        Listen();
        Raise("UPDOfPARAMETER", UpdateEvent("PARAMETER", "Updated", {7}));
        EXPECT_EQ(told_, Texts{"PARAMETER Updated 7 7/-"});
    });
}

// What is committed between the fetch of the ids and the end of the connecting is told all the same.
TEST_F(ConfigConnectionTest, AChangeRaisedWhileConnectingIsApplied) {
    Run([&] {
        Listen();
        service_.onReply = [&](u32 number, VX::ParamListHolder&) {
            if (number != 9) return;
            service_.tables["AUDIOFEED"][3] = MakeRow({{"v", "3"}});
            exchange_.Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Inserted", {3}));
        };
        EXPECT_TRUE(Connect({"AUDIOFEED"}));
        Platform::SleepMilliseconds(100);
        EXPECT_EQ(told_, Texts{"AUDIOFEED Inserted 3 3/-"});
        EXPECT_EQ(IdsOf(ConfigConnection::GetList("AUDIOFEED")), (std::vector<i32>{1, 2, 3}));
    });
}

// The first change of a table that nobody had subscribed held every event behind it, and no change was ever told again.
TEST_F(ConfigConnectionTest, ATableThatIsNotSubscribedHoldsUpNoChange) {
    Run([&] {
        Listen();
        service_.onReply = [&](u32 number, VX::ParamListHolder&) {
            if (number == 9) exchange_.Raise("UPDOfUSERS", UpdateEvent("USERS", "Updated", {1}));
        };
        EXPECT_TRUE(Connect({"AUDIOFEED"}));
        Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Updated", {1}));
        EXPECT_EQ(told_, Texts{"AUDIOFEED Updated 1 1/-"});
        Raise("UPDOfUSERS", UpdateEvent("USERS", "Updated", {2}));
        Raise("BATCHUPDATE", BatchEvent(3, {{"AUDIOFEED", {2}, {}}}));
        EXPECT_EQ(told_, (Texts{"AUDIOFEED Updated 1 1/-", "TRANSACTION Inserted 3 /-", "TRANSACTION Updated 3 /-",
                                "AUDIOFEED Deleted 2 -/-", "TRANSACTION Deleted 3 /-"}));
    });
}

TEST_F(ConfigConnectionTest, EventsNeverOverlap) {
    Run([&] {
        ConnectTo("AUDIOFEED");
        Listen();
        int inside = 0;
        int most = 0;
        onTell_ = [&](const char*, const char*) {
            most = std::max(most, ++inside);
            Platform::SleepMilliseconds(30);
            --inside;
        };
        for (int i = 0; i < 5; ++i) {
            exchange_.Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Updated", {1}));
            exchange_.Raise("BATCHUPDATE", BatchEvent(i, {{"AUDIOFEED", {}, {2}}}));
        }
        Platform::SleepMilliseconds(2000);
        EXPECT_EQ(told_.size(), 5u * (1 + 4));
        EXPECT_EQ(most, 1);
    });
}

// Readers, events, and a disconnect in the middle, on schedules drawn from seeds.
class ConfigConnectionScheduleTest : public ConfigConnectionTest, public testing::WithParamInterface<u64> {
protected:
    static Platform::Sim::Options Mixed() {
        Platform::Sim::Options options;
        options.order = Platform::Sim::Order::Seeded;
        options.preemptOneIn = 3;
        return options;
    }
    ConfigConnectionScheduleTest() : ConfigConnectionTest(GetParam(), Mixed()) {}
};

TEST_P(ConfigConnectionScheduleTest, ReadersAndEventsAndADisconnectMeetWithoutHarm) {
    Run([&] {
        service_.tables["AUDIOFEED"] = {{1, MakeRow({{"pipename", "a"}, {"v", "1"}})},
                                        {2, MakeRow({{"pipename", "b"}, {"v", "2"}})}};
        ConnectTo("AUDIOFEED");
        ConfigConnection::CreateIndex("AUDIOFEED", "pipename", nullptr);
        Listen();
        bool stop = false;
        int whole = 0;
        int empty = 0;
        const auto read = [&] {
            while (!stop) {
                const ListHolder list = ConfigConnection::GetList("AUDIOFEED");
                if (list.IsValid()) {
                    const std::string name = TextOf(list->FindRow("pipename", "a", 0), "pipename");
                    ++(name == "a" ? whole : empty);
                }
                Platform::SleepMilliseconds(1);
            }
        };
        Platform::Thread first("first", read);
        Platform::Thread second("second", read);
        for (int i = 0; i < 20; ++i) {
            exchange_.Raise("UPDOfAUDIOFEED", UpdateEvent("AUDIOFEED", "Updated", {1, 2}));
            exchange_.Raise("BATCHUPDATE", BatchEvent(i, {{"AUDIOFEED", {2}, {2, 1}}}));
            Platform::SleepMilliseconds(3);
        }
        EXPECT_GT(whole, 0);
        EXPECT_EQ(empty, 0);  // row 1 is replaced, never absent
        Platform::Thread ender("ender", [] { ConfigConnection::Disconnect(); });
        Platform::SleepMilliseconds(20);
        stop = true;
        ender.Join();
        first.Join();
        second.Join();
        EXPECT_FALSE(ConfigConnection::GetList("AUDIOFEED"));
    });
}

INSTANTIATE_TEST_SUITE_P(Seeds, ConfigConnectionScheduleTest, testing::Range<u64>(1, 11));

}  // namespace
