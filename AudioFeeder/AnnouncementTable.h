// The exchange's announcements, shared by all channels.
#pragma once

#include <atomic>
#include <map>
#include <string>

#include "AudioFeeder/FeedRow.h"
#include "Platform/Sync.h"

namespace Orv {

// The rows by name, in bytewise order. Any thread; its mutex is held for moments and never with another lock.
class AnnouncementTable {
public:
    static AnnouncementTable& Instance();

    // Puts the row under its `thename`, in place of one of the same name.
    void Store(const FeedRow& row);
    void Erase(const std::string& name);
    void Clear();
    // The number of rows, read without the mutex.
    u32 Size() const noexcept { return size_.load(std::memory_order_relaxed); }
    // The row at a place in key order. False when there is none (any more), and `row` stays as it is.
    bool RowAt(u32 index, FeedRow& row) const;

private:
    void UpdateSize() ORV_REQUIRES(mutex_) { size_.store(static_cast<u32>(rows_.size()), std::memory_order_relaxed); }

    mutable Platform::RecursiveMutex mutex_;
    std::map<std::string, FeedRow> rows_ ORV_GUARDED_BY(mutex_);
    std::atomic<u32> size_{0};  // of rows_; a draw bound, so a value that is a moment old does no harm
};

// Configuration events. They log the row, and take turns with the events of PipeManager.h.

// Stores the new row. An announcement whose name has changed keeps its old entry beside the new one, until that entry
// is deleted or everything is reloaded.
void UpdateAnnouncement(const FeedRow& newRow, const FeedRow& oldRow);
void DeleteAnnouncement(const FeedRow& row);
// "thename(thetype)[thefile]", as the log tells an announcement.
std::string DescribeAnnouncement(const FeedRow& row);

}  // namespace Orv
