#include "Projects/Common/VoIPFileEngine/RawFile.h"

#include <algorithm>
#include <ios>

#include "Projects/Common/VoIPFileEngine/ContentName.h"
#include "Projects/Common/VoIPFileEngine/ReferenceStorage.h"
#include "Projects/Common/VoIPFileEngine/WAVFileView.h"
#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {

constexpr char kLogSource[] = "VoIPFileEngine/RawFile";

using RawFileHolder = MTObjects::THolder<IRawFile>;

// Never destroyed: a stream in a static object may give its file back later than any other static object goes.
ReferenceStorage<std::string, RawFileHolder>& SharedFiles() {
    static ReferenceStorage<std::string, RawFileHolder>& storage = *new ReferenceStorage<std::string, RawFileHolder>;
    return storage;
}

std::string Describe(Platform::SystemError code) {
    const std::string text = Platform::SystemErrorText(code);
    return text.empty() ? "Could not find a description for error" : text;
}

}  // namespace

bool IRawFileBuffer::IssueRead(u32 readFrom, u32 length) {
    ready = eof = failed = false;
    bytes = consumed = 0;
    if (file->end != 0) {
        const u32 readTo = readFrom + length;  // wraps, as positions do
        if (readTo > file->end) {
            const u64 over = readTo - file->end;
            length = over < length ? static_cast<u32>(length - over) : 0;
        }
        if (readFrom >= file->end || length == 0) {
            ORV_ENGINE_LOG(LogDebugSink, "ReadFile skip at EOF");
            return Settle(Platform::ReadState::EndOfFile, "Prefetch");
        }
    }
    position = readFrom;
    return Settle(file->handle->StartRead(read, readFrom, length), "Prefetch");
}

bool IRawFileBuffer::UpdateStatus() {
    return ready || Settle(read->Poll(), "UpdateStatus");
}

bool IRawFileBuffer::Settle(Platform::ReadState state, const char* label) {
    switch (state) {
        case Platform::ReadState::Done:
            bytes = read->Bytes();
            ready = true;
            return true;
        case Platform::ReadState::Pending:
            return false;
        case Platform::ReadState::EndOfFile:
            ready = true;
            eof = true;
            return false;
        case Platform::ReadState::Failed:
            break;
    }
    ReportSystemError(read->Error(), label);
    failed = true;
    return false;
}

u64 IRawFileBuffer::Take(const u8** out, u64 count) {
    *out = nullptr;
    if (!ready) return 0;
    const u64 got = std::min(bytes - consumed, count);
    *out = read->Data() + consumed;
    consumed += got;
    return got;
}

RawFileHolder OpenRawFile(const std::string& path) {
    RawFileHolder file(new IRawFile);
    if (EndsInWav(path)) {
        // Closed again at once: the bounds are all that is wanted of it.
        const WAVFileView view(path, false, false);
        if (!view.IsValid()) return nullptr;
        file->start = view.offset;
        file->end = view.size != 0 ? view.offset + view.size : 0;
        file->adpcm = view.adpcm;
    }
    Platform::SystemError error = 0;
    file->handle = Platform::OpenOverlappedFile(path, error);
    if (!file.IsValid()) {
        ReportSystemError(error, path);
        ORV_ENGINE_LOG(LogWarnSink, path << " not found");
        return nullptr;
    }
    return file;
}

// The file is opened without the storage's lock, so another thread may have stored the same name meanwhile; then its
// file is taken and the one just opened closes.
RawFileHolder GetSharedRawFile(const std::string& name) {
    RawFileHolder file;
    if (SharedFiles().Acquire(name, file)) {
        ORV_ENGINE_LOG(LogTraceSink, name << " taken from shared async i/o storage");
        return file;
    }
    file = OpenRawFile(name);
    if (!file.IsValid()) return file;
    if (SharedFiles().Acquire(name, file)) {
        ORV_ENGINE_LOG(LogTraceSink, name << " was shared by other entity");
    } else {
        ORV_ENGINE_LOG(LogTraceSink, name << " put to shared async i/o storage");
    }
    return file;
}

void ReleaseSharedRawFile(const std::string& name) {
    if (SharedFiles().Release(name)) {
        ORV_ENGINE_LOG(LogTraceSink, name << " file is still shared with other entity");
    } else {
        ORV_ENGINE_LOG(LogTraceSink, name << " removed from shared storage");
    }
}

void TakeSharedRawFileLock() {
    SharedFiles().TakeLock();
}

void ReportSystemError(Platform::SystemError code, const std::string& label) {
    ORV_ENGINE_LOG(LogErrorSink, label << " : error = 0x" << std::hex << code << ", " << Describe(code));
}

}  // namespace Orv
