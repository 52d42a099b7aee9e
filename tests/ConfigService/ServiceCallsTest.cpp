// Goal: every numbered call gets exactly the reply that clients rely on, and roles decide who may ask what.
#include <gmock/gmock.h>

#include "tests/ConfigService/ServiceFixture.h"

namespace Orv {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ServiceCalls : public ServiceFixture {
protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        admin_ = Connect();
        ASSERT_EQ(admin_
                      ->Apply({Feed(Action::Add, "hold", {{"thename", std::string("jazz")}, {"feedtype", 3}}),
                               Feed(Action::Add, "Lobby"), Feed(Action::Add, "third", {{"feedtype", 0}})})
                      .outcome,
                  Outcome::Done);
        ASSERT_EQ(admin_->Apply({Feed(Action::Remove, "Lobby")}).outcome, Outcome::Done);
    }
    void TearDown() override { admin_.reset(); }
    VX::ParamListHolder Row(const std::string& table, i32 id) {
        const VX::ParamListHolder request = Request({{"OC", table}});
        VXSetInt32Value(request.Get(), "ID", id);
        return admin_->Call(6, request);
    }

    std::unique_ptr<Client> admin_;
};

TEST_F(ServiceCalls, TheServiceTellsThatItIsADatabaseProvider) {
    EXPECT_EQ(admin_->peer.peerType, "DBProvider");
}

TEST_F(ServiceCalls, Call6GivesTheRow) {
    const VX::ParamListHolder row = Row("AUDIOFEED", 1).GetHandle("OD");
    EXPECT_EQ(VXGetParamCount(row.Get()), 4u);
    EXPECT_EQ(VXGetInt32Value(row.Get(), "idaudiofeed"), 1);
    EXPECT_STREQ(VXGetStringValue(row.Get(), "pipename"), "hold");
    EXPECT_STREQ(VXGetStringValue(row.Get(), "thename"), "jazz");
    EXPECT_EQ(VXGetInt32Value(row.Get(), "feedtype"), 3);
}

TEST_F(ServiceCalls, Call6GivesAListWithoutParametersForAMissingRow) {
    for (const i32 id : {0, -1, 2, 99}) {
        const VX::ParamListHolder reply = Row("AUDIOFEED", id);
        ASSERT_NE(VXParamInfo(reply.Get(), "OD"), nullptr) << id;
        EXPECT_EQ(VXGetParamCount(reply.GetHandle("OD").Get()), 0u) << id;
    }
}

TEST_F(ServiceCalls, Call6OfAnUnknownTableGivesAnEmptyReply) {
    for (const char* table : {"USERS", "audiofeed", "ORV_USER", ""}) {
        EXPECT_EQ(VXGetParamCount(Row(table, 1).Get()), 0u) << table;
    }
}

TEST_F(ServiceCalls, Call7GivesOneElementForEachIdInTheirOrder) {
    const VX::ParamListHolder request = Request({{"OC", "AUDIOFEED"}});
    SetIds(request, "ids", {3, 2, 1, 1, -5});
    const auto rows = GetLists(admin_->Call(7, request), "OD");
    ASSERT_EQ(rows.size(), 5u);
    EXPECT_STREQ(VXGetStringValue(rows[0].Get(), "pipename"), "third");
    EXPECT_EQ(VXGetParamCount(rows[1].Get()), 0u);
    EXPECT_STREQ(VXGetStringValue(rows[2].Get(), "pipename"), "hold");
    EXPECT_STREQ(VXGetStringValue(rows[3].Get(), "pipename"), "hold");
    EXPECT_EQ(VXGetParamCount(rows[4].Get()), 0u);
}

TEST_F(ServiceCalls, Call7GivesAnArrayOfNestedListsAlsoForNoIds) {
    const VX::ParamListHolder request = Request({{"OC", "AUDIOFEED"}});
    SetIds(request, "ids", {});
    const VX::ParamListHolder reply = admin_->Call(7, request);
    const VXParamRecord record = VXParamInfo(reply.Get(), "OD");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(VXRecordType(record), VXTypeArray | VXTypeList);
    EXPECT_THAT(GetLists(reply, "OD"), IsEmpty());
    EXPECT_EQ(VXGetParamCount(admin_->Call(7, Request({{"OC", "NONE"}})).Get()), 0u);
}

TEST_F(ServiceCalls, Call7OfMoreThanAReplyCanCarryGivesAnEmptyReply) {
    const VX::ParamListHolder request = Request({{"OC", "AUDIOFEED"}});
    SetIds(request, "ids", std::vector<i32>(1'000'000, 1));
    EXPECT_EQ(VXGetParamCount(admin_->Call(7, request).Get()), 0u);
    EXPECT_THAT(lines_.back(), HasSubstr("larger than a reply can be"));
}

TEST_F(ServiceCalls, Call8FindsRowsByTheLowerCaseTableName) {
    const auto search = [&](const char* table, const char* field, const char* value) {
        return admin_->Call(8, Request({{"TN", table}, {"FF", field}, {"FS", value}}));
    };
    EXPECT_THAT(GetIds(search("audiofeed", "pipename", "third"), "ids"), ElementsAre(3));
    EXPECT_THAT(GetIds(search("audiofeed", "feedtype", "3"), "ids"), ElementsAre(1));
    const VX::ParamListHolder none = search("audiofeed", "pipename", "THIRD");
    ASSERT_NE(VXGetBinaryValue(none.Get(), "ids"), nullptr) << "no match is an empty run of ids";
    EXPECT_THAT(GetIds(none, "ids"), IsEmpty());
    EXPECT_EQ(VXGetParamCount(search("AUDIOFEED", "pipename", "third").Get()), 0u);
    EXPECT_EQ(VXGetParamCount(search("nothing", "pipename", "third").Get()), 0u);
    EXPECT_EQ(VXGetParamCount(search("audiofeed", "colour", "third").Get()), 0u);
}

TEST_F(ServiceCalls, Call9GivesEveryRowIdOfTheTable) {
    EXPECT_THAT(GetIds(admin_->Call(9, Request({{"OC", "AUDIOFEED"}})), "ids"), ElementsAre(1, 3));
    const VX::ParamListHolder empty = admin_->Call(9, Request({{"OC", "PARAMETER"}}));
    ASSERT_NE(VXGetBinaryValue(empty.Get(), "ids"), nullptr);
    EXPECT_THAT(GetIds(empty, "ids"), IsEmpty());
    EXPECT_EQ(VXGetParamCount(admin_->Call(9, Request({{"OC", "NONE"}})).Get()), 0u);
}

TEST_F(ServiceCalls, AnUnknownNumberGetsAnEmptyReply) {
    for (const u32 number : {0u, 1u, 5u, 10u, 99u, 107u, 0xFFFFFFFFu}) {
        EXPECT_EQ(VXGetParamCount(admin_->Call(number, Request({{"OC", "AUDIOFEED"}})).Get()), 0u) << number;
    }
}

TEST_F(ServiceCalls, AnEmptyRequestIsHarmless) {
    for (u32 number = 6; number <= 9; ++number) {
        EXPECT_EQ(VXGetParamCount(admin_->Call(number, VX::ParamListHolder()).Get()), 0u) << number;
    }
    EXPECT_EQ(GetText(admin_->Call(AdminProtocol::CallApply, VX::ParamListHolder()), "result"), "ok");
}

// --- roles -----------------------------------------------------------------------------------------------------------

TEST_F(ServiceCalls, WrongCredentialsDoNotConnect) {
    Client client;
    bool authFailed = false;
    EXPECT_EQ(exchange_->Connect("127.0.0.1", 1, "root:wrong", client, client.peer, authFailed), nullptr);
    EXPECT_TRUE(authFailed);
    EXPECT_THAT(lines_.back(), HasSubstr("Wrong credentials"));
}

TEST_F(ServiceCalls, AReaderReadsRowsListsAndStatusButChangesNothing) {
    const auto reader = Connect("feeder");
    EXPECT_THAT(GetIds(reader->Call(9, Request({{"OC", "AUDIOFEED"}})), "ids"), ElementsAre(1, 3));
    EXPECT_EQ(GetText(reader->Call(AdminProtocol::CallListRows, Request({{"table", "AUDIOFEED"}})), "result"), "ok");
    EXPECT_EQ(GetText(reader->Call(AdminProtocol::CallStatus, Request({})), "result"), "ok");
    reader->Apply({Feed(Action::Add, "mine")});
    EXPECT_EQ(reader->result, "forbidden");
    for (const u32 number : {103u, 104u, 105u, 106u}) {
        const auto request = Request({{"name", "x"}, {"role", "admin"}, {"password", "x"}});
        EXPECT_EQ(GetText(reader->Call(number, request), "result"), "forbidden") << number;
    }
    EXPECT_EQ(store_->Count(Tables()[AudioFeed]), 2u);
    EXPECT_EQ(users_->List().size(), 2u);
}

TEST_F(ServiceCalls, ARoleThatIsTakenAwayCountsAtTheNextCall) {
    ASSERT_EQ(users_->Add("second", Role::Admin, "secret").outcome, UserOutcome::Done);
    const auto second = Connect("second");
    second->Apply({Feed(Action::Add, "one")});
    EXPECT_EQ(second->result, "ok");
    ASSERT_EQ(users_->SetRole("second", Role::Reader).outcome, UserOutcome::Done);
    second->Apply({Feed(Action::Add, "two")});
    EXPECT_EQ(second->result, "forbidden");
    ASSERT_EQ(users_->Remove("second").outcome, UserOutcome::Done);
    EXPECT_EQ(GetText(second->Call(AdminProtocol::CallStatus, Request({})), "result"), "forbidden");
}

// --- administration --------------------------------------------------------------------------------------------------

TEST_F(ServiceCalls, RowsAreListedWholeOrByTheirKey) {
    const auto all = GetLists(admin_->Call(AdminProtocol::CallListRows, Request({{"table", "AUDIOFEED"}})), "rows");
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(RowFromList(Tables()[AudioFeed], all[1]).id, 3);
    const auto one = admin_->Call(AdminProtocol::CallListRows, Request({{"table", "AUDIOFEED"}, {"key", "HOLD"}}));
    ASSERT_EQ(GetLists(one, "rows").size(), 1u);
    const auto none = admin_->Call(AdminProtocol::CallListRows, Request({{"table", "AUDIOFEED"}, {"key", "x"}}));
    EXPECT_EQ(GetText(none, "result"), "notfound");
    EXPECT_EQ(GetText(admin_->Call(AdminProtocol::CallListRows, Request({{"table", "X"}})), "result"), "refused");
}

TEST_F(ServiceCalls, StatusTellsTablesPeersAndTheLastTransaction) {
    const auto reader = Connect("feeder");
    const VX::ParamListHolder status = admin_->Call(AdminProtocol::CallStatus, Request({}));
    EXPECT_EQ(GetText(status, "version"), "1.2.3");
    EXPECT_EQ(GetText(status, "database"), database_);
    EXPECT_EQ(VXGetInt64Value(status.Get(), "transaction"), 2);
    EXPECT_EQ(VXGetInt32Value(status.GetHandle("tables").Get(), "AUDIOFEED"), 2);
    EXPECT_EQ(VXGetParamCount(status.GetHandle("tables").Get()), 4u);
    const auto peers = GetLists(status, "peers");
    ASSERT_EQ(peers.size(), 2u);
    EXPECT_EQ(GetText(peers[0], "user"), "root");
    EXPECT_EQ(VXGetInt32Value(peers[0].Get(), "own"), 1);
    EXPECT_EQ(GetText(peers[1], "user"), "feeder");
    EXPECT_EQ(VXGetInt32Value(peers[1].Get(), "own"), 0);
    reader->link->Close();
    EXPECT_EQ(GetLists(admin_->Call(AdminProtocol::CallStatus, Request({})), "peers").size(), 1u);
}

TEST_F(ServiceCalls, UsersAreAddedChangedListedAndRemoved) {
    const auto call = [&](u32 number, const std::vector<std::pair<const char*, std::string>>& texts) {
        return GetText(admin_->Call(number, Request(texts)), "result");
    };
    EXPECT_EQ(call(104, {{"name", "new"}, {"role", "reader"}, {"password", "pw"}}), "ok");
    EXPECT_EQ(call(104, {{"name", "new"}, {"role", "reader"}, {"password", "pw"}}), "refused");
    EXPECT_EQ(call(104, {{"name", "a:b"}, {"role", "reader"}, {"password", "pw"}}), "refused");
    EXPECT_EQ(call(104, {{"name", "x"}, {"role", "king"}, {"password", "pw"}}), "refused");
    EXPECT_EQ(call(105, {{"name", "new"}, {"role", "admin"}, {"password", "bad\"one"}}), "refused");
    EXPECT_EQ(users_->FindRole("new"), Role::Reader) << "all of a change or nothing";
    EXPECT_EQ(call(105, {{"name", "new"}, {"role", "admin"}, {"password", "pw2"}}), "ok");
    EXPECT_EQ(users_->FindRole("new"), Role::Admin);
    EXPECT_TRUE(users_->Verify(users_->FindHash("new"), "pw2"));
    EXPECT_EQ(call(105, {{"name", "new"}}), "refused");
    EXPECT_EQ(call(105, {{"name", "gone"}, {"role", "admin"}}), "notfound");
    EXPECT_EQ(GetLists(admin_->Call(103, Request({})), "users").size(), 3u);
    EXPECT_EQ(call(106, {{"name", "new"}}), "ok");
    EXPECT_EQ(call(106, {{"name", "new"}}), "notfound");
    EXPECT_EQ(call(106, {{"name", "root"}}), "refused") << "the last admin stays";
}

TEST_F(ServiceCalls, TheLogTellsWhoChangedWhat) {
    admin_->Apply({Feed(Action::Set, "hold", {{"maxvolume", 50}})});
    ASSERT_GE(lines_.size(), 2u);
    EXPECT_THAT(lines_[lines_.size() - 2], HasSubstr("Info  Transaction 3 by user \"root\", rows changed: 1"));
    EXPECT_THAT(lines_.back(), HasSubstr("Updated AUDIOFEED 1 \"hold\""));
    admin_->Apply({Feed(Action::Set, "hold", {{"maxvolume", 500}})});
    EXPECT_THAT(lines_.back(), HasSubstr("was refused: AUDIOFEED \"hold\" maxvolume is 500"));
}

}  // namespace
}  // namespace Orv
