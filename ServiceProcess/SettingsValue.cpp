// What the settings hold, and how it is read.
#include <algorithm>
#include <iterator>
#include <utility>

#include "Platform/Path.h"
#include "ServiceProcess/CommonSettings.h"

namespace Orv {

namespace {

// By the "C" locale, whatever the process's locale is.
bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

i32 HexadecimalDigit(char c) {
    if (IsDigit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::string SettingsValue::AsString() const {
    if (values.empty()) return {};
    if (values.size() == 1) return values.front();
    std::string text;
    for (const std::string& value : values) {
        if (!text.empty()) text += ' ';
        text += '"' + value + '"';
    }
    return text;
}

i64 SettingsValue::AsInteger() const {
    i64 number = 0;
    if (!values.empty()) ParseInteger(values.front(), number);
    return number;
}

std::string SettingsValue::FullName() const {
    return "[" + section + "]." + key;
}

const SettingsValue& EmptySettingsValue() {
    static const SettingsValue empty;
    return empty;
}

bool ParseInteger(const std::string& text, i64& out) {
    const char* at = text.c_str();  // its NUL ends every run below
    while (IsSpace(*at)) ++at;
    if (!IsDigit(*at)) return false;
    u64 number = 0;  // unsigned, so that too many digits wrap
    if (*at != '0') {
        for (; IsDigit(*at); ++at) number = number * 10 + static_cast<u64>(*at - '0');
    } else if (at[1] == 'x' || at[1] == 'X') {
        i32 digit = 0;
        for (at += 2; (digit = HexadecimalDigit(*at)) >= 0; ++at) number = number * 16 + static_cast<u64>(digit);
    } else if (at[1] != '\0' && at[1] != '.') {
        return false;
    }
    out = static_cast<i64>(number);
    return true;
}

SettingsSection::~SettingsSection() {
    // One after another instead of each inside its parent: a line may name any number of levels.
    std::vector<SettingsSection> dying = std::move(children);
    while (!dying.empty()) {
        std::vector<SettingsSection> nested = std::move(dying.back().children);
        dying.pop_back();
        std::move(nested.begin(), nested.end(), std::back_inserter(dying));
    }
}

const SettingsValue& SettingsSection::FindValue(const std::string& key) const {
    const auto found = valuesByKey.find(Platform::LowerAscii(key));
    return found != valuesByKey.end() ? found->second : EmptySettingsValue();
}

const SettingsSection* SettingsSection::FindSection(const std::string& fullName) const {
    if (name.size() > fullName.size()) return nullptr;
    if (Platform::LowerAscii(name) != Platform::LowerAscii(fullName.substr(0, name.size()))) return nullptr;
    if (name == fullName) return this;
    for (const SettingsSection& child : children) {
        if (const SettingsSection* found = child.FindSection(fullName)) return found;
    }
    return nullptr;
}

// A child stores its full path but is looked for by its short name. So a section at the top is found again and merges,
// while a nested one never is: a second [a/b] makes a second child, hidden behind the first. Files rely on it.
SettingsSection& SettingsSection::StepInto(std::string_view part) {
    for (SettingsSection& child : children) {
        if (child.name == part) return child;
    }
    SettingsSection& child = children.emplace_back();
    child.name = name.empty() ? std::string(part) : name + "/" + std::string(part);
    return child;
}

}  // namespace Orv
