// orv-config user: the users of a database, without the service. It may run meanwhile and sees the change at once.
#pragma once

#include <string>

#include "ConfigService/Credentials.h"

namespace Orv {

struct UserOptions {
    std::string database;
    std::string name;
    std::string passwordFile;  // empty: ask on the terminal
    Role role = Role::Reader;
};

// Each gives the exit code: 0 done, 1 not done, with the reason on standard error.
int AddUser(const UserOptions& options);
int SetUserPassword(const UserOptions& options);
int RemoveUser(const UserOptions& options);
int ListUsers(const UserOptions& options);

}  // namespace Orv
