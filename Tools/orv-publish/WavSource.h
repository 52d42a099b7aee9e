// Sound from a WAV file, once or round and round.
#pragma once

#include <memory>
#include <string>

#include "Tools/orv-publish/Messages.h"
#include "Tools/orv-publish/Source.h"
#include "Tools/orv-publish/WavFile.h"

namespace Orv {

class WavSource final : public ISource {
public:
    WavSource(std::unique_ptr<Platform::IReadFile> file, WavSound sound, bool loop, TellFunction tell);
    Outcome Read(u8* destination, u64 size, u64& taken) override;
    i32 Result() const override { return result_; }

private:
    const std::unique_ptr<Platform::IReadFile> file_;
    const WavSound sound_;
    const bool loop_;
    const TellFunction tell_;
    u64 position_ = 0;  // within the sound
    u64 bytes_ = 0;
    i32 result_ = PublishDone;
};

// Null when the file cannot be used; what to do has been told.
std::unique_ptr<ISource> OpenWavSource(const std::string& path, bool loop, const TellFunction& tell);

}  // namespace Orv
