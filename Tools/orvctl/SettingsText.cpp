#include "Tools/orvctl/SettingsText.h"

#include <cctype>

#include "Tools/SettingsFile.h"

namespace Orv {
namespace {

constexpr char kSection[] = "ConfService";
constexpr char kKey[] = "confpass";

std::string Trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

std::string Lowered(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Whether the line begins a section, and its name.
bool IsSection(const std::string& line, std::string& name) {
    const std::string text = Trimmed(line);
    const std::size_t end = text.find(']');
    if (text.empty() || text[0] != '[' || end == std::string::npos) return false;
    name = text.substr(1, end - 1);
    return true;
}

bool IsPassword(const std::string& line) {
    const std::string text = Trimmed(line);
    const std::size_t end = text.find_first_of("=#;");
    return end != std::string::npos && text[end] == '=' && Lowered(Trimmed(text.substr(0, end))) == kKey;
}

}  // namespace

std::string CutShort(const std::string& path) {
    return "The settings file " + path + CutShortText;
}

std::string QuotedValue(const std::string& value) {
    return "\"" + value + "\"";
}

std::string NewSettingsText(bool withFolders, u32 port, const std::string& user, const std::string& password) {
    std::string text;
    if (withFolders) {
        text =
            "; The audio feed service's settings, see OrvPhoneSystem.ini(5). Made by \"orvctl setup\".\n"
            "[General]\n"
            "AppDataPath=/var/lib/Orv/\n"
            "PipePath=/run/Orv/pipe\n"
            "StatusPath=/run/Orv/status/feed\n"
            "\n";
    } else {
        text = "; How orvctl connects as an administrator, see OrvPhoneSystem.ini(5). Made by \"orvctl setup\".\n";
    }
    return text + "[ConfService]\nconfNIC=127.0.0.1\nConfPort=" + std::to_string(port) +
           "\nconfUser=" + QuotedValue(user) + "\nconfPass=" + QuotedValue(password) + "\n";
}

std::string ReplacePassword(const std::string& text, const std::string& password) {
    const std::string newLine = "confPass=" + QuotedValue(password) + "\n";
    std::string result;
    std::size_t afterSection = std::string::npos;  // where the key can be added
    bool inside = false;
    bool replaced = false;
    for (std::size_t begin = 0; begin < text.size();) {
        std::size_t end = text.find('\n', begin);
        end = end == std::string::npos ? text.size() : end + 1;
        const std::string line = text.substr(begin, end - begin);
        begin = end;
        std::string name;
        if (IsSection(line, name)) {
            inside = name == kSection;
            result += line;
            if (inside && afterSection == std::string::npos) {
                if (result.back() != '\n') result += '\n';
                afterSection = result.size();
            }
        } else if (inside && IsPassword(line)) {
            // The last one counts, so each one says the same.
            result += newLine;
            replaced = true;
        } else {
            result += line;
        }
    }
    if (replaced) return result;
    if (afterSection != std::string::npos) return result.insert(afterSection, newLine);
    if (!result.empty() && result.back() != '\n') result += '\n';
    return result + "[" + kSection + "]\n" + newLine;
}

}  // namespace Orv
