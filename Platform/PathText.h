// The text side of paths and pipe names, the same on every platform. Inside Platform/ only.
#pragma once

#include <string>

namespace Platform {

inline bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}
inline char LowerAscii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
// Whether the two are equal when the case of A to Z is ignored.
bool EqualIgnoringCase(const std::string& left, const std::string& right);
// Whether `text` ends in `tail` when the case of A to Z is ignored.
bool EndsWithIgnoringCase(const std::string& text, const std::string& tail);
// `path` as MakeAbsolutePath() gives it, for a process whose working directory is `workingDirectory`.
std::string AbsolutePathFrom(const std::string& workingDirectory, const std::string& path);

}  // namespace Platform
