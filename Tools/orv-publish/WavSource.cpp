#include "Tools/orv-publish/WavSource.h"

#include <algorithm>
#include <utility>

namespace Orv {
namespace {

// "music/a.mp3" gives "a-8000.wav", beside nothing that is there already.
std::string ConvertedName(const std::string& path) {
    std::string name = path.substr(path.find_last_of('/') + 1);
    const auto dot = name.find_last_of('.');
    if (dot != std::string::npos && dot != 0) name.resize(dot);
    return name + "-8000.wav";
}

// A word that no program takes for an option.
std::string FileWord(const std::string& path) {
    return ShellWord(!path.empty() && path[0] == '-' ? "./" + path : path);
}

}  // namespace

WavSource::WavSource(std::unique_ptr<Platform::IReadFile> file, WavSound sound, bool loop, TellFunction tell)
    : file_(std::move(file)), sound_(sound), loop_(loop), tell_(std::move(tell)) {}

ISource::Outcome WavSource::Read(u8* destination, u64 size, u64& taken) {
    taken = 0;
    if (position_ == sound_.length && loop_) position_ = 0;
    if (position_ == sound_.length) {
        tell_("the file has ended after " + SoundLength(bytes_) + ".");
        return Outcome::End;
    }
    const u64 wanted = std::min(size & ~u64{1}, sound_.length - position_);
    taken = file_->ReadAt(sound_.begin + position_, destination, wanted) & ~u64{1};
    position_ += taken;
    bytes_ += taken;
    if (taken != 0) return Outcome::Data;
    tell_("the file cannot be read any more, after " + SoundLength(bytes_) + ". Has it been cut while it played?");
    result_ = PublishSourceFailed;
    return Outcome::End;
}

std::unique_ptr<ISource> OpenWavSource(const std::string& path, bool loop, const TellFunction& tell) {
    Platform::SystemError error = 0;
    auto file = Platform::OpenReadFile(path, error);
    if (file == nullptr) {
        tell("cannot read '" + path + "': " + Platform::SystemErrorText(error) +
             ". Name a WAV file that you may read.");
        return nullptr;
    }
    WavSound sound;
    std::string whatItIs;
    if (!FindWavSound(*file, sound, whatItIs)) {
        tell("'" + path + "' is " + whatItIs +
             ", but a pipe carries 8000 Hz, mono, 16-bit PCM. This makes such a file of it:\n  ffmpeg -i " +
             FileWord(path) + " -ar 8000 -ac 1 -c:a pcm_s16le " + FileWord(ConvertedName(path)));
        return nullptr;
    }
    return std::make_unique<WavSource>(std::move(file), sound, loop, tell);
}

}  // namespace Orv
