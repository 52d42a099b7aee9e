#include "ServiceProcess/CommonSettings.h"

#include <cstdarg>
#include <cstdio>

#include "Platform/Files.h"
#include "Platform/Path.h"
#include "ServiceProcess/SettingsLineReader.h"

namespace Orv {

namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";

std::string_view TrimLeft(std::string_view text) {
    const auto first = text.find_first_not_of(kBlanks);
    return first != std::string_view::npos ? text.substr(first) : std::string_view{};
}

std::string_view TrimRight(std::string_view text) {
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

std::string_view Trim(std::string_view text) {
    return TrimRight(TrimLeft(text));
}

bool BeginsComment(std::string_view text) {
    return text.starts_with('#') || text.starts_with(';');
}

// The double quote that ends the value opened at `open`; one with a backslash in front of it does not.
std::size_t FindClosingQuote(std::string_view text, std::size_t open) {
    auto quote = text.find('"', open + 1);
    while (quote != std::string_view::npos && text[quote - 1] == '\\') quote = text.find('"', quote + 1);
    return quote;
}

// Each piece of a message is cut to this, its NUL included.
constexpr std::size_t kMessageSize = 1024;

}  // namespace

bool CommonSettings::Load(const char* path) {
    fileName.clear();
    lineNumber = 0;
    whole = false;
    children.clear();
    valuesByKey.clear();

    Platform::SystemError error = 0;
    const auto file = Platform::OpenReadFile(path, error);
    if (file == nullptr) {
        messages.push_back(std::string("Config.Error: Can not open file '") + path + "'");
        return false;
    }
    fileName = path;
    SettingsSection* current = this;
    SettingsLineReader reader(*file);
    for (std::string text; reader.Next(text);) {
        ++lineNumber;
        const std::string_view line = Trim(text);
        if (!line.empty() && !BeginsComment(line)) current = ParseLine(line, current);
    }
    whole = reader.ReadAll();
    if (!whole) messages.push_back(std::string("Config.Error: Can not read file '") + path + "'");
    return true;
}

// Returns the section that the lines behind this one belong to.
SettingsSection* CommonSettings::ParseLine(std::string_view line, SettingsSection* current) {
    if (!line.starts_with('[')) {
        ParseKeyLine(line, *current);
        return current;
    }
    const auto close = line.find(']');
    if (close == std::string_view::npos) {
        Warn("Invalid section name '%s'. Skipped. Current section is [%s]", std::string(line).c_str(),
             current->name.c_str());
        return current;
    }
    return EnterSection(std::string(line.substr(1, close - 1)));
}

// The section of a path, made with all that leads to it where it is not there.
SettingsSection* CommonSettings::EnterSection(const std::string& path) {
    SettingsSection* position = this;
    std::string_view rest = path;
    for (auto slash = rest.find('/'); slash != std::string_view::npos; slash = rest.find('/')) {
        const std::string_view part = rest.substr(0, slash);
        rest.remove_prefix(slash + 1);
        if (!part.empty()) {
            position = &position->StepInto(part);
        } else if (position != this) {
            Warn("Empty sub-section's name is ignored while parsing section name '%s'", path.c_str());
        }
    }
    if (!rest.empty()) return &position->StepInto(rest);
    Warn("Check section name. Current section is %s", position->name.c_str());
    return position;
}

void CommonSettings::ParseKeyLine(std::string_view line, SettingsSection& section) {
    const auto mark = line.find_first_of("=#;");
    if (mark == std::string_view::npos) {
        Warn("Invalid line {%s}. Ignored.", std::string(line).c_str());
        return;
    }
    if (mark == 0) return;
    const std::string_view front = line.substr(0, mark);
    if (line[mark] != '=') {
        Warn("Comment line has non-space sybols in front: '%s'. Ignored.", std::string(front).c_str());
        return;
    }
    const std::string key(Trim(front));
    if (key.empty() || BeginsComment(key)) {
        Error("Invalid key name '%s'", key.c_str());
        return;
    }
    const std::string lookup = Platform::LowerAscii(key);
    if (const auto old = section.valuesByKey.find(lookup); old != section.valuesByKey.end()) {
        Warn("Overriding value for key '%s'; prev. value was '%s'", old->second.FullName().c_str(),
             old->second.AsString().c_str());
    }
    // The last occurrence wins, also when it turns out to be empty.
    SettingsValue& value = section.valuesByKey[lookup] = SettingsValue{section.name, key, {}};
    const std::string_view text = Trim(line.substr(mark + 1));
    if (text.empty() || BeginsComment(text)) {
        Warn("Key [%s].%s has empty value", section.name.c_str(), key.c_str());
        return;
    }
    SplitValues(text, value.values);
}

// No escape is undone: a backslash stays in the value with the quote behind it.
void CommonSettings::SplitValues(std::string_view rest, std::vector<std::string>& values) {
    const auto addTrimmed = [&values](std::string_view text) {
        if (const std::string_view value = Trim(text); !value.empty()) values.emplace_back(value);
    };
    for (std::size_t from = 0;;) {
        const auto mark = rest.find_first_of("\"#;", from);
        if (mark == std::string_view::npos) {
            if (!rest.empty()) values.emplace_back(rest);  // untrimmed: behind a quoted value a blank stays
            return;
        }
        if (rest[mark] != '"') {
            addTrimmed(rest.substr(0, mark));
            return;
        }
        if (mark > 0 && rest[mark - 1] == '\\') {
            from = mark + 1;
            continue;
        }
        const auto close = FindClosingQuote(rest, mark);
        if (close == std::string_view::npos) {
            Warn("Unmatched DQUOTE(\"), assuming the value '%s'", std::string(rest).c_str());
            values.emplace_back(rest);
            return;
        }
        addTrimmed(rest.substr(0, mark));
        values.emplace_back(rest.substr(mark + 1, close - mark - 1));
        rest.remove_prefix(close + 1);
        from = 0;
    }
}

const SettingsValue& CommonSettings::GetValue(const char* fullName) {
    const std::string_view text = fullName;
    if (!text.starts_with('[')) return FindValue(fullName);
    const auto close = text.find(']');
    if (close == std::string_view::npos) {
        messages.clear();
        Error("Invalid value name: '%s'", fullName);
        return EmptySettingsValue();
    }
    const std::string sectionName(text.substr(1, close - 1));
    const SettingsSection* section = FindSection(sectionName);
    if (section == nullptr) {
        messages.clear();
        Error("Section '%s' is not found!", sectionName.c_str());
        return EmptySettingsValue();
    }
    std::string_view key = text.substr(close + 1);
    if (key.starts_with('.') || key.starts_with('/')) key.remove_prefix(1);
    return section->FindValue(std::string(key));
}

void CommonSettings::Warn(const char* format, ...) {
    char text[kMessageSize];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    Report("Warning", text);
}

void CommonSettings::Error(const char* format, ...) {
    char text[kMessageSize];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    Report("Error", text);
}

void CommonSettings::Report(const char* level, const char* text) {
    char prefix[kMessageSize];
    std::snprintf(prefix, sizeof prefix, "%s(%u): %s: ", fileName.c_str(), lineNumber, level);
    messages.push_back(std::string(prefix) + text);
}

}  // namespace Orv
