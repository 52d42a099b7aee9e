// orvctl setup: from installed packages to services that play.
#pragma once

#include <string>
#include <vector>

#include "Platform/Types.h"
#include "Tools/orvctl/Commands.h"

namespace Orv {

struct SetupOptions {
    std::string root;  // of the system that is set up; empty: this one
    u32 port = 0;      // of the Configuration service; 0: what the settings say, else the unit's own
    std::string defaultFile = "/usr/share/orv/default.wav";
    bool newPasswords = false;
};

inline constexpr u32 SetupPort = 5485;

// What was done, and what stands now, in one line each.
struct SetupReport {
    std::vector<std::string> made;
    std::vector<std::string> kept;
    bool madeFeed = false;
};

// Makes both users with their settings files, a first feed and the default sound, each only where it is missing, by
// way of the Configuration service when that runs and straight in its database when it does not. Throws ToolError; what
// was made until then stays, and a second run goes on from there.
SetupReport SetUp(VX::ILinkConnector& connector, const SetupOptions& options);

// The command: SetUp(), then the services are started, unless a root was given; it waits until a feed that it has made
// can be heard, ten seconds at most.
void RunSetup(const CommandContext& context, const SetupOptions& options);

}  // namespace Orv
