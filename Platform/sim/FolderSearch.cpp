#include "Platform/FolderSearch.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "Platform/PathText.h"
#include "Platform/sim/SimFileTree.h"
#include "Platform/sim/World.h"

namespace Platform {

namespace {

// What matched when the search began, less what has gone since.
class SimFolderSearch final : public IFolderSearch {
public:
    SimFolderSearch(std::shared_ptr<Sim::SimFiles::Impl> world, std::shared_ptr<Sim::FileNode> folder,
                    const std::string& extension)
        : world_(std::move(world)), folder_(std::move(folder)) {
        ++world_->counters.searches;
        ++world_->counters.searchesAlive;
        if (folder_ == nullptr) return;
        for (const auto& child : folder_->children) {
            if (EndsWithIgnoringCase(child->name, extension)) names_.push_back(child->name);
        }
        if (world_->searchOrder == Sim::SearchOrder::ByName) std::sort(names_.begin(), names_.end());
        if (world_->searchOrder == Sim::SearchOrder::Reversed) std::reverse(names_.begin(), names_.end());
    }

    ~SimFolderSearch() override { --world_->counters.searchesAlive; }

    bool Next(std::string& name, bool& isFolder) override {
        Sim::SchedulingPoint();
        if (folder_ != nullptr && Sim::Failures().Fails(Sim::Operation::Entry, folder_->name)) return false;
        while (next_ < names_.size()) {
            const auto child = folder_->Child(names_[next_++]);
            if (child == nullptr) continue;
            name = child->name;
            isFolder = child->kind == Sim::FileKind::Folder;
            return true;
        }
        return false;
    }

private:
    const std::shared_ptr<Sim::SimFiles::Impl> world_;
    const std::shared_ptr<Sim::FileNode> folder_;
    std::vector<std::string> names_;
    size_t next_ = 0;
};

}  // namespace

std::unique_ptr<IFolderSearch> SearchFolder(const std::string& folder, const std::string& extension) {
    const auto world = Sim::Files().Internals().shared_from_this();
    const std::string found = world->FindOnDisk(folder);
    SystemError error = 0;
    std::shared_ptr<Sim::FileNode> node;
    if (world->Reach(found, error)) node = world->Find(found, error);
    if (node != nullptr && node->kind != Sim::FileKind::Folder) node = nullptr;
    return std::make_unique<SimFolderSearch>(world, std::move(node), extension);
}

}  // namespace Platform
