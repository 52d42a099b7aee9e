#include "Platform/sim/SimFiles.h"

#include <cerrno>
#include <stdexcept>
#include <utility>

#include "Platform/sim/SimFileTree.h"

namespace Platform::Sim {

namespace {

[[noreturn]] void Refuse(const std::string& path, const char* why) {
    throw std::invalid_argument("simulated files: \"" + path + "\" " + why);
}

std::shared_ptr<FileNode> Need(const SimFiles::Impl& files, const std::string& path) {
    SystemError error = 0;
    auto node = files.Find(files.FindOnDisk(path), error);
    if (node == nullptr) Refuse(path, "does not exist");
    return node;
}

std::shared_ptr<FileNode> NeedFile(const SimFiles::Impl& files, const std::string& path) {
    auto node = Need(files, path);
    if (node->kind != FileKind::Regular) Refuse(path, "is no regular file");
    return node;
}

// The folder of something that exists, and its exact name in there.
std::shared_ptr<FileNode> NeedParent(const SimFiles::Impl& files, const std::string& path, std::string& name) {
    Need(files, path);
    SystemError error = 0;
    auto parent = files.FindParent(files.FindOnDisk(path), name, error);
    if (parent == nullptr) Refuse(path, "is the root");
    return parent;
}

// Makes the folders down to `absolute`, each by its exact spelling.
std::shared_ptr<FileNode> MakeFolders(const SimFiles::Impl& files, const std::string& absolute) {
    std::shared_ptr<FileNode> node = files.root;
    size_t begin = 1;
    while (begin < absolute.size()) {
        const size_t end = std::min(absolute.find('/', begin), absolute.size());
        const std::string part = absolute.substr(begin, end - begin);
        auto child = node->Child(part);
        if (child == nullptr) {
            child = std::make_shared<FileNode>();
            child->kind = FileKind::Folder;
            child->name = part;
            node->Add(child);
        }
        if (child->kind != FileKind::Folder) Refuse(absolute, "leads through something that is no folder");
        node = child;
        begin = end + 1;
    }
    return node;
}

// Adds something of a kind where nothing is yet.
std::shared_ptr<FileNode> Make(const SimFiles::Impl& files, const std::string& path, FileKind kind) {
    const std::string absolute = files.Absolute(path);
    const size_t slash = absolute.rfind('/');
    auto node = std::make_shared<FileNode>();
    node->kind = kind;
    node->name = absolute.substr(slash + 1);
    const auto parent = MakeFolders(files, absolute.substr(0, slash));
    if (node->name.empty() || parent->Child(node->name) != nullptr) Refuse(path, "exists already");
    parent->Add(node);
    return node;
}

}  // namespace

SimFiles::SimFiles() : impl_(std::make_shared<Impl>()) {
    for (const char* folder : {"/tmp", "/run", "/var/lib"}) AddFolder(folder);
}

SimFiles::~SimFiles() = default;

void SimFiles::AddFile(const std::string& path, std::string_view bytes) {
    SystemError error = 0;
    auto node = impl_->Find(path, error);
    if (node == nullptr) node = Make(*impl_, path, FileKind::Regular);
    if (node->kind != FileKind::Regular) Refuse(path, "is no regular file");
    node->bytes = bytes;
}

void SimFiles::AddFile(const std::string& path, const std::vector<u8>& bytes) {
    AddFile(path, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

void SimFiles::AddFolder(const std::string& path) {
    MakeFolders(*impl_, impl_->Absolute(path));
}

void SimFiles::AddSpecial(const std::string& path, FileKind kind) {
    Make(*impl_, path, kind);
}

void SimFiles::Remove(const std::string& path) {
    std::string name;
    NeedParent(*impl_, path, name)->Remove(name);
}

void SimFiles::Rename(const std::string& from, const std::string& to) {
    std::string name;
    const auto parent = NeedParent(*impl_, from, name);
    const auto node = parent->Child(name);
    SystemError error = 0;
    if (impl_->Find(to, error) != nullptr) Refuse(to, "exists already");
    const auto newParent = impl_->FindParent(to, name, error);
    if (newParent == nullptr) Refuse(to, "has no folder to be in");
    parent->Remove(node->name);
    node->name = name;
    newParent->Add(node);
}

void SimFiles::Truncate(const std::string& path, u64 size) {
    NeedFile(*impl_, path)->bytes.resize(size);
}

void SimFiles::Replace(const std::string& path, std::string_view bytes) {
    const auto old = NeedFile(*impl_, path);
    std::string name;
    const auto parent = NeedParent(*impl_, path, name);
    auto node = std::make_shared<FileNode>();
    node->name = name;
    node->bytes = bytes;
    parent->byName[name] = node;
    for (auto& child : parent->children) {
        if (child == old) child = node;
    }
}

bool SimFiles::Exists(const std::string& path) const {
    SystemError error = 0;
    return impl_->Find(impl_->FindOnDisk(path), error) != nullptr;
}

FileKind SimFiles::KindOf(const std::string& path) const {
    return Need(*impl_, path)->kind;
}

std::string SimFiles::ReadBack(const std::string& path) const {
    return NeedFile(*impl_, path)->bytes;
}

std::vector<std::string> SimFiles::List(const std::string& path) const {
    const auto folder = Need(*impl_, path);
    if (folder->kind != FileKind::Folder) Refuse(path, "is no folder");
    std::vector<std::string> names;
    for (const auto& child : folder->children) names.push_back(child->name);
    return names;
}

void SimFiles::SetWorkingDirectory(const std::string& path) {
    const std::string found = impl_->FindOnDisk(path);
    if (Need(*impl_, path)->kind != FileKind::Folder) Refuse(path, "is no folder");
    impl_->workingDirectory = impl_->Absolute(found);
}

std::string SimFiles::WorkingDirectory() const {
    return impl_->workingDirectory;
}
void SimFiles::SetProgramDataFolder(const std::string& path) {
    impl_->programDataFolder = path;
}
std::string SimFiles::ProgramDataFolder() const {
    return impl_->programDataFolder;
}
void SimFiles::SetSearchOrder(SearchOrder order) {
    impl_->searchOrder = order;
}

void SimFiles::FailOpens(const std::string& path, SystemError error, u32 times) {
    PathFaults& faults = impl_->FaultsOf(path);
    faults.openError = error;
    faults.openTimes = error == 0 ? 0 : times;
}

void SimFiles::MakeUnreadable(const std::string& path) {
    FailOpens(path, EACCES);
}

void SimFiles::DelayOpens(const std::string& path, u32 milliseconds) {
    impl_->FaultsOf(path).openDelay = milliseconds;
}

void SimFiles::DelayReads(const std::string& path, u32 milliseconds) {
    impl_->FaultsOf(path).readDelay = milliseconds;
}

void SimFiles::DelayAllReads(u32 milliseconds) {
    impl_->readDelay = milliseconds;
}

void SimFiles::HangReads(const std::string& path, bool hang) {
    PathFaults& faults = impl_->FaultsOf(path);
    faults.hang = hang;
    if (!hang) WakeAllIn(faults.hanging);
}

void SimFiles::FailReads(const std::string& path, SystemError error, u64 first, u64 last) {
    PathFaults& faults = impl_->FaultsOf(path);
    faults.readError = error;
    faults.firstBad = first;
    faults.lastBad = last;
}

void SimFiles::SetFreeSpace(u64 bytes) {
    impl_->freeSpace = bytes;
}

void SimFiles::ClearFaults() {
    // Open files hold these records, so they are emptied and not dropped.
    for (auto& [path, faults] : impl_->faults) {
        WakeAllIn(faults->hanging);
        const FiberQueue hanging = faults->hanging;
        *faults = PathFaults{};
        faults->hanging = hanging;
    }
    impl_->readDelay = 0;
    impl_->freeSpace = End;
}

void SimFiles::SetWriteHook(std::function<void(const std::string&, std::string_view)> hook) {
    impl_->writeHook = std::move(hook);
}

FileCounters SimFiles::Counters() const {
    return impl_->counters;
}

}  // namespace Platform::Sim
