#include "Platform/sim/SimFileTree.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "Platform/Path.h"
#include "Platform/PathText.h"
#include "Platform/ThreadWait.h"
#include "Platform/sim/World.h"

namespace Platform::Sim {

namespace {

constexpr size_t kLongestName = 255;
constexpr size_t kLongestPath = 4095;

// The components of a path with "/" between them, empty ones left out.
std::vector<std::string> Split(const std::string& path) {
    std::vector<std::string> parts;
    size_t begin = 0;
    while (begin < path.size()) {
        size_t end = begin;
        while (end < path.size() && !IsSeparator(path[end])) ++end;
        if (end > begin) parts.push_back(path.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

bool CanBeNamed(const std::string& path) {
    return !path.empty() && path.find('\0') == std::string::npos;
}

// The child whose name fits when case is ignored, the bytewise smallest of several.
const std::string* FindIgnoringCase(const FileNode& folder, const std::string& name) {
    const std::string* best = nullptr;
    for (const auto& child : folder.children) {
        if (!EqualIgnoringCase(child->name, name)) continue;
        if (best == nullptr || child->name < *best) best = &child->name;
    }
    return best;
}

}  // namespace

std::shared_ptr<FileNode> FileNode::Child(const std::string& exactName) const {
    const auto found = byName.find(exactName);
    return found == byName.end() ? nullptr : found->second;
}

void FileNode::Add(std::shared_ptr<FileNode> child) {
    byName[child->name] = child;
    children.push_back(std::move(child));
}

void FileNode::Remove(const std::string& exactName) {
    byName.erase(exactName);
    std::erase_if(children, [&](const auto& child) { return child->name == exactName; });
}

SystemError PathFaults::TakeOpenError() noexcept {
    if (openTimes == 0) return 0;
    if (openTimes != SimFiles::Always) --openTimes;
    return openError;
}

bool PathFaults::FailsRead(u64 position, u64 count) const noexcept {
    return readError != 0 && position <= lastBad && (position >= firstBad || count > firstBad - position);
}

SimFiles::Impl::Impl() : root(std::make_shared<FileNode>()) {
    root->kind = FileKind::Folder;
}

std::string SimFiles::Impl::Absolute(const std::string& path) const {
    return AbsolutePathFrom(workingDirectory, path);
}

std::shared_ptr<FileNode> SimFiles::Impl::Find(const std::string& path, SystemError& error) const {
    error = ENOENT;
    if (!CanBeNamed(path)) return nullptr;
    error = ENAMETOOLONG;
    if (path.size() > kLongestPath) return nullptr;
    std::shared_ptr<FileNode> node = root;
    for (const std::string& part : Split(Absolute(path))) {
        if (node->kind != FileKind::Folder)
            error = ENOTDIR;
        else if (part.size() > kLongestName)
            error = ENAMETOOLONG;
        else
            error = ENOENT;
        node = node->Child(part);
        if (node == nullptr) return nullptr;
    }
    error = ENOTDIR;
    if (IsSeparator(path.back()) && node->kind != FileKind::Folder) return nullptr;
    error = 0;
    return node;
}

std::shared_ptr<FileNode> SimFiles::Impl::FindParent(const std::string& path, std::string& name,
                                                     SystemError& error) const {
    error = ENOENT;
    if (!CanBeNamed(path)) return nullptr;
    const std::string absolute = Absolute(path);
    const size_t slash = absolute.rfind('/');
    name = absolute.substr(slash + 1);
    if (name.empty()) return nullptr;
    if (name.size() > kLongestName) {
        error = ENAMETOOLONG;
        return nullptr;
    }
    auto parent = Find(slash == 0 ? "/" : absolute.substr(0, slash), error);
    if (parent != nullptr && parent->kind != FileKind::Folder) {
        error = ENOTDIR;
        return nullptr;
    }
    return parent;
}

std::string SimFiles::Impl::FindOnDisk(const std::string& path) const {
    std::string native = path;
    std::replace(native.begin(), native.end(), '\\', '/');
    SystemError error = 0;
    if (!CanBeNamed(native) || Find(native, error) != nullptr || error != ENOENT) return native;
    std::string found = native[0] == '/' ? "/" : "";
    size_t begin = native.find_first_not_of('/');
    while (begin != std::string::npos) {
        const size_t end = std::min(native.find('/', begin), native.size());
        const std::string part = native.substr(begin, end - begin);
        if (!found.empty() && found.back() != '/') found += '/';
        if (Find(found + part, error) == nullptr) {
            const auto folder = Find(found.empty() ? "." : found, error);
            const std::string* other = folder == nullptr ? nullptr : FindIgnoringCase(*folder, part);
            if (other == nullptr) return found.append(native, begin);
            found += *other;
        } else {
            found += part;
        }
        begin = native.find_first_not_of('/', end);
    }
    if (native.back() == '/' && found.back() != '/') found += '/';
    return found;
}

std::shared_ptr<PathFaults> SimFiles::Impl::SharedFaultsOf(const std::string& path) {
    auto& entry = faults[LowerAscii(Absolute(path))];
    if (entry == nullptr) entry = std::make_shared<PathFaults>();
    return entry;
}

bool SimFiles::Impl::Reach(const std::string& path, SystemError& error) {
    SchedulingPoint();
    error = EIO;
    if (Failures().Fails(Operation::Path, path)) return false;
    const auto found = faults.find(LowerAscii(Absolute(path)));
    error = 0;
    if (found == faults.end()) return true;
    const std::shared_ptr<PathFaults> here = found->second;
    if (here->openDelay != 0) {
        const ThreadWaitScope waiting(ThreadWait::Disk);
        SleepUntil(Clock().SteadyNanoseconds() + here->openDelay * kNanosecondsPerMillisecond);
    }
    error = here->TakeOpenError();
    return error == 0;
}

OpenFile::OpenFile(std::shared_ptr<SimFiles::Impl> theWorld, std::shared_ptr<FileNode> theNode,
                   std::shared_ptr<PathFaults> theFaults)
    : world(std::move(theWorld)), node(std::move(theNode)), faults(std::move(theFaults)) {
    ++world->counters.filesAlive;
}

OpenFile::~OpenFile() {
    --world->counters.filesAlive;
}

u32 OpenFile::ReadDelay() const noexcept {
    return faults->readDelay == PathFaults::NoDelay ? world->readDelay : faults->readDelay;
}

u64 OpenFile::Copy(u64 position, void* destination, u64 count) const noexcept {
    const std::string& bytes = node->bytes;
    if (position >= bytes.size()) return 0;
    const u64 taken = std::min<u64>(count, bytes.size() - position);
    std::memcpy(destination, bytes.data() + position, taken);
    world->counters.bytesRead += taken;
    return taken;
}

std::shared_ptr<OpenFile> OpenSimFile(const std::string& path, bool create, SystemError& error) {
    const auto world = CurrentWorld().files.Internals().shared_from_this();
    ++world->counters.opens;
    ++world->counters.openFailures;  // taken back at the end
    if (!world->Reach(path, error)) return nullptr;
    auto node = world->Find(path, error);
    if (node == nullptr && create && error == ENOENT) {
        auto made = std::make_shared<FileNode>();
        const auto parent = world->FindParent(path, made->name, error);
        if (parent == nullptr) return nullptr;
        error = EISDIR;
        if (IsSeparator(path.back())) return nullptr;
        parent->Add(made);
        node = made;
    }
    if (node == nullptr) return nullptr;
    if (node->kind != FileKind::Regular) {
        error = node->kind == FileKind::Folder ? EISDIR : EINVAL;
        return nullptr;
    }
    --world->counters.openFailures;
    error = 0;
    return std::make_shared<OpenFile>(world, std::move(node), world->SharedFaultsOf(path));
}

}  // namespace Platform::Sim
