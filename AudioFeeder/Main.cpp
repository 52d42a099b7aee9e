// orv-audio-feed: the audio feed service.
#include "AudioFeeder/AudioFeederHost.h"
#include "Platform/Memory.h"
#include "Platform/ServiceControl.h"
#include "ServiceProcess/ProcessEntry.h"
#include "VX/GrpcLink.h"
#include "VX/VX.h"

int main(int argc, char** argv) {
    Platform::PrepareProcess();
    Platform::ShareOneHeap();
    // Never destroyed: the library is shut down a last time among the process-wide objects.
    static VX::ILinkConnector* const connector = VX::CreateGrpcConnector().release();
    VXSetConnector(connector);
    return Orv::ProcessEntry(argc, argv, &Orv::MakeAudioFeederHost);
}
