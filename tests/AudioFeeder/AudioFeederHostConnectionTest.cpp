// How the service comes to its configuration, on simulated time: tries, losses and what fails on the way.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "AudioFeeder/ConfigurationState.h"
#include "AudioFeeder/LibraryListeners.h"
#include "AudioFeeder/RequestFlags.h"
#include "ConfigClient/ConfigConnection.h"
#include "ConfigClient/ObjectList.h"
#include "tests/AudioFeeder/AudioFeederHostFixture.h"

namespace {

using namespace FeederTest;

TEST_F(HostTest, WithoutPortUserOrPasswordTheFileIsReadAgainEveryTenSecondsAndNothingIsTried) {
    for (const char* settings :
         {"[ConfService]\nconfUser=a\nconfPass=b\n", "[ConfService]\nConfPort=none\nconfUser=a\nconfPass=b\n",
          "[ConfService]\nConfPort=5\nconfPass=b\n", "[ConfService]\nConfPort=5\nconfUser=a\n"}) {
        sim_.Files().AddFile(kSettings, std::string(kNoConnection) + settings);
        log_.clear();
        const u64 start = sim_.Elapsed() / 1'000'000;
        Serve([&] {
            Sleep(35'000);
            EXPECT_EQ(Count("Reading configuration..."), 3U);
            Stop();
        });
        EXPECT_LE(sim_.Elapsed() / 1'000'000 - start, 35'000U + kBoxTick);
        EXPECT_EQ(Count("Connecting to Configuration service"), 0U);
        sim_.Files().Remove("/data");
    }
    EXPECT_TRUE(config_.credentials.empty());
}

TEST_F(HostTest, CredentialsThatAreWrittenLaterAreFoundAtTheNextRead) {
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(15'000);
        sim_.Files().AddFile(kSettings, kConnection);
        Sleep(4'900);
        EXPECT_EQ(Count("Connecting"), 0U);
        Sleep(200);
        EXPECT_EQ(Count("Connected to Configuration service"), 1U);
        Stop();
    });
}

TEST_F(HostTest, ARefusedConnectionIsTriedAgainEveryTenSecondsWithAFreshReadOfTheFile) {
    sim_.Files().AddFile(kSettings, kConnection);
    config_.refuse = true;
    Serve([&] {
        Sleep(25'000);
        std::string changed = kConnection;
        changed.replace(changed.find("secret"), 6, "better");
        sim_.Files().AddFile(kSettings, changed);
        Sleep(10'000);
        config_.refuse = false;
        Sleep(10'000);
        Stop();
    });
    const Texts tried{" Info|Connecting to Configuration service on 10.0.0.1:5060...",
                      " Info|Can't connect to Configuration service on 10.0.0.1:5060",
                      " Info|Reading configuration..."};
    Texts expected{" Info|Starting service"};
    for (int round = 0; round < 4; ++round) expected.insert(expected.end(), tried.begin(), tried.end());
    expected.push_back(tried[0]);
    Texts lines = HostLines();
    ASSERT_GT(lines.size(), expected.size() + 1);
    EXPECT_EQ(Texts(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(expected.size())), expected);
    // The terminating zero goes with them.
    const std::string first("feeder:secret", 14);
    const std::string second("feeder:better", 14);
    EXPECT_EQ(config_.credentials, (Texts{first, first, first, second, second}));
}

TEST_F(HostTest, ASettingsFileThatIsGoneAtALaterReadFallsBackToTheDefaults) {
    sim_.Files().AddFile(kSettings, kConnection);
    config_.refuse = true;
    Serve([&] {
        Sleep(5'000);
        sim_.Files().Remove(kSettings);
        Sleep(30'000);
        EXPECT_EQ(Count("Reading configuration..."), 3U);
        EXPECT_EQ(Count("Connecting to Configuration service"), 1U);
        Stop();
    });
}

TEST_F(HostTest, ASettingsFileThatADiskCutsShortAtALaterReadCountsAsFarAsItWasRead) {
    sim_.Files().AddFile(kSettings, "[General]\nAppDataPath=/data\n[ConfService]\nConfPort=5060\nconfUser=feeder\n" +
                                        std::string(300, '#') + "\nconfPass=secret\n");
    config_.refuse = true;
    Serve([&] {
        Sleep(5'000);
        sim_.Files().FailReads(kSettings, EIO, 280);
        Sleep(10'000);
        EXPECT_EQ(Count("Reading configuration..."), 1U);
        EXPECT_EQ(Count("Connecting to Configuration service"), 1U) << "the password was not to be had";
        sim_.Files().ClearFaults();
        config_.refuse = false;
        Sleep(10'000);
        EXPECT_EQ(Count("Connecting to Configuration service"), 2U);
        EXPECT_EQ(Count("Connected to Configuration service"), 1U);
        Stop();
    });
}

TEST_F(HostTest, ALostConnectionIsNeverMadeAgainAndTheChannelsPlayOn) {
    sim_.Files().AddFile(kSettings, kConnection);
    config_.PutParameter(1, "IVRPROMPTPATH", "/root");
    config_.Put("AUDIOFEED", 1, {{"idaudiofeed", 1}, {"pipename", "p"}, {"thename", "x"}, {"feedtype", 3}});
    sim_.Files().AddFile("/root/Playlist/x/a.raw", RawBytes(Noise(900'500, 1)));
    Serve([&] {
        Sleep(1'000);
        Listener client("p");
        Sleep(1'000);
        config_.Exchange().Stop();
        Sleep(100);
        EXPECT_EQ(Count("[EC000001]: Connection with configuration server is lost"), 1U);
        config_.Exchange().Resume();
        Sleep(60'000);
        EXPECT_EQ(config_.credentials.size(), 1U);
        EXPECT_EQ(Count("Reading configuration..."), 0U);
        EXPECT_GT(client.Heard().size(), 480'000U);
        EXPECT_EQ(Orv::GetConfigurationState().link, Orv::ConfigurationLink::Lost);
        EXPECT_FALSE(ConfigConnection::GetList("AUDIOFEED").IsValid()) << "the tables are gone";
        Stop();
        client.Stop();
    });
    EXPECT_LE(ended_ - stopped_, kBoxTick);
    for (const LogLine& line : log_) {
        if (line.text.starts_with("[EC000001]")) {
            EXPECT_EQ(line.word, "Error");
        }
    }
}

// It was started once only: without it every try to connect failed, for as long as the process ran.
TEST_F(HostTest, TheThreadOfTheEventsThatCouldNotStartIsStartedAtTheNextTry) {
    sim_.Files().AddFile(kSettings, kConnection);
    config_.Put("AUDIOFEED", 1, {{"idaudiofeed", 1}, {"pipename", "p"}, {"thename", "x"}, {"feedtype", 3}});
    sim_.FailThreadStarts(1, 4);  // behind the driver, the service and its two watches
    Serve([&] {
        Sleep(1'000);
        EXPECT_EQ(Count("Connected to Configuration service"), 1U) << "the first try has started it";
        EXPECT_TRUE(sim_.Pipes().IsServed("p"));
        Stop();
    });
}

TEST_F(HostTest, ADisconnectOfAnotherApplicationThanTheConnectedOneChangesNothing) {
    sim_.Files().AddFile(kSettings, kConnection);
    Serve([&] {
        Sleep(1'000);
        EXPECT_EQ(Orv::OnVXDisconnect("SomebodyElse", 0, 0), 0);
        EXPECT_STREQ(ConfigConnection::GetServerName(), "ConfigService");
        EXPECT_TRUE(ConfigConnection::GetList("AUDIOFEED").IsValid());
        EXPECT_EQ(Count("[EC000001]"), 0U);
        Stop();
    });
}

TEST_F(HostTest, WhenStopAndLossComeTogetherStopWinsAndTheSecondDisconnectDoesNoHarm) {
    sim_.Files().AddFile(kSettings, kConnection);
    Serve([&] {
        Sleep(1'000);
        EXPECT_EQ(Orv::OnVXDisconnect("ConfigService", 0, 0), 0);
        Orv::RaiseStopRequest();
        stopped_ = Now();
    });
    EXPECT_LE(ended_ - stopped_, kBoxTick);
    EXPECT_EQ(Count("[EC000001]"), 1U);
    EXPECT_EQ(Count("is not registered entity"), 1U) << "the connected way out was taken";
}

// A link whose call for the rows of one table throws.
class BrokenConnector : public VX::ILinkConnector {
public:
    explicit BrokenConnector(VX::ILinkConnector& connector) : connector_(connector) {}
    std::unique_ptr<VX::ILink> Connect(const std::string& host, u32 port, const std::string& credentials,
                                       VX::ILinkEvents& events, VX::PeerInfo& peer, bool& authFailed) override {
        return std::make_unique<Link>(connector_.Connect(host, port, credentials, events, peer, authFailed));
    }

private:
    class Link : public VX::ILink {
    public:
        explicit Link(std::unique_ptr<VX::ILink> link) : link_(std::move(link)) {}
        bool Call(u32 number, const VX::ParamListHolder& request, VX::ParamListHolder& reply) override {
            const std::string table = VXGetStringValue(request.Get(), "OC");
            if (number == 7 && table == "ANNOUNCEMENT") throw std::runtime_error("no more memory");
            return link_->Call(number, request, reply);
        }
        void Close() override { link_->Close(); }

    private:
        std::unique_ptr<VX::ILink> link_;
    };

    VX::ILinkConnector& connector_;
};

TEST_F(HostTest, AnExceptionOutOfAPreCacheIsLoggedAndTheNextTableFollows) {
    BrokenConnector connector(config_.Exchange());
    VXSetConnector(&connector);
    sim_.Files().AddFile(kSettings, kConnection);
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    config_.Put("ANNOUNCEMENT", 1, {{"idannouncement", 1}, {"thename", "a"}});
    config_.Put("AUDIOFEED", 1, {{"idaudiofeed", 1}, {"pipename", "p"}, {"thename", "x"}, {"feedtype", 3}});
    Serve([&] {
        Sleep(1'000);
        EXPECT_TRUE(sim_.Pipes().IsServed("p"));
        Stop();
    });
    const Texts lines = HostLines();
    const auto broken = std::find(lines.begin(), lines.end(), "Excep|no more memory");
    ASSERT_NE(broken, lines.end());
    EXPECT_EQ(*(broken - 1), "Trace|Pre-cache 'ANNOUNCEMENT'");
    EXPECT_EQ(*(broken + 1), "Trace|Pre-cache 'AUDIOFEED'");
}

// A link whose service dies at the first call; the call comes back once the library has told the loss.
class DyingConnector : public VX::ILinkConnector {
public:
    explicit DyingConnector(VX::InProcessExchange& exchange) : exchange_(exchange) {}
    std::unique_ptr<VX::ILink> Connect(const std::string& host, u32 port, const std::string& credentials,
                                       VX::ILinkEvents& events, VX::PeerInfo& peer, bool& authFailed) override {
        auto link = exchange_.Connect(host, port, credentials, events, peer, authFailed);
        if (!dies) return link;
        return std::make_unique<Link>(exchange_, std::move(link));
    }

    bool dies = true;

private:
    class Link : public VX::ILink {
    public:
        Link(VX::InProcessExchange& exchange, std::unique_ptr<VX::ILink> link)
            : exchange_(exchange), link_(std::move(link)) {}
        bool Call(u32, const VX::ParamListHolder&, VX::ParamListHolder&) override {
            exchange_.Stop();
            Sleep(10);
            return false;
        }
        void Close() override { link_->Close(); }

    private:
        VX::InProcessExchange& exchange_;
        std::unique_ptr<VX::ILink> link_;
    };

    VX::InProcessExchange& exchange_;
};

// The state said "lost" for good of a connection that had never stood and was tried again each ten seconds.
TEST_F(HostTest, AConnectionLostWhileItIsMadeIsTriedAgainAndTheStateSaysSo) {
    DyingConnector connector(config_.Exchange());
    VXSetConnector(&connector);
    sim_.Files().AddFile(kSettings, kConnection);
    Serve([&] {
        using Orv::ConfigurationLink;
        Sleep(5'000);
        EXPECT_EQ(Count("Can't connect to Configuration service"), 1U);
        EXPECT_EQ(Orv::GetConfigurationState().link, ConfigurationLink::Waiting);
        connector.dies = false;
        config_.Exchange().Resume();
        Sleep(10'000);
        EXPECT_EQ(Count("Connected to Configuration service"), 1U);
        EXPECT_EQ(Orv::GetConfigurationState().link, ConfigurationLink::Up) << "the loss before is over";
        EXPECT_TRUE(ConfigConnection::GetList("AUDIOFEED").IsValid());
        config_.Exchange().Stop();
        Sleep(1'000);
        EXPECT_EQ(Orv::GetConfigurationState().link, ConfigurationLink::Lost);
        Stop();
    });
}

}  // namespace
