// The whole service on simulated time, with a Configuration service beside it.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "AudioFeeder/AudioFeederHost.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/SharedValues.h"
#include "ServiceProcess/Log.h"
#include "tests/AudioFeeder/FakeConfigService.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace FeederTest {

using Texts = std::vector<std::string>;

// A music box looks at its stop flag once in so many milliseconds.
inline constexpr u64 kBoxTick = 10;
inline constexpr char kSettings[] = "/Bin/OrvPhoneSystem.ini";
inline constexpr char kConnection[] =
    "[General]\nAppDataPath=/data\n"
    "[ConfService]\nconfNIC=10.0.0.1\nConfPort=5060\nconfUser=feeder\nconfPass=secret\n";
inline constexpr char kNoConnection[] = "[General]\nAppDataPath=/data\n";

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

}  // namespace FeederTest
