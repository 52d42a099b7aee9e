// The model's own disk: what the driver has put there, and what is wrong with it. Each change is made here and, in the
// same breath, in the simulated files that the service sees.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Platform/sim/SimFiles.h"

namespace OrvSim {

// A file apart from its name: who has it open keeps it.
struct DiskFile {
    std::shared_ptr<const std::string> bytes;
};

struct DiskFaults {
    bool unreadable = false;
    u32 delay = 0;  // milliseconds that a read takes
    bool failing = false;
    u64 firstBad = 0;  // reads that touch this byte or a later one fail
};

class ModelDisk {
public:
    explicit ModelDisk(Platform::Sim::SimFiles& files) : files_(files) {}

    // Called before each change: what reads the disk by the clock catches up first.
    std::function<void()> beforeChange;

    void Add(const std::string& path, std::string bytes);
    void Remove(const std::string& path);
    void Truncate(const std::string& path, u64 size);
    void Replace(const std::string& path, std::string bytes);
    void SetUnreadable(const std::string& path, bool unreadable);
    void SetDelay(const std::string& path, u32 milliseconds);
    void SetFailing(const std::string& path, bool failing, u64 firstBad);

    bool Exists(const std::string& path) const { return Find(path) != nullptr; }
    u64 SizeOf(const std::string& path) const;
    // Null when the file is not there or cannot be opened.
    std::shared_ptr<DiskFile> Open(const std::string& path) const;
    const DiskFaults& FaultsOf(const std::string& path) const;
    // The names in a folder that end so, in the order in which the search gives them.
    std::vector<std::string> Search(const std::string& folder, const std::string& ending) const;
    // Every path, for the driver's choice.
    std::vector<std::string> Paths() const;

private:
    struct Entry {
        std::string name;
        std::shared_ptr<DiskFile> file;
    };

    std::shared_ptr<DiskFile> Find(const std::string& path) const;
    void Change() const {
        if (beforeChange) beforeChange();
    }

    Platform::Sim::SimFiles& files_;
    std::map<std::string, std::vector<Entry>> folders_;
    std::map<std::string, DiskFaults> faults_;
};

}  // namespace OrvSim
