// The state in the text format of Prometheus.
#include <functional>

#include "AudioFeeder/JsonText.h"
#include "AudioFeeder/PipeFeed.h"
#include "AudioFeeder/StateSnapshot.h"

namespace Orv {

namespace {

// The value of a label: only these three are escaped.
std::string Label(std::string_view text) {
    std::string escaped;
    for (const char c : ValidUtf8(text)) {
        if (c == '\\' || c == '"') escaped += '\\';
        c == '\n' ? escaped += "\\n" : escaped += c;
    }
    return "\"" + escaped + "\"";
}

// As orvctl says it; a type that nothing knows by its number.
std::string TypeWord(i32 type) {
    switch (static_cast<FeedType>(type)) {
        case FeedType::DefaultSet:
            return "default";
        case FeedType::LineIn:
            return "linein";
        case FeedType::Shuffled:
            return "shuffled";
        case FeedType::Sorted:
            return "sorted";
    }
    return std::to_string(type);
}

class Metrics {
public:
    void Family(const char* name, const char* type, const char* help) {
        name_ = std::string("orv_") + name;
        text_ += "# HELP " + name_ + " " + help + "\n# TYPE " + name_ + " " + type + "\n";
    }
    void Sample(const std::string& value, const std::string& labels = "") {
        text_ += name_ + (labels.empty() ? "" : "{" + labels + "}") + " " + value + "\n";
    }
    void One(const char* name, const char* type, const char* help, const std::string& value) {
        Family(name, type, help);
        Sample(value);
    }
    const std::string& Get() const { return text_; }

private:
    std::string name_;
    std::string text_;
};

struct FeedFamily {
    const char* name;
    const char* type;
    const char* help;
    std::string (*value)(const FeedFigures& figures);
};

constexpr FeedFamily kFeedFamilies[] = {
    {"feed_up", "gauge", "1 when the feed has its thread and its pipe",
     [](const FeedFigures& f) { return std::string(f.hasThread && f.pipeError == 0 ? "1" : "0"); }},
    {"feed_clients", "gauge", "Clients connected to the feed's pipe",
     [](const FeedFigures& f) { return std::to_string(f.clients); }},
    {"feed_blocks_total", "counter", "Blocks of 125 ms made",
     [](const FeedFigures& f) { return std::to_string(f.blocks); }},
    {"feed_blocks_sent_total", "counter", "Blocks taken by clients, one for each client",
     [](const FeedFigures& f) { return std::to_string(f.blocksSent); }},
    {"feed_silent_blocks_total", "counter", "Blocks made in which every sample is 0",
     [](const FeedFigures& f) { return std::to_string(f.silentBlocks); }},
    {"feed_late_blocks_total", "counter", "Blocks made after a client's head start was used up",
     [](const FeedFigures& f) { return std::to_string(f.lateBlocks); }},
    {"feed_write_seconds", "gauge", "For how long a write to a client has been waiting",
     [](const FeedFigures& f) { return FixedPoint(f.writeMilliseconds / 1000.0, 3); }},
    {"feed_gain_ratio", "gauge", "Gain of the volume control",
     [](const FeedFigures& f) { return FixedPoint(f.gain, 4); }},
    {"feed_peak_ratio", "gauge", "Largest magnitude of the last block, 1 for full scale",
     [](const FeedFigures& f) { return FixedPoint(f.peak / 32767.0, 4); }},
    {"feed_announcements_total", "counter", "Announcements begun",
     [](const FeedFigures& f) { return std::to_string(f.announcements); }},
    {"feed_bad_content", "gauge", "1 when a content of the feed could not be played since it was built",
     [](const FeedFigures& f) { return std::string(f.badReason.empty() ? "0" : "1"); }},
};

void WriteProcess(Metrics& metrics, const StateSnapshot& state) {
    const Platform::ProcessFigures& process = state.process;
    metrics.One("uptime_seconds", "gauge", "Age of the service", FixedPoint(state.uptimeMilliseconds / 1000.0, 3));
    metrics.One("threads", "gauge", "Threads of the process", std::to_string(process.threads));
    metrics.One("resident_bytes", "gauge", "Memory of the process", std::to_string(process.residentBytes));
    metrics.One("cpu_seconds_total", "counter", "Processor time taken",
                FixedPoint(process.cpuMilliseconds / 1000.0, 3));
    metrics.One("open_files", "gauge", "Open descriptors", std::to_string(process.openFiles));
    metrics.One("open_files_limit", "gauge", "Descriptors that it may have", std::to_string(process.openFilesLimit));
}

std::string FeedLabel(const FeedState& feed) {
    return "feed=" + Label(feed.report->Row().Text(Columns::pipename));
}

// Texts, which no sample can have as its value: they are labels of a sample that is always 1.
void WriteTexts(Metrics& metrics, const std::vector<FeedState>& feeds) {
    metrics.Family("feed_info", "gauge", "What the feed is, and what it plays");
    for (const FeedState& feed : feeds) {
        const FeedRow& row = feed.report->Row();
        metrics.Sample("1", FeedLabel(feed) + ",folder=" + Label(row.Text(Columns::thename)) + ",type=" +
                                Label(TypeWord(row.Number(Columns::feedtype))) + ",music=" + Label(feed.figures.music) +
                                ",announcement=" + Label(feed.figures.announcement));
    }
    metrics.Family("feed_bad_content_info", "gauge", "The last content of the feed that could not be played, and why");
    for (const FeedState& feed : feeds) {
        if (feed.figures.badReason.empty()) continue;
        metrics.Sample("1", FeedLabel(feed) + ",name=" + Label(feed.figures.badContent) +
                                ",reason=" + Label(feed.figures.badReason));
    }
}

}  // namespace

std::string WriteStateMetrics(const StateSnapshot& state) {
    Metrics metrics;
    metrics.Family("build_info", "gauge", "The version of the service");
    metrics.Sample("1", "version=" + Label(state.version));
    metrics.Family("configuration_link", "gauge", "1 for the state that the link to the Configuration service has");
    for (const auto link : {ConfigurationLink::Waiting, ConfigurationLink::Up, ConfigurationLink::Lost}) {
        metrics.Sample(state.link == link ? "1" : "0", "state=" + Label(LinkWord(link)));
    }
    WriteProcess(metrics, state);
    metrics.One("feeds", "gauge", "Feeds", std::to_string(state.feeds.size()));
    metrics.One("announcements", "gauge", "Announcements to draw from", std::to_string(state.announcements));
    for (const FeedFamily& family : kFeedFamilies) {
        metrics.Family(family.name, family.type, family.help);
        for (const FeedState& feed : state.feeds) {
            metrics.Sample(family.value(feed.figures), FeedLabel(feed));
        }
    }
    WriteTexts(metrics, state.feeds);
    return metrics.Get();
}

}  // namespace Orv
