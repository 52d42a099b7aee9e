#include "ConfigService/Users.h"

#include <sodium.h>

#include <array>

namespace Orv {
namespace {

// One login then costs about a tenth of a second of one processor.
constexpr unsigned long long kOperations = 3;
constexpr std::size_t kMemory = 32u << 20;

UserResult Refuse(const char* field, std::string text) {
    return {UserOutcome::Refused, field, std::move(text)};
}

UserResult NotThere(const std::string& name) {
    return {UserOutcome::NotFound, "name", "is \"" + name + "\", and there is no such user"};
}

UserResult Fail(const DatabaseError& error) {
    return {UserOutcome::Failed, "", error.what()};
}

}  // namespace

std::unique_ptr<Users> Users::Open(const std::string& path, std::string& reason) {
    if (sodium_init() < 0) {
        reason = "The system gives no randomness for passwords";
        return nullptr;
    }
    try {
        return std::unique_ptr<Users>(new Users(path));
    } catch (const DatabaseError& error) {
        reason = error.what();
        return nullptr;
    }
}

Users::Users(const std::string& path) : database_(path) {
    std::array<unsigned char, 32> secret{};
    randombytes_buf(secret.data(), secret.size());
    nobody_ = Hash(std::string(reinterpret_cast<const char*>(secret.data()), secret.size()));
}

std::string Users::Hash(const std::string& password) const {
    Platform::LockGuard<Platform::Mutex> guard(hashing_);
    std::array<char, crypto_pwhash_STRBYTES> hash{};
    if (crypto_pwhash_str_alg(hash.data(), password.data(), password.size(), kOperations, kMemory,
                              crypto_pwhash_ALG_ARGON2ID13) != 0) {
        throw DatabaseError("There is no memory to hash a password");
    }
    return hash.data();
}

bool Users::Verify(const std::string& hash, const std::string& password) const {
    Platform::LockGuard<Platform::Mutex> guard(hashing_);
    const std::string& used = hash.empty() ? nobody_ : hash;
    const bool matches = crypto_pwhash_str_verify(used.c_str(), password.data(), password.size()) == 0;
    return matches && !hash.empty();
}

UserResult Users::Add(const std::string& name, Role role, const std::string& password) {
    if (std::string reason = WhyUserNameRefused(name); !reason.empty()) return Refuse("name", std::move(reason));
    if (std::string reason = WhyPasswordRefused(password); !reason.empty()) {
        return Refuse("password", std::move(reason));
    }
    try {
        const std::string hash = Hash(password);
        Platform::LockGuard<Platform::Mutex> guard(mutex_);
        Transaction transaction(database_);
        Statement find = database_.Prepare("SELECT 1 FROM ORV_USER WHERE name = ?1");
        if (find.BindText(1, name).Step()) {
            return Refuse("name", "is \"" + name + "\", and that user is there already; choose another name");
        }
        Statement insert = database_.Prepare("INSERT INTO ORV_USER VALUES (?1, ?2, ?3)");
        insert.BindText(1, name).BindText(2, RoleName(role)).BindText(3, hash).Run();
        transaction.Commit();
    } catch (const DatabaseError& error) {
        return Fail(error);
    }
    return {};
}

bool Users::IsLastAdmin(const std::string& name) const {
    Statement others = database_.Prepare("SELECT count(*) FROM ORV_USER WHERE role = 'admin' AND name <> ?1");
    others.BindText(1, name).Step();
    Statement own = database_.Prepare("SELECT role FROM ORV_USER WHERE name = ?1");
    return others.GetNumber(0) == 0 && own.BindText(1, name).Step() && own.GetText(0) == "admin";
}

UserResult Users::Remove(const std::string& name) {
    try {
        Platform::LockGuard<Platform::Mutex> guard(mutex_);
        Transaction transaction(database_);
        if (IsLastAdmin(name)) return Refuse("name", "is the last user of role admin; add another admin first");
        Statement remove = database_.Prepare("DELETE FROM ORV_USER WHERE name = ?1 RETURNING name");
        const bool found = remove.BindText(1, name).Step();
        if (!found) return NotThere(name);
        remove.Run();
        transaction.Commit();
    } catch (const DatabaseError& error) {
        return Fail(error);
    }
    return {};
}

UserResult Users::SetRole(const std::string& name, Role role) {
    try {
        Platform::LockGuard<Platform::Mutex> guard(mutex_);
        Transaction transaction(database_);
        if (role != Role::Admin && IsLastAdmin(name)) {
            return Refuse("role", "is taken from the last user of role admin; add another admin first");
        }
        Statement update = database_.Prepare("UPDATE ORV_USER SET role = ?2 WHERE name = ?1 RETURNING name");
        const bool found = update.BindText(1, name).BindText(2, RoleName(role)).Step();
        if (!found) return NotThere(name);
        update.Run();
        transaction.Commit();
    } catch (const DatabaseError& error) {
        return Fail(error);
    }
    return {};
}

UserResult Users::SetPassword(const std::string& name, const std::string& password) {
    if (std::string reason = WhyPasswordRefused(password); !reason.empty()) {
        return Refuse("password", std::move(reason));
    }
    try {
        const std::string hash = Hash(password);
        Platform::LockGuard<Platform::Mutex> guard(mutex_);
        Transaction transaction(database_);
        Statement update = database_.Prepare("UPDATE ORV_USER SET hash = ?2 WHERE name = ?1 RETURNING name");
        const bool found = update.BindText(1, name).BindText(2, hash).Step();
        if (!found) return NotThere(name);
        update.Run();
        transaction.Commit();
    } catch (const DatabaseError& error) {
        return Fail(error);
    }
    return {};
}

std::vector<User> Users::List() const {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    std::vector<User> users;
    Statement rows = database_.Prepare("SELECT name, role FROM ORV_USER ORDER BY name");
    while (rows.Step()) {
        users.push_back({rows.GetText(0), rows.GetText(1) == "admin" ? Role::Admin : Role::Reader});
    }
    return users;
}

std::optional<Role> Users::FindRole(const std::string& name) const {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    Statement find = database_.Prepare("SELECT role FROM ORV_USER WHERE name = ?1");
    if (!find.BindText(1, name).Step()) return std::nullopt;
    return find.GetText(0) == "admin" ? Role::Admin : Role::Reader;
}

std::string Users::FindHash(const std::string& name) const {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    Statement find = database_.Prepare("SELECT hash FROM ORV_USER WHERE name = ?1");
    return find.BindText(1, name).Step() ? find.GetText(0) : std::string();
}

}  // namespace Orv
