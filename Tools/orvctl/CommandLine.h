// The command line of orvctl.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Tools/orvctl/Commands.h"
#include "Tools/orvctl/Import.h"
#include "Tools/orvctl/Setup.h"

namespace CLI {
class App;
}

namespace Orv {

// Describes the commands to the parser and keeps what it reads. The object must live as long as the parser.
class OrvctlCommandLine {
public:
    explicit OrvctlCommandLine(CommandContext& context) : context_(context) {}
    void Describe(CLI::App& app);
    // Runs the command that was read.
    void Run() const { command_(); }
    // Of a command that ran to its end.
    int ExitCodeOfRun() const { return exitCode_; }

private:
    void DescribeConnection(CLI::App& app);
    void DescribeRows(CLI::App& app, const TableWords& words);
    void DescribeRowChange(CLI::App& parent, const TableWords& words, Action action, const char* name,
                           const std::string& description);
    void DescribeUsers(CLI::App& app);
    void DescribeSetup(CLI::App& app);
    void DescribeImport(CLI::App& app);
    void DescribeState(CLI::App& app);

    // What was typed for one change of a row.
    struct RowOptions {
        TypedRow typed;
        std::vector<std::string> texts;  // by column
        std::string value;               // a parameter's value as a second word
    };

    CommandContext& context_;
    std::function<void()> command_;
    std::vector<std::unique_ptr<RowOptions>> rows_;
    std::string key_;
    std::string file_;
    bool watch_ = false;
    int exitCode_ = 0;
    TypedUser user_;
    SetupOptions setup_;
    ImportOptions import_;
};

}  // namespace Orv
