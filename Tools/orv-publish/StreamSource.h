// Sound from a stream of bytes.
#pragma once

#include <memory>

#include "Platform/InputStream.h"
#include "Tools/orv-publish/Messages.h"
#include "Tools/orv-publish/Source.h"

namespace Orv {

// Takes bytes from a stream in whole samples: a byte without its partner waits for it, and is dropped at the end.
class SampleReader {
public:
    explicit SampleReader(Platform::IInputStream& stream) : stream_(stream) {}
    // As ISource::Read(). At the end, `error` tells of a failed read.
    ISource::Outcome Read(u8* destination, u64 size, u64& taken, Platform::SystemError& error);

private:
    Platform::IInputStream& stream_;
    u8 half_ = 0;
    bool haveHalf_ = false;
};

// Standard input. Says what it sees at the start when that looks like a file's header instead of sound.
class StreamSource final : public ISource {
public:
    StreamSource(std::unique_ptr<Platform::IInputStream> stream, TellFunction tell);
    Outcome Read(u8* destination, u64 size, u64& taken) override;
    i32 Result() const override { return result_; }

private:
    const std::unique_ptr<Platform::IInputStream> stream_;
    SampleReader reader_;
    const TellFunction tell_;
    u64 bytes_ = 0;
    i32 result_ = PublishDone;
};

}  // namespace Orv
