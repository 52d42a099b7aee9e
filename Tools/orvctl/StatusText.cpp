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
constexpr u32 kLoudFrom = 14;      // of the bar: -18 dB
constexpr u32 kVeryLoudFrom = 18;  // -6 dB

constexpr char kPlain[] = "\x1b[0m";
constexpr char kBold[] = "\x1b[1m";
constexpr char kDim[] = "\x1b[2m";
constexpr char kRed[] = "\x1b[31m";
constexpr char kGreen[] = "\x1b[32m";
constexpr char kYellow[] = "\x1b[33m";

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

using Lines = std::vector<std::string>;

Lines SplitLines(const std::string& text) {
    Lines lines;
    for (std::size_t begin = 0, end; begin < text.size(); begin = end + 1) {
        end = std::min(text.find('\n', begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
    }
    return lines;
}

std::string HeadOf(const Json& state) {
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
    return text;
}

Lines CellsOf(const Json& feed, const Json& state) {
    const std::string word = TextOf(feed, "state");
    const auto count = [&](const char* key) { return Formatted("%.0f", NumberOf(feed, key)); };
    return {TextOf(PartOf(feed, "row"), "pipename"),
            word,
            count("clients"),
            word == "playing" ? Bar(NumberOf(feed, "peak")) : "",
            Formatted("%.2f", NumberOf(feed, "gain")),
            count("blocks_sent"),
            count("silent_blocks"),
            count("late_blocks"),
            count("announcements"),
            Plays(feed, state)};
}

std::string TroublesOf(const Json& feed) {
    const std::string pipe = TextOf(PartOf(feed, "row"), "pipename");
    const Json& bad = PartOf(feed, "bad_content");
    std::string text;
    if (!bad.empty()) {
        text += pipe + ": \"" + TextOf(bad, "name") + "\" did not play " + Age(NumberOf(bad, "seconds_ago")) +
                " ago: " + TextOf(bad, "reason") + "\n";
    }
    if (!TextOf(feed, "pipe_error").empty()) {
        text += pipe + ": its pipe cannot be served: " + TextOf(feed, "pipe_error") + "\n";
    }
    return text;
}

// What is shown, in lines of its own without their ends.
struct View {
    Lines head;
    Lines table;  // the headings and the feeds; with no feeds, a sentence
    Lines troubles;
    std::vector<std::size_t> nameBytes;  // of the feeds' first cells
};

View ViewOf(const Json& state, u32 width) {
    std::vector<Lines> cells = {
        {"PIPE", "STATE", "CLIENTS", "LEVEL", "GAIN", "SENT", "SILENT", "LATE", "ANNOUNCED", "PLAYS"}};
    std::string troubles;
    View view;
    for (const Json& feed : state["feeds"]) {
        cells.push_back(CellsOf(feed, state));
        view.nameBytes.push_back(cells.back()[0].size());
        troubles += TroublesOf(feed);
    }
    view.head = SplitLines(CutLines(HeadOf(state), width));
    view.table = SplitLines(CutLines(cells.size() == 1 ? "There are no feeds.\n" : AlignTable(cells), width));
    view.troubles = SplitLines(CutLines(troubles, width));
    return view;
}

// Counts the feeds for which there is no room among so many lines; the first one always shows.
void Fit(View& view, u32 height, u32 width) {
    const std::size_t others = view.head.size() + 1 + (view.troubles.empty() ? 0 : view.troubles.size() + 1);
    const std::size_t room = std::max<std::size_t>(height > others ? height - others : 0, 3);
    if (view.table.size() <= room) return;
    const std::size_t feeds = room - 2;
    view.table.resize(1 + feeds);
    const std::string more = std::to_string(view.nameBytes.size() - feeds);
    view.table.push_back(CutLines("... and " + more + " more; `orvctl status` shows all", width));
    view.nameBytes.resize(feeds);
}

std::string Coloured(const char* colour, const std::string& text) {
    return colour + text + kPlain;
}

std::string ColouredBar(std::size_t filled) {
    const auto part = [&](const char* colour, std::size_t from, std::size_t to) {
        return filled <= from ? std::string() : Coloured(colour, std::string(std::min(filled, to) - from, '#'));
    };
    return part(kGreen, 0, kLoudFrom) + part(kYellow, kLoudFrom, kVeryLoudFrom) + part(kRed, kVeryLoudFrom, kBarWidth);
}

// The word for the state, and the bar. The line may have been cut anywhere.
std::string ColouredRow(const std::string& line, std::size_t nameBytes) {
    const std::size_t word = line.find_first_not_of(' ', nameBytes);
    if (word == std::string::npos) return line;
    const std::size_t end = std::min(line.find(' ', word), line.size());
    const std::string state = line.substr(word, end - word);
    const bool plays = state == "playing";
    const char* colour = plays ? kGreen : state == "idle" ? kDim : kRed;
    const std::size_t bar = plays ? line.find('[', end) : std::string::npos;
    std::string result = line.substr(0, word) + Coloured(colour, state);
    if (bar == std::string::npos) return result + line.substr(end);
    const std::size_t filled = std::min(line.find_first_not_of('#', bar + 1), line.size()) - bar - 1;
    return result + line.substr(end, bar + 1 - end) + ColouredBar(filled) + line.substr(bar + 1 + filled);
}

void Colour(View& view, bool up) {
    view.head[0] = Coloured(kBold, view.head[0]);
    for (std::size_t i = 1; i < view.head.size() && !up; ++i) view.head[i] = Coloured(kRed, view.head[i]);
    if (!view.nameBytes.empty()) view.table[0] = Coloured(kBold, view.table[0]);
    for (std::size_t i = 0; i < view.nameBytes.size(); ++i) {
        view.table[i + 1] = ColouredRow(view.table[i + 1], view.nameBytes[i]);
    }
    for (std::string& trouble : view.troubles) trouble = Coloured(kYellow, trouble);
}

}  // namespace

std::string StateText(const Json& state, const Screen& screen) {
    View view = ViewOf(state, screen.width);
    // A line feed behind the last line would move all of them up.
    const u32 height = screen.height == 0 ? 0 : std::max<u32>(screen.height - 1, 1);
    if (height > 0) Fit(view, height, screen.width);
    if (screen.colours) Colour(view, TextOf(PartOf(state, "configuration"), "state") == "up");
    Lines lines = std::move(view.head);
    lines.push_back("");
    lines.insert(lines.end(), view.table.begin(), view.table.end());
    if (!view.troubles.empty()) lines.push_back("");
    lines.insert(lines.end(), view.troubles.begin(), view.troubles.end());
    if (height > 0 && lines.size() > height) lines.resize(height);
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
}

}  // namespace Orv
