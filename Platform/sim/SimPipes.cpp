#include "Platform/sim/SimPipes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Platform/sim/SimPipeTable.h"

namespace Platform::Sim {

namespace {
// What a local socket address holds, its closing zero included.
constexpr size_t kAddressBytes = 108;
}  // namespace

void PipeConnection::Put(const u8* data, u64 count) noexcept {
    const u64 at = (first + used) % bytes.size();
    const u64 front = std::min<u64>(count, bytes.size() - at);
    std::memcpy(bytes.data() + at, data, front);
    std::memcpy(bytes.data(), data + front, count - front);
    used += count;
}

void PipeConnection::Take(u8* destination, u64 count) noexcept {
    const u64 front = std::min<u64>(count, bytes.size() - first);
    std::memcpy(destination, bytes.data() + first, front);
    std::memcpy(destination + front, bytes.data(), count - front);
    first = (first + count) % bytes.size();
    used -= count;
}

void PipeFault::Set(SystemError theError, u32 theTimes) noexcept {
    error = theError;
    times = theError == 0 ? 0 : theTimes;
}

SystemError PipeFault::TakeError() noexcept {
    if (times == 0) return 0;
    if (times != SimPipes::Always) --times;
    return error;
}

std::shared_ptr<PipeServer> SimPipes::Impl::FindServer(const std::string& key) const {
    const auto found = std::find_if(servers.begin(), servers.end(), [&](const auto& s) { return s->key == key; });
    return found == servers.end() ? nullptr : *found;
}

bool SimPipes::Impl::MakeKey(const std::string& name, std::string& key, SystemError& error) const {
    error = EINVAL;
    if (name.empty()) return false;
    key = folder;
    if (key.empty() || key.back() != '/') key += '/';
    key += PipeFileName(name);
    error = ENAMETOOLONG;
    if (key.size() >= kAddressBytes) return false;
    error = 0;
    return true;
}

void SimPipes::Impl::Close(PipeServer& server) {
    server.closed = true;
    std::erase_if(servers, [&](const auto& s) { return s.get() == &server; });
    for (const auto& connection : server.waiting) {
        --counters.clientsQueued;
        connection->serverGone = true;
        connection->endError = ECONNRESET;
        WakeAllIn(connection->readers);
    }
    server.waiting.clear();
    WakeAllIn(server.connectors);
}

SimPipes::SimPipes() : impl_(std::make_shared<Impl>()) {}
SimPipes::~SimPipes() = default;

void SimPipes::SetQueueLength(u32 clients) {
    impl_->queueLength = clients;
}
void SimPipes::SetWriteLimit(u64 bytes) {
    impl_->writeLimit = bytes;
}

void SimPipes::FailInstances(const std::string& name, SystemError error, u32 times) {
    impl_->faults[PipeFileName(name)].instances.Set(error, times);
}

void SimPipes::FailPolls(const std::string& name, SystemError error, u32 times) {
    impl_->faults[PipeFileName(name)].polls.Set(error, times);
}

void SimPipes::FailConnects(const std::string& name, SystemError error, u32 times) {
    impl_->faults[PipeFileName(name)].connects.Set(error, times);
}

void SimPipes::FailClientReads(const std::string& name, SystemError error, u32 times) {
    impl_->faults[PipeFileName(name)].reads.Set(error, times);
}

void SimPipes::ClearFaults() {
    impl_->faults.clear();
}

void SimPipes::SetObserver(PipeObserver* observer) {
    impl_->observer = observer;
}

bool SimPipes::IsServed(const std::string& name) const {
    std::string key;
    SystemError error = 0;
    return impl_->MakeKey(name, key, error) && impl_->FindServer(key) != nullptr;
}

std::vector<std::string> SimPipes::ServedNames() const {
    std::vector<std::string> names;
    for (const auto& server : impl_->servers) names.push_back(server->name);
    return names;
}

PipeCounters SimPipes::Counters() const {
    return impl_->counters;
}

}  // namespace Platform::Sim
