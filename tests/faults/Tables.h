// The tables of a Configuration service as seen from outside: in the file, with SQLite's own eyes; over a connection of
// the test's own; and through the client that the audio feed service has.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ConfigService/Change.h"
#include "VX/Link.h"

namespace OrvTest {

// One row: its id, and its columns as "name=value" texts, those that are absent left out.
struct SeenRow {
    i32 id = 0;
    std::string values;
    bool operator==(const SeenRow&) const = default;
};
// By "TABLE key", and by "TABLE id" in a table without a key.
using SeenRows = std::map<std::string, SeenRow>;

// How a row stands in SeenRows.
SeenRows::value_type Seen(const Orv::Table& table, const Orv::Row& row);
// The first difference, for people; empty when there is none.
std::string Difference(const SeenRows& seen, const SeenRows& expected);

// What a database holds.
struct SeenFile {
    std::string integrity;  // "ok"
    i64 transaction = -1;
    SeenRows rows;
};
// Nobody may have the file open: what a killed process has left is taken in by SQLite, as the next start would do it.
// Looks at a copy in `folder`, so that the next start still has that before it.
SeenFile ReadDatabase(const std::string& path, const std::string& folder);

// The tables as the audio feed service reads them: with its client library. The process has one connection.
// Connects and loads every row, or throws.
void OpenTables(unsigned port);
SeenRows SeeTables();
void CloseTables();
// All three.
SeenRows LoadAsAudioFeed(unsigned port);

// One signal as README.md of ConfigService tells it: "AUDIOFEED Updated 4", or for a transaction of several rows
// "12: PARAMETER -1,2 +3; AUDIOFEED +4" with its number, the deleted rows and the updated ones of each table.
std::string SignalText(const std::string& name, const VX::ParamListHolder& event);
// The signal that must follow an acknowledged transaction.
std::string ExpectedSignal(const Orv::ApplyResult& result);

// One connection of the administrator, with every signal that came. Any thread.
class TableClient : private VX::ILinkEvents {
public:
    // Throws when nobody answers.
    explicit TableClient(unsigned port);
    ~TableClient() override;

    // One transaction. Nothing when the connection was lost before the answer.
    std::optional<Orv::ApplyResult> Apply(const std::vector<Orv::Change>& changes);

    std::vector<std::string> Signals() const;
    std::size_t SignalCount() const;
    bool Closed() const;
    // While it is shut, the client reads nothing of its stream.
    void ShutGate();
    void OpenGate();

private:
    void OnSignal(const std::string& name, VX::ParamListHolder event) override;
    void OnClosed() override;

    mutable std::mutex mutex_;
    std::mutex gate_;  // held by who shut it
    bool shut_ = false;
    std::vector<std::string> signals_;
    bool closed_ = false;
    std::unique_ptr<VX::ILinkConnector> connector_;
    std::unique_ptr<VX::ILink> link_;
};

}  // namespace OrvTest
