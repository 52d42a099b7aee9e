// Drives a RawFileStream as a channel does.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Projects/Common/VoIPFileEngine/RawFileStream.h"

namespace Orv::TestData {

class StreamPlayer {
public:
    static constexpr u32 Id = 77;

    // The caller's block stands between guards that no frame may touch.
    explicit StreamPlayer(u32 frameBytes = 2000)
        : frameBytes_(frameBytes), memory_(Guard + frameBytes + Guard, GuardByte), stream_(new RawFileStream(Id)) {}
    StreamPlayer(const std::string& path, u32 frameBytes) : StreamPlayer(frameBytes) { EXPECT_TRUE(Open(path)); }
    ~StreamPlayer() { EXPECT_TRUE(GuardsStand()) << "a frame was written past the caller's block"; }

    bool Open(const std::string& path) { return stream_->Open(path.c_str(), Block(), static_cast<i32>(frameBytes_)); }
    RawFileStream& Stream() { return *stream_; }
    u8* Block() { return memory_.data() + Guard; }

    // The next frame's bytes; "end" when the stream has finished, which must come with a null frame and one event.
    std::string Next() {
        ContentEventList events;
        frame_ = reinterpret_cast<const u8*>(1);
        const bool current = stream_->GetNextFrame(&frame_, events);
        if (current) {
            EXPECT_TRUE(events.empty());
            EXPECT_NE(frame_, nullptr);
            return {reinterpret_cast<const char*>(frame_), frameBytes_};
        }
        EXPECT_EQ(frame_, nullptr);
        EXPECT_EQ(events.size(), 1u);
        EXPECT_EQ(events.front().kind, 1u);
        EXPECT_EQ(events.front().id, Id);
        end_ = events.front();
        return "end";
    }
    // The event that came with the last end.
    const ContentEvent& End() const { return end_; }
    // Where the last frame lay.
    const u8* Frame() const { return frame_; }

    // All frames up to the end, which must come within `most` frames.
    std::vector<std::string> PlayToTheEnd(u32 most = 100'000) {
        std::vector<std::string> frames;
        for (std::string frame = Next(); frame != "end"; frame = Next()) {
            frames.push_back(frame);
            if (frames.size() > most) {
                ADD_FAILURE() << "no end after " << most << " frames";
                break;
            }
        }
        return frames;
    }

private:
    static constexpr u32 Guard = 512;
    static constexpr u8 GuardByte = 0xA7;

    bool GuardsStand() const {
        for (u32 i = 0; i < Guard; ++i) {
            if (memory_[i] != GuardByte || memory_[Guard + frameBytes_ + i] != GuardByte) return false;
        }
        return true;
    }

    u32 frameBytes_;
    std::vector<u8> memory_;
    MTObjects::THolder<RawFileStream> stream_;
    const u8* frame_ = nullptr;
    ContentEvent end_{};
};

}  // namespace Orv::TestData
