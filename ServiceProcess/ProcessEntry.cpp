#include "ServiceProcess/ProcessEntry.h"

#include <exception>
#include <iostream>

#include "Platform/OutOfMemory.h"
#include "ServiceProcess/CommandLine.h"
#include "ServiceProcess/DataDirectory.h"
#include "ServiceProcess/ServiceHost.h"

namespace Orv {

i32 ProcessEntry(i32 argc, char** argv, MakeHost make) {
    if (IsUsageRequest(argc, argv)) {
        PrintUsage();
        return 0;
    }
    Platform::EndWhenOutOfMemory();
    try {
        // Before the command line, so that a relative settings file is always relative to the data directory. The
        // process goes on wherever it stands when this fails.
        EnterDataDirectory();
        const i32 applied = ApplyCommandLine(argc, argv);
        if (applied != 0) return applied == 1 ? 0 : applied;
        make(argc, argv);
        RunServices();
        ClearServices();
        return 0;
    } catch (const std::exception& exception) {
        std::cerr << exception.what() << std::endl;
        return -3;
    }
}

}  // namespace Orv
