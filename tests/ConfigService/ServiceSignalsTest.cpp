// Goal: signals follow commits, in their order, none lost, none invented. Method: clients joined to the service inside
// the test collect what is raised.
#include <gmock/gmock.h>

#include <algorithm>

#include "Platform/Thread.h"
#include "tests/ConfigService/ServiceFixture.h"

namespace Orv {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ServiceSignals : public ServiceFixture {
protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        admin_ = Connect();
        listener_ = Connect("feeder");
    }
    void TearDown() override {
        admin_.reset();
        listener_.reset();
    }
    // The one signal since the last look.
    std::pair<std::string, VX::ParamListHolder> Next() {
        const auto signals = listener_->Signals();
        EXPECT_EQ(signals.size(), seen_ + 1);
        if (signals.size() <= seen_) return {};
        return signals[seen_++];
    }
    void ExpectSingle(const std::string& signal, const std::string& table, const std::string& kind, i32 id) {
        const auto [name, event] = Next();
        EXPECT_EQ(name, signal);
        EXPECT_EQ(VXGetParamCount(event.Get()), 3u);
        EXPECT_EQ(GetText(event, "OC"), table);
        EXPECT_EQ(GetText(event, "TO"), kind);
        VXInt32Array ids{};
        VXGetInt32Array(&ids, event.Get(), "IDA");
        ASSERT_EQ(ids.count, 1u);
        EXPECT_EQ(VXReadInt32(reinterpret_cast<const u8*>(ids.values)), id);
    }

    std::unique_ptr<Client> admin_;
    std::unique_ptr<Client> listener_;
    u64 seen_ = 0;
};

TEST_F(ServiceSignals, AChangeOfOneRowIsToldByTheSignalOfItsTable) {
    admin_->Apply({Feed(Action::Add, "hold")});
    ExpectSingle("UPDOfAUDIOFEED", "AUDIOFEED", "Inserted", 1);
    admin_->Apply({Feed(Action::Set, "hold", {{"maxvolume", 3}})});
    ExpectSingle("UPDOfAUDIOFEED", "AUDIOFEED", "Updated", 1);
    admin_->Apply({Feed(Action::Remove, "hold")});
    ExpectSingle("UPDOfAUDIOFEED", "AUDIOFEED", "Deleted", 1);
    admin_->Apply({Set("DEFAULTAUDIOFILE", "/x.wav")});
    ExpectSingle("UPDOfPARAMETER", "PARAMETER", "Inserted", 1);
    admin_->Apply({{"ANNOUNCEMENT", Action::Add, 0, "a", {{"thefile", std::string("x")}}}});
    ExpectSingle("UPDOfANNOUNCEMENT", "ANNOUNCEMENT", "Inserted", 1);
}

TEST_F(ServiceSignals, AFeedThatIsToBeBuiltAnewIsDeletedAndUpdatedInOneBatchAndItsRowStaysAsItIs) {
    admin_->Apply({Feed(Action::Add, "hold", {{"maxvolume", 30}})});
    Next();
    const ApplyResult result = admin_->Apply({Feed(Action::Rebuild, "HOLD")});
    EXPECT_EQ(result.outcome, Outcome::Done);
    EXPECT_EQ(result.transaction, 2);
    ASSERT_EQ(result.changed.size(), 1u);
    EXPECT_STREQ(result.changed[0].kind, "Rebuilt");
    EXPECT_THAT(result.changed[0].columns, IsEmpty());
    const auto [name, event] = Next();
    EXPECT_EQ(name, "BATCHUPDATE");
    EXPECT_EQ(VXGetInt64Value(event.Get(), "__TRN"), 2);
    const VX::ParamListHolder rows = event.GetHandle("AUDIOFEED");
    EXPECT_THAT(GetIds(rows, "DELETED"), ElementsAre(1));
    EXPECT_THAT(GetIds(rows, "UPDATED"), ElementsAre(1));
}

TEST_F(ServiceSignals, OnlyAFeedThatIsThereCanBeBuiltAnew) {
    admin_->Apply({Set("DEFAULTAUDIOFILE", "/x.wav")});
    Next();
    EXPECT_EQ(admin_->Apply({Feed(Action::Rebuild, "absent")}).errors.at(0).notFound, true);
    Change parameter = Set("DEFAULTAUDIOFILE", "/x.wav");
    parameter.action = Action::Rebuild;
    parameter.values.clear();
    EXPECT_EQ(admin_->Apply({parameter}).outcome, Outcome::Refused);
    EXPECT_EQ(listener_->Signals().size(), seen_) << "nothing is raised";
}

TEST_F(ServiceSignals, ATransactionOfSeveralRowsIsToldByOneBatch) {
    admin_->Apply({Feed(Action::Add, "a"), Feed(Action::Add, "b"), Feed(Action::Add, "c")});
    {
        const auto [name, event] = Next();
        EXPECT_EQ(name, "BATCHUPDATE");
        EXPECT_EQ(VXRecordType(VXParamInfo(event.Get(), "__TRN")), VXTypeInt64);
        EXPECT_EQ(VXGetInt64Value(event.Get(), "__TRN"), 1);
        EXPECT_EQ(VXGetParamCount(event.Get()), 2u);
        const VX::ParamListHolder rows = event.GetHandle("AUDIOFEED");
        EXPECT_THAT(GetIds(rows, "UPDATED"), ElementsAre(1, 2, 3));
        EXPECT_EQ(VXParamInfo(rows.Get(), "DELETED"), nullptr);
    }
    admin_->Apply({Feed(Action::Set, "c", {{"nonstop", 1}}), Feed(Action::Remove, "a"), Set("SYSTEMLOGGINGLEVEL", "3"),
                   Feed(Action::Add, "d")});
    const auto [name, event] = Next();
    EXPECT_EQ(name, "BATCHUPDATE");
    EXPECT_EQ(VXGetInt64Value(event.Get(), "__TRN"), 2);
    const VX::ParamListHolder feeds = event.GetHandle("AUDIOFEED");
    EXPECT_EQ(VXRecordType(VXParamInfo(feeds.Get(), "UPDATED")), VXTypeBinary);
    EXPECT_THAT(GetIds(feeds, "UPDATED"), ElementsAre(3, 4));
    EXPECT_THAT(GetIds(feeds, "DELETED"), ElementsAre(1));
    EXPECT_THAT(GetIds(event.GetHandle("PARAMETER"), "UPDATED"), ElementsAre(1));
}

TEST_F(ServiceSignals, ABatchTellsParametersBeforeTheRowsThatReadThem) {
    admin_->Apply({Feed(Action::Add, "a"),
                   {"ANNOUNCEMENT", Action::Add, 0, "n", {{"thefile", std::string("x")}}},
                   Set("IVRPROMPTPATH", "/x")});
    const auto [name, event] = Next();
    std::vector<std::string> keys;
    for (VXParamRecord record = VXGetFirstParam(event.Get()); record != nullptr;
         record = VXGetNextParam(event.Get(), record)) {
        keys.emplace_back(VXRecordKey(record));
    }
    EXPECT_THAT(keys, ElementsAre("__TRN", "PARAMETER", "AUDIOFEED", "ANNOUNCEMENT"));
}

TEST_F(ServiceSignals, SeveralChangesOfOneRowAreOneChange) {
    admin_->Apply({Feed(Action::Add, "a"), Feed(Action::Set, "a", {{"nonstop", 1}})});
    ExpectSingle("UPDOfAUDIOFEED", "AUDIOFEED", "Inserted", 1);
}

TEST_F(ServiceSignals, WhatChangesNothingOrIsRefusedRaisesNothing) {
    admin_->Apply({Feed(Action::Add, "a", {{"nonstop", 1}})});
    ExpectSingle("UPDOfAUDIOFEED", "AUDIOFEED", "Inserted", 1);
    admin_->Apply({Feed(Action::Set, "a", {{"nonstop", 1}})});
    EXPECT_EQ(admin_->result, "ok");
    admin_->Apply({Feed(Action::Set, "a", {{"feedtype", 9}})});
    EXPECT_EQ(admin_->result, "refused");
    admin_->Apply({Feed(Action::Set, "a", {{"nonstop", 0}}), Feed(Action::Set, "missing", {{"nonstop", 0}})});
    EXPECT_EQ(admin_->result, "notfound");
    EXPECT_EQ(listener_->Signals().size(), seen_);
}

TEST_F(ServiceSignals, TheTransactionNumberRisesAcrossARestartOfTheService) {
    admin_->Apply({Feed(Action::Add, "a"), Feed(Action::Add, "b")});
    EXPECT_EQ(VXGetInt64Value(Next().second.Get(), "__TRN"), 1);
    admin_->Apply({Feed(Action::Set, "a", {{"nonstop", 1}})});
    Next();
    TearDown();
    exchange_.reset();
    service_.reset();
    std::string reason;
    store_.reset();
    store_ = Store::Open(database_, reason);
    service_ = std::make_unique<ConfigService>(*store_, *users_, log_, "1.2.3", database_);
    exchange_ = std::make_unique<VX::InProcessExchange>(*service_);
    service_->Attach(exchange_.get());
    admin_ = Connect();
    listener_ = Connect("feeder");
    seen_ = 0;
    admin_->Apply({Feed(Action::Remove, "a"), Feed(Action::Remove, "b")});
    EXPECT_EQ(VXGetInt64Value(Next().second.Get(), "__TRN"), 3);
}

// A client that applies each signal to a copy of the table, as the audio feed service does, must end with the table.
TEST_F(ServiceSignals, WritersSideBySideAreToldInTheOrderOfTheirCommits) {
    constexpr int kWriters = 4;
    constexpr int kTransactions = 25;
    std::vector<std::unique_ptr<Client>> writers;
    for (int i = 0; i < kWriters; ++i) writers.push_back(Connect());
    std::vector<Platform::Thread> threads;
    for (int i = 0; i < kWriters; ++i) {
        threads.emplace_back("writer", [&, i] {
            for (int j = 0; j < kTransactions; ++j) {
                const std::string mine = "feed" + std::to_string(i);
                writers[static_cast<u32>(i)]->Apply(
                    {Feed(Action::Put, mine, {{"minannouncementpause", 0}, {"maxannouncementpause", j}}),
                     Feed(Action::Put, "shared", {{"maxannouncementpause", i * 100 + j}})});
            }
        });
    }
    for (Platform::Thread& thread : threads) thread.Join();
    const auto signals = listener_->Signals();
    EXPECT_EQ(signals.size(), u64{kWriters} * kTransactions);
    i64 last = 0;
    for (const auto& [name, event] : signals) {
        EXPECT_EQ(name, "BATCHUPDATE");
        EXPECT_EQ(VXGetInt64Value(event.Get(), "__TRN"), last + 1);
        last = VXGetInt64Value(event.Get(), "__TRN");
        EXPECT_EQ(GetIds(event.GetHandle("AUDIOFEED"), "UPDATED").size(), 2u);
    }
}

TEST_F(ServiceSignals, ARowCanBeReadAsItIsOnceItsSignalHasCome) {
    // The signal comes on the writer's thread before the writer's call returns, with the commit behind it.
    class Reader : public VX::ILinkEvents {
    public:
        explicit Reader(Store& store) : store_(store) {}
        void OnSignal(const std::string&, VX::ParamListHolder) override {
            Row row;
            if (store_.FindRow(Tables()[AudioFeed], "a", row)) seen.push_back(row.Number(FeedColumn::MaxVolume));
        }
        void OnClosed() override {}
        std::vector<i32> seen;

    private:
        Store& store_;
    };
    Reader reader(*store_);
    VX::PeerInfo peer;
    bool authFailed = false;
    const auto link = exchange_->Connect("127.0.0.1", 1, "feeder:secret", reader, peer, authFailed);
    for (const i32 volume : {1, 2, 3}) admin_->Apply({Feed(Action::Put, "a", {{"maxvolume", volume}})});
    EXPECT_THAT(reader.seen, ElementsAre(1, 2, 3));
}

TEST_F(ServiceSignals, AChangeBeforeTheServerListensWaitsForItAndIsTold) {
    ConfigService early(*store_, *users_, log_, "1.2.3", database_);
    early.OnConnected(1, "root", "here");
    std::string word;
    Platform::Thread writer("writer", [&] {
        ResultFromList(early.OnCall(1, AdminProtocol::CallApply, ChangesToList({Feed(Action::Add, "a")})), word);
    });
    early.Attach(exchange_.get());
    writer.Join();
    EXPECT_EQ(word, "ok");
    ExpectSingle("UPDOfAUDIOFEED", "AUDIOFEED", "Inserted", 1);
    early.Attach(nullptr);
    ResultFromList(early.OnCall(1, AdminProtocol::CallApply, ChangesToList({Feed(Action::Add, "b")})), word);
    EXPECT_EQ(word, "failed");
    EXPECT_EQ(store_->Count(Tables()[AudioFeed]), 1u);
}

}  // namespace
}  // namespace Orv
