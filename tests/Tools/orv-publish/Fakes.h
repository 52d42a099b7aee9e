// Streams, commands and clients for the tests of orv-publish, in simulated time.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Command.h"
#include "Platform/NamedPipe.h"
#include "Tools/orv-publish/Source.h"
#include "tests/Tools/orv-publish/SoundBytes.h"

namespace PublishTest {

using Messages = std::vector<std::string>;

// Gives scripted pieces, one a read; "" is a read that finds nothing. Behind the last one it ends, or stays silent.
class ScriptedStream : public Platform::IInputStream {
public:
    explicit ScriptedStream(std::deque<std::string> pieces, bool ends = true, Platform::SystemError error = 0)
        : pieces_(std::move(pieces)), ends_(ends), error_(error) {}

    Outcome Read(void* destination, u64 size, u32, u64& taken, Platform::SystemError& error) override {
        taken = 0;
        error = 0;
        if (pieces_.empty()) {
            if (!ends_) return Outcome::TimedOut;
            error = error_;
            return Outcome::End;
        }
        std::string& piece = pieces_.front();
        taken = std::min<u64>(size, piece.size());
        piece.copy(static_cast<char*>(destination), taken);
        piece.erase(0, taken);
        const bool over = piece.empty();
        if (over) pieces_.pop_front();
        return taken == 0 ? Outcome::TimedOut : Outcome::Data;
    }

private:
    std::deque<std::string> pieces_;
    const bool ends_;
    const Platform::SystemError error_;
};

// Gives `total` bytes of Sound(), at most `bytesPerMillisecond` for the time that has passed; 0: as fast as asked.
class RatedSource : public Orv::ISource {
public:
    RatedSource(u64 total, u64 bytesPerMillisecond, i32 result = 0)
        : sound_(Sound(total)), rate_(bytesPerMillisecond), result_(result) {}

    Outcome Read(u8* destination, u64 size, u64& taken) override {
        taken = 0;
        if (started_ == 0) started_ = Platform::SteadyMilliseconds();
        const u64 there = rate_ == 0
                              ? sound_.size()
                              : std::min<u64>(sound_.size(), (Platform::SteadyMilliseconds() - started_) * rate_);
        if (given_ == sound_.size()) return Outcome::End;
        taken = std::min(size, there - given_) & ~u64{1};
        sound_.copy(reinterpret_cast<char*>(destination), taken, given_);
        given_ += taken;
        return taken == 0 ? Outcome::Nothing : Outcome::Data;
    }
    i32 Result() const override { return result_; }
    u64 Given() const { return given_; }
    const std::string& Whole() const { return sound_; }

private:
    const std::string sound_;
    const u64 rate_;
    const i32 result_;
    u64 given_ = 0;
    u64 started_ = 0;
};

// All that a client can read now; `ended` tells whether the end has come.
inline std::string ReadNow(Platform::IPipeClient& client, bool& ended) {
    std::string all;
    char bytes[4096];
    for (;;) {
        u64 taken = 0;
        Platform::SystemError error = 0;
        const auto outcome = client.Read(bytes, sizeof bytes, 0, taken, error);
        ended = outcome == Platform::IPipeClient::Outcome::Closed;
        if (outcome != Platform::IPipeClient::Outcome::Data) return all;
        all.append(bytes, taken);
    }
}
inline std::string ReadNow(Platform::IPipeClient& client) {
    bool ended = false;
    return ReadNow(client, ended);
}

inline std::unique_ptr<Platform::IPipeClient> Connect(const std::string& name) {
    Platform::SystemError error = 0;
    auto client = Platform::ConnectPipe(name, error);
    EXPECT_NE(client, nullptr) << Platform::SystemErrorText(error);
    return client;
}

}  // namespace PublishTest
