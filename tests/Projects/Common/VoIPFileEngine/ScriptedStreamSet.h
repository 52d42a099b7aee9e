// A stream set over readers from a script: its program has a CreateStreamReader() of its own, which takes names like
// "tone 1000 4", a reader of 4 frames whose samples are all 1000, "gap 3", 3 null frames, and fails on anything else.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Projects/Common/VoIPFileEngine/MMStreamSetReader.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/ReaderFakes.h"

namespace Orv {

inline constexpr u32 kForEver = 1000000;

class ScriptedReader : public IMMFileStreamReader {
public:
    ScriptedReader(u32 id, const std::string& kind, i16 sample, u32 frames)
        : IMMFileStreamReader(id), silent_(kind == "gap"), frames_(frames), name_(kind + std::to_string(sample)) {
        ++alive;
        for (u64 i = 0; i < MaxFrameBytes / 2; ++i) std::memcpy(data_ + 1 + i * 2, &sample, 2);
    }
    ~ScriptedReader() override {
        --alive;
        std::memset(data_, 0xEE, sizeof data_);
    }

    bool Open(const char*, void* buffer, i32 frameBytes) override {
        lastBuffer = buffer;
        lastFrameBytes = frameBytes;
        return true;
    }
    bool GetNextFrame(const u8** frame, ContentEventList& events) override {
        *frame = nullptr;
        if (position_ == frames_) {
            AppendFinished(events);
            return false;
        }
        ++position_;
        if (!silent_) *frame = data_ + 1;  // an odd address
        return true;
    }
    void Rewind() override {
        ++rewinds;
        position_ = 0;
    }
    std::string GetName() override { return name_; }
    bool IsOpen() override { return true; }
    void Close() override { ++closes; }

    static inline int alive = 0;
    static inline int rewinds = 0;
    static inline int closes = 0;
    static inline void* lastBuffer = nullptr;
    static inline i32 lastFrameBytes = -1;

private:
    const bool silent_;
    const u32 frames_;
    const std::string name_;
    u32 position_ = 0;
    u8 data_[MaxFrameBytes + 1];
};

inline StreamItem Tone(u32 id, i16 sample, u32 frames) {
    return {id, "tone " + std::to_string(sample) + " " + std::to_string(frames), false};
}
inline StreamItem Gap(u32 id, u32 frames) {
    return {id, "gap 0 " + std::to_string(frames), false};
}
inline StreamItem Bad(u32 id) {
    return {id, "bad", false};
}

class StreamSet : public testing::Test {
protected:
    StreamSet() {
        ScriptedReader::rewinds = 0;
        ScriptedReader::closes = 0;
        manager_->Prepare(buffer_, 2000);
        log_.Take();
    }
    ~StreamSet() override {
        manager_ = nullptr;
        reader_ = nullptr;
        EXPECT_EQ(ScriptedReader::alive, 0);
        EXPECT_EQ(ScriptedReader::closes, 0);
    }

    TestData::Pulled Next() { return TestData::Pull(*reader_); }
    // Pulls past the fade-in of a main list: 10 frames of 1000 samples.
    void FadeIn() {
        for (int i = 0; i < 10; ++i) Next();
    }
    bool InBuffer(const TestData::Pulled& pulled) const { return pulled.frame == buffer_; }

    TestData::EngineLog log_;
    u8 buffer_[2000] = {};
    MTObjects::THolder<IMMStreamManager> manager_ = CreateStreamSet();
    MTObjects::THolder<IMMFileStreamReader> reader_ = manager_->GetReader();
};

}  // namespace Orv
