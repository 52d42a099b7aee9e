#include "Tools/orv-publish/StreamSource.h"

#include <cstring>
#include <utility>

namespace Orv {

ISource::Outcome SampleReader::Read(u8* destination, u64 size, u64& taken, Platform::SystemError& error) {
    const u64 held = haveHalf_ ? 1 : 0;
    destination[0] = half_;
    u64 got = 0;
    taken = 0;
    switch (stream_.Read(destination + held, size - held, 0, got, error)) {
        case Platform::IInputStream::Outcome::TimedOut:
            return ISource::Outcome::Nothing;
        case Platform::IInputStream::Outcome::End:
            return ISource::Outcome::End;
        case Platform::IInputStream::Outcome::Data:
            break;
    }
    taken = (held + got) & ~u64{1};
    haveHalf_ = held + got != taken;
    if (haveHalf_) half_ = destination[taken];
    return ISource::Outcome::Data;
}

StreamSource::StreamSource(std::unique_ptr<Platform::IInputStream> stream, TellFunction tell)
    : stream_(std::move(stream)), reader_(*stream_), tell_(std::move(tell)) {}

ISource::Outcome StreamSource::Read(u8* destination, u64 size, u64& taken) {
    Platform::SystemError error = 0;
    const Outcome outcome = reader_.Read(destination, size, taken, error);
    if (bytes_ == 0 && taken >= 4 && std::memcmp(destination, "RIFF", 4) == 0) {
        tell_(
            "standard input looks like a WAV file, whose header is no sound. It is played as raw samples all the same; "
            "use --wav FILE for a WAV file.");
    }
    bytes_ += taken;
    if (outcome != Outcome::End) return outcome;
    if (error != 0) {
        tell_("standard input cannot be read: " + Platform::SystemErrorText(error) + ", after " + SoundLength(bytes_) +
              ".");
        result_ = PublishSourceFailed;
    } else {
        tell_("standard input has ended after " + SoundLength(bytes_) + ".");
    }
    return outcome;
}

}  // namespace Orv
