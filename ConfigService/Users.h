// The users, their roles and the hashes of their passwords (Argon2id). They live in the same file as the tables, on a
// connection of their own. Any thread; hashing takes a tenth of a second and 32 MB, so it is done once at a time.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ConfigService/Credentials.h"
#include "ConfigService/Database.h"
#include "ConfigService/PasswordCheck.h"
#include "Platform/Sync.h"

namespace Orv {

enum class UserOutcome : u8 { Done, Refused, NotFound, Failed };

// `text` tells the reason unless the outcome is Done; `field` what it is about.
struct UserResult {
    UserOutcome outcome = UserOutcome::Done;
    std::string field;
    std::string text;
};

struct User {
    std::string name;
    Role role;
};

class Users : public IPasswordCheck {
public:
    // Opens or makes the file. Null with the reason when it cannot be used.
    static std::unique_ptr<Users> Open(const std::string& path, std::string& reason);

    UserResult Add(const std::string& name, Role role, const std::string& password);
    // The last user of role admin keeps that role and stays: without one nobody could change anything any more.
    UserResult Remove(const std::string& name);
    UserResult SetRole(const std::string& name, Role role);
    UserResult SetPassword(const std::string& name, const std::string& password);

    // In the order of their names. Throws DatabaseError.
    std::vector<User> List() const;
    std::optional<Role> FindRole(const std::string& name) const;

    std::string FindHash(const std::string& name) const override;
    bool Verify(const std::string& hash, const std::string& password) const override;

private:
    explicit Users(const std::string& path);
    std::string Hash(const std::string& password) const;
    bool IsLastAdmin(const std::string& name) const ORV_REQUIRES(mutex_);

    mutable Platform::Mutex mutex_;
    mutable Database database_ ORV_GUARDED_BY(mutex_);
    mutable Platform::Mutex hashing_;  // taken alone
    std::string nobody_;               // the hash of a password that nobody knows
};

}  // namespace Orv
