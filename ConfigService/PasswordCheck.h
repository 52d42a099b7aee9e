// What stands behind the login gate: whose password has which hash, and whether a password is that of a hash.
#pragma once

#include <string>

namespace Orv {

// Any thread.
class IPasswordCheck {
public:
    virtual ~IPasswordCheck() = default;
    // The stored hash of a user, empty when there is no such user. Throws what a database throws.
    virtual std::string FindHash(const std::string& name) const = 0;
    // Whether the password is that of the hash. Slow on purpose. An empty hash takes as long as any other and never
    // matches.
    virtual bool Verify(const std::string& hash, const std::string& password) const = 0;
};

}  // namespace Orv
