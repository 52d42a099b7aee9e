#include "tests/faults/Tables.h"

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "ConfigClient/ConfigConnection.h"
#include "ConfigClient/Connection.h"
#include "ConfigClient/ObjectList.h"
#include "ConfigService/AdminProtocol.h"
#include "ConfigService/Wire.h"
#include "VX/GrpcLink.h"

namespace fs = std::filesystem;

namespace OrvTest {
namespace {

constexpr char Credentials[] = "admin:admin-password";

// Runs `row` for each row of a statement.
template <typename F>
void Select(sqlite3* database, const std::string& sql, F&& row) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
        throw std::runtime_error(sql + ": " + sqlite3_errmsg(database));
    }
    int code = 0;
    while ((code = sqlite3_step(statement)) == SQLITE_ROW) row(statement);
    sqlite3_finalize(statement);
    if (code != SQLITE_DONE) throw std::runtime_error(sql + ": " + sqlite3_errmsg(database));
}

std::string ColumnText(sqlite3_stmt* statement, int column) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    return text != nullptr ? text : "";
}

Orv::Row RowOf(const Orv::Table& table, sqlite3_stmt* statement) {
    Orv::Row row;
    row.id = sqlite3_column_int(statement, 0);
    for (unsigned i = 0; i < table.columns.size(); ++i) {
        const int column = static_cast<int>(i) + 1;
        Orv::Value value;
        if (sqlite3_column_type(statement, column) == SQLITE_INTEGER) value = sqlite3_column_int(statement, column);
        if (sqlite3_column_type(statement, column) == SQLITE_TEXT) value = ColumnText(statement, column);
        row.values.push_back(std::move(value));
    }
    return row;
}

void ReadRows(sqlite3* database, SeenRows& rows) {
    for (const Orv::Table& table : Orv::Tables()) {
        std::string sql = std::string("SELECT ") + table.idColumn;
        for (const Orv::Column& column : table.columns) sql += std::string(", ") + column.name;
        Select(database, sql + " FROM " + table.name,
               [&](sqlite3_stmt* statement) { rows.insert(Seen(table, RowOf(table, statement))); });
    }
}

std::string Joined(const char* sign, std::vector<i32> ids) {
    std::sort(ids.begin(), ids.end());
    std::string text;
    for (const i32 id : ids) text += (text.empty() ? std::string(" ") + sign : std::string(",")) + std::to_string(id);
    return text;
}

MTObjects::THolder<ConfigConnection::TObjectListImpl> ListOf(const Orv::Table& table) {
    auto list = ConfigConnection::GetList(table.name);
    if (!list.IsValid()) throw std::runtime_error(std::string("no list of ") + table.name);
    return list;
}

}  // namespace

SeenRows::value_type Seen(const Orv::Table& table, const Orv::Row& row) {
    std::string values;
    for (unsigned i = 0; i < table.columns.size(); ++i) {
        const Orv::Value& value = row.values[i];
        const std::string name = std::string(values.empty() ? "" : " ") + table.columns[i].name + "=";
        if (const i32* number = std::get_if<i32>(&value)) values += name + std::to_string(*number);
        if (const std::string* text = std::get_if<std::string>(&value)) values += name + *text;
    }
    const std::string key =
        table.keyColumn != nullptr ? row.Text(table.FindColumn(table.keyColumn)) : std::to_string(row.id);
    return {std::string(table.name) + " " + key, {row.id, std::move(values)}};
}

std::string Difference(const SeenRows& seen, const SeenRows& expected) {
    const auto describe = [](const SeenRows& rows, const std::string& key) {
        const auto found = rows.find(key);
        return found == rows.end() ? std::string("nothing")
                                   : std::to_string(found->second.id) + " " + found->second.values;
    };
    const auto differs = [&](const std::string& key) {
        return key + ": seen " + describe(seen, key) + ", expected " + describe(expected, key);
    };
    for (const auto& [key, row] : seen) {
        const auto found = expected.find(key);
        if (found == expected.end() || !(found->second == row)) return differs(key);
    }
    for (const auto& [key, row] : expected) {
        if (!seen.contains(key)) return differs(key);
    }
    return "";
}

SeenFile ReadDatabase(const std::string& path, const std::string& folder) {
    const std::string copy = folder + "/copy.db";
    for (const char* part : {"", "-wal", "-shm"}) {
        fs::remove(copy + part);
        // Not the index of the log: it is made anew from the log, and after a kill nobody may trust it.
        if (std::string(part) != "-shm" && fs::exists(path + part)) fs::copy_file(path + part, copy + part);
    }
    sqlite3* database = nullptr;
    SeenFile seen;
    if (sqlite3_open(copy.c_str(), &database) != SQLITE_OK) throw std::runtime_error("cannot open " + copy);
    try {
        Select(database, "PRAGMA integrity_check",
               [&](sqlite3_stmt* statement) { seen.integrity += ColumnText(statement, 0); });
        Select(database, "PRAGMA foreign_key_check",
               [&](sqlite3_stmt* statement) { seen.integrity += " reference of " + ColumnText(statement, 0); });
        Select(database, "SELECT transactionnumber FROM ORV_STATE",
               [&](sqlite3_stmt* statement) { seen.transaction = sqlite3_column_int64(statement, 0); });
        ReadRows(database, seen.rows);
    } catch (const std::runtime_error& error) {
        seen.integrity += error.what();
    }
    sqlite3_close(database);
    return seen;
}

void OpenTables(unsigned port) {
    // Never destroyed, as the library that uses it.
    static VX::ILinkConnector* const connector = VX::CreateGrpcConnector().release();
    VXSetConnector(connector);
    if (VXInitialize("AudioProvider", 0, 0) != 0) throw std::runtime_error("the library does not start");
    std::vector<const char*> names;
    for (const Orv::Table& table : Orv::Tables()) names.push_back(table.name);
    if (!ConfigConnection::Connect("127.0.0.1", port, names.data(), static_cast<u32>(names.size()), Credentials,
                                   sizeof Credentials)) {
        CloseTables();
        throw std::runtime_error("no connection to port " + std::to_string(port));
    }
    for (const Orv::Table& table : Orv::Tables()) {
        const auto list = ListOf(table);
        std::vector<i32> ids;
        list->GetIds(ids);
        list->LoadRows(ids);
    }
}

SeenRows SeeTables() {
    SeenRows rows;
    for (const Orv::Table& table : Orv::Tables()) {
        const auto list = ListOf(table);
        std::vector<i32> ids;
        list->GetIds(ids);
        for (const i32 id : ids) rows.insert(Seen(table, Orv::RowFromList(table, list->GetRow(id))));
    }
    return rows;
}

void CloseTables() {
    ConfigConnection::Disconnect();
    VXShutdown(0);
    ConfigConnection::Connection::Instance().SetApplication(nullptr);
}

SeenRows LoadAsAudioFeed(unsigned port) {
    OpenTables(port);
    SeenRows rows = SeeTables();
    CloseTables();
    return rows;
}

std::string SignalText(const std::string& name, const VX::ParamListHolder& event) {
    if (name != "BATCHUPDATE") {
        VXInt32Array ids{};
        VXGetInt32Array(&ids, event.Get(), "IDA");
        const std::string table = Orv::GetText(event, "OC");
        if (name != "UPDOf" + table || ids.count != 1) return "wrong: " + name;
        return table + " " + Orv::GetText(event, "TO") + " " +
               std::to_string(VXReadInt32(reinterpret_cast<const u8*>(ids.values)));
    }
    std::string text = std::to_string(VXGetInt64Value(event.Get(), "__TRN")) + ":";
    for (VXParamRecord record = VXGetFirstParam(event.Get()); record != nullptr;
         record = VXGetNextParam(event.Get(), record)) {
        if (VXRecordType(record) != VXTypeList) continue;
        const VX::ParamListHolder rows = event.GetHandle(VXRecordKey(record));
        text += std::string(" ") + VXRecordKey(record) + Joined("-", Orv::GetIds(rows, "DELETED")) +
                Joined("+", Orv::GetIds(rows, "UPDATED")) + ";";
    }
    return text;
}

std::string ExpectedSignal(const Orv::ApplyResult& result) {
    const std::string rebuilt = "Rebuilt";
    if (result.changed.size() == 1 && result.changed[0].kind != rebuilt) {
        const Orv::RowChange& change = result.changed[0];
        return std::string(Orv::Tables()[change.table].name) + " " + change.kind + " " + std::to_string(change.id);
    }
    std::string text = std::to_string(result.transaction) + ":";
    for (const unsigned table : {Orv::Parameter, Orv::AudioFeed, Orv::AudioFeedContent, Orv::Announcement}) {
        std::vector<i32> deleted;
        std::vector<i32> updated;
        for (const Orv::RowChange& change : result.changed) {
            if (change.table != table) continue;
            if (change.kind == rebuilt || std::string(change.kind) == "Deleted") deleted.push_back(change.id);
            if (std::string(change.kind) != "Deleted") updated.push_back(change.id);
        }
        if (deleted.empty() && updated.empty()) continue;
        text += std::string(" ") + Orv::Tables()[table].name + Joined("-", deleted) + Joined("+", updated) + ";";
    }
    return text;
}

// --- TableClient ----------------------------------------------------------------------------------------------------

TableClient::TableClient(unsigned port) : connector_(VX::CreateGrpcConnector()) {
    VX::PeerInfo peer;
    bool authFailed = false;
    link_ = connector_->Connect("127.0.0.1", port, Credentials, *this, peer, authFailed);
    if (link_ == nullptr) throw std::runtime_error("nobody answers at port " + std::to_string(port));
}

TableClient::~TableClient() {
    OpenGate();
    link_->Close();
}

std::optional<Orv::ApplyResult> TableClient::Apply(const std::vector<Orv::Change>& changes) {
    VX::ParamListHolder reply;
    if (!link_->Call(Orv::AdminProtocol::CallApply, Orv::ChangesToList(changes), reply)) return std::nullopt;
    std::string word;
    Orv::ApplyResult result = Orv::ResultFromList(reply, word);
    if (word != Orv::AdminProtocol::ResultOk) {
        throw std::runtime_error("the change was not made: " + word +
                                 (result.errors.empty() ? "" : " " + result.errors.front().text));
    }
    return result;
}

void TableClient::OnSignal(const std::string& name, VX::ParamListHolder event) {
    const std::lock_guard gate(gate_);
    const std::lock_guard guard(mutex_);
    signals_.push_back(SignalText(name, event));
}

void TableClient::OnClosed() {
    const std::lock_guard guard(mutex_);
    closed_ = true;
}

std::vector<std::string> TableClient::Signals() const {
    const std::lock_guard guard(mutex_);
    return signals_;
}

std::size_t TableClient::SignalCount() const {
    const std::lock_guard guard(mutex_);
    return signals_.size();
}

bool TableClient::Closed() const {
    const std::lock_guard guard(mutex_);
    return closed_;
}

void TableClient::ShutGate() {
    gate_.lock();
    shut_ = true;
}

void TableClient::OpenGate() {
    if (!shut_) return;
    shut_ = false;
    gate_.unlock();
}

}  // namespace OrvTest
