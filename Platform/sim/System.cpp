// What is simple in a simulated system: its error texts, and a terminal that is not there.
#include <cstring>

#include "Platform/SystemError.h"
#include "Platform/Terminal.h"

namespace Platform {

std::string SystemErrorText(SystemError error) {
    const char* text = ::strerrordesc_np(static_cast<int>(error));
    return text == nullptr ? std::string() : std::string(text);
}

bool IsTerminal(StandardStream) {
    return false;
}

u32 TerminalWidth() {
    constexpr u32 kColumnsWithoutTerminal = 80;
    return kColumnsWithoutTerminal;
}

u32 TerminalHeight() {
    constexpr u32 kRowsWithoutTerminal = 24;
    return kRowsWithoutTerminal;
}

bool ShowsColours(StandardStream) {
    return false;
}

bool ReadPassword(const std::string&, std::string&) {
    return false;
}

}  // namespace Platform
