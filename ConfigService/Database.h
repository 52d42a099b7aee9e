// SQLite, as much of it as is needed here. A Database and its statements belong to one thread at a time.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "ConfigService/Schema.h"

struct sqlite3;
struct sqlite3_stmt;

namespace Orv {

// What SQLite could not do, in words for the administrator. Thrown by everything below, caught where the operation
// as a whole is answered for.
class DatabaseError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Statement;

class Database {
public:
    // Opens the file, made with rights for its owner only when it is missing; checks that it is ours, of this version
    // and whole; makes the tables in a new one. Write-ahead log, full synchronisation.
    explicit Database(const std::string& path);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    void Execute(const char* sql);
    Statement Prepare(const std::string& sql);
    // The first column of the first row, 0 when there is none.
    i64 QueryNumber(const char* sql);
    // Reads every page and every constraint; throws when something is broken.
    void CheckIntegrity();
    // Throws when the path does not lead to the open file any more: what is written then would be lost.
    void CheckInPlace();
    // Moves the write-ahead log into the file.
    void Checkpoint();

private:
    [[noreturn]] void Fail(int code) const;
    void OpenFile();
    void RefuseForeignFile();
    void CreateSchema();

    friend class Statement;
    const std::string path_;
    sqlite3* handle_ = nullptr;
};

class Statement {
public:
    Statement(Database& database, const std::string& sql);
    ~Statement();
    Statement(Statement&& other) noexcept;
    Statement& operator=(Statement&&) = delete;

    // Parameters count from 1.
    Statement& Bind(int parameter, const Value& value);
    Statement& BindNumber(int parameter, i64 value);
    Statement& BindText(int parameter, std::string_view text);
    // True while there is a row.
    bool Step();
    // Runs a statement that gives no rows, and makes it ready for the next run.
    void Run();

    // Columns count from 0.
    Value Get(int column) const;
    i64 GetNumber(int column) const;
    std::string GetText(int column) const;

private:
    Database& database_;
    sqlite3_stmt* statement_ = nullptr;
};

// A write transaction; rolled back unless committed.
class Transaction {
public:
    explicit Transaction(Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void Commit();

private:
    Database& database_;
    bool open_ = true;
};

}  // namespace Orv
