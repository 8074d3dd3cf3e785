#include "library/Sqlite.h"

#include <sqlite3.h>

void SSqliteCloser::operator()(sqlite3* database) const
{
    // _v2: a statement left unfinalized by a bug keeps the file open until it
    // goes, instead of the close failing and leaking the connection.
    sqlite3_close_v2(database);
}

void SSqliteFinalizer::operator()(sqlite3_stmt* statement) const
{
    sqlite3_finalize(statement);
}

CSqliteStatement::CSqliteStatement(sqlite3* database, const std::string& sql)
{
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database, sql.c_str(), static_cast<int>(sql.size()), &statement, nullptr) == SQLITE_OK) {
        m_statement.reset(statement);
    }
    m_failed = !m_statement;
}

CSqliteStatement& CSqliteStatement::Bind(int position, const std::string& text)
{
    if (m_statement) {
        sqlite3_bind_text(m_statement.get(), position, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    }
    return *this;
}

CSqliteStatement& CSqliteStatement::Bind(int position, int64_t value)
{
    if (m_statement) {
        sqlite3_bind_int64(m_statement.get(), position, value);
    }
    return *this;
}

bool CSqliteStatement::Step()
{
    if (!m_statement) {
        return false;
    }
    const int result = sqlite3_step(m_statement.get());
    m_failed = result != SQLITE_ROW && result != SQLITE_DONE;
    return result == SQLITE_ROW;
}

bool CSqliteStatement::Run()
{
    while (Step()) {
    }
    const bool succeeded = IsValid() && !m_failed;
    Reset();
    return succeeded;
}

void CSqliteStatement::Reset()
{
    if (m_statement) {
        sqlite3_reset(m_statement.get());
        sqlite3_clear_bindings(m_statement.get());
    }
    m_failed = !m_statement;
}

std::string CSqliteStatement::Text(int column) const
{
    return std::string(TextView(column));
}

std::string_view CSqliteStatement::TextView(int column) const
{
    const auto* text = sqlite3_column_text(m_statement.get(), column);
    if (text == nullptr) {
        return std::string_view();
    }
    return std::string_view(reinterpret_cast<const char*>(text),
                            static_cast<size_t>(sqlite3_column_bytes(m_statement.get(), column)));
}

int64_t CSqliteStatement::Integer(int column) const
{
    return sqlite3_column_int64(m_statement.get(), column);
}

namespace {
struct SSqliteFree {
    void operator()(char* text) const { sqlite3_free(text); }
};
}  // namespace

bool SqliteExec(sqlite3* database, const std::string& sql, std::string& error)
{
    char* raw = nullptr;
    const int result = sqlite3_exec(database, sql.c_str(), nullptr, nullptr, &raw);
    const std::unique_ptr<char, SSqliteFree> message(raw);
    if (result == SQLITE_OK) {
        return true;
    }
    error = message ? message.get() : sqlite3_errmsg(database);
    return false;
}
