// A file on disk as a run of bytes.
#pragma once

#include <memory>
#include <string>

#include "Platform/Files.h"
#include "Projects/Common/VoIPFileEngine/IMemoryFile.h"

namespace Orv {

// Open from its construction on, or closed for good. Nothing is mapped: a mapping would raise a fault in whoever reads
// it when the file is cut on disk. With `prefetch` the bytes are brought into memory at opening; without it they stay
// on disk, GetData() gives nothing, and Read(), then for one thread at a time, may wait for the disk.
class FileView : public IMemoryFile {
public:
    // May wait for the disk. A file that cannot be used is told to the log and leaves the object closed.
    FileView(const std::string& path, bool prefetch);

    u64 Read(void* destination, u64 position, u64 count) override;
    bool IsValid() const override { return file_ != nullptr; }
    // Gives the file and the memory back; IsValid() is false afterwards.
    void Close();

private:
    bool Open(const std::string& path, bool prefetch);
    bool Load();

    std::unique_ptr<Platform::IReadFile> file_;
    std::unique_ptr<u8[]> image_;  // what `data` points to
};

}  // namespace Orv
