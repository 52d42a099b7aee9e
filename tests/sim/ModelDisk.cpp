#include "tests/sim/ModelDisk.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace OrvSim {

namespace {

std::pair<std::string, std::string> Split(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return {path.substr(0, slash), path.substr(slash + 1)};
}

}  // namespace

std::shared_ptr<DiskFile> ModelDisk::Find(const std::string& path) const {
    const auto [folder, name] = Split(path);
    const auto found = folders_.find(folder);
    if (found == folders_.end()) return nullptr;
    for (const Entry& entry : found->second) {
        if (entry.name == name) return entry.file;
    }
    return nullptr;
}

void ModelDisk::Add(const std::string& path, std::string bytes) {
    Change();
    files_.AddFile(path, bytes);
    const auto [folder, name] = Split(path);
    auto contents = std::make_shared<const std::string>(std::move(bytes));
    if (const auto present = Find(path)) {
        present->bytes = std::move(contents);
        return;
    }
    folders_[folder].push_back({name, std::make_shared<DiskFile>(DiskFile{std::move(contents)})});
}

void ModelDisk::Remove(const std::string& path) {
    Change();
    files_.Remove(path);
    const auto [folder, name] = Split(path);
    std::erase_if(folders_[folder], [&name = name](const Entry& entry) { return entry.name == name; });
}

void ModelDisk::Truncate(const std::string& path, u64 size) {
    Change();
    files_.Truncate(path, size);
    const auto file = Find(path);
    std::string bytes = *file->bytes;
    bytes.resize(size);
    file->bytes = std::make_shared<const std::string>(std::move(bytes));
}

void ModelDisk::Replace(const std::string& path, std::string bytes) {
    Change();
    files_.Replace(path, bytes);
    const auto [folder, name] = Split(path);
    for (Entry& entry : folders_[folder]) {
        if (entry.name != name) continue;
        entry.file = std::make_shared<DiskFile>(DiskFile{std::make_shared<const std::string>(std::move(bytes))});
        return;
    }
}

void ModelDisk::SetUnreadable(const std::string& path, bool unreadable) {
    Change();
    files_.FailOpens(path, unreadable ? EACCES : 0);
    faults_[path].unreadable = unreadable;
}

void ModelDisk::SetDelay(const std::string& path, u32 milliseconds) {
    Change();
    files_.DelayReads(path, milliseconds);
    faults_[path].delay = milliseconds;
}

void ModelDisk::SetFailing(const std::string& path, bool failing, u64 firstBad) {
    Change();
    files_.FailReads(path, failing ? EIO : 0, firstBad);
    faults_[path].failing = failing;
    faults_[path].firstBad = firstBad;
}

u64 ModelDisk::SizeOf(const std::string& path) const {
    const auto file = Find(path);
    return file == nullptr ? 0 : file->bytes->size();
}

std::shared_ptr<DiskFile> ModelDisk::Open(const std::string& path) const {
    return FaultsOf(path).unreadable ? nullptr : Find(path);
}

const DiskFaults& ModelDisk::FaultsOf(const std::string& path) const {
    static const DiskFaults none;
    const auto found = faults_.find(path);
    return found == faults_.end() ? none : found->second;
}

std::vector<std::string> ModelDisk::Search(const std::string& folder, const std::string& ending) const {
    std::vector<std::string> names;
    const auto found = folders_.find(folder);
    if (found == folders_.end()) return names;
    for (const Entry& entry : found->second) {
        if (entry.name.ends_with(ending)) names.push_back(entry.name);
    }
    return names;
}

std::vector<std::string> ModelDisk::Paths() const {
    std::vector<std::string> paths;
    for (const auto& [folder, entries] : folders_) {
        for (const Entry& entry : entries) paths.push_back(folder + "/" + entry.name);
    }
    return paths;
}

}  // namespace OrvSim
