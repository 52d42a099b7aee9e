#include "Projects/Common/VoIPFileEngine/ContentName.h"

#include <string_view>

#include "Platform/Path.h"

namespace Orv {
namespace {

constexpr std::string_view kLocalPipes = "\\\\.\\pipe\\";
constexpr std::string_view kPipeExtension = ".pipe";

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// `lower` is in lower case.
bool EqualsIgnoringCase(std::string_view text, std::string_view lower) {
    if (text.size() != lower.size()) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (Lower(text[i]) != lower[i]) return false;
    }
    return true;
}

bool BeginsWith(std::string_view text, std::string_view lower) {
    return EqualsIgnoringCase(text.substr(0, lower.size()), lower);
}

// A bare extension is no name.
bool HasExtension(std::string_view text, std::string_view lower) {
    return text.size() > lower.size() && EqualsIgnoringCase(text.substr(text.size() - lower.size()), lower);
}

}  // namespace

bool IsGapName(const std::string& name) {
    return name.size() >= 3 && name.front() == '#' && name.back() == '#';
}

bool IsLinkName(const std::string& name) {
    return BeginsWith(name, "http:") || BeginsWith(name, "mms:");
}

bool IsPipePath(const std::string& name) {
    if (name.size() < kLocalPipes.size() || !name.starts_with("\\\\")) return false;
    const std::size_t hostEnd = name.find('\\', 2);
    return hostEnd != std::string::npos && name.compare(hostEnd, 6, "\\pipe\\") == 0;
}

bool IsMusicBoxName(const std::string& name) {
    return name.ends_with(':');
}

bool IsSoundFileName(const std::string& name) {
    return HasExtension(name, ".wav") || HasExtension(name, ".raw");
}

bool IsPipeFileName(const std::string& name) {
    return HasExtension(name, kPipeExtension);
}

std::string LocalPipePath(const std::string& pipeFileName) {
    std::size_t separator = pipeFileName.rfind('\\');
    if (separator == std::string::npos) separator = pipeFileName.rfind('/');
    const std::size_t begin = separator == std::string::npos ? 0 : separator + 1;
    const std::size_t end = pipeFileName.size() - kPipeExtension.size();
    return std::string(kLocalPipes).append(pipeFileName, begin, end - begin);
}

std::string NormaliseFileName(const std::string& name) {
    std::string absolute;
    if (!Platform::MakeAbsolutePath(name, absolute) || absolute.size() > MaxNormalisedName) return name;
    return Platform::LowerAscii(std::move(absolute));
}

}  // namespace Orv
