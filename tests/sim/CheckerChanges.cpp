// Changes of the configuration on their way through the service.
#include <algorithm>
#include <cstdlib>

#include "Platform/Thread.h"
#include "tests/sim/Checker.h"

namespace OrvSim {

namespace {

constexpr char kMarks[] = "TRANSACTION";

bool IsDeletion(const std::string& kind) {
    return !kind.empty() && kind[0] == 'D';
}

bool SameFeed(const Row& a, const Row& b) {
    for (const char* text : {"pipename", "thename"}) {
        if (a.Text(text) != b.Text(text)) return false;
    }
    for (const char* number : {"feedtype", "playannouncements", "nonstop"}) {
        if (a.Number(number) != b.Number(number)) return false;
    }
    return true;
}

i32 LevelOfText(const std::string& value) {
    return !value.empty() && value[0] >= '0' && value[0] <= '5' ? value[0] - '0' : 1;
}

}  // namespace

// A row that has gone before it was fetched is told to nobody.
void Checker::OnAnswer(const std::string& table, i32 id, const Row& row) {
    answers_[{table, id}] = row;
    if (!reloaded_) {
        if (!row.Empty()) tables_[table][id] = row;
        return;
    }
    if (!row.Empty()) return;
    for (auto change = expected_.begin(); change != expected_.end(); ++change) {
        if (change->table != table || change->id != id || IsDeletion(change->kind)) continue;
        expected_.erase(change);
        return;
    }
}

void Checker::Reload() {
    reloaded_ = true;
    // The line that is being written is the last one of the level that was.
    for (const auto& [id, row] : tables_["PARAMETER"]) {
        if (row.Text("name") == "SYSTEMLOGGINGLEVEL") SetLevel(row.Text("value"));
    }
    world_.box.Start(ModelWorld::Now());
    for (const auto& [id, row] : tables_["PARAMETER"]) ApplyParameter(row);
    for (const auto& [id, row] : tables_["ANNOUNCEMENT"]) world_.announcements[row.Text("thename")] = row;
    for (const auto& [id, row] : tables_["AUDIOFEED"]) ExpectRebuild(row, {});
}

void Checker::BeginChange(const std::string& table, const std::string& kind, i32 id, const Row& newRow,
                          const Row& oldRow) {
    const std::string what = table + " " + kind + " " + std::to_string(id);
    if (linkLost_ || stopping_) expected_.push_front({table, kind, id});  // whether it still comes is open
    if (changing_) world_.Fail("a change comes into another: " + what);
    if (expected_.empty()) {
        world_.Fail("a change that was never made: " + what);
        return;
    }
    const ExpectedChange wanted = expected_.front();
    expected_.pop_front();
    if (wanted.table != table || wanted.kind != kind || (table != kMarks && wanted.id != id)) {
        world_.Fail("the change " + what + " came for " + wanted.table + " " + wanted.kind + " " +
                    std::to_string(wanted.id));
        return;
    }
    changing_ = true;
    if (table == kMarks) return;
    ++world_.counts.changes;
    Table& rows = tables_[table];
    const auto known = rows.find(id);
    if (oldRow != (known == rows.end() ? Row() : known->second)) {
        world_.Fail("the change " + what + " tells another old row: " + Describe(oldRow));
    }
    const bool deleted = IsDeletion(kind);
    if (!deleted && newRow != answers_[{table, id}]) {
        world_.Fail("the change " + what + " tells another row than the service's: " + Describe(newRow));
    }
    if (deleted) {
        rows.erase(id);
    } else {
        rows[id] = newRow;
    }
    if (table == "AUDIOFEED") ApplyFeed(deleted, newRow, oldRow);
    if (table == "ANNOUNCEMENT") ApplyAnnouncement(deleted, newRow, oldRow);
    if (table == "PARAMETER" && !deleted) ApplyParameter(newRow);
}

void Checker::EndChange() {
    changing_ = false;
    TakeChangeAsMade();
}

// The service rests between changes. What a change has brought counts from the moment before, since pumps and clients
// go on meanwhile.
void Checker::BeforeTimePasses() {
    if (changing_ && world_.exact && IsChangeMade()) TakeChangeAsMade();
}

// No thread of an exact world waits for time in the middle of a change, but for the end of a feed: somebody else plays
// each live source all the time, so that no change waits for the end of one (docs/reliability.md).
bool Checker::IsChangeMade() const {
    if (!builds_.empty() || !managerLines_.empty()) return false;
    return std::none_of(leaving_.begin(), leaving_.end(), [this](u32 serial) { return feeds_.count(serial) != 0; });
}

void Checker::TakeChangeAsMade() {
    if (building_ != nullptr) building_->EndBuild(true);
    building_ = nullptr;
    if (level_) {
        world_.box.CatchUp(ModelWorld::Now());
        otherLevels_ = world_.levels;
        otherLevelsAt_ = ModelWorld::Now();
        SetLevel(*level_);
        level_.reset();
    }
    if (!managerLines_.empty()) world_.Fail("this line is missing: " + managerLines_.front());
    if (!builds_.empty()) world_.Fail("a feed was not built: " + builds_.front().Text("pipename"));
    if (updating_ != nullptr && world_.exact) updating_->EndUpdate();
    updating_ = nullptr;
    for (const u32 serial : leaving_) {
        if (feeds_.count(serial) != 0) world_.Fail("feed number " + std::to_string(serial) + " outlives its change");
    }
    leaving_.clear();
}

void Checker::ApplyFeed(bool deleted, const Row& newRow, const Row& oldRow) {
    if (deleted) {
        if (oldRow.Has("idaudiofeed")) ExpectEnd(oldRow.Text("pipename"));
        return;
    }
    FeedModel* feed = FeedOn(newRow.Text("pipename"));
    if (feed != nullptr && feed == FeedOn(oldRow.Text("pipename")) && SameFeed(newRow, oldRow)) {
        ++world_.counts.softUpdates;
        updating_ = feed;
        if (world_.exact) feed->BeginUpdate(newRow, Platform::CurrentThreadId());
        return;
    }
    ++world_.counts.rebuilds;
    ExpectRebuild(newRow, oldRow);
}

void Checker::ExpectEnd(const std::string& pipe) {
    FeedModel* feed = FeedOn(pipe);
    if (feed == nullptr) return;
    leaving_.push_back(feed->Serial());
    if (!world_.levels.Shows(" Info")) feed->StopUntold();
}

void Checker::ExpectRebuild(const Row& newRow, const Row& oldRow) {
    if (oldRow.Has("idaudiofeed")) ExpectManagerLine("Shutdown channel " + oldRow.Text("pipename"));
    if (newRow.Has("idaudiofeed")) ExpectManagerLine("Shutdown channel " + newRow.Text("pipename"));
    if (newRow.Has("idaudiofeed")) ExpectManagerLine("Creating channel " + newRow.Text("pipename"));
    ExpectEnd(oldRow.Text("pipename"));
    ExpectEnd(newRow.Text("pipename"));
    builds_.push_back(newRow);
}

// Under its old name an announcement stays where it is.
void Checker::ApplyAnnouncement(bool deleted, const Row& newRow, const Row& oldRow) {
    const Row& told = deleted ? oldRow : newRow;
    ExpectManagerLine(std::string("Announcement ") + (deleted ? "delete: " : "updated: ") + told.Text("thename") + "(" +
                      std::to_string(told.Number("thetype")) + ")[" + told.Text("thefile") + "]");
    if (deleted) {
        world_.announcements.erase(oldRow.Text("thename"));
    } else {
        world_.announcements[newRow.Text("thename")] = newRow;
    }
}

void Checker::ApplyParameter(const Row& row) {
    const std::string name = row.Text("name");
    const std::string value = row.Text("value");
    if (name == "DEFAULTAUDIOFILE" && !value.empty()) {
        world_.defaultFile = value;
        world_.box.Play(value, ModelWorld::Now());
    }
    if (name == "AUDIO_PROVIDER_MAX_VOLUME") world_.global.limit = LevelOf(std::atoi(value.c_str()));
    if (name == "AUDIO_PROVIDER_ENABLE_AUTOGAIN") world_.global.autogain = value == "1";
    if (name == "IVRPROMPTPATH") world_.root = value;
    if (name != "SYSTEMLOGGINGLEVEL" || !changing_) return;
    ++world_.counts.levelChanges;
    level_ = value;
    otherLevels_ = world_.levels;
    otherLevels_.Set(LevelOfText(value));
    otherLevelsAt_ = ModelWorld::Now();
    ExpectManagerLine("Change log verbosity to " + std::to_string(LevelOfText(value)));
}

void Checker::SetLevel(const std::string& value) {
    world_.levels.Set(LevelOfText(value));
}

void Checker::ExpectManagerLine(const std::string& line) {
    if (world_.levels.Shows(" Info")) managerLines_.push_back(line);
}

}  // namespace OrvSim
