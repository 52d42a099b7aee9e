// The life of the service on simulated time, as the service manager and the log see it.
#include "AudioFeeder/AudioFeederHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "AudioFeeder/ConfigurationState.h"
#include "AudioFeeder/LibraryListeners.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/Preload.h"
#include "AudioFeeder/RequestFlags.h"
#include "AudioFeeder/SharedValues.h"
#include "ConfigClient/ConfigConnection.h"
#include "ConfigClient/ObjectList.h"
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "ServiceProcess/Log.h"
#include "tests/AudioFeeder/FakeConfigService.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using Texts = std::vector<std::string>;

// A music box looks at its stop flag once in so many milliseconds.
constexpr u64 kBoxTick = 10;
constexpr char kSettings[] = "/Bin/OrvPhoneSystem.ini";
constexpr char kConnection[] =
    "[General]\nAppDataPath=/data\n"
    "[ConfService]\nconfNIC=10.0.0.1\nConfPort=5060\nconfUser=feeder\nconfPass=secret\n";
constexpr char kNoConnection[] = "[General]\nAppDataPath=/data\n";

class HostTest : public testing::Test {
protected:
    void SetUp() override { VXSetConnector(&config_.Exchange()); }
    // Runs the whole service, with `script` on a thread beside it; the script ends the service by Stop().
    void Serve(const std::function<void()>& script) {
        sim_.Run([&] {
            Orv::channelsStopping.store(false);
            Orv::LogWriter::Instance().SetLogLevel(3);
            sim_.Service().RunAsService(true);
            Platform::Thread driver("driver", script);
            Orv::MakeAudioFeederHost(0, nullptr);
            Orv::RunServices();
            ended_ = Now();
            Orv::ClearServices();
            driver.Join();
            log_ = ReadLogNow();
            Orv::LogWriter::Instance().CloseLog();
            Orv::IPipeManager::StopAll();
            Orv::IPipeManager::Instance() = nullptr;
            Orv::channelsStopping.store(false);
        });
    }
    void Stop(u32 control = 1) {
        stopped_ = Now();
        EXPECT_EQ(sim_.Service().SendControl(control), 0U);
    }
    std::vector<LogLine> ReadLogNow() {
        return sim_.Files().Exists(folder_) ? ReadLog(folder_) : std::vector<LogLine>();
    }
    // The host's own lines, "<word>|<text>".
    Texts HostLines() {
        Texts lines;
        for (const LogLine& line : log_.empty() ? ReadLogNow() : log_) {
            if (line.source == "OrvAudioFeeder" && line.text.find("VoIPFileEngine") == std::string::npos) {
                lines.push_back(line.word + "|" + line.text);
            }
        }
        return lines;
    }
    u64 Count(const std::string& text) {
        u64 count = 0;
        for (const LogLine& line : log_.empty() ? ReadLogNow() : log_) {
            if (line.text.find(text) != std::string::npos) ++count;
        }
        return count;
    }
    std::vector<u32> States() {
        std::vector<u32> states;
        for (const auto& status : sim_.Service().Statuses()) states.push_back(status.currentState);
        return states;
    }

    Platform::Sim::Simulation sim_;
    FakeConfigService config_;
    std::string folder_ = "/data/Data/Logs";
    std::vector<LogLine> log_;
    u64 stopped_ = 0;
    u64 ended_ = 0;
};

TEST_F(HostTest, WithoutItsSettingsFileTheServiceStopsWithoutAWord) {
    Serve([] { Sleep(1'000); });
    EXPECT_EQ(States(), (std::vector<u32>{1}));
    EXPECT_EQ(sim_.Service().Statuses()[0].exitCode, 0U);
    EXPECT_FALSE(sim_.Files().Exists("/data"));
    EXPECT_TRUE(log_.empty());
}

// It was an exception, which on the service's thread aborted the process, again and again as the manager restarted it.
TEST_F(HostTest, WithASettingsFileThatADiskCutsShortTheServiceStopsWithASentence) {
    sim_.Files().AddFile(kSettings,
                         std::string(kNoConnection) + std::string(300, '#') + "\n[ConfService]\nConfPort=5\n");
    for (const u64 firstBad : {0, 280}) {
        sim_.Files().FailReads(kSettings, EIO, firstBad);
        testing::internal::CaptureStderr();
        Serve([] { Sleep(1'000); });
        const std::string said = testing::internal::GetCapturedStderr();
        sim_.Files().ClearFaults();
        EXPECT_NE(said.find("OrvPhoneSystem.ini cannot be read to its end\n"), std::string::npos) << said;
        const std::vector<u32> states = States();
        ASSERT_FALSE(states.empty());
        EXPECT_EQ(std::count(states.begin(), states.end(), 1U), static_cast<std::ptrdiff_t>(states.size()));
        EXPECT_EQ(sim_.Service().Statuses().back().exitCode, 0U);
        EXPECT_FALSE(sim_.Files().Exists("/data"));
        EXPECT_TRUE(log_.empty());
    }
}

TEST_F(HostTest, TheStatesAreStartPendingRunningAndThenTwiceStopPendingAndStopped) {
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(1'000);
        EXPECT_EQ(States(), (std::vector<u32>{2, 4})) << "it runs while the Configuration service is away";
        Stop();
    });
    EXPECT_EQ(States(), (std::vector<u32>{2, 4, 3, 3, 1}));
}

TEST_F(HostTest, TheLogBeginsBehindTheTwoLinesThatReachNoFile) {
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(1'000);
        Stop();
    });
    ASSERT_GE(log_.size(), 2U);
    EXPECT_EQ(log_[0].text, "New log file has started");
    EXPECT_EQ(log_[1].text, "Starting service");
    EXPECT_EQ(HostLines(), (Texts{" Info|Starting service", " Info|Shutdown service"}));
    EXPECT_EQ(Count("Set default prompts path from ini."), 0U);
    EXPECT_EQ(Count("Root path updated"), 0U);
}

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

TEST_F(HostTest, AStopDuringTheTenSecondsEndsTheWaitAtOnceWithoutTheDeletionOfTheConfiguration) {
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(13'700);
        Stop();
    });
    EXPECT_LE(ended_ - stopped_, kBoxTick);
    // The deletion would be a first StopAll, and the second one would not find the default set any more.
    EXPECT_EQ(Count("is not registered entity"), 0U);
    EXPECT_EQ(Count("Shutdown service"), 1U);
}

TEST_F(HostTest, AShutdownOfTheMachineIsAStopToo) {
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(500);
        Stop(5);
    });
    EXPECT_EQ(States(), (std::vector<u32>{2, 4, 3, 3, 1}));
}

TEST_F(HostTest, AnyOtherControlIsAnsweredWithRunningAndDoesNothing) {
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(500);
        for (const u32 control : {2U, 3U, 4U, 0U}) sim_.Service().SendControl(control);
        Sleep(500);
        EXPECT_EQ(States(), (std::vector<u32>{2, 4, 4, 4, 4, 4}));
        Stop();
    });
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

TEST_F(HostTest, OnceConnectedTheTablesAreIndexedReadInTheirOrderAndEverythingIsBuilt) {
    sim_.Files().AddFile(kSettings, kConnection);
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    config_.Put("AUDIOFEED", 1, {{"idaudiofeed", 1}, {"pipename", "p"}, {"thename", "x"}, {"feedtype", 3}});
    Serve([&] {
        Sleep(1'000);
        EXPECT_TRUE(sim_.Pipes().IsServed("p"));
        Stop();
    });
    const Texts expected{" Info|Starting service",
                         " Info|Connecting to Configuration service on 10.0.0.1:5060...",
                         " Info|[EC200001]: Configuration server is connected:\n    application:ConfigService\n"
                         "    local:in process\n    remote:10.0.0.1:5060",
                         " Info|Connected to Configuration service 'ConfigService'",
                         "Trace|Pre-cache 'ANNOUNCEMENT'",
                         "Trace|Pre-cache 'AUDIOFEED'",
                         "Trace|Pre-cache 'AUDIOFEEDCONTENT'",
                         "Trace|Pre-cache 'PARAMETER'",
                         " Info|Change log verbosity to 3",
                         " Info|Shutdown service"};
    EXPECT_EQ(HostLines(), expected);
    // Ids at the subscription, in one order; rows at the pre-cache, in the other; and no search leaves the process.
    EXPECT_EQ(config_.calls, (Texts{"9 AUDIOFEED", "9 AUDIOFEEDCONTENT", "9 ANNOUNCEMENT", "9 PARAMETER", "7 AUDIOFEED",
                                    "7 PARAMETER"}));
}

TEST_F(HostTest, AStopOfTheConnectedServiceTakesEverythingDownAndTheSecondStopAllFindsNothing) {
    sim_.Files().AddFile(kSettings, kConnection);
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    config_.Put("AUDIOFEED", 1, {{"idaudiofeed", 1}, {"pipename", "p"}, {"thename", "x"}, {"feedtype", 3}});
    Serve([&] {
        Sleep(2'000);
        Stop();
    });
    EXPECT_LE(ended_ - stopped_, kBoxTick) << "nothing waits";
    EXPECT_EQ(Count("is not registered entity"), 1U);
    EXPECT_EQ(Count("]:Destroyed"), 1U);
    EXPECT_TRUE(sim_.Pipes().ServedNames().empty());
    EXPECT_STREQ(ConfigConnection::GetServerName(), "");
    // The channel is gone before the service says that it shuts down.
    std::size_t destroyed = 0;
    std::size_t shutdown = 0;
    for (std::size_t line = 0; line < log_.size(); ++line) {
        if (log_[line].text.find("]:Destroyed") != std::string::npos) destroyed = line;
        if (log_[line].text == "Shutdown service") shutdown = line;
    }
    EXPECT_LT(destroyed, shutdown);
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

// The exception went through the whole reload: no feed was built, and none until its row changed.
TEST_F(HostTest, AMissingThreadOfTheDefaultStreamTakesNoFeedWithIt) {
    sim_.Files().AddFile(kSettings, kConnection);
    config_.PutParameter(1, "DEFAULTAUDIOFILE", "/root/a.raw");
    config_.Put("AUDIOFEED", 1, {{"idaudiofeed", 1}, {"pipename", "p"}, {"thename", "x"}, {"feedtype", 0}});
    sim_.Files().AddFile("/root/a.raw", RawBytes(Noise(24'000, 1)));
    sim_.FailThreadStarts(1, 5);  // behind those and that of the events
    Serve([&] {
        Sleep(1'000);
        Samples heard = Client("p").ReadBlocks(12);
        EXPECT_EQ(Count("Cannot start thread of musicbox 'defaultset:'"), 1U);
        // It starts with the file that it gets next; its first chunk comes a second later.
        heard.erase(heard.begin(), std::find_if(heard.begin(), heard.end(), [](i16 sample) { return sample != 0; }));
        EXPECT_GT(heard.size(), 1'000U) << "the default stream is heard";
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

TEST_F(HostTest, AChangeOfARowReachesItsChannelAndARemovedRowEndsIt) {
    sim_.Files().AddFile(kSettings, kConnection);
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    Serve([&] {
        Sleep(1'000);
        config_.Put("AUDIOFEED", 7, {{"idaudiofeed", 7}, {"pipename", "p"}, {"thename", "x"}, {"nonstop", 1}});
        config_.Tell("AUDIOFEED", "Inserted", 7);
        Sleep(500);
        EXPECT_TRUE(sim_.Pipes().IsServed("p"));
        config_.Put("AUDIOFEED", 7,
                    {{"idaudiofeed", 7}, {"pipename", "p"}, {"thename", "x"}, {"nonstop", 1}, {"maxvolume", 50}});
        config_.Tell("AUDIOFEED", "Updated", 7);
        Sleep(500);
        EXPECT_EQ(Count("MaxVolume=50%, autogain disabled"), 1U);
        EXPECT_EQ(Count("]:Destroyed"), 0U);
        config_.Erase("AUDIOFEED", 7);
        config_.Tell("AUDIOFEED", "Deleted", 7);
        Sleep(500);
        EXPECT_FALSE(sim_.Pipes().IsServed("p"));
        Stop();
    });
}

TEST_F(HostTest, ADataPathWithoutAClosingSlashGetsOne) {
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(10);
        EXPECT_EQ(Orv::RootPath(), "/data/Data/Ivr/Prompts");
        Stop();
    });
    EXPECT_EQ(sim_.Files().List("/data/Data/Logs").size(), 1U) << "the closed file has gone to its backup folder";
}

TEST_F(HostTest, ADataPathWithAClosingSlashOrBackslashStaysAsItIs) {
    sim_.Files().AddFile(kSettings, "[General]\nAppDataPath=/data\\\n");
    Serve([&] {
        Sleep(10);
        EXPECT_EQ(Orv::RootPath(), "/data\\Data/Ivr/Prompts");
        Stop();
    });
    EXPECT_GE(log_.size(), 3U) << "the log is below the same folder";
    sim_.Files().AddFile(kSettings, "[General]\nAppDataPath=/other/\n");
    folder_ = "/other/Data/Logs";
    Serve([&] {
        Sleep(10);
        EXPECT_EQ(Orv::RootPath(), "/other/Data/Ivr/Prompts");
        Stop();
    });
}

TEST_F(HostTest, WithoutADataPathTheWorkingDirectoryCounts) {
    sim_.Files().AddFile(kSettings, "\n");
    folder_ = "/Data/Logs";
    Serve([&] {
        Sleep(10);
        EXPECT_EQ(Orv::RootPath(), "./Data/Ivr/Prompts");
        Stop();
    });
    EXPECT_GE(log_.size(), 3U);
}

TEST_F(HostTest, TheFolderOfThePipesIsTakenFromTheSettingsBeforeAnyChannel) {
    const std::string before = Platform::PipeFolder();
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(10);
        EXPECT_EQ(Platform::PipeFolder(), before) << "without the key it stays";
        Stop();
    });
    sim_.Files().AddFile(kSettings, std::string(kNoConnection) + "PipePath=/tmp/pipes\n");
    Serve([&] {
        Sleep(10);
        EXPECT_EQ(Platform::PipeFolder(), "/tmp/pipes");
        Stop();
    });
    Platform::SetPipeFolder(before);
}

TEST_F(HostTest, TheFilesToPreloadAreTakenFromTheSettingsAndLoadedBeforeTheFirstChannel) {
    sim_.Files().AddFile(kSettings, std::string(kConnection) + "[General]\nPreloadFiles=\"Playlist/x\"\n");
    sim_.Files().AddFile("/data/Data/Ivr/Prompts/Playlist/x/a.wav", WavBytes(Noise(4000, 1)));
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    config_.Put("AUDIOFEED", 1, {{"idaudiofeed", 1}, {"pipename", "p"}, {"thename", "x"}, {"feedtype", 3}});
    Serve([&] {
        Sleep(1'000);
        Stop();
    });
    EXPECT_EQ(Count("Files preloaded: 1, 8044 bytes"), 1U);
    EXPECT_GE(Count("/a.wav taken from the cache"), 1U);
    EXPECT_EQ(Count("opened as 8000 Hz"), 0U);
    Orv::SetPreload({});
    Orv::MemoryFileCache::Instance().Clear();
}

TEST_F(HostTest, TheTimeForClientsThatTakeNothingIsTakenFromTheSettingsOnceAtTheStart) {
    sim_.Files().AddFile(kSettings, std::string(kNoConnection) + "[General]\nClientStallSeconds=30\n");
    Serve([&] {
        Sleep(1'000);
        EXPECT_EQ(Orv::ClientStallSeconds(), 30U);
        sim_.Files().AddFile(kSettings, std::string(kNoConnection) + "[General]\nClientStallSeconds=40\n");
        Sleep(15'000);
        EXPECT_EQ(Orv::ClientStallSeconds(), 30U) << "reading the connection's keys again changes nothing";
        Stop();
    });
    EXPECT_EQ(Count("ClientStallSeconds"), 0U);
    Orv::SetClientStallSeconds(0);
}

TEST_F(HostTest, ATimeForClientsThatIsNoNumberIsToldAndCountsAsNone) {
    sim_.Files().AddFile(kSettings, std::string(kNoConnection) + "[General]\nClientStallSeconds=0\n");
    Serve([&] {
        Sleep(1'000);
        EXPECT_EQ(Orv::ClientStallSeconds(), 0U);
        Stop();
    });
    EXPECT_EQ(Count("ClientStallSeconds is no number from 1 to 86400, no client is ended for taking nothing"), 1U);
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
