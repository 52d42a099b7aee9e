#include "Platform/PathText.h"

#include "Platform/NamedPipe.h"
#include "Platform/Path.h"

namespace Platform {

namespace {

// Adds the components of `path` to `absolute`, which is empty (the root) or begins with "/" and ends in none.
void AddComponents(const std::string& path, std::string& absolute) {
    size_t begin = 0;
    while (begin <= path.size()) {
        size_t end = begin;
        while (end < path.size() && !IsSeparator(path[end])) ++end;
        const std::string component = path.substr(begin, end - begin);
        if (component == "..") {
            const size_t slash = absolute.rfind('/');
            absolute.resize(slash == std::string::npos ? 0 : slash);
        } else if (!component.empty() && component != ".") {
            absolute += '/';
            absolute += component;
        }
        begin = end + 1;
    }
}

}  // namespace

bool EqualIgnoringCase(const std::string& left, const std::string& right) {
    return left.size() == right.size() && EndsWithIgnoringCase(left, right);
}

bool EndsWithIgnoringCase(const std::string& text, const std::string& tail) {
    if (text.size() < tail.size()) return false;
    const size_t start = text.size() - tail.size();
    for (size_t i = 0; i < tail.size(); ++i) {
        if (LowerAscii(text[start + i]) != LowerAscii(tail[i])) return false;
    }
    return true;
}

std::string LowerAscii(std::string path) {
    for (char& c : path) c = LowerAscii(c);
    return path;
}

std::string AbsolutePathFrom(const std::string& workingDirectory, const std::string& path) {
    std::string absolute;
    if (path.empty() || !IsSeparator(path[0])) AddComponents(workingDirectory, absolute);
    AddComponents(path, absolute);
    return absolute.empty() ? "/" : absolute;
}

std::string AppendPath(const std::string& left, const std::string& right) {
    size_t begin = right.size() >= 2 && right[0] == '.' && IsSeparator(right[1]) ? 2 : 0;
    while (begin < right.size() && IsSeparator(right[begin])) ++begin;
    std::string path = left;
    if (!path.empty() && !IsSeparator(path.back())) path += '/';
    return path.append(right, begin);
}

std::string PipeFileName(const std::string& name) {
    constexpr char kHex[] = "0123456789abcdef";
    std::string file;
    for (size_t i = 0; i < name.size(); ++i) {
        const auto c = static_cast<unsigned char>(LowerAscii(name[i]));
        const bool dot = c == '.' && i == 0;
        if (dot || c < 0x20 || c == 0x7F || c == '/' || c == '\\' || c == '%') {
            file += '%';
            file += kHex[c >> 4];
            file += kHex[c & 0x0F];
        } else {
            file += static_cast<char>(c);
        }
    }
    return file;
}

}  // namespace Platform
