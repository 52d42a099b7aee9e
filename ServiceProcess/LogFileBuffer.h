// The buffer between the log's stream and its file. Under the writer's lock.
#pragma once

#include <array>
#include <memory>
#include <streambuf>

#include "Platform/Files.h"

namespace Orv {

// Takes what is written while no file is open, and loses it. A line ends with a flush; one that the disk does not take
// to its end is lost whole, so that each line of the file is one that was written. Such a flush fails, and what is
// written after it is tried again.
class LogFileBuffer : public std::streambuf {
public:
    void Open(std::unique_ptr<Platform::IWriteFile> file);
    bool IsOpen() const noexcept { return file_ != nullptr; }
    // Hands over what is left, and closes.
    void Close();
    // Bytes of the file so far, those still in the buffer among them.
    u64 Position() const;

protected:
    int_type overflow(int_type character) override;
    int sync() override;

private:
    void HandOver();

    std::unique_ptr<Platform::IWriteFile> file_;
    u64 lineStart_ = 0;  // the position behind the last whole line
    bool lost_ = false;  // this line could not be written
    std::array<char, 32768> bytes_;
};

}  // namespace Orv
