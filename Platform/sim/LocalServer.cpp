#include "Platform/LocalServer.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include "Platform/sim/Scheduler.h"
#include "Platform/sim/World.h"

namespace Platform {

struct LocalServer::Impl {
    std::string path;
    LocalAnswer answer;
    bool serves = false;
};

LocalServer::LocalServer(const std::string& path, const char*, LocalAnswer answer, LocalServerEvent event,
                         LocalServerLimits)
    : impl_(std::make_unique<Impl>(Impl{path, std::move(answer), false})) {
    if (Sim::Failures().Fails(Sim::Operation::ServeSocket, path)) {
        throw std::system_error(std::make_error_code(std::errc::too_many_files_open), "local server");
    }
    impl_->serves = Sim::CurrentWorld().localServers.byPath.try_emplace(path, &impl_->answer).second;
    event(impl_->serves ? 0 : EADDRINUSE);
}

LocalServer::~LocalServer() {
    if (impl_->serves) Sim::CurrentWorld().localServers.byPath.erase(impl_->path);
}

bool AskLocalServer(const std::string& path, const std::string& request, u32, u64 limit, std::string& answer,
                    SystemError& error) {
    Sim::SchedulingPoint();
    const auto& servers = Sim::CurrentWorld().localServers.byPath;
    const auto found = servers.find(path);
    error = ECONNREFUSED;
    if (found == servers.end()) return false;
    if (!(*found->second)(request, false, answer)) (*found->second)(request, true, answer);
    error = answer.size() > limit ? EMSGSIZE : 0;
    return error == 0;
}

}  // namespace Platform
