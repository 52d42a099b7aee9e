// What a process leaves on the disk and holds open. Tests only.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Process.h"

namespace OrvTest {

// Each entry below a folder but those in `free`, as its kind, mode and content.
inline std::map<std::string, std::string> Snapshot(const std::string& root, const std::vector<std::string>& free) {
    std::map<std::string, std::string> entries;
    for (auto entry = std::filesystem::recursive_directory_iterator(root);
         entry != std::filesystem::recursive_directory_iterator(); ++entry) {
        const std::string path = entry->path().string();
        if (std::find(free.begin(), free.end(), path) != free.end()) {
            entry.disable_recursion_pending();
            continue;
        }
        struct stat status {};
        ::lstat(path.c_str(), &status);
        std::string text = std::to_string(status.st_mode) + " " + std::to_string(status.st_uid) + " ";
        if (S_ISLNK(status.st_mode)) text += std::filesystem::read_symlink(entry->path()).string();
        if (S_ISREG(status.st_mode)) text += ReadFileText(path);
        entries[path] = text;
    }
    return entries;
}

inline std::string Difference(const std::map<std::string, std::string>& before,
                              const std::map<std::string, std::string>& after) {
    std::string text;
    for (const auto& [path, content] : before) {
        const auto found = after.find(path);
        if (found == after.end()) text += "gone: " + path + "\n";
        if (found != after.end() && found->second != content) text += "changed: " + path + "\n";
    }
    for (const auto& [path, content] : after) {
        if (!before.contains(path)) text += "new: " + path + "\n";
    }
    return text;
}

// The paths of the sockets that a process has bound, whoever else has any.
inline std::set<std::string> BoundBy(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process) + "/fd";
    std::set<std::string> inodes;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        if (target.starts_with("socket:[")) inodes.insert(target.substr(8, target.size() - 9));
    }
    std::set<std::string> paths;
    std::istringstream table(ReadFileText("/proc/" + std::to_string(process) + "/net/unix"));
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string skipped;
        std::string inode;
        for (int i = 0; i < 6; ++i) fields >> skipped;
        fields >> inode;
        std::string path;
        std::getline(fields, path);
        if (inodes.contains(inode) && !path.empty()) paths.insert(path.substr(1));
    }
    return paths;
}

// What a process has open that is no regular file to read: "path flags", without sockets and the like.
inline std::set<std::string> Suspicious(pid_t process, const std::string& logFolder) {
    std::set<std::string> found;
    const std::string folder = "/proc/" + std::to_string(process);
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder + "/fd", error)) {
        const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        const std::string number = entry.path().filename().string();
        if (error || !target.starts_with("/") || std::stoi(number) <= 2) continue;  // what the test gave it
        const std::string info = ReadFileText(folder + "/fdinfo/" + number);
        const auto at = info.find("flags:");
        const bool writes = at != std::string::npos && (std::stoul(info.substr(at + 6), nullptr, 8) & 3) != 0;
        struct stat status {};
        // A folder that is searched is open for a moment: what has been closed meanwhile, or is another one under the
        // same number, was not seen as a whole.
        if (::stat(entry.path().c_str(), &status) != 0) continue;
        if (std::filesystem::read_symlink(entry.path(), error).string() != target) continue;
        const bool regular = S_ISREG(status.st_mode);
        const bool isFolder = S_ISDIR(status.st_mode);
        if (writes && target.starts_with(logFolder)) continue;
        if (writes || (!regular && !isFolder) || target.starts_with("/proc/")) found.insert(target);
    }
    return found;
}

}  // namespace OrvTest
