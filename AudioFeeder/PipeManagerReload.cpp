// The beginning and the end of everything: building all channels from the tables, taking all down.
#include <string>
#include <vector>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/EventTurn.h"
#include "AudioFeeder/Parameters.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/Preload.h"
#include "AudioFeeder/SharedValues.h"
#include "AudioFeeder/UpdateDispatcher.h"
#include "ConfigClient/ConfigConnection.h"
#include "ConfigClient/ObjectList.h"
#include "Platform/Clock.h"
#include "Platform/Random.h"
#include "Platform/Thread.h"
#include "ServiceProcess/Log.h"

namespace Orv {

using ConfigConnection::TObjectListImpl;
using MTObjects::THolder;

namespace {

constexpr char kLogSource[] = "PipeManager";

constexpr u32 kWaitSteps = 30;
constexpr u32 kWaitStepMilliseconds = 1000;

// The row of a parameter, empty when there is none or the table cannot be had.
FeedRow FindParameter(const char* name) {
    const THolder<TObjectListImpl> parameters = ConfigConnection::GetList(Tables::PARAMETER);
    if (!parameters.IsValid()) return {};
    return FeedRow(parameters->FindRow(Columns::name, name, 0));
}

// All rows of a table, in the table's order. A row without fields is one that is not there.
std::vector<FeedRow> RowsOf(const char* table) {
    std::vector<FeedRow> rows;
    const THolder<TObjectListImpl> list = ConfigConnection::GetList(table);
    if (!list.IsValid()) return rows;
    std::vector<i32> ids;
    list->GetIds(ids);
    for (const i32 id : ids) {
        FeedRow row(list->GetRow(id));
        if (VXGetParamCount(row.base.Get()) != 0) rows.push_back(row);
    }
    return rows;
}

// Before anything is opened, and under the root that will hold by the time a channel is built. The engine's words about
// it need the logging level.
void Preload() {
    if (!PreloadWanted()) return;
    const FeedRow promptPath = FindParameter(Parameters::PromptPath);
    const std::string root = promptPath.Text(Columns::value);
    PreloadFiles(root.empty() ? RootPath() : root);
}

void ReloadParameters() {
    ApplyLoggingLevel(FindParameter(Parameters::LoggingLevel));
    Preload();

    const FeedRow defaultFile = FindParameter(Parameters::DefaultAudioFile);
    if (defaultFile.Has(Columns::idparameter)) SetDefaultAudioFile(defaultFile.Text(Columns::value));

    const FeedRow maxVolume = FindParameter(Parameters::MaxVolume);
    SetMaxVolume(maxVolume.Has(Columns::idparameter) ? NumberFromText(maxVolume.Text(Columns::value)) : 0);

    const FeedRow autogain = FindParameter(Parameters::EnableAutogain);
    SetAutogain(autogain.Has(Columns::idparameter) && SwitchFromText(autogain.Text(Columns::value)));

    const FeedRow promptPath = FindParameter(Parameters::PromptPath);
    if (*promptPath.Text(Columns::value) != '\0') {
        SetRootPath(promptPath.Text(Columns::value));
    } else {
        ORV_LOG(Info) << "IVRPROMPTPATH is not specified";
    }
}

}  // namespace

// Parameters, then channels, then announcements: a channel may find no announcement yet at its first draw.
void IPipeManager::ReloadAll() {
    EventTurn turn;
    // The shuffles of new channels are drawn on this thread.
    Platform::SeedThreadRand(static_cast<u32>(Platform::SteadyMilliseconds()));
    ReloadParameters();
    for (const FeedRow& row : RowsOf(Tables::AUDIOFEED)) {
        THolder<IPipeManager>& manager = Instance();
        if (manager.IsValid()) manager->UpdateFeed(row, {});
    }
    for (const FeedRow& row : RowsOf(Tables::ANNOUNCEMENT)) AnnouncementTable::Instance().Store(row);
}

void IPipeManager::StopAll() {
    EventTurn turn;
    THolder<IPipeManager>& manager = Instance();
    if (manager.IsValid()) manager->ShutdownAll();
    AnnouncementTable::Instance().Clear();
}

void IPipeManager::WaitForChannels() {
    THolder<IPipeManager>& manager = Instance();
    if (manager.IsValid()) manager->ReleaseDefaultSet();
    for (u32 step = 0; step < kWaitSteps; ++step) {
        if (runningPumpThreads.load(std::memory_order_acquire) == 0) return;
        Platform::SleepMilliseconds(kWaitStepMilliseconds);
    }
}

}  // namespace Orv
