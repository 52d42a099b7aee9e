#include "Projects/Common/VoIPFileEngine/ContentName.h"

#include <string_view>

#include "Platform/Path.h"

namespace Orv {
namespace {

constexpr std::string_view kPipeExtension = ".pipe";

// Whatever the case of A to Z; `lower` is in lower case.
bool BeginsWith(const std::string& text, std::string_view lower) {
    return Platform::LowerAscii(text.substr(0, lower.size())) == lower;
}
bool EndsWith(const std::string& text, std::string_view lower) {
    return text.size() >= lower.size() && Platform::LowerAscii(text.substr(text.size() - lower.size())) == lower;
}

// A bare extension is no name.
bool HasExtension(const std::string& text, std::string_view lower) {
    return text.size() > lower.size() && EndsWith(text, lower);
}

}  // namespace

bool IsGapName(const std::string& name) {
    return name.size() >= 3 && name.front() == '#' && name.back() == '#';
}

bool IsLinkName(const std::string& name) {
    return BeginsWith(name, "http:") || BeginsWith(name, "mms:");
}

bool IsPipePath(const std::string& name) {
    if (name.size() < LocalPipes.size() || !name.starts_with("\\\\")) return false;
    const std::size_t hostEnd = name.find('\\', 2);
    return hostEnd != std::string::npos && name.compare(hostEnd, 6, "\\pipe\\") == 0;
}

bool IsMusicBoxName(const std::string& name) {
    return name.ends_with(':');
}

bool IsSoundFileName(const std::string& name) {
    return HasExtension(name, ".wav") || HasExtension(name, ".raw");
}

bool EndsInWav(const std::string& path) {
    return EndsWith(path, ".wav");
}

bool IsPipeFileName(const std::string& name) {
    return HasExtension(name, kPipeExtension);
}

std::string LocalPipePath(const std::string& pipeFileName) {
    std::size_t separator = pipeFileName.rfind('\\');
    if (separator == std::string::npos) separator = pipeFileName.rfind('/');
    const std::size_t begin = separator == std::string::npos ? 0 : separator + 1;
    const std::size_t end = pipeFileName.size() - kPipeExtension.size();
    return std::string(LocalPipes).append(pipeFileName, begin, end - begin);
}

std::string NormaliseFileName(const std::string& name) {
    std::string absolute;
    if (!Platform::MakeAbsolutePath(name, absolute) || absolute.size() > MaxNormalisedName) return name;
    return Platform::LowerAscii(std::move(absolute));
}

}  // namespace Orv
