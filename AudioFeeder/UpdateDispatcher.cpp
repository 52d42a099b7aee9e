#include "AudioFeeder/UpdateDispatcher.h"

#include <exception>
#include <map>
#include <string>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/ChangePace.h"
#include "AudioFeeder/EventTurn.h"
#include "AudioFeeder/Parameters.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/SharedValues.h"
#include "ServiceProcess/Log.h"

namespace Orv {

namespace {

constexpr char kLogSource[] = "OrvAudioFeeder";

enum TableId : i32 { AudioFeed = 0, AudioFeedContent = 1, Announcement = 2, Parameter = 3, ConfigServer = 4 };

// Filled before the first connection and only read afterwards. Never destroyed: after an exception out of the host
// events may still come while the process ends.
std::map<std::string, i32>& TableIds() {
    static auto* const tableIds = new std::map<std::string, i32>;
    return *tableIds;
}

ChangePace& ThePace() {
    static ChangePace pace;
    return pace;
}

void OnFeed(bool deleted, const FeedRow& newRow, const FeedRow& oldRow) {
    if (!deleted) {
        IPipeManager::Instance()->UpdateFeed(newRow, oldRow);
    } else if (oldRow.Has(Columns::idaudiofeed)) {
        IPipeManager::Instance()->ShutdownFeed(oldRow);
    }
}

void OnParameter(const FeedRow& row) {
    const std::string name = row.Text(Columns::name);
    const char* value = row.Text(Columns::value);
    if (name == Parameters::DefaultAudioFile) {
        SetDefaultAudioFile(value);
    } else if (name == Parameters::MaxVolume) {
        SetMaxVolume(NumberFromText(value));
    } else if (name == Parameters::EnableAutogain) {
        SetAutogain(SwitchFromText(value));
    } else if (name == Parameters::PromptPath) {
        SetRootPath(value);
    } else if (name == Parameters::LoggingLevel) {
        ApplyLoggingLevel(row);
    }
}

void Dispatch(i32 tableId, bool deleted, const FeedRow& newRow, const FeedRow& oldRow) {
    switch (tableId) {
        case AudioFeed:
            OnFeed(deleted, newRow, oldRow);
            break;
        case Announcement:
            deleted ? DeleteAnnouncement(oldRow) : UpdateAnnouncement(newRow, oldRow);
            break;
        case Parameter:
            if (!deleted) OnParameter(newRow);  // a removed parameter keeps its last value
            break;
        case ConfigServer:
            deleted ? IPipeManager::StopAll() : IPipeManager::ReloadAll();
            break;
        default:  // a feed's content is read when a channel plays it, and not pushed
            break;
    }
}

}  // namespace

void FillTableIds() {
    TableIds() = {{Tables::AUDIOFEED, AudioFeed},
                  {Tables::AUDIOFEEDCONTENT, AudioFeedContent},
                  {Tables::ANNOUNCEMENT, Announcement},
                  {Tables::PARAMETER, Parameter},
                  {ConfigServerTable, ConfigServer}};
    ThePace().Reset();
}

void OnConfigUpdate(const char* table, const char* kind, u32, VX::ParamListHolder* newRow,
                    VX::ParamListHolder* oldRow) {
    ChangePace& pace = ThePace();
    bool isRow = false;  // not the service's own start and end
    try {
        const auto known = TableIds().find(table);
        if (known == TableIds().end()) return;
        isRow = known->second != ConfigServer;
        if (isRow) pace.Begin();
        // Parameters too: a reload that has read the old value must not set it behind the new one.
        EventTurn turn;
        Dispatch(known->second, *kind == 'D', FeedRow(*newRow), FeedRow(*oldRow));
    } catch (const std::exception& exception) {
        ORV_LOG(Excep) << exception.what();
    }
    if (isRow) pace.End();
}

void ApplyLoggingLevel(const FeedRow& row) {
    const char first = *row.Text(Columns::value);
    const u32 level = first >= '0' && first <= '5' ? static_cast<u32>(first - '0') : 1;
    ORV_LOG(Info) << "Change log verbosity to " << level;
    LogWriter::Instance().SetLogLevel(level);
}

}  // namespace Orv
