// Paths as the system calls want them. Inside Platform/linux only.
#pragma once

#include <algorithm>
#include <string>

namespace Platform {

// `path` with "/" for each separator. Its spelling stays.
inline std::string NativePath(std::string path) {
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

// A zero byte would cut the name short, and another file would be meant than the one that was named.
inline bool CanBeNamed(const std::string& path) {
    return !path.empty() && path.find('\0') == std::string::npos;
}

}  // namespace Platform
