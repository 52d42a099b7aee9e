// orvctl: administers the Configuration service from the command line.
#include <CLI/CLI.hpp>
#include <cstdio>

#include "Tools/orvctl/CommandLine.h"
#include "Tools/orvctl/ToolError.h"
#include "VX/GrpcLink.h"

int main(int argc, char** argv) {
    Orv::CommandContext context;
    Orv::OrvctlCommandLine line(context);
    CLI::App app{"Administers the feeds, announcements and parameters of the audio feed service.", "orvctl"};
    line.Describe(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::RequiredError& error) {
        // A word in the place of a command that is none would otherwise be told as a missing one.
        const CLI::App* place = &app;
        while (!place->get_subcommands().empty()) place = place->get_subcommands().back();
        const std::vector<std::string> left = app.remaining(true);
        if (place->get_require_subcommand_min() == 0) {
            app.exit(error);
        } else {
            const bool none = left.empty() || left.front().starts_with("-");
            std::fprintf(stderr, "orvctl: %s; \"orvctl %s--help\" lists those that there are.\n",
                         none ? "a command is missing" : ("\"" + left.front() + "\" is no command here").c_str(),
                         place == &app ? "" : (place->get_name() + " ").c_str());
        }
        return static_cast<int>(Orv::ExitCode::BadCommandLine);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(Orv::ExitCode::BadCommandLine);
    }
    try {
        const auto connector = VX::CreateGrpcConnector();
        context.connector = connector.get();
        line.Run();
        return line.ExitCodeOfRun();
    } catch (const Orv::ToolError& error) {
        Orv::TellError(error.what(), error.Code(), context.options.json);
        return static_cast<int>(error.Code());
    } catch (const std::exception& error) {
        Orv::TellError(error.what(), Orv::ExitCode::Refused, context.options.json);
        return static_cast<int>(Orv::ExitCode::Refused);
    }
}
