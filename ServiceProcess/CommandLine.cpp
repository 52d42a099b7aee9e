#include "ServiceProcess/CommandLine.h"

#include <iostream>
#include <stdexcept>
#include <string_view>

namespace Orv {

namespace {

CommandLineOptions& Stored() {
    static CommandLineOptions options;
    return options;
}

bool Matches(std::string_view argument, std::string_view brief, std::string_view full) {
    return argument == brief || argument == full;
}

}  // namespace

const CommandLineOptions& ProcessOptions() {
    return Stored();
}

bool IsUsageRequest(i32 argc, char** argv) {
    return argc == 2 && Matches(argv[1], "-h", "--help");
}

void PrintUsage() {
    // The bracket is not balanced, and tools know the line as it is.
    std::cout << "Usage: OrvMediaServer [[-d|--daemon -p pidfile] [-c|--config common_settings_file]" << std::endl;
}

CommandLineOptions ParseCommandLine(i32 argc, char** argv) {
    CommandLineOptions options;
    for (i32 index = 1; index < argc; ++index) {
        const std::string_view argument = argv[index];
        const bool hasNext = index + 1 < argc;
        if (Matches(argument, "-c", "--config")) {
            if (!hasNext) continue;
            options.configFile = argv[++index];
            std::cerr << "Instance configuration file: " << options.configFile << std::endl;
        } else if (Matches(argument, "-d", "--daemon")) {
            options.daemon = true;
        } else if (Matches(argument, "-p", "--pid")) {
            if (hasNext) options.pidFile = argv[++index];
        } else if (Matches(argument, "-n", "--notify")) {
            options.notify = true;
        }
    }
    if (options.daemon && options.notify) {
        throw std::logic_error("Both daemon & notify are set. They are mutually exclusive!");
    }
    return options;
}

i32 ApplyCommandLine(i32 argc, char** argv) {
    Stored() = ParseCommandLine(argc, argv);
    std::cerr << "Starting with" << (Stored().daemon ? "" : "out") << " forking" << std::endl;
    std::cerr << "config=" << Stored().configFile << std::endl;
    return 0;
}

}  // namespace Orv
