// Any bytes as a settings file: the reader comes to its end, no line makes it forget where it is, and what it has read
// is found under its own name.
#include <algorithm>
#include <string>

#include "Platform/Path.h"
#include "Platform/sim/Simulation.h"
#include "ServiceProcess/CommonSettings.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

constexpr char kPath[] = "/settings.ini";
int lookups = 0;  // left; each walks through the tree, and the tree may be a file's length deep

void Check(const Orv::SettingsSection& section, const Orv::CommonSettings& settings, std::size_t fileBytes) {
    if (!section.name.empty() && --lookups > 0) {
        Fuzz::Require(settings.FindSection(section.name) != nullptr, "a section is found by its full name");
    }
    for (const auto& [lookup, value] : section.valuesByKey) {
        Fuzz::Require(lookup == Platform::LowerAscii(value.key), "a key is kept in lower case");
        Fuzz::Require(&section.FindValue(value.key) == &value, "a key is found as it was spelled");
        Fuzz::Require(value.section == section.name, "a key knows its section");
        std::size_t bytes = 0;
        for (const std::string& text : value.values) bytes += text.size();
        Fuzz::Require(bytes <= fileBytes, "values are parts of the file");
        Fuzz::Require(value.AsString().size() <= bytes + 3 * value.values.size(), "values come with quotes and blanks");
        static_cast<void>(value.AsInteger());
    }
    for (const Orv::SettingsSection& child : section.children) {
        Fuzz::Require(section.name.empty() || child.name.starts_with(section.name + "/"), "a child bears its parent");
        Check(child, settings, fileBytes);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
    const std::string_view file = Fuzz::AsText(data, size);
    Platform::Sim::Files().AddFile(kPath, file);
    Orv::CommonSettings settings;
    Fuzz::Require(settings.Load(kPath), "a file that can be opened is read");
    std::size_t lines = file.empty() || file.back() == '\n' ? 0 : 1;
    for (const char c : file) lines += c == '\n';
    Fuzz::Require(settings.lineNumber == lines, "every line is counted");
    lookups = 20;
    Check(settings, settings, size);

    // Lines as the names of values, whatever they look like.
    for (std::size_t begin = 0; begin < file.size() && --lookups > -20;) {
        const std::size_t end = std::min(file.find('\n', begin), file.size());
        static_cast<void>(settings.GetValue(std::string(file.substr(begin, end - begin)).c_str()).AsString());
        begin = end + 1;
    }
    const std::size_t messages = settings.messages.size();
    Fuzz::Require(settings.Load(kPath) && settings.messages.size() >= messages, "messages stay");
    return 0;
}
