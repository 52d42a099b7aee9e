// The place of a text item in a content list.
#pragma once

#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"

namespace Orv {

// Keeps its text and gives no audio: finished from the start.
class MMTextStreamReader : public IMMFileStreamReader {
public:
    explicit MMTextStreamReader(u32 id = 0) noexcept : IMMFileStreamReader(id) {}

    bool Open(const char* name, void*, i32) override {
        text_ = name;
        return false;
    }
    bool GetNextFrame(const u8** frame, ContentEventList& events) override {
        *frame = nullptr;
        AppendFinished(events);
        return false;
    }
    void Rewind() override {}
    std::string GetName() override { return "text"; }
    bool IsOpen() override { return ready_; }
    void Close() override {}

private:
    std::string text_;
    bool ready_ = false;  // nothing turns text into audio
};

}  // namespace Orv
