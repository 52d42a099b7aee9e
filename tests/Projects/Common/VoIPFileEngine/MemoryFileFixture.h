// Files in memory as tests like them, and a world without others.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "Platform/sim/Simulation.h"
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"

namespace Orv {

// A file in memory, to be set as a test likes.
struct FakeFile : IMemoryFile {
    explicit FakeFile(const std::string& bytes, bool isLocked = false) : bytes_(bytes) {
        name = "fake";
        data = reinterpret_cast<const u8*>(bytes_.data());
        size = bytes_.size();
        locked = isLocked;
    }
    bool IsValid() const override { return valid; }
    bool valid = true;

private:
    std::string bytes_;
};

class MemoryFileFixture : public testing::Test {
protected:
    MemoryFileFixture() {
        Platform::Sim::ResetProcessWorld();
        MemoryFileCache::Instance().Clear();
    }
    ~MemoryFileFixture() override { MemoryFileCache::Instance().Clear(); }

    TestData::EngineLog log_;
    u8 untouched_[2048] = {};  // the caller's buffer, which a reader of such a file never uses
};

}  // namespace Orv
