#include "Platform/Diagnosis.h"

#include "Platform/ProcessFigures.h"
#include "Platform/sim/SimFileTree.h"
#include "Platform/sim/SimPipeTable.h"
#include "Platform/sim/World.h"

namespace Platform {

SocketState ProbePipe(const std::string& name, SystemError& error) {
    std::string key;
    if (!Sim::CurrentWorld().pipes.Internals().MakeKey(name, key, error)) return SocketState::Unreachable;
    return Sim::CurrentWorld().pipes.IsServed(name) ? SocketState::Served : SocketState::Absent;
}

SocketState ProbeSocket(const std::string& path, SystemError& error) {
    error = 0;
    if (Sim::CurrentWorld().localServers.byPath.count(path) != 0) return SocketState::Served;
    return Sim::Files().Exists(path) ? SocketState::NotASocket : SocketState::Absent;
}

FolderState ProbeFolder(const std::string& path) {
    if (!Sim::Files().Exists(path)) return FolderState::Missing;
    return Sim::Files().KindOf(path) == Sim::FileKind::Folder ? FolderState::Usable : FolderState::NotAFolder;
}

bool DiskSpace(const std::string&, u64& total, u64& available, SystemError& error) {
    constexpr u64 kDiskBytes = u64{1} << 40;
    const u64 free = Sim::Files().Internals().freeSpace;
    total = kDiskBytes;
    available = free < kDiskBytes ? free : kDiskBytes;
    error = 0;
    return true;
}

ProcessFigures ReadProcessFigures() {
    ProcessFigures figures;
    figures.id = 1;
    return figures;
}

bool CanOpenFiles(u32) {
    return true;
}

}  // namespace Platform
