#pragma once

#include <cstdint>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <string_view>

namespace qvcd {

// Owners of what SQLite gives. All functions throw HistoryError, or HistoryDamaged where the file is no
// database or a damaged one.

struct SqliteClose {
    void operator()(sqlite3 *db) const noexcept { ::sqlite3_close_v2(db); }
};
using SqliteHandle = std::unique_ptr<sqlite3, SqliteClose>;

/// Throws unless `code`, a result of SQLite, says that all is well.
void sqlite_check(sqlite3 *db, int code);

/// Runs SQL that gives nothing back.
void sqlite_exec(sqlite3 *db, const char *sql);

/// One statement, to be run many times. The database outlives it.
class SqliteStatement {
  public:
    /// Takes SQL that does not fit the tables of the file for damage: they are not ours.
    SqliteStatement(sqlite3 *db, const char *sql);

    sqlite3_stmt *get() const { return statement_.get(); }

  private:
    struct Finalize {
        void operator()(sqlite3_stmt *statement) const noexcept { ::sqlite3_finalize(statement); }
    };
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

/// One run of a statement, with these values in the place of ?1, ?2, ... Texts may hold any bytes, and live
/// as long as the run. What it read stays as it was until the run ends.
class SqliteRun {
  public:
    template <class... Values>
    explicit SqliteRun(const SqliteStatement &statement, const Values &...values)
        : statement_(statement.get())
    {
        int place = 0;
        (bind(++place, values), ...);
    }
    ~SqliteRun() { ::sqlite3_reset(statement_); }
    SqliteRun(const SqliteRun &) = delete;
    SqliteRun &operator=(const SqliteRun &) = delete;

    /// Goes to the next row. False: there is none.
    bool next();

    std::int64_t number(int column) const { return ::sqlite3_column_int64(statement_, column); }
    std::string text(int column) const;

  private:
    void bind(int place, std::int64_t value);
    void bind(int place, std::string_view value);

    sqlite3_stmt *statement_;
};

/// The first column of the first row that this SQL gives; 0: there is none.
std::int64_t sqlite_number(sqlite3 *db, const char *sql);

/// Takes the right to write at once. What was not committed is undone at its end.
class SqliteTransaction {
  public:
    explicit SqliteTransaction(sqlite3 *db) : db_(db) { sqlite_exec(db, "BEGIN IMMEDIATE"); }
    ~SqliteTransaction();
    SqliteTransaction(const SqliteTransaction &) = delete;
    SqliteTransaction &operator=(const SqliteTransaction &) = delete;

    void commit() { sqlite_exec(db_, "COMMIT"); }

  private:
    sqlite3 *db_;
};

} // namespace qvcd
