#include <string>

#include "Projects/Common/VoIPFileEngine/ContentName.h"
#include "Projects/Common/VoIPFileEngine/EmptyStream.h"
#include "Projects/Common/VoIPFileEngine/FakeStream.h"
#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"
#include "Projects/Common/VoIPFileEngine/MMFileStreamReaderMusicBox.h"
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "Projects/Common/VoIPFileEngine/PipeStream.h"
#include "Projects/Common/VoIPFileEngine/RawFileStream.h"
#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {

constexpr char kLogSource[] = "VoIPFileEngine/IMMFileStreamReader";

using ReaderHolder = MTObjects::THolder<IMMFileStreamReader>;

// Not open when there is no box for it; whether anybody serves the pipe yet does not matter.
ReaderHolder MakePipeStream(u32 id, const std::string& path, void* buffer, u32 frameBytes) {
    ReaderHolder reader(new IPipeStream(id));
    reader->Open(path.c_str(), buffer, static_cast<i32>(frameBytes));
    return reader;
}

ReaderHolder OpenMusicBox(u32 id, const std::string& name, void* buffer, u32 frameBytes) {
    ReaderHolder reader(new MMFileStreamReaderMusicBox(id));
    reader->Open(name.c_str(), buffer, static_cast<i32>(frameBytes));
    if (reader.IsValid() && reader->IsOpen()) {
        ORV_ENGINE_LOG(LogTraceSink, "Stream for musicbox '" << name << "' opened");
        return reader;
    }
    ORV_ENGINE_LOG(LogErrorSink, "Cannot find musicbox '" << name << '\'');
    return nullptr;
}

// What lies on the disk, or carries the name of something on the disk. Null when nothing can be opened.
ReaderHolder OpenFileName(u32 id, const std::string& name, void* buffer, u32 frameBytes) {
    if (IsSoundFileName(name)) {
        ReaderHolder reader(new RawFileStream(id));
        if (reader->Open(name.c_str(), buffer, static_cast<i32>(frameBytes))) {
            ORV_ENGINE_LOG(LogTraceSink, name << " opened as 8000 Hz 16 bit mono async I/O stream");
            return reader;
        }
    }
    if (IsPipeFileName(name)) {
        const ReaderHolder reader = MakePipeStream(id, LocalPipePath(name), buffer, frameBytes);
        if (reader.IsValid() && reader->IsOpen()) return reader;
        // Below the level at which a pipe path tells the same: any file may happen to end in ".pipe".
        ORV_ENGINE_LOG(LogTraceSink, "Cannot open named pipe stream '" << name << '\'');
        return nullptr;
    }
    ORV_ENGINE_LOG(LogWarnSink, "Cannot open stream source '" << name << '\'');
    return nullptr;
}

// The first test that decides ends the walk. Null when the source cannot be opened.
ReaderHolder OpenStream(u32 id, const std::string& name, void* buffer, u32 frameBytes) {
    if (name.empty()) {
        ORV_ENGINE_LOG(LogErrorSink, "Filename is not specified");
        return nullptr;
    }
    if (IsGapName(name)) {
        ReaderHolder gap(new EmptyStream(id));
        gap->Open(name.c_str(), buffer, static_cast<i32>(frameBytes));
        return gap;
    }
    if (IsLinkName(name)) {
        ORV_ENGINE_LOG(LogErrorSink, "direct http: and mms: links are not supported" << name);
        return nullptr;
    }
    if (IsPipePath(name)) {
        const ReaderHolder reader = MakePipeStream(id, name, buffer, frameBytes);
        if (reader.IsValid() && reader->IsOpen()) return reader;
        ORV_ENGINE_LOG(LogErrorSink, "Cannot open named pipe stream '" << name << '\'');
        return nullptr;
    }
    if (IsMusicBoxName(name)) return OpenMusicBox(id, name, buffer, frameBytes);
    ReaderHolder cached = CreateMemFileReader(id, name.c_str(), buffer, frameBytes);
    if (cached.IsValid()) {
        ORV_ENGINE_LOG(LogTraceSink, name << " taken from the cache");
        return cached;
    }
    return OpenFileName(id, NormaliseFileName(name), buffer, frameBytes);
}

}  // namespace

ReaderHolder CreateStreamReader(u32 id, const char* name, void* buffer, u32 frameBytes) {
    ReaderHolder reader = OpenStream(id, name != nullptr ? name : "", buffer, frameBytes);
    if (!reader) reader = new FakeStream(id);
    return reader;
}

}  // namespace Orv
