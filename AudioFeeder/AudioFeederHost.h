// The application: from the settings file through the connection to the last channel's end.
#pragma once

#include <memory>
#include <string>

#include "AudioFeeder/ServiceWatch.h"
#include "Platform/Types.h"
#include "ServiceProcess/CommonSettings.h"
#include "ServiceProcess/ServiceHost.h"

namespace Orv {

class StatusServer;

// Runs on the service's thread, or on the main thread in the foreground, and never touches the audio. Stop() and
// OnControl() come from other threads and only raise a flag.
//
// A connection that has once been made is never made again: after its loss the channels play on with what they have,
// until the service is restarted.
class AudioFeederHost : public ServiceHost {
public:
    explicit AudioFeederHost(const char* name) : ServiceHost(name) {}
    ~AudioFeederHost() override = default;

    void Stop() override;
    // Loads the settings file, opens the log, connects, and sleeps until it is told to stop. Both arguments are
    // ignored. A settings file that cannot be opened ends it at once, without a word; one that a disk cuts short, with
    // a sentence on standard error.
    void Run(u32 argCount, void* args) override;
    // Stop and shutdown raise the stop request; anything else is answered with "running".
    u32 OnControl(u32 control, u32 eventType, void* eventData) override;

    // The process's own arguments. Nothing reads them.
    i32 argc = 0;
    char** argv = nullptr;

private:
    // How to reach the Configuration service. Not usable without port, user and password.
    struct ConnectionSettings {
        std::string confNic;
        u64 confPort = 0;
        std::string confUser;
        std::string confPass;

        bool Usable() const { return confPort != 0 && !confUser.empty() && !confPass.empty(); }
        void Forget();
    };
    enum class Outcome { StopRequested, ConnectionLost, TimedOut };

    void StartUp(CommonSettings& settings);
    static std::unique_ptr<StatusServer> ServeStatus(CommonSettings& settings);
    void RunConnection(CommonSettings& settings);
    void ShutDown();
    static ConnectionSettings ReadConnectionSettings(CommonSettings& settings);
    bool StartLibrary();
    bool TryConnect(const ConnectionSettings& connection);
    static Outcome WaitBeforeRetry();
    static Outcome WaitForStop();

    bool libraryRuns_ = false;
    std::unique_ptr<ServiceWatch> watch_;  // while a service manager runs this
};

// Makes the process's host, which registers itself, and clears the stop request of the process.
void MakeAudioFeederHost(i32 argc, char** argv);

}  // namespace Orv
