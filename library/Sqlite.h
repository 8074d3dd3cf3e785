#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

// Owning handles of SQLite's connection and statement, and the few calls the
// tag store makes through them. One connection belongs to one thread at a
// time; SQLite's own locking (WAL) lets other connections read beside it.

struct SSqliteCloser {
    void operator()(sqlite3* database) const;
};
struct SSqliteFinalizer {
    void operator()(sqlite3_stmt* statement) const;
};
using SqliteHandle = std::unique_ptr<sqlite3, SSqliteCloser>;
using SqliteStatementHandle = std::unique_ptr<sqlite3_stmt, SSqliteFinalizer>;

// One prepared statement: bind by 1-based position, step, read columns by
// 0-based position. Reset() makes it ready to run again with new bindings.
class CSqliteStatement {
public:
    CSqliteStatement() = default;
    CSqliteStatement(sqlite3* database, const std::string& sql);

    bool IsValid() const { return m_statement != nullptr; }
    CSqliteStatement& Bind(int position, const std::string& text);
    CSqliteStatement& Bind(int position, int64_t value);
    // True while a row is there to read; false at the end and on failure
    // (Failed() tells them apart).
    bool Step();
    bool Failed() const { return m_failed; }
    // Runs a statement that returns no row; true on success.
    bool Run();
    void Reset();

    std::string Text(int column) const;
    // The text in SQLite's own buffer: valid until the next Step, Reset or
    // read of the column as another type.
    std::string_view TextView(int column) const;
    int64_t Integer(int column) const;

private:
    SqliteStatementHandle m_statement;
    bool m_failed = false;
};

// Runs `sql` (one or more statements, no results); true on success, else
// `error` holds SQLite's message.
bool SqliteExec(sqlite3* database, const std::string& sql, std::string& error);
