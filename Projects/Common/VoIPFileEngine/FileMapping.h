// A file's bytes in memory, shared by all who have the file open under one name.
#pragma once

#include <memory>
#include <string>

#include "Platform/Files.h"
#include "Platform/Sync.h"
#include "Projects/Common/VoIPFileEngine/PageBytes.h"

namespace Orv {

// Stands for a named mapping of the system's, within this process. Nothing is really mapped: a mapping would raise a
// fault in whoever reads it once the file is cut on disk. The bytes are read into memory of the process's own, once,
// and stay as they were read whatever happens on disk. Any thread.
class FileMapping {
public:
    // The mapping of that path as it is spelled, apart from the kind of separator: the one that somebody holds already,
    // else a new one of `size` bytes. Null with the system error when there is none: a file without bytes has none.
    static std::shared_ptr<FileMapping> Create(const std::string& path, u64 size, Platform::SystemError& error);
    // Takes the lock of the mappings' names for a moment: for who looks whether it can be had.
    static void TakeRegistryLock();

    FileMapping(std::string key, u64 size);
    ~FileMapping();
    FileMapping(const FileMapping&) = delete;
    FileMapping& operator=(const FileMapping&) = delete;

    // The bytes, and how many there are: fewer than at the creation if the file has been cut meanwhile or cannot be
    // read on. The first call reads them from `file`, and may wait for the disk; others wait for it. They stay as long
    // as this object. Null with the system error when there is no memory for them.
    const u8* Map(Platform::IReadFile& file, u64& size, Platform::SystemError& error);

    // Locks the bytes in physical memory. False when that cannot be had or Map() has not succeeded. Each true is to be
    // given back by Unlock(); the bytes stay locked until the last one is.
    bool Lock();
    void Unlock();

private:
    const std::string key_;

    Platform::Mutex mutex_;
    u64 size_ ORV_GUARDED_BY(mutex_);
    u32 locks_ ORV_GUARDED_BY(mutex_) = 0;
    PageBytes bytes_ ORV_GUARDED_BY(mutex_);
};

}  // namespace Orv
