// What orvctl learns about the audio feed service, and how it shows it.
#pragma once

#include <string>
#include <vector>

#include "Tools/orvctl/Commands.h"

namespace Orv {

// What the service's settings file says about where things are. Nothing here needs a connection.
struct ServiceSettings {
    std::string file;
    std::string connectionFile;  // how orvctl connects; often the same
    std::string dataPath;        // with a closing separator
    std::string pipeFolder;      // as set, or the usual one
    std::string statusPath;      // empty: the state is not told
    std::string user;            // as whom the service connects
    std::vector<std::string> preload;
    std::vector<std::string> messages;  // what the file's reader objects to
    std::vector<std::string> slips;     // what is probably meant otherwise
};

// Reads the options' settings file or, when that says nothing of the service, OrvPhoneSystem.ini in the same folder.
// Throws ToolError when there is no file, or when it cannot be opened.
ServiceSettings ReadServiceSettings(const ConnectionOptions& options);

// The state that the service tells on a path. False with why not.
bool FetchState(const std::string& path, Json& state, std::string& reason);

// Where it is shown.
struct Screen {
    u32 width = 0;   // lines are cut at so many characters; 0: not at all
    u32 height = 0;  // of so many lines the last stays free, and feeds for which there is no room are counted; 0: all
    bool colours = false;
};
// The state for people: two lines about the service, a table of the feeds with a bar for each level, and what could not
// be played.
std::string StateText(const Json& state, const Screen& screen);

// The Configuration service's own status.
struct ConfigStatus {
    Json json;
    std::string text;
};
ConfigStatus FetchConfigStatus(const CommandContext& context);

}  // namespace Orv
