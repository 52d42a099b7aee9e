#include "AudioFeeder/LibraryListeners.h"

#include <cstring>
#include <exception>

#include "AudioFeeder/RequestFlags.h"
#include "ConfigClient/ConfigConnection.h"
#include "ServiceProcess/Log.h"
#include "VX/VX.h"

namespace Orv {

namespace {

constexpr char kLogSource[] = "OrvAudioFeeder";

i32 IgnoreFailure(const char*, u64, u64) {
    return 0;
}

}  // namespace

void InstallLibraryListeners() {
    VXSetAuthFailedListener(&IgnoreFailure);
    VXSetConnectListener(&OnVXConnect);
    VXSetDisconnectListener(&OnVXDisconnect);
    VXSetUnknownConnectListener(&IgnoreFailure);
}

i32 OnVXConnect(const char* local, const char* remote, const char* application, u64, u64, const char* applicationType) {
    try {
        if (std::strcmp(applicationType, "DBProvider") == 0) {
            ORV_LOG(Info) << "[EC200001]: Configuration server is connected:\n    application:" << application
                          << "\n    local:" << local << "\n    remote:" << remote;
        }
    } catch (const std::exception& exception) {
        ORV_LOG(Excep) << exception.what();
    }
    return 0;
}

i32 OnVXDisconnect(const char* application, u64, u64) {
    try {
        if (std::strcmp(application, ConfigConnection::GetServerName()) != 0) return 0;
        ConfigConnection::Disconnect();
        RaiseConnectionLost();
        ORV_LOG(Error) << "[EC000001]: Connection with configuration server is lost";
    } catch (const std::exception& exception) {
        ORV_LOG(Excep) << exception.what();
    }
    return 0;
}

}  // namespace Orv
