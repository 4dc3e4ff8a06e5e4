#include "base/command_lock.h"
#include "base/shell.h"
#include "base/shell_later.h"
#include "platform/log.h"
#include "platform_wait.h"
#include "temp_folder.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace qvcd {
namespace {

using namespace std::chrono_literals;

constexpr auto kLong = 30s;

TEST(Shell, RunsCapturesAndQuotes)
{
    EXPECT_EQ(shell_run("exit 0"), 0);
    EXPECT_EQ(WEXITSTATUS(shell_run("exit 7")), 7);
    EXPECT_EQ(shell_run("kill -9 $$"), SIGKILL);
    EXPECT_EQ(shell_capture("echo '  a b'; echo c", 100), "  a b\nc\n");
    EXPECT_EQ(shell_capture("yes | head -c 100000", 10)->size(), 10U);
    EXPECT_EQ(shell_capture("exec >&-; exit 3", 100), "");
    EXPECT_EQ(shell_capture("cat", 100), "");                          // there is nothing to read
    EXPECT_EQ(shell_capture("kill -PIPE $$; echo survived", 100), ""); // SIGPIPE has its default action again
    for (const char *word : {"", "a b", "it's", "$(touch x)", "`id`", "\\", "a\nb", "-n", "*", "';'"})
        EXPECT_EQ(shell_capture("printf %s " + shell_quote(word), 100), word);
    // What the service manager told the daemon is not for its commands.
    setenv("NOTIFY_SOCKET", "/nowhere", 1);
    EXPECT_EQ(shell_capture("echo ${NOTIFY_SOCKET-none} ${HOME-none}", 100),
              std::string("none ") + (std::getenv("HOME") ? std::getenv("HOME") : "none") + "\n");
    unsetenv("NOTIFY_SOCKET");
    for (const char *nothing : {"", "0", "-1", "soon"})
        EXPECT_EQ(shell_time_of(nothing), std::nullopt) << nothing;
    // Descriptors beyond 2 stay here.
    EXPECT_EQ(shell_capture("ls /proc/self/fd | wc -l", 100), "4\n"); // 0, 1, 2 and the folder itself
}

TEST(Shell, KeepsTheFirstOfWhatCommandsSayOfErrors)
{
    const TempFolder folder;
    const std::string left_behind =
        "(cd " + folder.path() +
        "; until [ -e go ]; do sleep 0.01; done; i=0;"
        " while [ $i -lt 9999 ]; do echo 0123456789 >&2; i=$((i+1)); done; touch lives)&";
    {
        const ShellErrors errors;
        EXPECT_TRUE(shell_errors_are_kept());
        shell_run("echo out >/dev/null; echo 1 >&2; exit 3");
        shell_run("echo 2 >&2; " + left_behind + "kill -9 $$"); // its stderr stays open
        {
            const ShellErrors inner;
            shell_run("echo 3 >&2");
            EXPECT_EQ(shell_capture("echo 4; echo 5 >&2", 10), "4\n");
            EXPECT_EQ(inner.text(), "3\n5\n");
        }
        EXPECT_EQ(errors.text(), "1\n2\n");
        shell_run("yes >&2", 200ms);
        EXPECT_EQ(errors.text().size(), ShellErrors::kMostBytes);
    }
    EXPECT_FALSE(shell_errors_are_kept());
    folder.write("go", "");
    EXPECT_TRUE(comes_true([&] { return std::filesystem::exists(folder.path("lives")); }));
}

// Were one of them waited for, the test would take a minute.
TEST(Shell, ACommandEndsAtItsLimit)
{
    const TempFolder folder;
    qv_log_start(1, false, false, folder.path("log").c_str(), false, "test");
    const std::string long_text(5000, 'x');
    const struct {
        std::string command;
        const char *printed;
    } rows[] = {
        {"echo 1; sleep 60", "1\n"},
        {"echo 2; trap '' TERM; sleep 61; sleep 62", "2\n"},
        {"echo 3; trap 'exit 0' TERM; sleep 63 & wait", "3\n"}, // it did not end by itself
        {"echo 4; exec >&-; sleep 64", "4\n"},
        {"yes 5", "5\n5"},
        {"echo 6; kill -STOP $$", "6\n"},
        {"sleep 65; : " + long_text + "\t", ""},
    };
    std::vector<std::thread> threads;
    for (const auto &row : rows) {
        threads.emplace_back([&] { EXPECT_EQ(shell_capture(row.command, 3, 500ms), row.printed); });
        threads.emplace_back(
            [&] { EXPECT_EQ(shell_run("{ " + row.command + "; } >/dev/null", 500ms), SIGTERM); });
    }
    for (std::thread &thread : threads)
        thread.join();
    qv_log_stop();
    const std::string log = folder.read("log");
    EXPECT_EQ(std::ranges::count(log, '\n'), static_cast<long>(2 * std::size(rows)));
    EXPECT_NE(log.find("ended, its time is over: echo 1; sleep 60\n"), std::string::npos) << log;
    EXPECT_EQ(log.find(long_text), std::string::npos);
}

// A zombie is not: nobody may care for orphans here.
bool is_alive(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string number, name, state;
    file >> number >> name >> state;
    return file && state != "Z" && state != "X";
}

TEST(Shell, ItsGroupEndsWithIt)
{
    const auto printed =
        shell_capture("(trap '' TERM; while :; do sleep 1; done) & echo $!; wait", 100, 200ms);
    ASSERT_TRUE(printed);
    const pid_t child = std::stoi(*printed);
    EXPECT_TRUE(comes_true([&] { return !is_alive(child); }));
}

// A service that an init script has started holds the output, or goes on printing.
TEST(Shell, WhatACommandLeavesBehindIsNeitherWaitedForNorEnded)
{
    const auto printed = shell_capture("sleep 60 & echo $!", 100, kLong);
    ASSERT_TRUE(printed);
    const pid_t service = std::stoi(*printed);
    EXPECT_TRUE(is_alive(service));
    kill(service, SIGKILL);
    EXPECT_EQ(shell_capture("yes & sleep 0.1", 4, kLong), "y\ny\n");
}

TEST(Shell, TheNearerLimitCounts)
{
    const ShellLimits outer(kLong, deadline_in(kLong));
    EXPECT_EQ(shell_run("exit 0"), 0);
    {
        const ShellLimits inner(100ms);
        const ShellLimits innermost(kLong);
        EXPECT_EQ(shell_capture("echo 1; sleep 60", 10), "1\n");
    }
    {
        const ShellLimits over(kLong, deadline_in(0ms));
        EXPECT_EQ(shell_capture("echo 1", 10), std::nullopt);
        EXPECT_EQ(shell_run("exit 0"), 1);
    }
    EXPECT_EQ(shell_run("exit 0"), 0);
}

// Ends once the file "go" is there; notes when it comes and goes.
std::string slow_command(const TempFolder &folder, const std::string &name)
{
    return "cd " + folder.path() + "; echo +" + name +
           " >>notes; until [ -e go ]; do sleep 0.01; done; echo -" + name + " >>notes";
}

TEST(Shell, NothingRunsWhileNobodyCouldServeTheOthers)
{
    struct Hooks final : WaitHooks {
        void before_waiting() noexcept override { ADD_FAILURE(); }
        void after_waiting() noexcept override { ADD_FAILURE(); }
        bool can_wait() noexcept override { return false; }
        std::size_t unsent() noexcept override { return 0; }
    } hooks;
    const CommandLock lock(&hooks);
    EXPECT_NE(shell_run("exit 0"), 0);
    EXPECT_EQ(shell_capture("echo x", 100), std::nullopt);
}

TEST(Shell, OneOfAKindRunsAtATime)
{
    const TempFolder folder;
    folder.write("notes", "");
    const auto run = [&](const std::string &name, std::chrono::milliseconds limit) {
        const CommandLock lock; // whoever waits lets go of it
        return shell_run(slow_command(folder, name), limit, "the kind");
    };
    auto first = std::async(std::launch::async, run, "a", kLong);
    EXPECT_TRUE(comes_true([&] { return folder.read("notes") == "+a\n"; }));
    auto second = std::async(std::launch::async, run, "b", kLong);
    EXPECT_EQ(run("late", 20ms), 1) << "its time is over before its turn comes";
    EXPECT_EQ(shell_run("exit 0"), 0) << "others go on";
    EXPECT_EQ(folder.read("notes"), "+a\n");
    folder.write("go", "");
    EXPECT_EQ(first.get(), 0);
    EXPECT_EQ(second.get(), 0);
    EXPECT_EQ(folder.read("notes"), "+a\n-a\n+b\n-b\n");
}

// What puts right what a command that hangs has begun.
TEST(Shell, OneThatIsEndedLeavesTheTurnToTheNext)
{
    const TempFolder folder;
    const auto run = [](const std::string &command) { return shell_run(command, 300ms, "that hangs"); };
    auto first = std::async(std::launch::async, run, "touch " + folder.path("hangs") + "; sleep 60");
    EXPECT_TRUE(comes_true([&] { return std::filesystem::exists(folder.path("hangs")); }));
    EXPECT_EQ(run("exit 0"), 0);
    EXPECT_EQ(first.get(), SIGTERM);
}

// The first one's output is too old for those who come while it runs; one of them gets it anew for all.
TEST(Shell, ReadersThatWaitShareAFreshOutput)
{
    const TempFolder folder;
    const std::string command =
        "cd " + folder.path() + "; echo >>runs; wc -l <runs; until [ -e go ]; do sleep 0.01; done";
    const auto read = [&] { return std::stoi(shell_capture(command, 10, kLong).value_or("0")); };
    std::vector<std::future<int>> readers;
    readers.push_back(std::async(std::launch::async, read));
    EXPECT_TRUE(comes_true([&] { return std::filesystem::exists(folder.path("runs")); }));
    for (int i = 0; i < 20; ++i)
        readers.push_back(std::async(std::launch::async, read));
    std::this_thread::sleep_for(300ms); // most of them wait now
    folder.write("go", "");
    EXPECT_EQ(readers.front().get(), 1);
    for (std::size_t i = 1; i < readers.size(); ++i)
        EXPECT_GE(readers[i].get(), 2);
    EXPECT_LT(std::ranges::count(folder.read("runs"), '\n'), 20);
}

// The last test: nothing runs later once that is stopped.
TEST(ShellLater, RunsInTimeUntilItIsStopped)
{
    const TempFolder folder;
    const auto touch = [&](const char *name) { return "touch " + folder.path(name); };
    const auto unheard = [](int, const std::string &) {};
    EXPECT_TRUE(shell_run_later(3600s, touch("never"), kLong, unheard));
    EXPECT_TRUE(shell_run_later(1s, touch("second"), kLong, unheard));
    EXPECT_TRUE(shell_run_later(0s, "sleep 60", 1ms, unheard));
    EXPECT_TRUE(shell_run_later(0s, touch("first"), kLong, unheard));
    EXPECT_TRUE(comes_true([&] { return std::filesystem::exists(folder.path("first")); }));
    EXPECT_TRUE(comes_true([&] { return std::filesystem::exists(folder.path("second")); }));

    int taken = 0;
    while (shell_run_later(3600s, "sleep 60", kLong, unheard))
        ASSERT_LT(++taken, 100);
    EXPECT_GE(taken, 90); // some may still run
    EXPECT_TRUE(comes_true([] { return shell_stop_later(); }));
    EXPECT_FALSE(shell_run_later(0s, touch("never"), kLong, unheard));
    EXPECT_FALSE(std::filesystem::exists(folder.path("never")));
}

} // namespace
} // namespace qvcd
