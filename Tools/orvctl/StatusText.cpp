// The state of the audio feed service as a table with bars.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "Tools/orvctl/Report.h"
#include "Tools/orvctl/Status.h"

namespace Orv {
namespace {

constexpr u32 kBarWidth = 20;
constexpr double kBarFloorDb = -60.0;

// What a service of another version may not tell reads as nothing.
std::string TextOf(const Json& json, const char* key) {
    return json.contains(key) && json[key].is_string() ? json[key].get<std::string>() : std::string();
}
double NumberOf(const Json& json, const char* key) {
    return json.contains(key) && json[key].is_number() ? json[key].get<double>() : 0.0;
}
const Json& PartOf(const Json& json, const char* key) {
    static const Json none = Json::object();
    return json.contains(key) && json[key].is_object() ? json[key] : none;
}

std::string Formatted(const char* format, double number) {
    char text[64];
    std::snprintf(text, sizeof text, format, number);
    return text;
}

std::string Age(double seconds) {
    const u64 whole = static_cast<u64>(std::max(seconds, 0.0));
    if (whole < 120) return std::to_string(whole) + " s";
    if (whole < 7200) return std::to_string(whole / 60) + " min";
    if (whole < 172'800) return std::to_string(whole / 3600) + " h";
    return std::to_string(whole / 86'400) + " days";
}

// "[##########          ] -12.0 dB"
std::string Bar(double peak) {
    const double db = peak > 0 ? 20.0 * std::log10(peak / 32767.0) : kBarFloorDb - 1;
    const double part = std::clamp((db - kBarFloorDb) / -kBarFloorDb, 0.0, 1.0);
    const u32 filled = static_cast<u32>(std::lround(part * kBarWidth));
    return "[" + std::string(filled, '#') + std::string(kBarWidth - filled, ' ') + "] " +
           (db < kBarFloorDb ? "  silent" : Formatted("%5.1f dB", db));
}

std::string BaseName(const std::string& path) {
    const auto slash = path.find_last_of("/\\");
    return slash == std::string::npos || slash + 1 == path.size() ? path : path.substr(slash + 1);
}

std::string Plays(const Json& feed, const Json& state) {
    std::string music = TextOf(feed, "music");
    if (music == "defaultset:") music = "default: " + BaseName(TextOf(state, "default_file"));
    const std::string announcement = TextOf(feed, "announcement");
    return BaseName(music) + (announcement.empty() ? "" : " + " + BaseName(announcement));
}

std::string CutLines(const std::string& text, u32 width) {
    if (width == 0) return text;
    std::string cut;
    u32 column = 0;
    for (const char c : text) {
        const bool follows = (static_cast<u8>(c) & 0xC0) == 0x80;
        if (c == '\n') {
            column = 0;
        } else if (!follows) {
            ++column;
        }
        // Control characters in a file's name are not for the terminal.
        if (c == '\n' || column < width) cut += static_cast<u8>(c) < 0x20 && c != '\n' ? '?' : c;
    }
    return cut;
}

}  // namespace

std::string StateText(const Json& state, u32 width) {
    const Json& process = PartOf(state, "process");
    const Json& configuration = PartOf(state, "configuration");
    std::string text =
        "Audio feed service " + TextOf(state, "version") + ", running for " + Age(NumberOf(process, "uptime_seconds")) +
        ", " + Formatted("%.1f", NumberOf(process, "resident_bytes") / 1048576.0) + " MB, " +
        Formatted("%.0f", NumberOf(process, "threads")) + " threads\nConfiguration: " + TextOf(configuration, "text") +
        ", for " + Age(NumberOf(configuration, "seconds")) + "\n";
    if (TextOf(configuration, "state") == "lost") {
        text += "  No change reaches the feeds until: systemctl restart orv-audio-feed\n";
    }
    std::vector<std::vector<std::string>> lines = {
        {"PIPE", "STATE", "CLIENTS", "LEVEL", "GAIN", "SENT", "SILENT", "LATE", "ANNOUNCED", "PLAYS"}};
    std::string troubles;
    for (const Json& feed : state["feeds"]) {
        const std::string pipe = TextOf(PartOf(feed, "row"), "pipename");
        const std::string word = TextOf(feed, "state");
        const bool plays = word == "playing";
        const auto count = [&](const char* key) { return Formatted("%.0f", NumberOf(feed, key)); };
        lines.push_back({pipe, word, count("clients"), plays ? Bar(NumberOf(feed, "peak")) : "",
                         Formatted("%.2f", NumberOf(feed, "gain")), count("blocks_sent"), count("silent_blocks"),
                         count("late_blocks"), count("announcements"), Plays(feed, state)});
        const Json& bad = PartOf(feed, "bad_content");
        if (!bad.empty()) {
            troubles += pipe + ": \"" + TextOf(bad, "name") + "\" did not play " + Age(NumberOf(bad, "seconds_ago")) +
                        " ago: " + TextOf(bad, "reason") + "\n";
        }
        if (!TextOf(feed, "pipe_error").empty()) {
            troubles += pipe + ": its pipe cannot be served: " + TextOf(feed, "pipe_error") + "\n";
        }
    }
    text += "\n" + (lines.size() == 1 ? "There are no feeds.\n" : AlignTable(lines));
    if (!troubles.empty()) text += "\n" + troubles;
    return CutLines(text, width);
}

}  // namespace Orv
