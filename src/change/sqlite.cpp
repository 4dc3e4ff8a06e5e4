#include "change/sqlite.h"

#include "change/history_store.h"

#include <cerrno>
#include <cstring>

namespace qvcd {

namespace {

// The cause rather than what SQLite was about when it met it.
std::string text_of(sqlite3 *db, int code)
{
    const int kind = code & 0xff;
    const int error = kind == SQLITE_FULL                               ? ENOSPC
                      : kind == SQLITE_CANTOPEN || kind == SQLITE_IOERR ? ::sqlite3_system_errno(db)
                                                                        : 0;
    return error != 0 ? std::strerror(error) : ::sqlite3_errmsg(db);
}

} // namespace

void sqlite_check(sqlite3 *db, int code)
{
    const int kind = code & 0xff;
    if (kind == SQLITE_CORRUPT || kind == SQLITE_NOTADB)
        throw HistoryDamaged(::sqlite3_errmsg(db));
    if (kind != SQLITE_OK && kind != SQLITE_ROW && kind != SQLITE_DONE)
        throw HistoryError(text_of(db, code));
}

void sqlite_exec(sqlite3 *db, const char *sql)
{
    sqlite_check(db, ::sqlite3_exec(db, sql, nullptr, nullptr, nullptr));
}

SqliteStatement::SqliteStatement(sqlite3 *db, const char *sql)
{
    sqlite3_stmt *statement = nullptr;
    const int code = ::sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code == SQLITE_ERROR)
        throw HistoryDamaged(::sqlite3_errmsg(db));
    sqlite_check(db, code);
    statement_.reset(statement);
}

bool SqliteRun::next()
{
    const int code = ::sqlite3_step(statement_);
    sqlite_check(::sqlite3_db_handle(statement_), code);
    return code == SQLITE_ROW;
}

std::string SqliteRun::text(int column) const
{
    const void *const bytes = ::sqlite3_column_blob(statement_, column);
    const int size = ::sqlite3_column_bytes(statement_, column);
    return bytes ? std::string(static_cast<const char *>(bytes), static_cast<std::size_t>(size)) : "";
}

void SqliteRun::bind(int place, std::int64_t value)
{
    sqlite_check(::sqlite3_db_handle(statement_), ::sqlite3_bind_int64(statement_, place, value));
}

void SqliteRun::bind(int place, std::string_view value)
{
    // A null pointer would be NULL, not an empty text.
    const char *const bytes = value.data() ? value.data() : "";
    sqlite_check(::sqlite3_db_handle(statement_),
                 ::sqlite3_bind_text64(statement_, place, bytes, value.size(), SQLITE_STATIC, SQLITE_UTF8));
}

std::int64_t sqlite_number(sqlite3 *db, const char *sql)
{
    const SqliteStatement statement(db, sql);
    SqliteRun run(statement);
    return run.next() ? run.number(0) : 0;
}

SqliteTransaction::~SqliteTransaction()
{
    if (::sqlite3_get_autocommit(db_) == 0)
        ::sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
}

} // namespace qvcd
