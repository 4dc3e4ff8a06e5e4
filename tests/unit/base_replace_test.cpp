#include "appliance_root.h"
#include "base/command_lock.h"
#include "base/file_text.h"
#include "base/replace_files.h"
#include "base/replace_journal.h"
#include "base/save_lock.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>

namespace qvcd {
namespace {

namespace fs = std::filesystem;
using Errors = std::vector<int>;
using Results = std::vector<FileResult>;

constexpr FileResult kReplaced{0, true};

Errors errors_of(const Results &results)
{
    Errors errors;
    for (const FileResult &result : results) {
        EXPECT_EQ(result.changed, result.error == 0);
        errors.push_back(result.error);
    }
    return errors;
}

class Replacing : public OnEmptyRoot<testing::Test> {
  protected:
    static std::string path(const std::string &name) { return appliance_root().path(name); }
    static std::string write(const std::string &name, const std::string &text)
    {
        return appliance_root().write(name, text);
    }
    static std::string read(const std::string &name) { return appliance_root().read(name); }
    static std::vector<std::string> names_in(const std::string &folder)
    {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(path(folder)))
            names.push_back(entry.path().filename());
        std::ranges::sort(names);
        return names;
    }
};

TEST_F(Replacing, KeepsModeOwnerAttributesAndLinks)
{
    write("etc/real", "old");
    ASSERT_EQ(chmod(path("etc/real").c_str(), 0640), 0);
    const bool attributes = setxattr(path("etc/real").c_str(), "user.note", "n", 1, 0) == 0;
    ASSERT_TRUE(geteuid() != 0 || chown(path("etc/real").c_str(), 12345, 54321) == 0);
    fs::create_symlink("second", path("etc/link"));
    fs::create_symlink("real", path("etc/second"));
    fs::create_symlink("third", path("etc/dangling"));
    fs::create_symlink("nowhere", path("etc/third"));
    EXPECT_EQ(replace_file(path("etc/link"), "new"), kReplaced);
    EXPECT_EQ(replace_file(path("etc/dangling"), "made"), kReplaced);
    EXPECT_EQ(read("etc/real") + read("etc/nowhere"), "newmade");
    EXPECT_EQ(appliance_root().mode_of("etc/real"), 0640U);
    EXPECT_EQ(appliance_root().mode_of("etc/nowhere"), 0644U);
    struct stat st {};
    ASSERT_EQ(stat(path("etc/real").c_str(), &st), 0);
    EXPECT_TRUE(geteuid() != 0 || (st.st_uid == 12345 && st.st_gid == 54321));
    char note = 0;
    EXPECT_TRUE(!attributes ||
                (getxattr(path("etc/real").c_str(), "user.note", &note, 1) == 1 && note == 'n'));
    for (const char *link : {"etc/link", "etc/second", "etc/dangling", "etc/third"})
        EXPECT_TRUE(fs::is_symlink(path(link))) << link;
    EXPECT_EQ(replace_secret_file(path("etc/nowhere"), "y"), kReplaced);
    EXPECT_EQ(appliance_root().mode_of("etc/nowhere"), 0600U);
    EXPECT_EQ(names_in("etc").size(), 6U);
    EXPECT_FALSE(fs::exists(path("var"))); // one rename needs no journal
}

TEST_F(Replacing, WhatCanBeReplacedIs)
{
    write("etc/a", "old");
    write("etc/b", "old");
    fs::create_directories(path("etc/folder"));
    FileSet set;
    set.add({path("etc/a"), "new"});
    set.add({path("etc/folder"), "new"});
    set.add({path("none/f"), "new"});
    set.add({path("etc/a/f"), "new"});
    set.add({"/dev/full", "new"});
    set.add({path("etc/no-device"), "new", 0, FileChange::Kind::device});
    set.add({path("etc/b"), "new"});
    EXPECT_EQ(errors_of(set.commit()), (Errors{0, EISDIR, ENOENT, ENOTDIR, ENOSPC, ENOENT, 0}));
    EXPECT_EQ(read("etc/a") + read("etc/b"), "newnew");
    EXPECT_EQ(names_in("etc"), (std::vector<std::string>{"a", "b", "folder"}));
    EXPECT_EQ(read("var/lib/qv/save.journal"), ""); // its work is done
    EXPECT_EQ(appliance_root().mode_of("var/lib/qv/save.journal"), 0600U);
    EXPECT_EQ(appliance_root().mode_of("var/lib/qv"), 0755U);
}

TEST_F(Replacing, GoesOnWithoutAJournal)
{
    write("var/lib/qv", "a file is in the way");
    FileSet set;
    for (int i = 0; i < 70; ++i) // more than are open at once
        set.add({path("f" + std::to_string(i)), std::to_string(i)});
    EXPECT_EQ(errors_of(set.commit()), Errors(70, 0));
    EXPECT_EQ(read("f0") + read("f69"), "069");
    EXPECT_EQ(names_in("").size(), 71U);
}

TEST_F(Replacing, LeftOversOfTheDeadAreRemoved)
{
    const pid_t dead = fork();
    if (dead == 0)
        _exit(0);
    ASSERT_EQ(waitpid(dead, nullptr, 0), dead);
    std::ifstream stat("/proc/1/stat"); // of the first process
    std::string start;
    for (int i = 0; i < 22; ++i)
        stat >> start;
    const std::string of_living = ".qvcd-new-1-" + start + "-1";
    const std::string of_dead = ".qvcd-new-" + std::to_string(dead) + "-" + start + "-1";
    const std::string before_first = ".qvcd-new-1-" + start + "1-1"; // it began at another time
    const std::string before_us = ".qvcd-new-" + std::to_string(getpid()) + "-";
    for (const std::string &name :
         {of_dead, of_living, before_first, before_us, std::string(".qvcd-new"), std::string("other")})
        write("swept/" + name, "");
    remove_left_overs(path("swept"));
    remove_left_overs(path("none"));
    EXPECT_EQ(names_in("swept"), (std::vector<std::string>{of_living, "other"}));
}

// ---- After a crash ----

class Recovery : public Replacing {
  protected:
    // A file whose new text was written beside it.
    JournalEntry prepared(const std::string &name, const std::string &text)
    {
        write(name, "old");
        const std::string fresh =
            (fs::path(name).parent_path() / (".qvcd-new-1-" + std::to_string(++number_)));
        write(fresh, text);
        return {path(fresh), path(name), text.size(), text_hash(text)};
    }
    static void journal(const std::string &text) { write("var/lib/qv/save.journal", text); }

  private:
    int number_ = 0;
};

TEST_F(Recovery, FinishesWhatTheJournalNames)
{
    std::vector<JournalEntry> entries = {prepared("etc/a", "new a"), prepared("etc/b", "new b"),
                                         prepared("shadow/a", "new shadow"),
                                         prepared("etc/torn", "new torn")};
    write("etc/.qvcd-new-1-2", "new b");
    fs::rename(entries[0].new_path, entries[0].target); // how far it came
    write("etc/.qvcd-new-1-4", "new to");
    // Beside the journal: what was to be written in place.
    write("etc/in-place", "ne");
    write("var/lib/qv/.qvcd-new-1-5", "new in place");
    entries.push_back(
        {path("var/lib/qv/.qvcd-new-1-5"), path("etc/in-place"), 12, text_hash("new in place")});
    journal(journal_text(entries));
    EXPECT_EQ(recover_file_sets(), 3);
    EXPECT_EQ(read("etc/a"), "new a");
    EXPECT_EQ(read("etc/b"), "new b");
    EXPECT_EQ(read("shadow/a"), "new shadow");
    EXPECT_EQ(read("etc/torn"), "old");
    EXPECT_EQ(read("etc/in-place"), "new in place");
    EXPECT_EQ(names_in("etc"), (std::vector<std::string>{"a", "b", "in-place", "torn"}));
    EXPECT_EQ(names_in("var/lib/qv"), std::vector<std::string>{"save.journal"});
    write("etc/a", "later");
    EXPECT_EQ(recover_file_sets(), 0);
    EXPECT_EQ(read("etc/a"), "later");
}

TEST_F(Recovery, ForgetsWhatIsNotWhole)
{
    const std::vector<JournalEntry> entries = {prepared("etc/a", "new a"), prepared("etc/b", "new b")};
    const std::string whole = journal_text(entries);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        std::string changed = whole;
        changed[size] = static_cast<char>(changed[size] ^ 1);
        EXPECT_FALSE(parse_journal(whole.substr(0, size)) || parse_journal(changed)) << size;
    }
    EXPECT_TRUE(parse_journal(whole));
    journal(whole.substr(0, whole.size() - 1));
    EXPECT_EQ(recover_file_sets(), 0);
    EXPECT_EQ(read("var/lib/qv/save.journal"), "");
    // What we never write into a journal.
    std::vector<JournalEntry> foreign = entries;
    foreign[1].new_path = write("etc/precious", "new b");
    journal(journal_text(foreign));
    EXPECT_EQ(recover_file_sets(), 0);
    foreign[1].new_path = write("tmp/.qvcd-new-1-2", "new b");
    journal(journal_text(foreign));
    EXPECT_EQ(recover_file_sets(), 0);
    EXPECT_EQ(read("etc/a") + read("etc/b") + read("etc/precious"), "oldoldnew b");
    fs::remove_all(path("var"));
    EXPECT_EQ(recover_file_sets(), 0);
    EXPECT_FALSE(fs::exists(path("var")));
}

// ---- Locks ----

TEST(SaveLocks, SavesAreSerialAndNobodyWaitsWithTheCommandLock)
{
    int saves = 0; // guarded by the save lock; a sanitizer sees a race
    std::atomic<int> most{0};
    std::atomic<bool> inside{false};
    std::atomic<bool> seen{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 50; ++i) {
                const CommandLock command;
                const SaveLock lock;
                const SaveLock nested;
                most = std::max(most.load(), ++saves);
                {
                    const Unlocked disk;
                    inside = true;
                    while (!seen)
                        std::this_thread::yield();
                }
                EXPECT_TRUE(command_lock_is_mine());
                --saves;
            }
        });
    }
    // All the others wait for the first one's save; a command comes through.
    while (!inside)
        std::this_thread::yield();
    {
        const CommandLock quick;
        seen = true;
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(most, 1);
}

} // namespace
} // namespace qvcd
