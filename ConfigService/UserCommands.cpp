#include "ConfigService/UserCommands.h"

#include <cstdio>
#include <memory>

#include "ConfigService/PasswordInput.h"
#include "ConfigService/Users.h"

namespace Orv {
namespace {

int Fail(const std::string& reason) {
    std::fprintf(stderr, "orv-config: %s\n", reason.c_str());
    return 1;
}

int Finish(const UserResult& result, const UserOptions& options, const char* done) {
    if (result.outcome != UserOutcome::Done) {
        return Fail(result.field.empty() ? result.text
                                         : "user \"" + options.name + "\": the " + result.field + " " + result.text);
    }
    std::printf("User \"%s\" %s.\n", options.name.c_str(), done);
    return 0;
}

// Looks at the name first, so that nobody types a password for nothing.
bool Prepare(const UserOptions& options, std::unique_ptr<Users>& users, std::string& password, std::string& reason) {
    if (const std::string why = WhyUserNameRefused(options.name); !why.empty()) {
        reason = "user \"" + options.name + "\": the name " + why;
        return false;
    }
    users = Users::Open(options.database, reason);
    return users != nullptr &&
           ObtainPassword(options.passwordFile, "Password for " + options.name, true, password, reason);
}

}  // namespace

int AddUser(const UserOptions& options) {
    std::unique_ptr<Users> users;
    std::string password;
    std::string reason;
    if (!Prepare(options, users, password, reason)) return Fail(reason);
    return Finish(users->Add(options.name, options.role, password), options, "added");
}

int SetUserPassword(const UserOptions& options) {
    std::unique_ptr<Users> users;
    std::string password;
    std::string reason;
    if (!Prepare(options, users, password, reason)) return Fail(reason);
    return Finish(users->SetPassword(options.name, password), options, "has a new password");
}

int RemoveUser(const UserOptions& options) {
    std::string reason;
    const std::unique_ptr<Users> users = Users::Open(options.database, reason);
    if (users == nullptr) return Fail(reason);
    return Finish(users->Remove(options.name), options, "removed");
}

int ListUsers(const UserOptions& options) {
    std::string reason;
    const std::unique_ptr<Users> users = Users::Open(options.database, reason);
    if (users == nullptr) return Fail(reason);
    try {
        for (const User& user : users->List()) std::printf("%-6s  %s\n", RoleName(user.role), user.name.c_str());
    } catch (const DatabaseError& error) {
        return Fail(error.what());
    }
    return 0;
}

}  // namespace Orv
