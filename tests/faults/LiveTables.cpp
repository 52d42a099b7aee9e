#include <mutex>
#include <stdexcept>

#include "ConfigClient/ConfigConnection.h"
#include "ConfigClient/Connection.h"
#include "ConfigClient/ObjectList.h"
#include "ConfigService/Wire.h"
#include "VX/GrpcLink.h"
#include "tests/faults/Storm.h"

namespace OrvTest {
namespace {

// What the listener, which is a plain function, writes down.
class Told {
public:
    void Clear() {
        const std::lock_guard guard(mutex_);
        times_.clear();
        numbers_.clear();
        wrong_.clear();
        mark_ = ' ';
        transaction_ = 0;
    }

    void OnMark(char kind, u32 number) {
        const std::lock_guard guard(mutex_);
        const bool inPlace = kind == 'I' ? mark_ == ' ' && number > transaction_
                                         : number == transaction_ && mark_ == (kind == 'U' ? 'I' : 'U');
        if (!inPlace) Note("mark " + std::string(1, kind) + " of " + std::to_string(number));
        mark_ = kind == 'D' ? ' ' : kind;
        transaction_ = number;
    }

    void OnRow(const std::string& table, char kind, const VX::ParamListHolder& newRow,
               const VX::ParamListHolder& oldRow, bool isInTable) {
        const Orv::Table& shape = *Orv::FindTable(table);
        const VX::ParamListHolder& row = kind == 'D' ? oldRow : newRow;
        const std::string key = Seen(shape, Orv::RowFromList(shape, row)).first;
        const std::lock_guard guard(mutex_);
        if (mark_ == 'I') Note(key + " inside a transaction, in front of its second mark");
        if (isInTable != (kind != 'D')) Note(key + " is told before it stands in its table");
        const i32 number = VXGetInt32Value(row.Get(), "maxannouncementpause");
        i32& last = numbers_[key];
        if (oldRow && VXGetParamCount(oldRow.Get()) != 0 &&
            VXGetInt32Value(oldRow.Get(), "maxannouncementpause") != last) {
            Note(key + " had another row before");
        }
        if (number < last) Note(key + " goes back to " + std::to_string(number));
        last = number;
        if (kind != 'D') ++times_[key];
    }

    unsigned Times(const std::string& key) const {
        const std::lock_guard guard(mutex_);
        const auto found = times_.find(key);
        return found != times_.end() ? found->second : 0;
    }
    std::string Wrong() const {
        const std::lock_guard guard(mutex_);
        return wrong_;
    }

private:
    void Note(const std::string& text) {
        if (wrong_.size() < 2000) wrong_ += text + "\n";
    }

    mutable std::mutex mutex_;
    std::map<std::string, unsigned> times_;
    std::map<std::string, i32> numbers_;
    std::string wrong_;
    char mark_ = ' ';  // the first character of the last mark; blank outside a transaction
    u32 transaction_ = 0;
};

Told& TheTold() {
    static Told told;
    return told;
}

void Listen(const char* table, const char* kind, u32 id, VX::ParamListHolder* newRow, VX::ParamListHolder* oldRow) {
    if (table == std::string("TRANSACTION")) {
        TheTold().OnMark(*kind, id);
        return;
    }
    const auto list = ConfigConnection::GetList(table);
    const bool isInTable = *kind != 'D' && list.IsValid() && list->GetRow(static_cast<i32>(id)).Get() == newRow->Get();
    TheTold().OnRow(table, *kind, *newRow, *oldRow, isInTable);
}

}  // namespace

LiveTables::LiveTables(unsigned port) {
    OpenTables(port);
    open_ = true;
    TheTold().Clear();
    ConfigConnection::ChangeListener = Listen;
}

LiveTables::~LiveTables() {
    Close();
}

void LiveTables::Close() {
    if (!open_) return;
    open_ = false;
    CloseTables();
    ConfigConnection::ChangeListener = nullptr;
}

SeenRows LiveTables::Rows() const {
    return SeeTables();
}

bool LiveTables::HasFeed(const std::string& pipe) const {
    return TheTold().Times("AUDIOFEED " + pipe) != 0;
}

unsigned LiveTables::TimesTold(const std::string& key) const {
    return TheTold().Times(key);
}

std::string LiveTables::Wrong() const {
    return TheTold().Wrong();
}

}  // namespace OrvTest
