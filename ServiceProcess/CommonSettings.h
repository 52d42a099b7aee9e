// The common settings file: an INI file with nested sections and multi-valued keys, read into a tree.
//
// The reader never stops on a bad line: it says what it decided in `messages`, drops or repairs the line and goes on.
// A CommonSettings belongs to one thread.
//
//   [Section]                # a comment
//   key = value              ; keys ignore case, section names do not
//   list = "first" "second"
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Platform/Types.h"

namespace Orv {

// One key with its values.
struct SettingsValue {
    std::string section;              // full name of the section that holds it
    std::string key;                  // as spelled in the file
    std::vector<std::string> values;  // none or more, in file order

    // Whether the file has the key at all. A key with no values exists and reads as the empty text.
    bool Exists() const noexcept { return !key.empty() || !section.empty(); }
    // Nothing, the one value, or each of several between double quotes with one blank between them.
    std::string AsString() const;
    // The first value by ParseInteger(); 0 when there is none or it is no number.
    i64 AsInteger() const;
    // "[section].key"
    std::string FullName() const;
};

// The value of every key that is not there. Lives as long as the process. Any thread.
const SettingsValue& EmptySettingsValue();

// Reads an unsigned number: decimal digits without a leading 0, "0", or hexadecimal digits behind "0x". What follows
// the digits is ignored, and nothing tests for overflow. False, with `out` untouched, when the text is no number; so is
// one with a sign or a leading 0.
bool ParseInteger(const std::string& text, i64& out);

struct SettingsSection {
    SettingsSection() = default;
    SettingsSection(SettingsSection&&) noexcept = default;
    SettingsSection& operator=(SettingsSection&&) noexcept = default;
    // Takes no more of the stack for sections that are nested deep.
    ~SettingsSection();

    std::string name;  // full path, for instance "a/b"; empty for the root
    std::vector<SettingsSection> children;
    std::unordered_map<std::string, SettingsValue> valuesByKey;  // by the lower-cased key

    // EmptySettingsValue() on a miss.
    const SettingsValue& FindValue(const std::string& key) const;
    // The section of that full name here or below; null when there is none.
    const SettingsSection* FindSection(const std::string& fullName) const;
    // The child of that short name, made when it is not there. Good until the next child is made.
    SettingsSection& StepInto(std::string_view part);
};

class CommonSettings : public SettingsSection {
public:
    // Replaces the whole tree by the file's. False when the file cannot be opened; then the tree is empty. One that is
    // cut short counts as loaded; `whole` tells it. Messages stay and new ones follow them. Waits for the disk.
    bool Load(const char* path);

    // `fullName` is a key of the root, or "[section]" and a key, with a "." or "/" between them if you like. Never
    // fails: see EmptySettingsValue(). A section that is not there, or a bracket that is not closed, replaces all
    // messages by one. The reference is good until the next Load().
    const SettingsValue& GetValue(const char* fullName);

    std::vector<std::string> messages;  // diagnostics, in order of arrival
    std::string fileName;               // the file last opened; empty when it could not be
    u32 lineNumber = 0;                 // physical lines read so far
    // The last Load() has read as much as the file had when it was opened. False when a read failed or the file got
    // shorter meanwhile, and then the tree holds the part that was read; also when nothing was opened.
    bool whole = false;

private:
    SettingsSection* ParseLine(std::string_view line, SettingsSection* current);
    SettingsSection* EnterSection(const std::string& path);
    void ParseKeyLine(std::string_view line, SettingsSection& section);
    void SplitValues(std::string_view rest, std::vector<std::string>& values);
    void Warn(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void Error(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void Report(const char* level, const char* text);
};

}  // namespace Orv
