#include "appliance_root.h"
#include "base/command_lock.h"
#include "change/history.h"
#include "change/history_store.h"
#include "platform/log.h"
#include "platform_wait.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

// SQLite's calls come here: a disk that is full, and one that is asked to keep what it got.
static std::atomic<bool> disk_is_full = false;
static std::atomic<int> flushes = 0;

extern "C" ssize_t pwrite64(int fd, const void *bytes, size_t size, off64_t at)
{
    if (disk_is_full) {
        errno = ENOSPC;
        return -1;
    }
    return syscall(SYS_pwrite64, fd, bytes, size, at);
}

extern "C" int fdatasync(int fd)
{
    ++flushes;
    return static_cast<int>(syscall(SYS_fdatasync, fd));
}

namespace qvcd {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Numbers = std::vector<std::int64_t>;

std::string path(const std::string &beside = {})
{
    return appliance_root().path("var/lib/qv/history.db") + beside;
}

// The database as other programs see it.
class Reader {
  public:
    Reader()
    {
        EXPECT_EQ(sqlite3_open_v2(path().c_str(), &db_, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
        sqlite3_busy_timeout(db_, 20'000);
    }
    ~Reader() { sqlite3_close(db_); }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    /// The first value that it gives, as a number.
    std::int64_t ask(const std::string &sql)
    {
        std::int64_t answer = 0;
        const auto note = [](void *to, int, char **texts, char **) {
            *static_cast<std::int64_t *>(to) = texts[0] ? std::stoll(texts[0]) : 0;
            return 0;
        };
        char *error = nullptr;
        EXPECT_EQ(sqlite3_exec(db_, sql.c_str(), note, &answer, &error), SQLITE_OK) << (error ? error : "");
        sqlite3_free(error);
        return answer;
    }

    std::int64_t bytes_in_use()
    {
        return (ask("PRAGMA page_count") - ask("PRAGMA freelist_count")) * ask("PRAGMA page_size");
    }

    /// Entries with a value of this size each.
    void fill(int entries, int size)
    {
        ask("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
            std::to_string(entries) +
            ") INSERT INTO entry SELECT NULL, '', 0, '', '', '', '', '', '', 0 FROM n");
        ask("INSERT INTO value SELECT number, 0, 'A.B', '', printf('%." + std::to_string(size) +
            "c', 'x'), 0 FROM entry WHERE number NOT IN (SELECT entry FROM value)");
    }

  private:
    sqlite3 *db_ = nullptr;
};

HistoryEntry entry_of(std::vector<ValueChange> values)
{
    HistoryEntry entry;
    entry.command = "save";
    entry.values = std::move(values);
    return entry;
}

HistoryEntry large_entry()
{
    return entry_of({2000, {"A.B", std::string(500, 'b'), std::string(500, 'a'), false}});
}

std::vector<HistoryEntry> visited(const std::vector<std::string> &names = {}, std::size_t limit = 1'000'000)
{
    std::vector<HistoryEntry> entries;
    EXPECT_EQ(history_visit(names,
                            [&](const HistoryEntry &entry) {
                                entries.push_back(entry);
                                return entries.size() < limit;
                            }),
              "");
    return entries;
}

Numbers numbers(const std::vector<std::string> &names = {}, std::size_t limit = 1'000'000)
{
    Numbers numbers;
    for (const HistoryEntry &entry : visited(names, limit))
        numbers.push_back(entry.number);
    return numbers;
}

class History : public OnEmptyRoot<testing::Test> {
  protected:
    void TearDown() override { history_close(); }

    // The number of a new entry that nothing kept from being written.
    static std::int64_t add(const HistoryEntry &entry = entry_of({{"A.B", "1", "2", false}}))
    {
        const HistoryResult result = history_add(entry);
        EXPECT_EQ(result.problem, "");
        return result.number;
    }

    static unsigned mode_of(const std::string &file)
    {
        struct stat st {};
        return stat(file.c_str(), &st) == 0 ? st.st_mode & 0777U : 0;
    }
};

TEST_F(History, GivesBackWhatItGotNewestFirst)
{
    HistoryEntry first = entry_of({{"Z.last", "\xff\xfe", "'\"%s\x80", false}, {"A", "", " ", false}});
    first.time = 5'000'000'000;
    first.key = "k1";
    first.user = "\xc3\xa4\xc3";
    first.source = "192.0.2.1";
    first.client = "web";
    first.text = "a; DROP TABLE entry";
    first.end = "awaits confirmation";
    first.actions = {{"/etc/init.d/httpd restart", 256}, {"", -1}};
    first.more_values = 3;
    EXPECT_EQ(first.number = add(first), 1);
    HistoryEntry second = entry_of({{"P", "secret", "hidden", true}});
    second.text = std::string(4092, 'x') + "\xc3\xa4 and more";
    EXPECT_EQ(second.number = add(second), 2);
    for (const char *file : {"", "-wal", "-shm"})
        EXPECT_EQ(mode_of(path(file)), 0640U) << file;

    EXPECT_EQ(history_end(1, "done"), "");
    EXPECT_EQ(history_end(7, "nobody's"), "");
    HistoryEntry again = second; // of the same key: only its end counts
    again.key = first.key;
    again.end = "confirmed";
    EXPECT_EQ(add(again), 1);
    history_close();
    first.end = "confirmed";
    second.values = {{"P", "*******", "*******", true}};
    second.text = std::string(4092, 'x') + "...";
    const auto entries = visited();
    ASSERT_EQ(entries.size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        const HistoryEntry &is = entries[i];
        const HistoryEntry &was = i == 0 ? second : first;
        EXPECT_EQ(std::tie(is.number, is.time, is.key, is.user, is.source, is.client, is.command, is.text,
                           is.end, is.values, is.actions, is.more_values),
                  std::tie(was.number, was.time, was.key, was.user, was.source, was.client, was.command,
                           was.text, was.end, was.values, was.actions, was.more_values));
    }
}

TEST_F(History, NamesAreApisAndGroups)
{
    for (const char *api : {"A.B", "A.B.C", "A.BC", "a.b", "A", "A.B/", "A.\xff"})
        add(entry_of({{api, "1", "2", false}, {"Z.z", "1", "2", false}}));
    const struct {
        std::vector<std::string> names;
        Numbers found;
    } cases[] = {
        {{}, {7, 6, 5, 4, 3, 2, 1}},
        {{"Z"}, {7, 6, 5, 4, 3, 2, 1}},
        {{"A"}, {7, 6, 5, 3, 2, 1}},
        {{"A.B"}, {2, 1}},
        {{"A.\xff", "A.BC", "A.B.C", "A.B"}, {7, 3, 2, 1}},
        {{"A.%", "", "A."}, {}},
        {std::vector<std::string>(3000, "a.b"), {4}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(numbers(c.names), c.found) << testing::PrintToString(c.names).substr(0, 50);
    EXPECT_EQ(numbers({}, 2), (Numbers{7, 6}));
}

TEST_F(History, KeepsTheNewestEntries)
{
    add();
    Reader().fill(kMaxHistoryEntries - 1, 10);
    EXPECT_EQ(add(), kMaxHistoryEntries + 1);
    EXPECT_EQ(add(), kMaxHistoryEntries + 2);
    Numbers all(kMaxHistoryEntries);
    std::iota(all.rbegin(), all.rend(), 3);
    EXPECT_EQ(numbers(), all);
    EXPECT_EQ(numbers({"A"}), all);
    EXPECT_EQ(Reader().ask("SELECT count(*) FROM value"), kMaxHistoryEntries);
}

TEST_F(History, KeepsToItsBytesAndGivesSpaceBack)
{
    add();
    Reader reader;
    reader.fill(90, 400'000);
    EXPECT_EQ(reader.ask("PRAGMA auto_vacuum"), 2);
    EXPECT_GT(reader.bytes_in_use(), kMaxHistoryBytes + (10 << 20));
    const std::int64_t number = add(large_entry());
    EXPECT_LE(reader.bytes_in_use(), kMaxHistoryBytes);
    EXPECT_GT(reader.bytes_in_use(), kMaxHistoryBytes - (1 << 20)); // no more goes than must
    EXPECT_LE(reader.ask("PRAGMA page_count") * 4096, kMaxHistoryBytes + (2 << 20));
    const Numbers kept = numbers();
    EXPECT_EQ(kept.front(), number);
    EXPECT_EQ(kept.back(), number - static_cast<std::int64_t>(kept.size()) + 1);
    EXPECT_EQ(reader.ask("SELECT count(*) FROM pragma_integrity_check WHERE integrity_check <> 'ok'"), 0);
}

TEST_F(History, ALargeEntryIsCounted)
{
    HistoryEntry many;
    many.more_values = 1;
    for (std::size_t i = 0; i < kMaxEntryValues + 5; ++i)
        many.values.push_back({"A.n" + std::to_string(i), "", "1", false});
    add(many);
    const std::string half(kMaxEntryBytes / 2 - 1, 'x');
    add(entry_of(
        {{"1", half, "", false}, {"2", half, "", false}, {"3", "", "", false}, {"4", "", "", false}}));
    const auto entries = visited();
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[1].more_values, 6U);
    EXPECT_EQ(entries[1].values,
              (std::vector<ValueChange>(many.values.begin(), many.values.begin() + kMaxEntryValues)));
    EXPECT_EQ(entries[0].more_values, 2U);
    EXPECT_EQ(entries[0].values.size(), 2U);
}

TEST_F(History, ManyWriteAndReadAtOnce)
{
    constexpr int kEach = 25;
    const auto add_each = [] {
        for (int i = 0; i < kEach; ++i) // on a slow disk one may have to wait for longer than the patience
            while (history_add(entry_of({{"A.B", "1", "2", false}})).number == 0)
                std::this_thread::yield();
    };
    add();
    history_close();
    const pid_t child = fork();
    if (child == 0) {
        add_each();
        _exit(0);
    }
    std::atomic<bool> ended = false;
    std::vector<std::thread> threads(3);
    for (std::thread &thread : threads)
        thread = std::thread(add_each);
    std::thread reader([&] {
        Reader other;
        while (!ended)
            EXPECT_EQ(other.ask("SELECT (SELECT count(*) FROM entry) = (SELECT count(*) FROM value)"), 1);
    });
    threads.emplace_back([] { EXPECT_FALSE(visited({"A"}).empty()); });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    ended = true;
    reader.join();
    Numbers all(4 * kEach + 1);
    std::iota(all.rbegin(), all.rend(), 1);
    EXPECT_EQ(numbers(), all);
}

TEST_F(History, OthersHaveTheCommandLockWhileItWaits)
{
    struct Hooks final : WaitHooks {
        std::atomic<bool> waits = false;
        void before_waiting() noexcept override { waits = true; }
        void after_waiting() noexcept override {}
        bool can_wait() noexcept override { return true; }
        std::size_t unsent() noexcept override { return 0; }
    } hooks;
    add();
    Reader other;
    other.ask("BEGIN IMMEDIATE");
    std::thread command([&] {
        const CommandLock lock(&hooks);
        EXPECT_THAT(history_add({}).problem, HasSubstr("cannot be written: database is locked"));
        EXPECT_TRUE(command_lock_is_mine());
        history_visit({}, [](const HistoryEntry &) {
            EXPECT_TRUE(command_lock_is_mine());
            EXPECT_EQ(history_visit({}, [](const HistoryEntry &) { return false; }), "");
            return true;
        });
    });
    EXPECT_TRUE(comes_true([&] { return hooks.waits.load(); }));
    EXPECT_TRUE(CommandLock().held());
    command.join();
    other.ask("ROLLBACK");
    EXPECT_EQ(add(), 2);
}

TEST_F(History, AReaderThatNeverEndsDoesNotFillTheDisk)
{
    add();
    Reader stuck;
    stuck.ask("BEGIN; SELECT count(*) FROM entry");
    HistoryResult result;
    for (int i = 0; i < 40 && result.problem.empty(); ++i)
        result = history_add(large_entry());
    EXPECT_THAT(result.problem, HasSubstr("another program has been reading it for too long"));
    EXPECT_LT(fs::file_size(path("-wal")), kMaxHistoryBytes + (8U << 20U));
    EXPECT_EQ(stuck.ask("SELECT count(*) FROM entry"), 1); // it reads what was there when it began
    stuck.ask("COMMIT");
    add();
    EXPECT_LT(fs::file_size(path("-wal")), 8U << 20U);
}

TEST_F(History, ADamagedFileIsPutAside)
{
    const std::string file = "var/lib/qv/history.db";
    add();
    Reader().fill(100, 1000);
    Reader().ask("PRAGMA wal_checkpoint(TRUNCATE)");
    const std::string good = appliance_root().read(file);
    Reader().ask("PRAGMA application_id=0; PRAGMA wal_checkpoint(TRUNCATE)");
    const std::string bad[] = {"xy",
                               std::string(5000, '\xff'),
                               "SQLite format 3",
                               good.substr(0, 4096),
                               good.substr(0, 81920) + std::string(4096, '\xa5') + good.substr(86016),
                               appliance_root().read(file)};
    std::int64_t number = 1;
    for (const std::string &bytes : bad) {
        fs::remove(path());
        appliance_root().write(file, bytes);
        appliance_root().write(file + ".damaged-wal", "of an older one");
        const HistoryResult result = history_add(entry_of({}));
        EXPECT_THAT(result.problem, HasSubstr("put aside as /var/lib/qv/history.db.damaged")) << number;
        EXPECT_EQ(result.number, ++number);
        EXPECT_EQ(add(), ++number);
        EXPECT_EQ(numbers(), (Numbers{number, number - 1}));
        EXPECT_TRUE(appliance_root().read(file + ".damaged") == bytes) << number;
        EXPECT_NE(appliance_root().read(file + ".damaged-wal"), "of an older one");
    }
    fs::remove(path());
    appliance_root().write(file, "xy");
    fs::remove(path(".damaged"));
    fs::create_directories(path(".damaged/in the way"));
    for (int i = 0; i < 2; ++i)
        EXPECT_THAT(history_add({}).problem, HasSubstr("cannot be put aside: Is a directory"));
    EXPECT_EQ(appliance_root().read(file), "xy");
}

TEST_F(History, DamageIsFoundWhileItIsOpen)
{
    add();
    Reader().fill(3000, 3000);
    Reader().ask("PRAGMA wal_checkpoint(TRUNCATE)");
    EXPECT_EQ(numbers({}, 1), Numbers{3001});
    const std::string junk(fs::file_size(path()) / 2, '\xa5');
    const int fd = open(path().c_str(), O_WRONLY);
    EXPECT_EQ(pwrite(fd, junk.data(), junk.size(), 8192), static_cast<ssize_t>(junk.size()));
    close(fd);
    std::int64_t lowest = 3002;
    const auto visit = [&](const HistoryEntry &entry) {
        return entry.number < std::exchange(lowest, entry.number);
    };
    EXPECT_THAT(history_visit({}, visit), HasSubstr("put aside"));
    EXPECT_THAT(numbers(), IsEmpty());
    EXPECT_EQ(add(), 3002);
}

TEST_F(History, ANewerFileIsLeftAlone)
{
    add();
    Reader().ask("PRAGMA user_version=2");
    history_close();
    EXPECT_EQ(history_add({}).problem, "the history cannot be written: of a newer release");
    EXPECT_EQ(Reader().ask("SELECT count(*) FROM entry"), 1);
    Reader().ask("PRAGMA user_version=1");
    EXPECT_EQ(add(), 2);
}

TEST_F(History, TroubleIsToldAndPasses)
{
    const struct {
        const char *why;
        void (*begin)();
        void (*end)();
    } cases[] = {
        {"No space left on device", [] { disk_is_full = true; }, [] { disk_is_full = false; }},
        {"Is a directory", [] { fs::remove_all(path()), fs::create_directories(path()); },
         [] { fs::remove(path()); }},
        {"Not a directory",
         [] { fs::remove_all(appliance_root().path("var")), appliance_root().write("var", ""); },
         [] { fs::remove(appliance_root().path("var")); }},
    };
    for (const auto &c : cases) {
        for (const bool was_open : {true, false}) {
            add();
            if (!was_open)
                history_close();
            const TempFolder folder;
            qv_log_start(0, false, false, folder.path("log").c_str(), false, "test");
            c.begin();
            const std::string problem = std::string("the history cannot be written: ") + c.why;
            for (int i = 0; i < 3; ++i) {
                const HistoryResult result = history_add({});
                EXPECT_EQ(result.problem, problem);
                EXPECT_EQ(result.number, 0);
            }
            c.end();
            EXPECT_EQ(folder.read("log"), problem + "\n");
            qv_log_stop();
        }
    }
    add();
    EXPECT_EQ(visited().size(), 1U); // since the last file went
}

TEST_F(History, ARemovedOrReplacedFileIsNoticed)
{
    add();
    fs::remove(path());
    EXPECT_EQ(add(), 2); // goes on where we were, in a new file
    EXPECT_EQ(numbers(), Numbers{2});
    history_close();
    fs::copy_file(path(), path(".copy"));
    EXPECT_EQ(add(), 3);
    fs::rename(path(".copy"), path());
    EXPECT_EQ(add(), 3);
    EXPECT_EQ(numbers(), (Numbers{3, 2}));
    fs::remove_all(appliance_root().path("var"));
    EXPECT_EQ(add(), 4);
}

TEST_F(History, WhatWasAddedSurvivesTheProcess)
{
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        history_add(large_entry());
        const int before = flushes;
        history_add(entry_of({{"A.B", "1", "2", false}}));
        const char flushed = flushes > before ? 'f' : '-';
        EXPECT_EQ(write(ready[1], &flushed, 1), 1);
        pause();
    }
    char flushed = 0;
    EXPECT_EQ(read(ready[0], &flushed, 1), 1);
    EXPECT_EQ(flushed, 'f'); // else a power cut would take it
    kill(child, SIGKILL);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    close(ready[0]);
    close(ready[1]);
    EXPECT_EQ(numbers(), (Numbers{2, 1}));
    EXPECT_EQ(visited({"A.B"}, 1).at(0).values, entry_of({{"A.B", "1", "2", false}}).values);
    EXPECT_EQ(add(), 3);
}

} // namespace
} // namespace qvcd
