// A file on disk as a run of bytes.
#pragma once

#include <memory>
#include <string>

#include "Platform/Files.h"
#include "Projects/Common/VoIPFileEngine/FileMapping.h"
#include "Projects/Common/VoIPFileEngine/IMemoryFile.h"

namespace Orv {

// Open from its construction on, or closed for good. With `prefetch` or `lock` the bytes are in memory when the
// constructor returns, in the one mapping of all views of that path (see FileMapping), and no file is held open. With
// neither they stay on disk: GetData() gives nothing then, and Read(), for one thread at a time, may wait for the disk.
class FileView : public IMemoryFile {
public:
    // May wait for the disk. A file that cannot be used is told to the log and leaves the object closed. Bytes that
    // cannot be locked are served all the same.
    FileView(const std::string& path, bool prefetch, bool lock);
    ~FileView() override;

    u64 Read(void* destination, u64 position, u64 count) override;
    bool IsValid() const override { return file_ != nullptr || mapping_ != nullptr; }
    // Keeps the bytes from being paged out, if the system allows it; `locked` tells. Nothing happens while they are on
    // disk.
    void Lock();
    // Gives the file, the lock and the memory back; IsValid() is false afterwards.
    void Close();

private:
    bool Open(const std::string& path, bool prefetch, bool lock);
    bool Map(const std::string& path);
    // Brings back what has been paged out of a mapping that others have made.
    void TouchPages() const;

    std::unique_ptr<Platform::IReadFile> file_;  // set while the bytes are on disk
    std::shared_ptr<FileMapping> mapping_;       // set while they are in memory
};

}  // namespace Orv
