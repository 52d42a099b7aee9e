// A process that serves a live source, and the world in which it does.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/NamedPipe.h"
#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/ReaderFakes.h"

namespace Orv::TestData {

inline constexpr char kRadio[] = "\\\\.\\pipe\\radio";

// `count` bytes of a stream from byte `position`. No two stretches of it within 100 KB are alike.
inline std::string LiveBytes(u64 position, u64 count) {
    std::string bytes;
    for (u64 n = position; n < position + count; ++n) bytes += static_cast<char>(n * 31 + n / 256 * 7 + 1);
    return bytes;
}

inline std::string FrameBytes(const u8* frame, u64 count) {
    return {reinterpret_cast<const char*>(frame), count};
}

// Serves one name to one client after the other. Simulated threads only.
class LiveSource {
public:
    explicit LiveSource(std::string name = "radio") : name_(std::move(name)) { Serve(); }

    // Begins to serve; a client that waits for the name is there 100 ms later.
    void Serve() {
        endpoint_ = Platform::CreatePipeEndpoint(name_);
        Platform::SystemError error = 0;
        instance_ = endpoint_->CreateInstance(error);
        ASSERT_NE(instance_, nullptr);
    }
    // Waits for the client, for a second at most.
    void Accept() {
        Platform::SystemError error = 0;
        for (int i = 0; i < 1000 && instance_->PollConnect(error) != Platform::ConnectState::Connected; ++i) {
            Platform::SleepMilliseconds(1);
        }
        ASSERT_EQ(instance_->PollConnect(error), Platform::ConnectState::Connected);
    }
    // Sends and does not let anybody else run after the last byte.
    void Send(const std::string& bytes) {
        for (u64 done = 0; done < bytes.size();) {
            const i64 taken = instance_->Write(bytes.data() + done, std::min<u64>(2000, bytes.size() - done));
            ASSERT_GT(taken, 0);
            done += static_cast<u64>(taken);
        }
    }
    // The same, and lets the client read all of it.
    void SendAndSettle(const std::string& bytes) {
        Send(bytes);
        Platform::SleepMilliseconds(1);
    }
    // Ends the connection and the name.
    void Leave() {
        instance_.reset();
        endpoint_.reset();
    }

private:
    const std::string name_;
    std::unique_ptr<Platform::IPipeEndpoint> endpoint_;
    std::unique_ptr<Platform::IPipeInstance> instance_;
};

class LiveTest : public testing::Test {
protected:
    void Run(const std::function<void()>& body) { sim_.Run(body); }
    u64 Milliseconds() const { return sim_.Elapsed() / 1'000'000; }
    Platform::Sim::PipeCounters Pipes() { return sim_.Pipes().Counters(); }

    static std::string Line(const std::string& word, const std::string& text) {
        return word + " VoIPFileEngine/PipeStream: " + text;
    }
    // A line that is about the connection to kRadio.
    static std::string Radio(const std::string& word, const std::string& text) {
        return Line(word, std::string("'") + kRadio + "'. " + text);
    }

    Platform::Sim::Simulation sim_;
    EngineLog log_;
};

}  // namespace Orv::TestData
