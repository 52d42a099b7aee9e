#include "ConfigService/Validation.h"

#include <algorithm>
#include <array>

#include "Platform/NamedPipe.h"
#include "Platform/Path.h"

namespace Orv {
namespace {

// A local socket's path has 108 bytes with its NUL, and the usual folder of the pipes takes 14 of them.
constexpr u32 kLongestPipeFileName = 93;

constexpr std::array<const char*, 5> kKnownParameters = {"DEFAULTAUDIOFILE", "AUDIO_PROVIDER_MAX_VOLUME",
                                                         "AUDIO_PROVIDER_ENABLE_AUTOGAIN", "IVRPROMPTPATH",
                                                         "SYSTEMLOGGINGLEVEL"};

class Findings {
public:
    Findings(std::vector<RowFinding>& errors, std::vector<RowFinding>& warnings)
        : errors_(errors), warnings_(warnings) {}
    void Error(const char* field, std::string text) { errors_.push_back({field, std::move(text)}); }
    void Warning(const char* field, std::string text) { warnings_.push_back({field, std::move(text)}); }

private:
    std::vector<RowFinding>& errors_;
    std::vector<RowFinding>& warnings_;
};

// A whole number of at most three digits without a sign, as the audio feed service's reader takes it.
bool ParsePlainNumber(const std::string& text, u32& number) {
    if (text.empty() || text.size() > 3) return false;
    number = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') return false;
        number = number * 10 + static_cast<u32>(c - '0');
    }
    return true;
}

void CheckPauses(const Row& row, Findings& findings) {
    using namespace FeedColumn;
    const i32 shortest = row.Number(MinPause);
    const i32 longest = row.Number(MaxPause);
    bool negative = false;
    if (shortest < 0) {
        findings.Error("minannouncementpause",
                       "is " + std::to_string(shortest) + "; a pause is 0 seconds or more, so give a number from 0 on");
        negative = true;
    }
    if (longest < 0) {
        findings.Error("maxannouncementpause",
                       "is " + std::to_string(longest) + "; a pause is 0 seconds or more, so give a number from 0 on");
        negative = true;
    }
    if (!negative && shortest > longest) {
        const std::string highest = row.Has(MaxPause) ? std::to_string(longest) : "absent, which counts as 0";
        findings.Error("minannouncementpause", "is " + std::to_string(shortest) + ", above maxannouncementpause (" +
                                                   highest + "); set both so that the first is not above the second");
    }
    if (row.Number(PlayAnnouncements) != 0 && shortest == 0 && longest == 0) {
        findings.Warning("maxannouncementpause",
                         "is 0 or absent, so announcements follow each other without a pause; set "
                         "minannouncementpause and maxannouncementpause to leave time for the music");
    }
}

void CheckFeed(const Row& row, Findings& findings) {
    using namespace FeedColumn;
    const std::string& pipe = row.Text(PipeName);
    if (pipe.empty()) {
        findings.Error("pipename", "is empty; give the name of the pipe on which the feed plays");
    } else if (const u64 length = Platform::PipeFileName(pipe).size(); length > kLongestPipeFileName) {
        findings.Warning("pipename", "takes " + std::to_string(length) + " bytes as a file name; more than " +
                                         std::to_string(kLongestPipeFileName) +
                                         " do not fit into the usual pipe folder, so choose a shorter name");
    }
    const i32 type = row.Number(FeedType);
    if (type < 0 || type > 3) {
        findings.Error("feedtype", "is " + std::to_string(type) +
                                       "; use 0 (the default stream), 1 (line input), 2 (a folder, shuffled) or 3 (a "
                                       "folder, sorted)");
    } else if (type == 1) {
        findings.Warning("feedtype", "is line input, which is not available; the feed plays the default stream");
    } else if (type >= 2 && row.Text(TheName).empty()) {
        findings.Warning("thename", "is empty, so there is no folder to play; the feed plays DEFAULTAUDIOFILE");
    }
    CheckPauses(row, findings);
    const i32 volume = row.Number(MaxVolume);
    if (volume < 0 || volume > 100) {
        findings.Error("maxvolume", "is " + std::to_string(volume) + "; it is a percentage, so give 0 to 100");
    } else if (row.Number(AutoGain) != 0 && volume == 0) {
        findings.Warning("autogain", "counts only beside a maxvolume of 1 to 100; set maxvolume too");
    }
}

void CheckAnnouncement(const Row& row, Findings& findings) {
    using namespace AnnouncementColumn;
    if (row.Text(TheName).empty()) findings.Error("thename", "is empty; give the announcement a name");
    if (row.Text(TheFile).empty()) findings.Error("thefile", "is missing; name the sound file that is to be played");
    const i32 type = row.Number(TheType);
    if (type != 0 && type != 1) {
        findings.Warning("thetype", "is " + std::to_string(type) +
                                        ", which counts as 0 (mixed over the music); 1 replaces the music");
    }
}

void CheckParameter(const Row& row, Findings& findings) {
    const std::string& name = row.Text(ParameterColumn::Name);
    const std::string& value = row.Text(ParameterColumn::Value);
    if (name.empty()) {
        findings.Error("name", "is empty; give the parameter's name");
        return;
    }
    u32 number = 0;
    if (name == "AUDIO_PROVIDER_MAX_VOLUME") {
        if (!ParsePlainNumber(value, number) || number > 100) {
            findings.Error("value",
                           "of AUDIO_PROVIDER_MAX_VOLUME is \"" + value + "\"; give a percentage from 0 to 100");
        }
    } else if (name == "AUDIO_PROVIDER_ENABLE_AUTOGAIN") {
        if (value != "0" && value != "1") {
            findings.Error("value", "of AUDIO_PROVIDER_ENABLE_AUTOGAIN is \"" + value + "\"; give 0 (off) or 1 (on)");
        }
    } else if (name == "SYSTEMLOGGINGLEVEL") {
        if (value.size() != 1 || value[0] < '0' || value[0] > '5') {
            findings.Error("value", "of SYSTEMLOGGINGLEVEL is \"" + value + "\"; give one digit from 0 to 5");
        }
    } else if (name == "DEFAULTAUDIOFILE") {
        if (value.empty()) {
            findings.Warning("value",
                             "of " + name + " is empty, which leaves the file before it in force; name a file");
        }
    } else if (name == "IVRPROMPTPATH") {
        if (value.empty()) {
            findings.Warning("value", "of " + name + " is empty; remove the parameter if nothing is meant to be set");
        }
    } else {
        std::string text = "is none that the audio feed service reads";
        for (const char* known : kKnownParameters) {
            if (Platform::LowerAscii(name) == Platform::LowerAscii(known)) {
                text += std::string("; ") + known + " is, and upper and lower case count";
            }
        }
        findings.Warning("name", std::move(text));
    }
}

}  // namespace

bool IsKnownParameter(std::string_view name) {
    return std::find(kKnownParameters.begin(), kKnownParameters.end(), name) != kKnownParameters.end();
}

bool HasControlCharacter(std::string_view text) {
    for (u64 i = 0; i < text.size(); ++i) {
        const u8 byte = static_cast<u8>(text[i]);
        if (byte < 0x20 || byte == 0x7F) return true;
        // U+0080 to U+009F in UTF-8. The same two bytes inside a longer sequence cannot occur: 0xC2 is only ever a
        // first byte.
        if (byte == 0xC2 && i + 1 < text.size()) {
            const u8 next = static_cast<u8>(text[i + 1]);
            if (next >= 0x80 && next <= 0x9F) return true;
        }
    }
    return false;
}

std::string WhyTextRefused(std::string_view text) {
    if (HasControlCharacter(text)) return "holds a control character (a tab, a line end or the like); take it out";
    if (text.size() > MaxTextBytes) {
        return "is " + std::to_string(text.size()) + " bytes long; " + std::to_string(MaxTextBytes) + " are the most";
    }
    return {};
}

void CheckRow(const Table& table, const Row& row, std::vector<RowFinding>& errors, std::vector<RowFinding>& warnings) {
    Findings findings(errors, warnings);
    switch (table.index) {
        case AudioFeed:
            CheckFeed(row, findings);
            break;
        case AudioFeedContent:
            break;
        case Announcement:
            CheckAnnouncement(row, findings);
            break;
        default:
            CheckParameter(row, findings);
            break;
    }
}

}  // namespace Orv
