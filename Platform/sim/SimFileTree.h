// The tree behind SimFiles, and what an open file holds. Inside Platform/sim only.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "Platform/sim/Scheduler.h"
#include "Platform/sim/SimFiles.h"

namespace Platform::Sim {

struct FileNode {
    FileKind kind = FileKind::Regular;
    std::string name;
    std::string bytes;
    // Of a folder, in insertion order, and by exact name.
    std::vector<std::shared_ptr<FileNode>> children;
    std::unordered_map<std::string, std::shared_ptr<FileNode>> byName;

    std::shared_ptr<FileNode> Child(const std::string& exactName) const;
    void Add(std::shared_ptr<FileNode> child);
    void Remove(const std::string& exactName);
};

// What goes wrong at one path.
struct PathFaults {
    static constexpr u32 NoDelay = 0xFFFFFFFF;

    SystemError openError = 0;
    u32 openTimes = 0;
    u32 openDelay = 0;
    u32 readDelay = NoDelay;  // NoDelay: the world's
    bool hang = false;
    FiberQueue hanging;
    SystemError readError = 0;
    u64 firstBad = 0;
    u64 lastBad = 0;

    // The failure of the next operation on the path; 0 for none.
    SystemError TakeOpenError() noexcept;
    bool FailsRead(u64 position, u64 count) const noexcept;
};

struct SimFiles::Impl : std::enable_shared_from_this<SimFiles::Impl> {
    Impl();

    std::shared_ptr<FileNode> root;
    std::string workingDirectory = "/";
    std::string programDataFolder = "/var/lib";
    SearchOrder searchOrder = SearchOrder::Insertion;
    std::unordered_map<std::string, std::shared_ptr<PathFaults>> faults;
    u32 readDelay = 0;
    u64 freeSpace = End;
    FileCounters counters;
    std::function<void(const std::string&, std::string_view)> writeHook;
    std::set<std::string> locks;

    // What `path` names by its exact spelling; null with the error.
    std::shared_ptr<FileNode> Find(const std::string& path, SystemError& error) const;
    // The same, and the folder that it is in, for a name that need not exist.
    std::shared_ptr<FileNode> FindParent(const std::string& path, std::string& name, SystemError& error) const;
    std::string FindOnDisk(const std::string& path) const;
    std::string Absolute(const std::string& path) const;
    PathFaults& FaultsOf(const std::string& path) { return *SharedFaultsOf(path); }
    std::shared_ptr<PathFaults> SharedFaultsOf(const std::string& path);
    // A scheduling point, the delay and the failure that the path has for an operation that opens it. False with the
    // error.
    bool Reach(const std::string& path, SystemError& error);
};

// An open file. Lives as long as anybody reads or writes it, whatever becomes of its name.
struct OpenFile {
    OpenFile(std::shared_ptr<SimFiles::Impl> theWorld, std::shared_ptr<FileNode> theNode,
             std::shared_ptr<PathFaults> theFaults);
    ~OpenFile();
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    u32 ReadDelay() const noexcept;
    // Copies what the file has of the range.
    u64 Copy(u64 position, void* destination, u64 count) const noexcept;

    const std::shared_ptr<SimFiles::Impl> world;
    const std::shared_ptr<FileNode> node;
    const std::shared_ptr<PathFaults> faults;
};

// Opens the regular file of this exact spelling in the current world; with `create` an empty one is made if need be.
std::shared_ptr<OpenFile> OpenSimFile(const std::string& path, bool create, SystemError& error);

}  // namespace Platform::Sim
