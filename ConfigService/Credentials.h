// What a user's name and password may be. Pure functions, any thread.
//
// The audio feed service reads its own from its settings file, so what that file cannot carry is refused here, where
// somebody can still choose another.
#pragma once

#include <string>
#include <string_view>

namespace Orv {

inline constexpr unsigned MaxUserNameBytes = 64;
inline constexpr unsigned MaxPasswordBytes = 256;

enum class Role : unsigned char { Reader, Admin };
const char* RoleName(Role role);
bool ParseRole(std::string_view text, Role& role);

// Why it cannot be used, with what to do; empty when it can.
std::string WhyUserNameRefused(std::string_view name);
std::string WhyPasswordRefused(std::string_view password);

// Splits "user:password", a terminating NUL allowed, at the first colon. False when there is none.
bool SplitCredentials(std::string_view credentials, std::string& name, std::string& password);

// The first line of a password file's text.
std::string FirstLine(std::string_view text);

}  // namespace Orv
