#include "ConfigService/ServeCommand.h"

#include <cstdio>
#include <exception>
#include <memory>
#include <system_error>

#include "ConfigService/Service.h"
#include "Platform/PrivateFile.h"
#include "Platform/ServiceControl.h"
#include "VX/GrpcLink.h"

namespace Orv {
namespace {

constexpr char kServiceName[] = "OrvConfig";
constexpr u32 kOwnProcess = 0x10;
constexpr u32 kStopped = 1;
constexpr u32 kStarting = 2;
constexpr u32 kStopping = 3;
constexpr u32 kRunning = 4;
constexpr u32 kControlStop = 1;
constexpr u32 kWaitMilliseconds = 60000;

// What was missing for the start, and what to do about it where that is known.
std::string Scarcity(const std::system_error& error) {
    const bool files = error.code() == std::errc::too_many_files_open;
    const bool threads = error.code() == std::errc::resource_unavailable_try_again;
    if (!files && !threads) return "orv-config cannot start: " + error.code().message();
    return std::string("orv-config cannot start: too few ") + (files ? "open files" : "threads") + " are allowed (" +
           error.code().message() + "); " +
           (files ? "raise LimitNOFILE= of its unit, or ulimit -n of who starts it"
                  : "raise TasksMax= of its unit, or ulimit -u of who starts it, or end what else this user runs");
}

// Everything that serves, from the lock on the database to the listening port.
class Daemon {
public:
    explicit Daemon(const ServeOptions& options) : options_(options) {}
    ~Daemon() { Stop(); }

    bool Start() {
        std::string reason;
        if (Open(reason)) return true;
        log_.Error(reason);
        return false;
    }

    // Returns once the tables could be reached: a service that cannot do that for long gives no sign of life.
    void Touch() const { store_->LastTransaction(); }

    void Stop() {
        if (server_ == nullptr) return;
        service_->Stop();
        server_->Stop();
        service_->Attach(nullptr);
        server_.reset();
        store_->Checkpoint();
        log_.Info("Stopped");
    }

private:
    bool Open(std::string& reason) {
        Platform::SystemError error = 0;
        lock_ = Platform::TryLockFile(options_.database, error);
        if (lock_ == nullptr) {
            reason = "The database " + options_.database;
            reason += error == Platform::FileLockedError()
                          ? " is served by another orv-config; stop that one first"
                          : " cannot be opened for writing: " + Platform::SystemErrorText(error) +
                                "; check that its folder is there and that this user may write to it";
            return false;
        }
        store_ = Store::Open(options_.database, reason);
        users_ = store_ != nullptr ? Users::Open(options_.database, reason) : nullptr;
        if (users_ == nullptr) return false;
        if (users_->List().empty()) {
            log_.Warn(
                "There is no user yet, so nobody can connect; make one with: orv-config user add NAME --role "
                "admin --database " +
                options_.database);
        }
        service_ = std::make_unique<ConfigService>(*store_, *users_, log_, ORV_VERSION, options_.database);
        try {
            server_ = VX::CreateGrpcServer(options_.address, options_.port, *service_, reason);
        } catch (const std::system_error& error) {
            reason = Scarcity(error);
            return false;
        }
        if (server_ == nullptr) {
            reason = "orv-config " + reason + "; stop what uses the port, or choose another with --port";
            return false;
        }
        service_->Attach(server_.get());
        log_.Info("orv-config " ORV_VERSION " serves " + options_.database + ", last transaction " +
                  std::to_string(store_->LastTransaction()));
        const std::string place = options_.address + ":" + std::to_string(server_->Port());
        std::printf("orv-config: listening on %s\n", place.c_str());
        std::fflush(stdout);
        return true;
    }

    const ServeOptions options_;
    ServiceLog log_;
    std::unique_ptr<Platform::IFileLock> lock_;  // let go after the database has been closed
    std::unique_ptr<Store> store_;
    std::unique_ptr<Users> users_;
    std::unique_ptr<ConfigService> service_;
    std::unique_ptr<VX::ILinkServer> server_;
};

// The dispatcher's entry has no argument of ours, so this one process's state stands here.
struct Process {
    ServeOptions options;
    Platform::Event stop;
    int exitCode = 1;
};
Process& TheProcess() {
    static Process process;
    return process;
}

u32 OnControl(u32 control, u32, void*, void*) {
    if (control == kControlStop) TheProcess().stop.Set();
    return 0;
}

// `report` is told each state.
template <typename Report>
void RunDaemon(const Report& report) {
    Process& process = TheProcess();
    try {
        report(kStarting);
        Daemon daemon(process.options);
        if (daemon.Start()) {
            report(kRunning);
            const u32 watchdog = Platform::WatchdogMilliseconds();
            do {
                daemon.Touch();
                if (watchdog != 0) Platform::PingWatchdog();
            } while (!process.stop.WaitFor(watchdog != 0 ? watchdog / 4 : kWaitMilliseconds));
            report(kStopping);
            daemon.Stop();
            process.exitCode = 0;
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orv-config: %s\n", error.what());
    }
    report(kStopped);
}

void ServiceMain(u32, char**) {
    const Platform::StatusHandle handle = Platform::RegisterControlHandler(kServiceName, OnControl, nullptr);
    RunDaemon([handle](u32 state) {
        Platform::ServiceStatus status{};
        status.serviceType = kOwnProcess;
        status.currentState = state;
        status.controlsAccepted = state == kRunning ? 1 : 0;
        Platform::SetServiceStatus(handle, status);
    });
}

}  // namespace

bool IsLoopback(const std::string& address) {
    if (address == "localhost" || address == "::1") return true;
    if (!address.starts_with("127.")) return false;
    u32 parts = 1;
    u32 digits = 0;
    u32 value = 0;
    for (const char c : address) {
        if (c == '.') {
            if (digits == 0) return false;
            ++parts;
            digits = value = 0;
        } else if (c >= '0' && c <= '9' && ++digits <= 3) {
            value = value * 10 + static_cast<u32>(c - '0');
            if (value > 255) return false;
        } else {
            return false;
        }
    }
    return parts == 4 && digits > 0;
}

int Serve(const ServeOptions& options) {
    TheProcess().options = options;
    const Platform::ServiceTableEntry table[] = {{kServiceName, ServiceMain}, {nullptr, nullptr}};
    try {
        if (!Platform::StartServiceDispatcher(table)) {
            Platform::ForegroundStop stop([] { TheProcess().stop.Set(); });
            RunDaemon([](u32) {});
        }
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "%s\n", Scarcity(error).c_str());
    }
    return TheProcess().exitCode;
}

}  // namespace Orv
