// The state as one JSON object.
#include "AudioFeeder/JsonText.h"
#include "AudioFeeder/StateSnapshot.h"
#include "Platform/SystemError.h"

namespace Orv {

namespace {

double Seconds(u64 milliseconds) {
    return static_cast<double>(milliseconds) / 1000.0;
}

void WriteProcess(JsonText& json, const StateSnapshot& state) {
    json.Key("process").BeginObject();
    json.Key("id").Number(state.process.id);
    json.Key("uptime_seconds").Number(Seconds(state.uptimeMilliseconds), 3);
    json.Key("threads").Number(state.process.threads);
    json.Key("resident_bytes").Number(state.process.residentBytes);
    json.Key("cpu_seconds").Number(Seconds(state.process.cpuMilliseconds), 3);
    json.Key("open_files").Number(state.process.openFiles);
    json.Key("open_files_limit").Number(state.process.openFilesLimit);
    json.EndObject();
}

void WriteLevel(JsonText& json, const LevelSetting& level) {
    json.Key("max_volume").Number(i64{PercentFromLevel(level.maxLevel)});
    json.Key("autogain").Bool(level.autogain);
}

void WriteRow(JsonText& json, const FeedRow& row) {
    json.Key("row").BeginObject();
    for (const char* name : {Columns::pipename, Columns::thename}) {
        json.Key(name);
        row.Has(name) ? json.Text(row.Text(name)) : json.Null();
    }
    for (const char* name :
         {Columns::idaudiofeed, Columns::feedtype, Columns::nonstop, Columns::playannouncements,
          Columns::minannouncementpause, Columns::maxannouncementpause, Columns::maxvolume, Columns::autogain}) {
        json.Key(name);
        row.Has(name) ? json.Number(i64{row.Number(name)}) : json.Null();
    }
    json.EndObject();
}

void WriteFeed(JsonText& json, const FeedState& feed) {
    const FeedFigures& figures = feed.figures;
    json.BeginObject();
    WriteRow(json, feed.report->Row());
    json.Key("instance").Number(i64{feed.report->InstanceId()});
    json.Key("state").Text(FeedWord(figures));
    json.Key("music").Text(figures.music);
    json.Key("announcement").Text(figures.announcement);
    json.Key("clients").Number(figures.clients);
    json.Key("blocks").Number(figures.blocks);
    json.Key("blocks_sent").Number(figures.blocksSent);
    json.Key("silent_blocks").Number(figures.silentBlocks);
    json.Key("late_blocks").Number(figures.lateBlocks);
    json.Key("write_milliseconds").Number(u64{figures.writeMilliseconds});
    json.Key("gain").Number(figures.gain, 4);
    json.Key("peak").Number(i64{figures.peak});
    WriteLevel(json, figures.level);
    json.Key("announcements").Number(figures.announcements);
    json.Key("pipe_error");
    figures.pipeError != 0 ? json.Text(Platform::SystemErrorText(figures.pipeError)) : json.Null();
    json.Key("bad_content");
    if (figures.badReason.empty()) {
        json.Null();
    } else {
        json.BeginObject();
        json.Key("name").Text(figures.badContent);
        json.Key("reason").Text(figures.badReason);
        json.Key("seconds_ago").Number(figures.badSeconds);
        json.EndObject();
    }
    json.EndObject();
}

}  // namespace

std::string WriteStateJson(const StateSnapshot& state) {
    JsonText json;
    json.BeginObject();
    json.Key("version").Text(state.version);
    WriteProcess(json, state);
    json.Key("configuration").BeginObject();
    json.Key("state").Text(LinkWord(state.link));
    json.Key("text").Text(LinkText(state.link));
    json.Key("seconds").Number(Seconds(state.linkMilliseconds), 3);
    json.EndObject();
    json.Key("default_file").Text(state.defaultFile);
    json.Key("root_path").Text(state.rootPath);
    WriteLevel(json, state.level);
    json.Key("announcements").Number(state.announcements);
    json.Key("feeds").BeginArray();
    for (const FeedState& feed : state.feeds) WriteFeed(json, feed);
    json.EndArray().EndObject();
    return json.Get() + "\n";
}

}  // namespace Orv
