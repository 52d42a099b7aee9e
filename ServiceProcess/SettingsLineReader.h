// Takes a file apart into lines, through a small buffer: lines have no limit.
#pragma once

#include <array>
#include <string>

#include "Platform/Files.h"

namespace Orv {

// One thread. The file must outlive it.
class SettingsLineReader {
public:
    explicit SettingsLineReader(Platform::IReadFile& file) : file_(file) {}

    // The next line without its line feed. False at the end; a last line without a line feed counts. Waits for the
    // disk.
    bool Next(std::string& line);
    // Behind the last line: whether the whole file has come, as long as it was when it was opened.
    bool ReadAll() const { return position_ >= file_.Size(); }

private:
    bool Refill();

    Platform::IReadFile& file_;
    std::array<char, 256> piece_;
    u64 position_ = 0;  // of the next piece in the file
    u64 used_ = 0;
    u64 filled_ = 0;
};

}  // namespace Orv
