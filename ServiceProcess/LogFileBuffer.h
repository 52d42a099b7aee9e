// The buffer between the log's stream and its file. Under the writer's lock.
#pragma once

#include <array>
#include <memory>
#include <streambuf>

#include "Platform/Files.h"

namespace Orv {

// Takes what is written while no file is open, or what the disk does not take, and loses it.
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
    std::array<char, 32768> bytes_;
};

}  // namespace Orv
