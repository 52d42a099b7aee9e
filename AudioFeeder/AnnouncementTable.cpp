#include "AudioFeeder/AnnouncementTable.h"

#include <iterator>

#include "AudioFeeder/EventTurn.h"
#include "ServiceProcess/Log.h"

namespace Orv {

namespace {

constexpr char kLogSource[] = "PipeManager";

using TableGuard = Platform::LockGuard<Platform::RecursiveMutex>;

}  // namespace

AnnouncementTable& AnnouncementTable::Instance() {
    static AnnouncementTable* const table = new AnnouncementTable;  // never destroyed: pumps read it
    return *table;
}

void AnnouncementTable::Store(const FeedRow& row) {
    TableGuard guard(mutex_);
    rows_[row.Text(Columns::thename)] = row;
    UpdateSize();
}

void AnnouncementTable::Erase(const std::string& name) {
    TableGuard guard(mutex_);
    rows_.erase(name);
    UpdateSize();
}

void AnnouncementTable::Clear() {
    TableGuard guard(mutex_);
    rows_.clear();
    UpdateSize();
}

bool AnnouncementTable::RowAt(u32 index, FeedRow& row) const {
    TableGuard guard(mutex_);
    if (index >= rows_.size()) return false;
    row = std::next(rows_.begin(), index)->second;
    return true;
}

std::string DescribeAnnouncement(const FeedRow& row) {
    return std::string(row.Text(Columns::thename)) + "(" + std::to_string(row.Number(Columns::thetype)) + ")[" +
           row.Text(Columns::thefile) + "]";
}

void UpdateAnnouncement(const FeedRow& newRow, const FeedRow&) {
    EventTurn turn;
    ORV_LOG(Info) << "Announcement updated: " << DescribeAnnouncement(newRow);
    AnnouncementTable::Instance().Store(FeedRow(newRow.base));
}

void DeleteAnnouncement(const FeedRow& row) {
    EventTurn turn;
    ORV_LOG(Info) << "Announcement delete: " << DescribeAnnouncement(row);
    AnnouncementTable::Instance().Erase(row.Text(Columns::thename));
}

}  // namespace Orv
