// The answers to HTTP requests, and the key that asks for them.
#include "AudioFeeder/StatusServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AudioFeeder/AudioFeederHost.h"
#include "AudioFeeder/FeedReport.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/SharedValues.h"
#include "AudioFeeder/StateSnapshot.h"
#include "Platform/LocalServer.h"
#include "ServiceProcess/Log.h"
#include "tests/AudioFeeder/FakeConfigService.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string AnswerTo(const std::string& request) {
    std::string answer;
    EXPECT_TRUE(Orv::AnswerStatusRequest(request, false, answer));
    return answer;
}

TEST(StatusRequest, IsCompleteWithItsEmptyLine) {
    std::string answer;
    EXPECT_FALSE(Orv::AnswerStatusRequest("GET /status HTTP/1.0\r\nHost: x\r\n", false, answer));
    EXPECT_TRUE(Orv::AnswerStatusRequest("GET /status HTTP/1.0\r\nHost: x\r\n", true, answer));
    EXPECT_THAT(answer, StartsWith("HTTP/1.0 400 "));
}

TEST(StatusRequest, GetsTheStateInItsTwoForms) {
    const std::string json = AnswerTo("GET /status HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EXPECT_THAT(json, StartsWith("HTTP/1.0 200 OK\r\nContent-Type: application/json\r\nContent-Length: "));
    EXPECT_THAT(json, HasSubstr("\r\n\r\n{\"version\":\"1.0.0\""));
    const std::string metrics = AnswerTo("GET /metrics?x=1 HTTP/1.0\n\n");
    EXPECT_THAT(metrics, HasSubstr("Content-Type: text/plain; version=0.0.4; charset=utf-8\r\n"));
    EXPECT_THAT(metrics, HasSubstr("\r\n\r\n# HELP orv_build_info "));
    const std::string head = AnswerTo("HEAD /status HTTP/1.0\r\n\r\n");
    EXPECT_EQ(head.substr(head.size() - 4), "\r\n\r\n");
}

TEST(StatusRequest, EverythingElseIsRefused) {
    EXPECT_THAT(AnswerTo("GET / HTTP/1.0\r\n\r\n"), StartsWith("HTTP/1.0 404 "));
    EXPECT_THAT(AnswerTo("POST /status HTTP/1.0\r\n\r\n"), StartsWith("HTTP/1.0 405 "));
    EXPECT_THAT(AnswerTo("\r\n\r\n"), StartsWith("HTTP/1.0 405 "));
    EXPECT_THAT(AnswerTo("GET\r\n\r\n"), StartsWith("HTTP/1.0 404 "));
}

// Goal: with the key the whole service tells its state from its start to its end; without it, nothing is there.
class StatusKeyTest : public testing::Test {
protected:
    void Serve(const std::string& general, const std::function<void()>& script) {
        VXSetConnector(&config_.Exchange());
        config_.Put("AUDIOFEED", 1, {{"idaudiofeed", 1}, {"pipename", "hold"}, {"thename", "x"}, {"feedtype", 3}});
        sim_.Files().AddFile("/data/Data/Ivr/Prompts/Playlist/x/a.wav", WavBytes(Constant(100'000, 1000)));
        sim_.Files().AddFile("/Bin/OrvPhoneSystem.ini",
                             "[General]\nAppDataPath=/data\n" + general +
                                 "[ConfService]\nconfNIC=10.0.0.1\nConfPort=5060\nconfUser=feeder\nconfPass=secret\n");
        sim_.Run([&] {
            Orv::channelsStopping.store(false);
            sim_.Service().RunAsService(true);
            Platform::Thread driver("driver", script);
            Orv::MakeAudioFeederHost(0, nullptr);
            Orv::RunServices();
            Orv::ClearServices();
            driver.Join();
            Orv::LogWriter::Instance().CloseLog();
            Orv::IPipeManager::Instance() = nullptr;
            Orv::channelsStopping.store(false);
            Orv::WantFeedReports(false);
        });
    }
    static std::string Ask(const std::string& path) {
        std::string answer;
        Platform::SystemError error = 0;
        Platform::AskLocalServer("/run/status", "GET " + path + " HTTP/1.0\r\n\r\n", 1000, 1 << 20, answer, error);
        return answer;
    }

    Platform::Sim::Simulation sim_;
    FakeConfigService config_;
};

TEST_F(StatusKeyTest, TheStateIsToldFromTheStartAndTheLinkShowsWaitingUpAndLost) {
    config_.refuse = true;
    Serve("StatusPath=/run/status\n", [&] {
        Sleep(1'000);
        EXPECT_THAT(Ask("/status"), HasSubstr("\"configuration\":{\"state\":\"waiting\""));
        config_.refuse = false;
        Sleep(20'000);
        EXPECT_THAT(Ask("/status"), HasSubstr("\"configuration\":{\"state\":\"up\",\"text\":\"up\""));
        EXPECT_THAT(Ask("/status"), HasSubstr("\"pipename\":\"hold\""));
        EXPECT_THAT(Ask("/metrics"), HasSubstr("orv_feed_up{feed=\"hold\"} 1\n"));
        config_.Exchange().Stop();
        Sleep(1'000);
        EXPECT_THAT(Ask("/status"), HasSubstr("\"text\":\"configuration lost, playing on\""));
        EXPECT_EQ(sim_.Service().SendControl(1), 0U);
    });
    EXPECT_EQ(Ask("/status"), "") << "it ends with the service";
}

TEST_F(StatusKeyTest, AFeedWithoutAThreadIsDeadUntilItIsBuiltAnew) {
    Serve("StatusPath=/run/status\n", [&] {
        for (u32 tries = 0; tries < 200 && Ask("/status").find("\"pipename\":\"hold\"") == std::string::npos; ++tries) {
            Sleep(100);
        }
        EXPECT_THAT(Ask("/status"), HasSubstr("\"state\":\"idle\""));
        const auto rebuild = [&] {
            const i32 id = 1;
            VX::ParamListHolder rows;
            rows.NewList();
            VXSetBinaryValue(rows.Get(), "DELETED", &id, sizeof id);
            VXSetBinaryValue(rows.Get(), "UPDATED", &id, sizeof id);
            VX::ParamListHolder event;
            event.NewList();
            VXSetInt64Value(event.Get(), "__TRN", 2);
            VXSetHandleValue(event.Get(), "AUDIOFEED", rows.Get());
            config_.Exchange().Raise("BATCHUPDATE", event);
            Sleep(1'000);
        };
        sim_.FailThreadStarts(1);
        rebuild();
        EXPECT_THAT(Ask("/status"), HasSubstr("\"state\":\"dead\""));
        EXPECT_THAT(Ask("/metrics"), HasSubstr("orv_feed_up{feed=\"hold\"} 0\n"));
        rebuild();
        EXPECT_THAT(Ask("/status"), HasSubstr("\"state\":\"idle\""));
        EXPECT_EQ(sim_.Service().SendControl(1), 0U);
    });
}

TEST_F(StatusKeyTest, WithoutTheKeyNothingIsServedAndNoChannelReports) {
    Serve("", [&] {
        Sleep(20'000);
        EXPECT_EQ(Ask("/status"), "");
        EXPECT_TRUE(Orv::IPipeManager::Existing()->Reports().empty());
        EXPECT_EQ(sim_.Service().SendControl(1), 0U);
    });
}

}  // namespace
