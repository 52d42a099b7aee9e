// Goal: what each client gets, whatever the others do. Method: clients on simulated pipes, which hold 4096 bytes on
// their way; the broadcast is driven step by step.
#include "Tools/orv-publish/Broadcast.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"
#include "Tools/orv-publish/Publisher.h"
#include "tests/Tools/orv-publish/Fakes.h"

namespace Orv {
namespace {

using PublishTest::Connect;
using PublishTest::Messages;
using PublishTest::ReadNow;
using PublishTest::Same;
using PublishTest::Sound;

class BroadcastTest : public testing::Test {
protected:
    BroadcastTest() {
        broadcast_ = OpenBroadcast("radio", [this](const std::string& text) { told_.push_back(text); });
    }
    ~BroadcastTest() override { broadcast_.reset(); }

    std::unique_ptr<Platform::IPipeClient> NewClient() {
        auto client = Connect("radio");
        broadcast_->Accept();
        return client;
    }
    // The next `bytes` of one long sound.
    std::string Next(std::size_t bytes) {
        const std::string part = whole_.substr(given_, bytes);
        given_ += bytes;
        broadcast_->Push(reinterpret_cast<const u8*>(part.data()), part.size());
        return part;
    }
    // Sends and reads until nothing more comes.
    std::string Drain(Platform::IPipeClient& client) {
        std::string all;
        for (;;) {
            broadcast_->Send();
            const std::string more = ReadNow(client);
            if (more.empty()) return all;
            all += more;
        }
    }

    Platform::Sim::Simulation sim_;
    Messages told_;
    std::unique_ptr<Broadcast> broadcast_;
    const std::string whole_ = Sound(130000);
    std::size_t given_ = 0;
};

TEST_F(BroadcastTest, EveryClientGetsEverySample) {
    const auto first = NewClient();
    const auto second = NewClient();
    std::string heardFirst;
    std::string heardSecond;
    for (int i = 0; i < 200; ++i) {
        Next(320);
        heardFirst += Drain(*first);
        heardSecond += Drain(*second);
    }
    EXPECT_TRUE(Same(heardFirst, whole_.substr(0, 64000)));
    EXPECT_TRUE(Same(heardSecond, heardFirst));
    EXPECT_TRUE(told_.empty());
}

TEST_F(BroadcastTest, AClientThatComesLateBeginsAQuarterOfASecondBack) {
    Next(8000);
    Next(8000);
    const auto late = NewClient();
    EXPECT_TRUE(Same(Drain(*late), whole_.substr(12000, 4000)));
    Next(100);
    EXPECT_TRUE(Same(Drain(*late), whole_.substr(16000, 100)));
}

TEST_F(BroadcastTest, AClientThatComesEarlyInTheStreamGetsWhatThereIs) {
    Next(1000);
    EXPECT_TRUE(Same(Drain(*NewClient()), whole_.substr(0, 1000)));
}

TEST_F(BroadcastTest, SoundFromBeforeAGapIsNotPlayedToNewClients) {
    Next(8000);
    broadcast_->MarkGap();
    const auto client = NewClient();
    EXPECT_EQ(Drain(*client), "");
    Next(200);
    EXPECT_TRUE(Same(Drain(*client), whole_.substr(8000, 200)));
    EXPECT_TRUE(Same(Drain(*NewClient()), whole_.substr(8000, 200)));
}

TEST_F(BroadcastTest, AClientThatTakesNothingDelaysNobodyAndGoesOnAtTheLiveEdge) {
    const auto stuck = NewClient();
    const auto good = NewClient();
    std::string heard;
    for (int i = 0; i < 300; ++i) {
        Next(320);
        heard += Drain(*good);
    }
    EXPECT_TRUE(Same(heard, whole_.substr(0, 96000)));

    // What was on its way comes first, then the sound from where it was last put: less than a second back.
    const std::string late = Drain(*stuck);
    EXPECT_TRUE(Same(late.substr(0, 4096), whole_.substr(0, 4096)));
    const std::size_t rest = late.size() - 4096;
    EXPECT_GE(rest, 4000u);
    EXPECT_LE(rest, 16000u);
    EXPECT_TRUE(Same(late.substr(4096), whole_.substr(96000 - rest, rest)));
    Next(500);
    EXPECT_TRUE(Same(Drain(*stuck), whole_.substr(96000, 500))) << "and it is a client like any other again";

    broadcast_->TellLosses(true);
    char lost[100];
    std::snprintf(lost, sizeof lost, "clients that do not take their sound in time have lost %.3f s of sound.",
                  static_cast<double>(96000 - 4096 - rest) / 16000.0);
    EXPECT_EQ(told_, (Messages{lost}));
}

TEST_F(BroadcastTest, AClientMayLagByAWholeSecondWithoutLoss) {
    const auto slow = NewClient();
    Next(4000);
    broadcast_->Send();
    for (int i = 0; i < 8; ++i) Next(2000);
    EXPECT_TRUE(Same(Drain(*slow), whole_.substr(0, 20000)));
    broadcast_->TellLosses(true);
    EXPECT_TRUE(told_.empty());
}

TEST_F(BroadcastTest, AClientThatLosesSoundInTheMiddleOfASampleGoesOnWithWholeOnes) {
    sim_.Pipes().SetWriteLimit(1);
    const auto slow = NewClient();
    Next(2);
    {
        // One byte of the first sample goes out, then the client's time is over.
        u64 count = 0;
        while (sim_.Pipes().Counters().bytesWritten == 0 && count++ < 10) broadcast_->Send();
    }
    sim_.Pipes().SetWriteLimit(0);
    const auto whole = ReadNow(*slow);
    for (int i = 0; i < 3; ++i) Next(8000);
    const std::string heard = whole + Drain(*slow);
    ASSERT_EQ(heard.size() % 2, 0u);
    // Each sample is one of the sound's own.
    for (std::size_t at = 0; at < heard.size(); at += 2) {
        const std::size_t where =
            (static_cast<unsigned char>(heard[at]) | static_cast<unsigned char>(heard[at + 1]) << 8) - 1u;
        ASSERT_LT(where * 2, 24002u) << at;
    }
}

TEST_F(BroadcastTest, AClientThatLeavesIsLetGoEvenDuringAGap) {
    auto leaving = NewClient();
    const auto staying = NewClient();
    EXPECT_EQ(broadcast_->Clients(), 2u);
    leaving.reset();
    broadcast_->Send();
    EXPECT_EQ(broadcast_->Clients(), 1u);
    Next(320);
    EXPECT_TRUE(Same(Drain(*staying), whole_.substr(0, 320)));
}

TEST_F(BroadcastTest, AtTheEndWhoHasHadEverythingSeesItAtOnceAndTheOthersWhenTheyHave) {
    const auto quick = NewClient();
    const auto slow = NewClient();
    Next(4000);
    Drain(*quick);
    Next(2000);
    broadcast_->Send();
    EXPECT_FALSE(broadcast_->Finish());
    EXPECT_EQ(broadcast_->Clients(), 1u);
    bool ended = false;
    EXPECT_TRUE(Same(ReadNow(*quick, ended), whole_.substr(4000, 2000)));
    EXPECT_TRUE(ended);
    EXPECT_FALSE(sim_.Pipes().IsServed("radio")) << "who has seen the end does not find the name again";
    EXPECT_TRUE(Same(ReadNow(*slow, ended), whole_.substr(0, 4096)));
    EXPECT_FALSE(ended);
    EXPECT_TRUE(broadcast_->Finish());
    EXPECT_TRUE(Same(ReadNow(*slow, ended), whole_.substr(4096, 1904)));
    EXPECT_TRUE(ended);
}

TEST_F(BroadcastTest, ManyClientsThatComeAtOnceAreAllTaken) {
    std::vector<std::unique_ptr<Platform::IPipeClient>> clients;
    for (int i = 0; i < 500; ++i) clients.push_back(Connect("radio"));
    broadcast_->Accept();
    EXPECT_EQ(broadcast_->Clients(), 500u);
    Next(320);
    broadcast_->Send();
    for (const auto& client : clients) ASSERT_TRUE(Same(ReadNow(*client), whole_.substr(0, 320)));
}

TEST_F(BroadcastTest, AClientThatCannotBeTakenIsToldOnceAndTheNextOneIsServed) {
    sim_.Pipes().FailPolls("radio", ECONNABORTED, 2);
    broadcast_->Accept();
    broadcast_->Accept();
    EXPECT_EQ(told_, (Messages{"a client could not be taken: Software caused connection abort."}));
    const auto client = NewClient();
    EXPECT_EQ(broadcast_->Clients(), 1u);
    sim_.Pipes().FailInstances("radio", EMFILE, 1);
    const auto other = NewClient();
    EXPECT_EQ(broadcast_->Clients(), 2u) << "its instance had been there already; the next one could not be made";
    ASSERT_EQ(told_.size(), 2u);
    EXPECT_EQ(told_[1], "no more clients can be served: Too many open files.");
    const auto last = NewClient();
    EXPECT_EQ(broadcast_->Clients(), 3u);
}

TEST_F(BroadcastTest, ANameThatIsTakenIsToldAndANameInTheMakingIsWaitedFor) {
    Messages told;
    sim_.Run([&] {
        const auto tell = [&told](const std::string& text) { told.push_back(text); };
        EXPECT_EQ(OpenBroadcast("radio", tell), nullptr);
        ASSERT_EQ(told.size(), 1u);
        EXPECT_NE(told[0].find("another program serves it already"), std::string::npos) << told[0];
        sim_.Pipes().FailInstances("other", EAGAIN, 50);
        EXPECT_NE(OpenBroadcast("other", tell), nullptr);
        EXPECT_EQ(told.size(), 1u);
    });
    EXPECT_EQ(sim_.Elapsed() / 1'000'000, 1000u);
}

}  // namespace
}  // namespace Orv
