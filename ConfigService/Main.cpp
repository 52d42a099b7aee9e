// orv-config: the Configuration service, and the users of its database.
#include <CLI/CLI.hpp>

#include "ConfigService/ServeCommand.h"
#include "ConfigService/UserCommands.h"
#include "Platform/OutOfMemory.h"
#include "Platform/Path.h"
#include "Platform/ServiceControl.h"

namespace {

constexpr int kFailed = 1;
constexpr int kBadCommandLine = 2;

struct CommandLine {
    Orv::ServeOptions serve;
    Orv::UserOptions user;
    std::string role;
    int (*userCommand)(const Orv::UserOptions&) = nullptr;
};

CLI::App* AddUserCommand(CLI::App& users, CommandLine& line, const char* name, const char* description,
                         int (*command)(const Orv::UserOptions&)) {
    CLI::App* added = users.add_subcommand(name, description);
    added->callback([&line, command] { line.userCommand = command; });
    return added;
}

void AddNameAndPassword(CLI::App& command, CommandLine& line, bool password) {
    command.add_option("name", line.user.name, "The user's name")->required();
    if (!password) return;
    command
        .add_option("--password-file", line.user.passwordFile,
                    "File whose first line is the password, or - for standard input; asked for when not given")
        ->type_name("FILE");
}

void Describe(CLI::App& app, CommandLine& line) {
    app.set_version_flag("--version", "orv-config " ORV_VERSION);
    app.fallthrough();
    app.add_option("--database", line.serve.database, "The database file, made when missing")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_option("--port", line.serve.port, "Port to listen on; 0 for any free one, which is printed")
        ->check(CLI::Range(0, 65535))
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--address", line.serve.address, "Address to listen on; only those of this machine's own loopback")
        ->type_name("ADDRESS")
        ->capture_default_str();
    app.footer("Exit codes: 0 done, 1 not done (the reason is on standard error), 2 bad command line.");
    app.require_subcommand(0, 1);

    app.add_subcommand("serve", "Serve the tables until stopped (also what happens without a command)");
    CLI::App* users = app.add_subcommand("user", "The users of the database; the service may run meanwhile");
    users->require_subcommand(1, 1);
    CLI::App* add = AddUserCommand(*users, line, "add", "Add a user", Orv::AddUser);
    AddNameAndPassword(*add, line, true);
    add->add_option("--role", line.role, "admin may change everything, reader may read the tables")
        ->required()
        ->check(CLI::IsMember({"admin", "reader"}));
    AddNameAndPassword(*AddUserCommand(*users, line, "passwd", "Give a user a new password", Orv::SetUserPassword),
                       line, true);
    AddNameAndPassword(*AddUserCommand(*users, line, "remove", "Remove a user", Orv::RemoveUser), line, false);
    AddUserCommand(*users, line, "list", "List the users and their roles", Orv::ListUsers);
}

}  // namespace

int main(int argc, char** argv) {
    Platform::PrepareProcess();
    Platform::EndWhenOutOfMemory();
    CommandLine line;
    line.serve.database = Platform::ProgramDataFolder() + "/Orv/Config/orv-config.db";
    CLI::App app{"Keeps the configuration tables and serves them to the audio feed service and to orvctl.",
                 "orv-config"};
    Describe(app, line);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kBadCommandLine;
    }
    try {
        if (line.userCommand != nullptr) {
            line.user.database = line.serve.database;
            if (!line.role.empty()) Orv::ParseRole(line.role, line.user.role);
            return line.userCommand(line.user);
        }
        if (!Orv::IsLoopback(line.serve.address)) {
            std::fprintf(stderr,
                         "orv-config: --address %s: only an address of the loopback is served, for instance "
                         "127.0.0.1\n",
                         line.serve.address.c_str());
            return kBadCommandLine;
        }
        return Orv::Serve(line.serve);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orv-config: %s\n", error.what());
        return kFailed;
    }
}
