#include "Tools/orvctl/CommandLine.h"

#include <CLI/CLI.hpp>

namespace Orv {
namespace {

constexpr char kExitCodes[] =
    "Exit codes: 0 done, 1 refused by the service, 2 bad command line, settings or file, 3 nobody answers, 4 wrong\n"
    "credentials, 5 not found, 6 not allowed for this user, 7 connection lost before the answer, 8 the service could\n"
    "not write, 9 a sound file was refused, or the import was stopped.";

std::string Article(const TableWords& words) {
    return std::string(words.noun[0] == 'a' ? "an " : "a ") + words.noun;
}

// "--max-volume,--maxvolume"
std::string OptionNames(const TableWords& words, u32 column) {
    const std::string friendly = std::string("--") + words.columns[column].name;
    const std::string own = std::string("--") + words.table.columns[column].name;
    return friendly == own ? friendly : friendly + "," + own;
}

std::string TypeName(const ColumnWords& column) {
    switch (column.kind) {
        case WordKind::Text:
            return "TEXT";
        case WordKind::Number:
            return "N";
        case WordKind::Switch:
            return "on|off";
        case WordKind::Choice:
            break;
    }
    std::string name;
    for (const char* choice : column.choices) name += (name.empty() ? "" : "|") + std::string(choice);
    return name;
}

}  // namespace

void OrvctlCommandLine::Describe(CLI::App& app) {
    app.set_version_flag("--version", "orvctl " ORV_VERSION);
    app.fallthrough();
    app.require_subcommand(1, 1);
    app.footer(kExitCodes);
    DescribeConnection(app);
    for (const TableWords& words : AdministeredTables()) DescribeRows(app, words);
    DescribeUsers(app);
    DescribeSetup(app);
    DescribeImport(app);

    CLI::App* apply = app.add_subcommand("apply", "Bring rows to what a file states, all in one transaction");
    apply->add_option("file", file_, "The file, as export writes it; - for standard input")->required();
    apply->callback([this] { command_ = [this] { ApplyFile(context_, file_); }; });
    apply->footer(
        "A row in the file states its whole content; columns that it does not name become absent. Rows that are not\n"
        "named stay. To remove rows, add \"remove\": {\"feeds\": [\"old\"], \"announcements\": [], \"parameters\": "
        "[]}.");
    app.add_subcommand("export", "Write all feeds, announcements and parameters as JSON for apply")->callback([this] {
        command_ = [this] { ExportRows(context_); };
    });
    DescribeState(app);
    CLI::App* settings = app.add_subcommand("settings", "Look at a settings file");
    settings->require_subcommand(1, 1);
    CLI::App* check = settings->add_subcommand("check", "Tell what is wrong with a settings file, and what it lacks");
    check->add_option("file", file_, "The file; the one of -c when not given");
    check->callback([this] { command_ = [this] { CheckSettingsFile(context_, file_); }; });
}

void OrvctlCommandLine::DescribeState(CLI::App& app) {
    CLI::App* status = app.add_subcommand(
        "status", "Show what each feed plays and how it does, the tables, who is connected, the last transaction");
    status->add_flag("--watch", watch_, "Show the feeds with their levels, twice a second, until Ctrl-C");
    status->callback([this] { command_ = [this] { watch_ ? WatchStatus(context_) : ShowStatus(context_); }; });
    status->footer(
        "The feeds are shown when the service's settings file has StatusPath under [General], for instance\n"
        "StatusPath=/run/Orv/status/feed, and the audio feed service was started with it.");
    CLI::App* doctor =
        app.add_subcommand("doctor", "Look for whatever keeps feeds from being heard, and say how to mend it");
    doctor->callback([this] { command_ = [this] { exitCode_ = RunDoctor(context_); }; });
    doctor->footer(
        "Run it as root: it then looks at files with the rights of the service's user, and as the service sees them.\n"
        "-c names the service's own settings file, or an administrator's in the same folder. Exit codes, for health\n"
        "checks: 0 nothing is wrong, 1 there are warnings (all feeds are heard), 2 there are faults or doctor was "
        "called\n"
        "wrongly.");
}

void OrvctlCommandLine::DescribeConnection(CLI::App& app) {
    app.add_option("-c,--config", context_.options.configFile,
                   "Settings file with [ConfService] confNIC, ConfPort, confUser and confPass; otherwise the first of "
                   "/etc/orv/orvctl.ini, /etc/orv/OrvPhoneSystem.ini and /var/lib/Orv/Bin/OrvPhoneSystem.ini")
        ->type_name("FILE");
    app.add_option("--host", context_.options.host, "Address of the Configuration service")->type_name("ADDRESS");
    app.add_option("--port", context_.options.port, "Its port")->check(CLI::Range(1, 65535))->type_name("N");
    app.add_option("--user", context_.options.user, "Who connects")->type_name("NAME");
    app.add_option("--password-file", context_.options.passwordFile,
                   "File whose first line is that user's password; - for standard input")
        ->type_name("FILE");
    app.add_flag("--json", context_.options.json, "Print JSON, for scripts");
}

void OrvctlCommandLine::DescribeRows(CLI::App& app, const TableWords& words) {
    const bool rebuilds = words.table.index == AudioFeed;
    CLI::App* table = app.add_subcommand(
        words.noun, (rebuilds ? "List, show, add, set, rebuild and remove " : "List, show, add, set and remove ") +
                        std::string(words.plural));
    table->require_subcommand(1, 1);
    const auto on_key = [this, &words, table](const char* name, const std::string& description, auto run) {
        CLI::App* command = table->add_subcommand(name, description);
        command->add_option("name", key_, std::string("The ") + words.noun + "'s " + words.columns[0].name)->required();
        command->callback([this, run] { command_ = run; });
    };
    table->add_subcommand("list", std::string("List all ") + words.plural)->callback([this, &words] {
        command_ = [this, &words] { ListRows(context_, words); };
    });
    on_key("show", "Show one of them", [this, &words] { ShowRow(context_, words, key_); });
    DescribeRowChange(*table, words, Action::Add, "add", "Add " + Article(words));
    // A parameter is a setting rather than a thing: setting one that is not there makes it.
    const bool makes = words.table.index == Parameter;
    DescribeRowChange(*table, words, makes ? Action::Put : Action::Set, "set",
                      makes ? "Set a parameter, new or not" : "Change columns of " + Article(words));
    if (rebuilds) {
        on_key("rebuild", "End it and build it anew from its row: its clients have to connect again", [this, &words] {
            ChangeRow(context_, words, Action::Rebuild, {key_, {}, {}});
        });
    }
    on_key("remove", "Remove one of them", [this, &words] {
        ChangeRow(context_, words, Action::Remove, {key_, {}, {}});
    });
}

void OrvctlCommandLine::DescribeRowChange(CLI::App& parent, const TableWords& words, Action action, const char* name,
                                          const std::string& description) {
    RowOptions& options = *rows_.emplace_back(std::make_unique<RowOptions>());
    options.texts.resize(words.columns.size());
    CLI::App* command = parent.add_subcommand(name, description);
    command->add_option("name", options.typed.key, std::string("The ") + words.noun + "'s " + words.columns[0].name)
        ->required();
    std::vector<CLI::Option*> given(words.columns.size(), nullptr);
    for (u32 i = 0; i < words.columns.size(); ++i) {
        const bool key = static_cast<int>(i) == words.KeyColumn();
        if (key && action != Action::Set) continue;
        given[i] = command
                       ->add_option(OptionNames(words, i), options.texts[i],
                                    key ? std::string("New name, in place of the old one") : words.columns[i].help)
                       ->type_name(TypeName(words.columns[i]));
    }
    if (action == Action::Set) {
        command->add_option("--unset", options.typed.unset, "Make a column absent; may be given again")
            ->type_name("COLUMN")
            ->expected(1)
            ->take_all();
    }
    CLI::Option* value = nullptr;
    if (words.table.index == Parameter) {
        CLI::Option* named = given[ParameterColumn::Value];
        value = command->add_option("text", options.value, "Its value, in place of --value")->excludes(named);
    }
    command->callback([this, &words, &options, action, given, value] {
        for (u32 i = 0; i < given.size(); ++i) {
            if (given[i] != nullptr && given[i]->count() > 0) {
                options.typed.values.emplace_back(static_cast<int>(i), options.texts[i]);
            }
        }
        if (value != nullptr && value->count() > 0) {
            options.typed.values.emplace_back(static_cast<int>(ParameterColumn::Value), options.value);
        }
        command_ = [this, &words, &options, action] { ChangeRow(context_, words, action, options.typed); };
    });
}

void OrvctlCommandLine::DescribeSetup(CLI::App& app) {
    CLI::App* setup = app.add_subcommand(
        "setup",
        "Make users, passwords, settings files and a first feed, where they are missing, and start the services");
    setup->add_option("--root", setup_.root, "Set up the system below this folder, and start nothing")
        ->type_name("DIR");
    setup->add_option("--config-port", setup_.port, "Port of the Configuration service; its unit gives 5485")
        ->check(CLI::Range(1, 65535))
        ->type_name("N");
    setup->add_option("--default-file", setup_.defaultFile, "Sound of the default stream, if none is set yet")
        ->type_name("FILE")
        ->capture_default_str();
    setup->add_flag("--new-passwords", setup_.newPasswords, "Give both users new passwords");
    setup->callback([this] { command_ = [this] { RunSetup(context_, setup_); }; });
    setup->footer(kExitCodes);
}

void OrvctlCommandLine::DescribeImport(CLI::App& app) {
    CLI::App* command = app.add_subcommand(
        "import", "Bring sound files (WAV, FLAC, Ogg, Opus, MP3; mono or stereo) into the folder of a feed");
    command->add_option("files", import_.files, "The sound files")->required();
    CLI::Option* feed = command->add_option("--feed", import_.feed, "The feed that is to play them")->type_name("NAME");
    command->add_option("--announcement", import_.announcement, "The announcement that is to play it")
        ->type_name("NAME")
        ->excludes(feed);
    CLI::Option* lufs = command->add_option("--loudness", import_.lufs, "Loudness to bring them to, in LUFS")
                            ->check(CLI::Range(-40.0, -10.0))
                            ->type_name("N")
                            ->capture_default_str();
    command->add_flag("--no-loudness", import_.keepLoudness, "Keep them as loud as they are")->excludes(lufs);
    command->add_flag("--replace", import_.replace, "Replace files of the same name");
    command
        ->add_option("--prompts", import_.prompts, "Root of the prompts, if it is not where the service's settings say")
        ->type_name("DIR");
    command->add_option("--memory-limit", import_.memoryLimit, "Megabytes that the conversion of a file may take")
        ->check(CLI::Range(16, 65536))
        ->type_name("N")
        ->capture_default_str();
    command->add_option("--time-limit", import_.timeLimit, "Seconds of processor time for a file")
        ->check(CLI::Range(1, 86400))
        ->type_name("N")
        ->capture_default_str();
    command->callback([this] { command_ = [this] { ImportFiles(context_, import_); }; });
    command->footer(kExitCodes);
}

void OrvctlCommandLine::DescribeUsers(CLI::App& app) {
    CLI::App* users = app.add_subcommand("user", "List, show, add, set and remove users of the Configuration service");
    users->require_subcommand(1, 1);
    const auto add_command = [&](const char* name, const char* description, bool named, auto run) {
        CLI::App* command = users->add_subcommand(name, description);
        if (named) command->add_option("name", user_.name, "The user's name")->required();
        command->callback([this, run] { command_ = run; });
        return command;
    };
    const auto add_role = [this](CLI::App* command) {
        return command->add_option("--role", user_.role, "admin may change everything, reader may read the tables")
            ->check(CLI::IsMember({"admin", "reader"}));
    };
    const auto add_password = [this](CLI::App* command) {
        command
            ->add_option("--new-password-file", user_.newPasswordFile,
                         "File whose first line is the password; - for standard input")
            ->type_name("FILE");
    };
    add_command("list", "List all users", false, [this] { ListUsers(context_); });
    add_command("show", "Show one of them", true, [this] { ShowUser(context_, user_.name); });
    CLI::App* add = add_command("add", "Add a user; the password is asked for unless a file is named", true,
                                [this] { AddUser(context_, user_); });
    add_role(add)->required();
    add_password(add);
    CLI::App* set = add_command("set", "Change a user's role or password", true, [this] { SetUser(context_, user_); });
    add_role(set);
    add_password(set);
    set->add_flag("--new-password", user_.newPassword, "Ask for a new password");
    add_command("remove", "Remove one of them", true, [this] { RemoveUser(context_, user_.name); });
}

}  // namespace Orv
