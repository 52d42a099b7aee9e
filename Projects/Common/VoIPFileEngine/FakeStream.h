// The null object of the file engine.
#pragma once

#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"

namespace Orv {

// Stands in for every source that could not be opened: finished from the start, so that a list moves on in the same
// tick.
class FakeStream : public IMMFileStreamReader {
public:
    explicit FakeStream(u32 id = 0) noexcept : IMMFileStreamReader(id) {}

    bool Open(const char*, void*, i32) override { return false; }
    bool GetNextFrame(const u8** frame, ContentEventList& events) override {
        *frame = nullptr;
        AppendFinished(events);
        return false;
    }
    void Rewind() override {}
    std::string GetName() override { return {}; }
    bool IsOpen() override { return false; }
    void Close() override {}
};

}  // namespace Orv
