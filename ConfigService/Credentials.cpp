#include "ConfigService/Credentials.h"

#include "ConfigService/Validation.h"

namespace Orv {
namespace {

std::string WhySettingRefused(std::string_view text, unsigned limit) {
    if (text.empty()) return "is empty; choose one";
    if (text.size() > limit) return "is longer than " + std::to_string(limit) + " bytes; choose a shorter one";
    if (text.find('"') != std::string_view::npos) {
        return "holds a double quote, which the settings file cannot carry; choose one without";
    }
    if (HasControlCharacter(text)) {
        return "holds a control character, which the settings file cannot carry; choose one without";
    }
    if (text.front() == ' ' || text.back() == ' ') {
        return "begins or ends with a blank, which the settings file cannot carry; choose one without";
    }
    // "#" and ";" need quotes around the value, and a backslash in front of the closing quote would take it away.
    if (text.find_first_of("#;") != std::string_view::npos && text.back() == '\\') {
        return "holds \"#\" or \";\" and ends with a backslash, which the settings file cannot carry; choose one "
               "without";
    }
    return {};
}

}  // namespace

const char* RoleName(Role role) {
    return role == Role::Admin ? "admin" : "reader";
}

bool ParseRole(std::string_view text, Role& role) {
    if (text == "admin") {
        role = Role::Admin;
    } else if (text == "reader") {
        role = Role::Reader;
    } else {
        return false;
    }
    return true;
}

std::string WhyUserNameRefused(std::string_view name) {
    if (name.find(':') != std::string_view::npos) return "holds a colon, which ends the name; choose one without";
    return WhySettingRefused(name, MaxUserNameBytes);
}

std::string WhyPasswordRefused(std::string_view password) {
    return WhySettingRefused(password, MaxPasswordBytes);
}

bool SplitCredentials(std::string_view credentials, std::string& name, std::string& password) {
    const auto end = credentials.find('\0');
    if (end != std::string_view::npos) credentials = credentials.substr(0, end);
    const auto colon = credentials.find(':');
    if (colon == std::string_view::npos) return false;
    name = credentials.substr(0, colon);
    password = credentials.substr(colon + 1);
    return true;
}

std::string FirstLine(std::string_view text) {
    text = text.substr(0, text.find('\n'));
    if (text.ends_with('\r')) text.remove_suffix(1);
    return std::string(text);
}

}  // namespace Orv
