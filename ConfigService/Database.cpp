#include "ConfigService/Database.h"

#include <sqlite3.h>

#include <utility>

#include "Platform/PrivateFile.h"

namespace Orv {
namespace {

constexpr int kSchemaVersion = 1;
constexpr i64 kApplicationId = 0x4F727643;  // "OrvC", so that a file of another program is told apart
constexpr int kBusyMilliseconds = 5000;

// AUTOINCREMENT: an id is never used for a second row. NOCASE compares A to Z alike and nothing else, as pipe names do.
// References are checked at the commit, so that rows can be replaced in any order.
constexpr char kSchema[] = R"(
CREATE TABLE AUDIOFEED (
    idaudiofeed INTEGER PRIMARY KEY AUTOINCREMENT CHECK (idaudiofeed BETWEEN 1 AND 2147483647),
    pipename TEXT NOT NULL COLLATE NOCASE UNIQUE CHECK (pipename <> ''),
    thename TEXT,
    feedtype INTEGER CHECK (feedtype BETWEEN 0 AND 3),
    nonstop INTEGER CHECK (nonstop BETWEEN -2147483648 AND 2147483647),
    playannouncements INTEGER CHECK (playannouncements BETWEEN -2147483648 AND 2147483647),
    minannouncementpause INTEGER CHECK (minannouncementpause BETWEEN 0 AND 2147483647),
    maxannouncementpause INTEGER CHECK (maxannouncementpause BETWEEN 0 AND 2147483647),
    maxvolume INTEGER CHECK (maxvolume BETWEEN 0 AND 100),
    autogain INTEGER CHECK (autogain BETWEEN -2147483648 AND 2147483647),
    CHECK (ifnull(minannouncementpause, 0) <= ifnull(maxannouncementpause, 0))
) STRICT;
CREATE TABLE AUDIOFEEDCONTENT (
    idaudiofeedcontent INTEGER PRIMARY KEY AUTOINCREMENT CHECK (idaudiofeedcontent BETWEEN 1 AND 2147483647),
    fkidaudiofeed INTEGER NOT NULL REFERENCES AUDIOFEED DEFERRABLE INITIALLY DEFERRED
) STRICT;
CREATE TABLE ANNOUNCEMENT (
    idannouncement INTEGER PRIMARY KEY AUTOINCREMENT CHECK (idannouncement BETWEEN 1 AND 2147483647),
    thename TEXT NOT NULL UNIQUE CHECK (thename <> ''),
    thetype INTEGER CHECK (thetype BETWEEN -2147483648 AND 2147483647),
    thefile TEXT NOT NULL CHECK (thefile <> '')
) STRICT;
CREATE TABLE PARAMETER (
    idparameter INTEGER PRIMARY KEY AUTOINCREMENT CHECK (idparameter BETWEEN 1 AND 2147483647),
    name TEXT NOT NULL UNIQUE CHECK (name <> ''),
    value TEXT
) STRICT;
CREATE TABLE ORV_USER (
    name TEXT PRIMARY KEY CHECK (name <> ''),
    role TEXT NOT NULL CHECK (role IN ('admin', 'reader')),
    hash TEXT NOT NULL
) STRICT;
CREATE TABLE ORV_STATE (
    only INTEGER PRIMARY KEY CHECK (only = 1),
    transactionnumber INTEGER NOT NULL CHECK (transactionnumber >= 0)
) STRICT;
INSERT INTO ORV_STATE VALUES (1, 0);
)";

// What the administrator can do about an error of SQLite.
std::string Advice(int code) {
    switch (code & 0xFF) {
        case SQLITE_CANTOPEN:
            return "; check that its folder is there and that this user may write to it";
        case SQLITE_READONLY:
        case SQLITE_PERM:
            return "; give this user the right to write to the file and its folder";
        case SQLITE_NOTADB:
            return "; this is no database, so name another file";
        case SQLITE_CORRUPT:
            return "; the file is damaged, so put back a copy of it";
        case SQLITE_FULL:
            return "; make room on the disk";
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return "; another program holds it, so end that one or wait for it, and try again";
        case SQLITE_IOERR:
            return "; look at the disk";
        default:
            return "";
    }
}

}  // namespace

Database::Database(const std::string& path) : path_(path) {
    try {
        OpenFile();
    } catch (...) {
        sqlite3_close(handle_);
        throw;
    }
}

Database::~Database() {
    sqlite3_close(handle_);
}

void Database::OpenFile() {
    Platform::SystemError error = 0;
    if (!Platform::MakePrivateFile(path_, error)) {
        throw DatabaseError("The database " + path_ + " cannot be opened for writing: " +
                            Platform::SystemErrorText(error) + Advice(SQLITE_CANTOPEN));
    }
    const int code = sqlite3_open_v2(path_.c_str(), &handle_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (code != SQLITE_OK) Fail(code);
    sqlite3_extended_result_codes(handle_, 1);
    sqlite3_busy_timeout(handle_, kBusyMilliseconds);
    if (sqlite3_db_readonly(handle_, "main") != 0) Fail(SQLITE_READONLY);
    // A file from outside must not run anything that stands in it.
    sqlite3_db_config(handle_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(handle_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    Execute("PRAGMA foreign_keys = ON");
    RefuseForeignFile();
    Execute("PRAGMA journal_mode = WAL");
    Execute("PRAGMA synchronous = FULL");
    CreateSchema();
}

void Database::RefuseForeignFile() {
    const i64 version = QueryNumber("PRAGMA user_version");
    const i64 application = QueryNumber("PRAGMA application_id");
    const bool empty = QueryNumber("SELECT count(*) FROM sqlite_schema") == 0;
    if (!empty && application != kApplicationId) {
        throw DatabaseError("The database " + path_ + " belongs to another program; name another file");
    }
    if (version > kSchemaVersion) {
        throw DatabaseError("The database " + path_ + " was written by a newer orv-config (its version is " +
                            std::to_string(version) + ", this program knows " + std::to_string(kSchemaVersion) +
                            "); install that version again");
    }
}

void Database::CreateSchema() {
    Transaction transaction(*this);
    if (QueryNumber("PRAGMA user_version") == kSchemaVersion) return;
    Execute(kSchema);
    Execute(("PRAGMA application_id = " + std::to_string(kApplicationId)).c_str());
    Execute(("PRAGMA user_version = " + std::to_string(kSchemaVersion)).c_str());
    transaction.Commit();
}

void Database::Execute(const char* sql) {
    const int code = sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) Fail(code);
}

Statement Database::Prepare(const std::string& sql) {
    return Statement(*this, sql);
}

i64 Database::QueryNumber(const char* sql) {
    Statement statement(*this, sql);
    return statement.Step() ? statement.GetNumber(0) : 0;
}

void Database::CheckIntegrity() {
    Statement check(*this, "PRAGMA integrity_check(1)");
    const std::string answer = check.Step() ? check.GetText(0) : "no answer";
    if (answer != "ok") {
        throw DatabaseError("The database " + path_ + " is damaged (" + answer + "); put back a copy of it");
    }
    Statement references(*this, "PRAGMA foreign_key_check");
    if (references.Step()) {
        throw DatabaseError("The database " + path_ + " is damaged (a row of " + references.GetText(0) +
                            " refers to a missing one); put back a copy of it");
    }
}

void Database::CheckInPlace() {
    int moved = 0;
    sqlite3_file_control(handle_, "main", SQLITE_FCNTL_HAS_MOVED, &moved);
    if (moved == 0) return;
    throw DatabaseError("The database " + path_ +
                        " is not in its place any more; put it back, or save the rows with orvctl export before "
                        "orv-config is restarted");
}

void Database::Checkpoint() {
    Execute("PRAGMA wal_checkpoint(TRUNCATE)");
}

void Database::Fail(int code) const {
    const char* text = handle_ != nullptr ? sqlite3_errmsg(handle_) : sqlite3_errstr(code);
    if (handle_ != nullptr && sqlite3_errcode(handle_) == SQLITE_OK) text = sqlite3_errstr(code);
    throw DatabaseError("The database " + path_ + ": " + text + Advice(code));
}

// --- statements ------------------------------------------------------------------------------------------------------

Statement::Statement(Database& database, const std::string& sql) : database_(database) {
    const int code =
        sqlite3_prepare_v2(database.handle_, sql.c_str(), static_cast<int>(sql.size()) + 1, &statement_, nullptr);
    if (code != SQLITE_OK) database_.Fail(code);
}

Statement::~Statement() {
    sqlite3_finalize(statement_);
}

Statement::Statement(Statement&& other) noexcept
    : database_(other.database_), statement_(std::exchange(other.statement_, nullptr)) {}

Statement& Statement::Bind(int parameter, const Value& value) {
    if (const i32* number = std::get_if<i32>(&value)) return BindNumber(parameter, *number);
    if (const std::string* text = std::get_if<std::string>(&value)) return BindText(parameter, *text);
    const int code = sqlite3_bind_null(statement_, parameter);
    if (code != SQLITE_OK) database_.Fail(code);
    return *this;
}

Statement& Statement::BindNumber(int parameter, i64 value) {
    const int code = sqlite3_bind_int64(statement_, parameter, value);
    if (code != SQLITE_OK) database_.Fail(code);
    return *this;
}

Statement& Statement::BindText(int parameter, std::string_view text) {
    const int code =
        sqlite3_bind_text(statement_, parameter, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    if (code != SQLITE_OK) database_.Fail(code);
    return *this;
}

bool Statement::Step() {
    const int code = sqlite3_step(statement_);
    if (code == SQLITE_ROW) return true;
    if (code != SQLITE_DONE) database_.Fail(code);
    return false;
}

void Statement::Run() {
    while (Step()) {
    }
    sqlite3_reset(statement_);
}

Value Statement::Get(int column) const {
    switch (sqlite3_column_type(statement_, column)) {
        case SQLITE_INTEGER:
            return static_cast<i32>(sqlite3_column_int64(statement_, column));
        case SQLITE_TEXT:
            return GetText(column);
        default:
            return {};
    }
}

i64 Statement::GetNumber(int column) const {
    return sqlite3_column_int64(statement_, column);
}

std::string Statement::GetText(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    return text != nullptr ? std::string(text, static_cast<u64>(sqlite3_column_bytes(statement_, column)))
                           : std::string();
}

// --- transactions ----------------------------------------------------------------------------------------------------

Transaction::Transaction(Database& database) : database_(database) {
    database_.Execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    if (!open_) return;
    try {
        database_.Execute("ROLLBACK");
    } catch (const DatabaseError&) {
        // SQLite has rolled back by itself.
    }
}

void Transaction::Commit() {
    database_.Execute("COMMIT");
    open_ = false;
}

}  // namespace Orv
