#include "Platform/Path.h"

#include <cerrno>

#include "Platform/sim/SimFileTree.h"
#include "Platform/sim/World.h"

namespace Platform {

bool MakeAbsolutePath(const std::string& path, std::string& absolute) {
    if (path.empty()) return false;
    absolute = Sim::Files().Internals().Absolute(path);
    return true;
}

std::string FindOnDisk(const std::string& path) {
    return Sim::Files().Internals().FindOnDisk(path);
}

std::string ProgramDataFolder() {
    return Sim::Files().ProgramDataFolder();
}

bool SetWorkingDirectory(const std::string& path, SystemError& error) {
    Sim::SimFiles::Impl& world = Sim::Files().Internals();
    const std::string found = world.FindOnDisk(path);
    if (!world.Reach(found, error)) return false;
    const auto node = world.Find(found, error);
    if (node == nullptr) return false;
    error = node->kind == Sim::FileKind::Folder ? 0 : ENOTDIR;
    if (error == 0) world.workingDirectory = world.Absolute(found);
    return error == 0;
}

}  // namespace Platform
