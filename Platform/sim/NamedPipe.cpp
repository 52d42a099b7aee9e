#include "Platform/NamedPipe.h"

#include <optional>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Platform/sim/SimPipeTable.h"
#include "Platform/sim/World.h"

namespace Platform {

namespace {

using Sim::PipeConnection;
using Sim::PipeFault;
using Sim::PipeFaults;
using Sim::PipeServer;
using SimPipeTable = Sim::SimPipes::Impl;

SimPipeTable& Table() {
    return Sim::Pipes().Internals();
}

// The failure that `name` has for an operation; 0 for none.
SystemError TakeFault(SimPipeTable& table, const std::string& name, PipeFault PipeFaults::*kind,
                      Sim::Operation operation) {
    if (Sim::Failures().Fails(operation, name)) return EMFILE;
    if (table.faults.empty()) return 0;
    const auto found = table.faults.find(PipeFileName(name));
    return found == table.faults.end() ? 0 : (found->second.*kind).TakeError();
}

class SimPipeInstance final : public IPipeInstance {
public:
    SimPipeInstance(std::shared_ptr<SimPipeTable> table, std::shared_ptr<PipeServer> server)
        : table_(std::move(table)), server_(std::move(server)), id_(++table_->lastId) {
        ++table_->counters.instancesAlive;
    }

    ~SimPipeInstance() override {
        --table_->counters.instancesAlive;
        if (connection_ == nullptr) return;
        connection_->serverGone = true;
        Sim::WakeAllIn(connection_->readers);
    }

    PipeId Id() const override { return id_; }

    ConnectState PollConnect(SystemError& error) override {
        Sim::SchedulingPoint();
        const ConnectState state = Poll(error);
        if (table_->observer != nullptr) {
            table_->observer->OnPoll(server_->name, id_, state, connection_ == nullptr ? 0 : connection_->client);
        }
        return state;
    }

    i64 Write(const void* data, u64 size, u64 deadline) override {
        if (table_->observer != nullptr) table_->observer->OnWriting(server_->name, id_);
        const i64 taken = WaitAndPut(data, size, deadline);
        if (table_->observer != nullptr) {
            table_->observer->OnWrite(server_->name, id_, static_cast<const u8*>(data), taken);
        }
        return taken;
    }

    i64 TryWrite(const void* data, u64 size) override {
        ++table_->counters.writes;
        Sim::SchedulingPoint();
        if (connection_ == nullptr || connection_->clientGone) return -1;
        u64 count = std::min<u64>(size, connection_->Room());
        if (table_->writeLimit != 0) count = std::min(count, table_->writeLimit);
        if (count != 0) Put(data, count);
        return static_cast<i64>(count);
    }

private:
    ConnectState Poll(SystemError& error) {
        error = 0;
        if (connection_ != nullptr) return ConnectState::Connected;
        error = TakeFault(*table_, server_->name, &PipeFaults::polls, Sim::Operation::PollInstance);
        if (error != 0) return ConnectState::Failed;
        if (server_->waiting.empty()) return ConnectState::Pending;
        connection_ = std::move(server_->waiting.front());
        server_->waiting.pop_front();
        --table_->counters.clientsQueued;
        Sim::WakeAllIn(server_->connectors);
        return ConnectState::Connected;
    }

    i64 WaitAndPut(const void* data, u64 size, u64 deadline) {
        ++table_->counters.writes;
        Sim::SchedulingPoint();
        if (connection_ == nullptr || connection_->clientGone) return -1;
        if (Sim::Failures().Fails(Sim::Operation::WritePipe, server_->name)) return -1;
        u64 count = std::min<u64>(size, Sim::SimPipes::Capacity);
        if (table_->writeLimit != 0) count = std::min(count, table_->writeLimit);
        std::optional<ThreadWaitScope> waiting;
        const u64 end = deadline == NoDeadline ? Sim::kNever : deadline * Sim::kNanosecondsPerMillisecond;
        while (connection_->Room() < count) {
            if (end != Sim::kNever && Sim::Clock().SteadyNanoseconds() >= end) return 0;
            if (!waiting) waiting.emplace(ThreadWait::Client);
            ++table_->counters.writersBlocked;
            Sim::BlockOrThrow(connection_->writers, end, {"the client of a full pipe"});
            --table_->counters.writersBlocked;
            if (connection_->clientGone) return -1;
        }
        Put(data, count);
        return static_cast<i64>(count);
    }

    void Put(const void* data, u64 count) {
        connection_->Put(static_cast<const u8*>(data), count);
        table_->counters.bytesWritten += count;
        Sim::WakeAllIn(connection_->readers);
    }

    const std::shared_ptr<SimPipeTable> table_;
    const std::shared_ptr<PipeServer> server_;
    const PipeId id_;
    std::shared_ptr<PipeConnection> connection_;
};

class SimPipeEndpoint final : public IPipeEndpoint {
public:
    SimPipeEndpoint(std::shared_ptr<SimPipeTable> table, std::string name)
        : table_(std::move(table)), name_(std::move(name)) {
        ++table_->counters.endpointsAlive;
        if (table_->observer != nullptr) table_->observer->OnEndpoint(name_);
    }

    ~SimPipeEndpoint() override {
        if (table_->observer != nullptr) table_->observer->OnEndpointGone(name_);
        --table_->counters.endpointsAlive;
        if (server_ != nullptr) table_->Close(*server_);
    }

    std::unique_ptr<IPipeInstance> CreateInstance(SystemError& error) override {
        Sim::SchedulingPoint();
        error = TakeFault(*table_, name_, &PipeFaults::instances, Sim::Operation::OpenInstance);
        std::unique_ptr<IPipeInstance> instance;
        if (error == 0 && (server_ != nullptr || Serve(error))) {
            instance = std::make_unique<SimPipeInstance>(table_, server_);
        }
        if (table_->observer != nullptr) {
            table_->observer->OnInstance(name_, instance == nullptr ? 0 : instance->Id());
        }
        return instance;
    }

private:
    bool Serve(SystemError& error) {
        std::string key;
        if (!table_->MakeKey(name_, key, error)) return false;
        error = EADDRINUSE;
        if (table_->FindServer(key) != nullptr) return false;
        server_ = std::make_shared<PipeServer>();
        server_->key = std::move(key);
        server_->name = name_;
        table_->servers.push_back(server_);
        error = 0;
        return true;
    }

    const std::shared_ptr<SimPipeTable> table_;
    const std::string name_;
    std::shared_ptr<PipeServer> server_;
};

class SimPipeClient final : public IPipeClient {
public:
    SimPipeClient(std::shared_ptr<SimPipeTable> table, std::string name, std::shared_ptr<PipeConnection> connection)
        : table_(std::move(table)), name_(std::move(name)), connection_(std::move(connection)), id_(++table_->lastId) {
        ++table_->counters.clientsAlive;
        connection_->client = id_;
    }

    ~SimPipeClient() override {
        --table_->counters.clientsAlive;
        connection_->clientGone = true;
        Sim::WakeAllIn(connection_->writers);
    }

    PipeId Id() const override { return id_; }

    Outcome Read(void* destination, u64 size, u32 timeoutMilliseconds, u64& taken, SystemError& error) override {
        Sim::SchedulingPoint();
        taken = 0;
        error = TakeFault(*table_, name_, &PipeFaults::reads, Sim::Operation::ReadPipe);
        if (error != 0) return Outcome::Closed;
        const u64 end = Sim::Clock().SteadyNanoseconds() + timeoutMilliseconds * Sim::kNanosecondsPerMillisecond;
        while (connection_->used == 0) {
            error = connection_->endError;
            if (connection_->serverGone) return Outcome::Closed;
            if (Sim::Clock().SteadyNanoseconds() >= end) return Outcome::TimedOut;
            Sim::BlockOrThrow(connection_->readers, end, {"bytes from a pipe"});
        }
        taken = std::min(size, connection_->used);
        connection_->Take(static_cast<u8*>(destination), taken);
        Sim::WakeAllIn(connection_->writers);
        return Outcome::Data;
    }

    bool Available(u64& bytes) override {
        Sim::SchedulingPoint();
        bytes = connection_->used;
        return bytes != 0 || !connection_->serverGone;
    }

    u64 Write(const void*, u64) override {
        Sim::SchedulingPoint();
        return 0;  // every server here is an IPipeInstance
    }

private:
    const std::shared_ptr<SimPipeTable> table_;
    const std::string name_;
    const std::shared_ptr<PipeConnection> connection_;
    const PipeId id_;
};

std::unique_ptr<IPipeClient> Connect(SimPipeTable& table, const std::string& name, u32 milliseconds,
                                     SystemError& error) {
    error = TakeFault(table, name, &PipeFaults::connects, Sim::Operation::ConnectPipe);
    std::string key;
    if (error != 0 || !table.MakeKey(name, key, error)) return nullptr;
    const u64 end = Sim::Clock().SteadyNanoseconds() + milliseconds * Sim::kNanosecondsPerMillisecond;
    for (;;) {
        const auto server = table.FindServer(key);
        error = ENOENT;
        if (server == nullptr) return nullptr;
        if (server->waiting.size() < table.queueLength) {
            auto connection = std::make_shared<PipeConnection>(std::move(key));
            server->waiting.push_back(connection);
            ++table.counters.clientsQueued;
            ++table.counters.connects;
            error = 0;
            return std::make_unique<SimPipeClient>(table.shared_from_this(), name, std::move(connection));
        }
        error = PipeBusyError();
        if (Sim::Clock().SteadyNanoseconds() >= end) return nullptr;
        Sim::BlockOrThrow(server->connectors, end, {"a place in the queue of a pipe"});
    }
}

}  // namespace

std::unique_ptr<IPipeEndpoint> CreatePipeEndpoint(const std::string& name) {
    return std::make_unique<SimPipeEndpoint>(Table().shared_from_this(), name);
}

std::unique_ptr<IPipeClient> ConnectPipe(const std::string& name, SystemError& error) {
    return ConnectPipeWithin(name, 0, error);
}

std::unique_ptr<IPipeClient> ConnectPipeWithin(const std::string& name, u32 milliseconds, SystemError& error) {
    Sim::SchedulingPoint();
    SimPipeTable& table = Table();
    auto client = Connect(table, name, milliseconds, error);
    if (table.observer != nullptr) table.observer->OnConnect(name, client == nullptr ? 0 : client->Id(), error);
    return client;
}

SystemError PipeBusyError() {
    return EAGAIN;
}

SystemError PipeBrokenError() {
    return EPIPE;
}

void SetPipeFolder(const std::string& folder) {
    Table().folder = folder;
}

std::string PipeFolder() {
    return Table().folder;
}

}  // namespace Platform
