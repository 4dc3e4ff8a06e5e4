#include "change/history_module.h"

#include "base/text.h"
#include "change/sqlite.h"
#include "platform/fd.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <set>

namespace qvcd {

namespace {

constexpr std::int64_t kApplication = 0x71766364; // "qvcd", for file(1)
constexpr std::int64_t kVersion = 1;
constexpr int kPatienceMs = 1000;
constexpr std::int64_t kCheckedBytes = 1 << 20; // of a file that is read through when it is opened
constexpr std::int64_t kSpareBytes = 1 << 20;   // free pages that are kept for the entries to come
constexpr std::int64_t kMaxNumber = 1LL << 53;  // what every reader of JSON takes
constexpr std::string_view kCutMark = "...";

// The APIs of a group are one range of value_api.
constexpr char kTables[] = R"(
CREATE TABLE entry(
  number INTEGER PRIMARY KEY AUTOINCREMENT, key TEXT NOT NULL, time INTEGER NOT NULL, user TEXT NOT NULL,
  source TEXT NOT NULL, client TEXT NOT NULL, command TEXT NOT NULL, text TEXT NOT NULL, end TEXT NOT NULL,
  more_values INTEGER NOT NULL);
CREATE INDEX entry_key ON entry(key) WHERE key <> '';
CREATE TABLE value(
  entry INTEGER NOT NULL REFERENCES entry ON DELETE CASCADE, position INTEGER NOT NULL, api TEXT NOT NULL,
  before TEXT NOT NULL, after TEXT NOT NULL, secret INTEGER NOT NULL,
  PRIMARY KEY(entry, position));
CREATE INDEX value_api ON value(api, entry);
CREATE TABLE action(
  entry INTEGER NOT NULL REFERENCES entry ON DELETE CASCADE, position INTEGER NOT NULL, action TEXT NOT NULL,
  status INTEGER NOT NULL,
  PRIMARY KEY(entry, position));
)";

// SQLite would let everybody read it. Its other files get the mode of this one.
void make_file(const std::string &path)
{
    const Fd fd(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0640));
    if (!fd && errno != EEXIST)
        throw HistoryError(std::strerror(errno));
}

void make_tables(sqlite3 *db, std::int64_t last)
{
    sqlite_exec(db, "PRAGMA auto_vacuum=INCREMENTAL"); // before the first page is written
    SqliteTransaction transaction(db);
    if (sqlite_number(db, "PRAGMA application_id") != 0)
        return; // somebody else was quicker
    sqlite_exec(db, kTables);
    if (last > 0)
        SqliteRun(SqliteStatement(db, "INSERT INTO sqlite_sequence VALUES('entry', ?1)"), last).next();
    sqlite_exec(db, ("PRAGMA application_id=" + std::to_string(kApplication)).c_str());
    sqlite_exec(db, ("PRAGMA user_version=" + std::to_string(kVersion)).c_str());
    transaction.commit();
}

// A large file would hold up who waits for it; its damage is found when it is met.
void look_through(sqlite3 *db)
{
    if (sqlite_number(db, "PRAGMA page_count") * sqlite_number(db, "PRAGMA page_size") > kCheckedBytes)
        return;
    const SqliteStatement check(db, "PRAGMA quick_check(1)");
    SqliteRun run(check);
    if (run.next() && run.text(0) != "ok")
        throw HistoryDamaged(run.text(0));
}

SqliteHandle open_database(const std::string &path, std::int64_t last)
{
    make_file(path);
    sqlite3 *opened = nullptr;
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    const int code = ::sqlite3_open_v2(path.c_str(), &opened, kFlags, nullptr);
    SqliteHandle handle(opened);
    sqlite3 *const db = handle.get();
    sqlite_check(db, code);
    ::sqlite3_busy_timeout(db, kPatienceMs);
    sqlite_exec(db, "PRAGMA synchronous=FULL; PRAGMA foreign_keys=ON; PRAGMA cell_size_check=ON;"
                    "PRAGMA secure_delete=FAST; PRAGMA temp_store=MEMORY; PRAGMA journal_size_limit=4194304");
    if (sqlite_number(db, "SELECT count(*) FROM sqlite_schema") == 0)
        make_tables(db, last);
    if (sqlite_number(db, "PRAGMA application_id") != kApplication)
        throw HistoryDamaged("the tables of another program");
    if (sqlite_number(db, "PRAGMA user_version") > kVersion)
        throw HistoryError("of a newer release");
    sqlite_exec(db, "PRAGMA journal_mode=WAL");
    look_through(db);
    return handle;
}

// Whole characters of UTF-8, where it is that.
std::string shortened(const std::string &text)
{
    if (text.size() <= kMaxEntryTextBytes)
        return text;
    const auto is_inside = [&](std::size_t at) {
        return (static_cast<unsigned char>(text[at]) & 0xc0U) == 0x80;
    };
    std::size_t size = kMaxEntryTextBytes - kCutMark.size();
    for (int i = 0; i < 3 && is_inside(size); ++i)
        --size;
    return text.substr(0, size).append(kCutMark);
}

class Store final : public HistoryStore {
  public:
    Store(const std::string &path, std::int64_t last);
    ~Store() override;

    std::int64_t add(const HistoryEntry &entry) override;
    void end(std::int64_t number, std::string_view end) override;
    void replace_end(std::string_view before, std::string_view after) override;
    std::vector<std::int64_t> numbers(const std::vector<std::string> &names) override;
    std::optional<HistoryEntry> entry(std::int64_t number) override;
    std::int64_t last() override;
    bool is_in_place() override;

  private:
    std::int64_t find(std::string_view key);
    void bound_log();
    int empty_log();
    void add_values(std::int64_t number, const HistoryEntry &entry);
    void add_actions(std::int64_t number, const std::vector<ActionRun> &actions);
    void drop_oldest(std::int64_t number);
    void give_back();
    std::int64_t bytes_of(const SqliteStatement &pages) const;

    const std::string log_file_;
    const SqliteHandle db_; // the statements are its own
    const std::int64_t page_bytes_ = sqlite_number(db_.get(), "PRAGMA page_size");
    const SqliteStatement page_count_{db_.get(), "PRAGMA page_count"};
    const SqliteStatement free_count_{db_.get(), "PRAGMA freelist_count"};
    const SqliteStatement last_{db_.get(), "SELECT seq FROM sqlite_sequence WHERE name = 'entry'"};
    const SqliteStatement add_entry_{
        db_.get(), "INSERT INTO entry(key, time, user, source, client, command, text, end, more_values) "
                   "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)"};
    const SqliteStatement count_more_{db_.get(),
                                      "UPDATE entry SET more_values = more_values + ?2 WHERE number = ?1"};
    const SqliteStatement add_value_{
        db_.get(),
        "INSERT INTO value(entry, position, api, before, after, secret) VALUES(?1, ?2, ?3, ?4, ?5, ?6)"};
    const SqliteStatement add_action_{
        db_.get(), "INSERT INTO action(entry, position, action, status) VALUES(?1, ?2, ?3, ?4)"};
    const SqliteStatement drop_up_to_{db_.get(), "DELETE FROM entry WHERE number <= ?1"};
    const SqliteStatement drop_one_below_{
        db_.get(), "DELETE FROM entry WHERE number = (SELECT min(number) FROM entry) AND number < ?1"};
    const SqliteStatement end_{db_.get(), "UPDATE entry SET end = ?2 WHERE number = ?1"};
    const SqliteStatement replace_end_{db_.get(), "UPDATE entry SET end = ?2 WHERE end = ?1"};
    const SqliteStatement find_{db_.get(), "SELECT max(number) FROM entry WHERE key = ?1 AND key <> ''"};
    const SqliteStatement all_{db_.get(), "SELECT number FROM entry"};
    const SqliteStatement changed_{db_.get(),
                                   "SELECT entry FROM value WHERE api = ?1 UNION ALL "
                                   "SELECT entry FROM value WHERE api >= ?1 || '.' AND api < ?1 || '/'"};
    const SqliteStatement entry_{
        db_.get(), "SELECT time, key, user, source, client, command, text, end, more_values FROM entry "
                   "WHERE number = ?1"};
    const SqliteStatement values_{
        db_.get(), "SELECT api, before, after, secret FROM value WHERE entry = ?1 ORDER BY position"};
    const SqliteStatement actions_{db_.get(),
                                   "SELECT action, status FROM action WHERE entry = ?1 ORDER BY position"};
};

Store::Store(const std::string &path, std::int64_t last)
    : log_file_(path + "-wal"), db_(open_database(path, last))
{
    const std::int64_t known = this->last();
    if (known < 0 || known > kMaxNumber)
        throw HistoryDamaged("an impossible number");
}

// A log that stays under the name would be taken for that of the file which has the name now.
Store::~Store()
{
    if (!is_in_place())
        empty_log();
}

std::int64_t Store::add(const HistoryEntry &entry)
{
    bound_log();
    SqliteTransaction transaction(db_.get());
    if (const std::int64_t known = find(entry.key)) {
        end(known, entry.end);
        transaction.commit();
        return known;
    }
    SqliteRun(add_entry_, entry.key, entry.time, shortened(entry.user), shortened(entry.source),
              shortened(entry.client), shortened(entry.command), shortened(entry.text), shortened(entry.end),
              static_cast<std::int64_t>(entry.more_values))
        .next();
    const std::int64_t number = ::sqlite3_last_insert_rowid(db_.get());
    add_values(number, entry);
    add_actions(number, entry.actions);
    drop_oldest(number);
    give_back();
    transaction.commit();
    return number;
}

// 0: there is none, or the key is empty.
std::int64_t Store::find(std::string_view key)
{
    SqliteRun run(find_, key);
    return run.next() ? run.number(0) : 0;
}

// What is written goes into a log first, and from there into the database as soon as nobody reads what was
// before. Somebody who never ends reading must not fill the disk.
void Store::bound_log()
{
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(log_file_, error);
    if (error || size <= static_cast<std::uintmax_t>(kMaxHistoryBytes))
        return;
    const int code = empty_log();
    if ((code & 0xff) == SQLITE_BUSY)
        throw HistoryError("another program has been reading it for too long");
    sqlite_check(db_.get(), code);
}

// Brings into the database what is in its log. Returns a result of SQLite.
int Store::empty_log()
{
    return ::sqlite3_wal_checkpoint_v2(db_.get(), nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
}

void Store::add_values(std::int64_t number, const HistoryEntry &entry)
{
    std::size_t kept = 0;
    std::size_t room = kMaxEntryBytes;
    for (const ValueChange &value : entry.values) {
        const std::string_view before = value.secret ? kHiddenPassword : std::string_view(value.before);
        const std::string_view after = value.secret ? kHiddenPassword : std::string_view(value.after);
        const std::size_t size = value.api.size() + before.size() + after.size();
        if (kept == kMaxEntryValues || size > room)
            break;
        room -= size;
        SqliteRun(add_value_, number, static_cast<std::int64_t>(kept++), value.api, before, after,
                  std::int64_t{value.secret})
            .next();
    }
    if (kept < entry.values.size())
        SqliteRun(count_more_, number, static_cast<std::int64_t>(entry.values.size() - kept)).next();
}

void Store::add_actions(std::int64_t number, const std::vector<ActionRun> &actions)
{
    std::int64_t position = 0;
    for (const ActionRun &run : actions)
        SqliteRun(add_action_, number, position++, shortened(run.action), std::int64_t{run.status}).next();
}

// Numbers are given one after the other, so the difference of two is a count.
void Store::drop_oldest(std::int64_t number)
{
    SqliteRun(drop_up_to_, number - kMaxHistoryEntries).next();
    while (bytes_of(page_count_) - bytes_of(free_count_) > kMaxHistoryBytes) {
        SqliteRun(drop_one_below_, number).next();
        if (::sqlite3_changes(db_.get()) == 0)
            return;
    }
}

void Store::give_back()
{
    const std::int64_t pages = (bytes_of(free_count_) - kSpareBytes) / page_bytes_;
    if (pages > 0)
        sqlite_exec(db_.get(), ("PRAGMA incremental_vacuum(" + std::to_string(pages) + ")").c_str());
}

std::int64_t Store::bytes_of(const SqliteStatement &pages) const
{
    SqliteRun run(pages);
    return run.next() ? run.number(0) * page_bytes_ : 0;
}

void Store::end(std::int64_t number, std::string_view end)
{
    const std::string text = shortened(std::string(end));
    SqliteRun(end_, number, text).next();
}

void Store::replace_end(std::string_view before, std::string_view after)
{
    SqliteRun(replace_end_, before, after).next();
}

std::vector<std::int64_t> Store::numbers(const std::vector<std::string> &names)
{
    std::set<std::int64_t, std::greater<>> found;
    for (const std::string &name : names) {
        for (SqliteRun run(changed_, name); run.next();)
            found.insert(run.number(0));
    }
    if (names.empty()) {
        for (SqliteRun run(all_); run.next();)
            found.insert(run.number(0));
    }
    return {found.begin(), found.end()};
}

std::optional<HistoryEntry> Store::entry(std::int64_t number)
{
    SqliteRun row(entry_, number); // to its end all is read as it stands now
    if (!row.next())
        return std::nullopt;
    HistoryEntry entry{.number = number,
                       .time = row.number(0),
                       .key = row.text(1),
                       .user = row.text(2),
                       .source = row.text(3),
                       .client = row.text(4),
                       .command = row.text(5),
                       .text = row.text(6),
                       .end = row.text(7),
                       .values = {},
                       .actions = {},
                       .more_values = static_cast<std::size_t>(row.number(8))};
    for (SqliteRun value(values_, number); value.next();)
        entry.values.push_back({value.text(0), value.text(1), value.text(2), value.number(3) != 0});
    for (SqliteRun action(actions_, number); action.next();)
        entry.actions.push_back({action.text(0), static_cast<int>(action.number(1))});
    return entry;
}

std::int64_t Store::last()
{
    SqliteRun run(last_);
    return run.next() ? run.number(0) : 0;
}

bool Store::is_in_place()
{
    int moved = 0;
    return ::sqlite3_file_control(db_.get(), nullptr, SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK &&
           moved == 0;
}

std::unique_ptr<HistoryStore> open(const std::string &path, std::int64_t last)
{
    return std::make_unique<Store>(path, last);
}

} // namespace

QVCD_MODULE(HistoryModule, open)

} // namespace qvcd
