// Files that are read while they play: the open file, which all streams of one path share, and the buffer that one read
// ahead fills.
#pragma once

#include <memory>
#include <string>

#include "Platform/OverlappedFile.h"
#include "ServiceProcess/MTReferencedTypeBase.h"

namespace Orv {

// An open file and the part of it that plays. Constant once it is open, so any thread may use it; each stream has its
// own reads and positions.
class IRawFile : public MTObjects::MTReferencedTypeBase {
public:
    std::shared_ptr<Platform::IOverlappedFile> handle;  // null when the open failed
    u64 start = 0;                                      // of the first byte to play
    u64 end = 0;                                        // behind the last byte to play; 0: up to the end of the file
    bool adpcm = false;                                 // the bytes need the ADPCM decoder

protected:
    bool TestValid() const override { return handle != nullptr; }
};

// What one read brings. Goes from under way (all flags clear) to `ready`, with or without `eof`, or to `failed`; the
// next IssueRead() starts it again. Belongs to the thread that drives its stream, and nothing here ever waits for the
// disk: a buffer that goes while its read is under way leaves the record, with target and file, to whoever carries the
// read out.
struct IRawFileBuffer : MTObjects::MTReferencedTypeBase {
    static constexpr u32 Size = Platform::OverlappedRead::Capacity;

    explicit IRawFileBuffer(const MTObjects::THolder<IRawFile>& rawFile)
        : read(rawFile->handle->MakeRead()), file(rawFile) {}

    // Starts a read of `length` bytes from `readFrom`, cut at the end of what plays. True when it is ready at once;
    // otherwise the flags tell why not, and a failure is in the log. The buffer's read must not be under way.
    bool IssueRead(u32 readFrom, u32 length);
    // Polls a read that is under way. True when the buffer is ready; but the very call that finds the end of the file
    // sets the flags and answers false, as for a failure.
    bool UpdateStatus();
    // Points `*out` at up to `count` bytes that have not been handed out yet, and counts them as handed out. They stay
    // until the next IssueRead(). Returns how many there are; 0 and null while the buffer is not ready.
    u64 Take(const u8** out, u64 count);
    // Where the next read goes on, so that a short read leaves no hole. 32 bits, as all positions here.
    u32 NextPosition() const { return static_cast<u32>(position + bytes); }

    bool ready = false;                              // the read has ended, the contents may be used
    bool eof = false;                                // the file ended with nothing more in this buffer
    bool failed = false;                             // the read failed for good
    u32 position = 0;                                // of the last read that was started
    u64 bytes = 0;                                   // how many it brought
    u64 consumed = 0;                                // how many of them have been handed out
    std::shared_ptr<Platform::OverlappedRead> read;  // the request and its target
    MTObjects::THolder<IRawFile> file;

protected:
    bool TestValid() const override { return file.IsValid(); }

private:
    bool Settle(Platform::ReadState state, const char* label);
};

// Opens `path`: a name that ends in ".wav" for the audio in it, any other whole. Null when it cannot be used, which is
// in the log then. Any thread; may wait for the disk.
MTObjects::THolder<IRawFile> OpenRawFile(const std::string& path);

// The open file of that name, shared by all who have asked for it; opens it for the first. Each result that is valid is
// to be given back by ReleaseSharedRawFile(). Null when it cannot be used. Any thread; may wait for the disk, though
// with no lock held.
MTObjects::THolder<IRawFile> GetSharedRawFile(const std::string& name);
// Gives one use of the name back. Who still holds the file keeps it open. Any thread.
void ReleaseSharedRawFile(const std::string& name);
// Takes the lock of the shared files for a moment: for who looks whether it can be had. Any thread.
void TakeSharedRawFileLock();

// The error line of a failed system call.
void ReportSystemError(Platform::SystemError code, const std::string& label);

}  // namespace Orv
