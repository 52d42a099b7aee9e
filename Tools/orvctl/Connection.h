// One connection to the Configuration service for one command.
#pragma once

#include <memory>
#include <string>

#include "ConfigService/Change.h"
#include "VX/Link.h"

namespace Orv {

struct Target {
    std::string host;
    u32 port = 0;
    std::string user;
    std::string password;
};

// What the command line says about the connection; empty parts come from the settings file.
struct ConnectionOptions {
    std::string configFile;  // empty: the first of the usual places that exists
    std::string host;
    u32 port = 0;
    std::string user;
    std::string passwordFile;
    bool json = false;
};

// Where and as whom to connect. Throws ToolError with what to do when something is missing. What the settings file's
// reader objects to goes to standard error.
Target FindTarget(const ConnectionOptions& options);

// Whether an address is one of this machine's loopback.
bool IsThisMachine(const std::string& host);

// Looks at a settings file as the audio feed service would read it; an empty path stands for the usual places. Throws
// ToolError when the service could not connect with it. The path that was looked at.
std::string CheckSettings(const std::string& path);

// The settings file that is meant: that of the options, otherwise the first of the usual places that exists. Throws
// ToolError when there is none.
std::string SettingsFileOf(const ConnectionOptions& options);

class Connection : private VX::ILinkEvents {
public:
    // Connects, or throws ToolError.
    Connection(VX::ILinkConnector& connector, const Target& target);

    // The reply, which has the result "ok". Everything else is thrown as ToolError with the reply's own reasons.
    VX::ParamListHolder Call(u32 number, const VX::ParamListHolder& request);
    // One transaction. The outcome Done; everything else is thrown, after the reasons have been told in `result`.
    ApplyResult Apply(const std::vector<Change>& changes);
    // All rows of a table, or throws.
    std::vector<Row> Rows(const Table& table);
    Row FindRow(const Table& table, const std::string& key);
    // Whether the service runs on this machine, so that the files that rows name are here.
    bool IsToThisMachine() const { return IsThisMachine(target_.host); }

private:
    void OnSignal(const std::string&, VX::ParamListHolder) override {}
    void OnClosed() override {}

    Target target_;
    VX::PeerInfo peer_;
    std::unique_ptr<VX::ILink> link_;
};

}  // namespace Orv
