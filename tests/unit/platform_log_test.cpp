#include "platform/fd.h"
#include "platform/log.h"
#include "platform/log_budget.h"
#include "temp_folder.h"

#include <array>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace qvcd {
namespace {

// What the file holds after `print` ran with logging at `level`.
template <typename Print>
std::string logged(int level, Print &&print)
{
    const TempFolder folder;
    qv_log_start(level, false, false, folder.path("log").c_str(), false, "test");
    print();
    qv_log_stop();
    return folder.read("log");
}

TEST(Log, LevelsLetTheirPrioritiesPass)
{
    const struct {
        int level;
        const char *passes;
    } rows[] = {{-1, "3"}, {1, "34"}, {2, "3456"}, {3, "34567"}, {9, "345678"}};
    for (const auto &row : rows) {
        std::string passed = logged(row.level, [] {
            for (int priority = kLogError; priority <= kLogTrace; ++priority)
                qv_log_print(priority, "%d\n", priority);
        });
        std::erase(passed, '\n');
        EXPECT_EQ(passed, row.passes) << "level " << row.level;
    }
}

TEST(Log, OneCallIsOneLine)
{
    const std::string most(2048, 'y');
    const struct {
        std::string text;
        std::string line;
    } rows[] = {
        {"with newline\n", "with newline\n"},
        {"two\nlines\n\n", "two\\x0Alines\\x0A\n"},
        {"\x1b[31m\t\x7f", "\\x1B[31m\\x09\\x7F\n"},
        {"caf\xc3\xa9 100%", "caf\xc3\xa9 100%\n"},
        {most + "\n", most + "\n"},
        {most + "z", most + "...\n"},
        {most.substr(1) + "\t", most.substr(1) + "\\...\n"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(logged(2, [&] { qv_log_print(kLogInfo, "%s", row.text.c_str()); }), row.line);
}

TEST(Log, AFileThatCannotBeOpenedIsReportedAndTheRestWorks)
{
    testing::internal::CaptureStderr();
    qv_log_start(2, false, true, "/nonexistent/log", false, "test");
    qv_log_print(kLogInfo, "still here\n");
    qv_log_stop();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "test: cannot open the log file /nonexistent/log: No such file or directory\nstill here\n");
}

TEST(Log, AFailureIsOnStderrOnceAndInTheLog)
{
    const TempFolder folder;
    testing::internal::CaptureStderr();
    qv_log_start(0, false, true, folder.path("log").c_str(), false, "test");
    qv_report_failure("no luck");
    qv_log_stop();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "no luck\n");
    EXPECT_EQ(folder.read("log"), "no luck\n");

    testing::internal::CaptureStderr();
    qv_report_failure("no luck");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::EndsWith(": no luck\n"));
}

TEST(Log, AFullPipeOnStderrLosesLinesAndHoldsUpNobody)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_NONBLOCK | O_CLOEXEC), 0);
    const Fd reader(ends[0]), writer(ends[1]), before(dup(STDERR_FILENO));
    const std::string block(4096, '.');
    std::size_t size = 0;
    for (ssize_t n = 0; (n = write(writer.get(), block.data(), block.size())) > 0;)
        size += static_cast<std::size_t>(n);
    fcntl(writer.get(), F_SETFL, 0); // as others leave it: a write waits
    dup2(writer.get(), STDERR_FILENO);
    qv_report_failure("lost");
    qv_log_start(0, false, true, nullptr, false, "test");
    qv_log_print(kLogError, "lost, too");
    std::string text(size + 1000, '\0');
    EXPECT_EQ(read(reader.get(), text.data(), text.size()), static_cast<ssize_t>(size));
    qv_log_print(kLogError, "here");
    qv_log_stop();
    dup2(before.get(), STDERR_FILENO);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(read(reader.get(), text.data(), text.size()), 0)));
    EXPECT_EQ(text, "2 lines were lost\nhere\n");
}

TEST(Log, ThreadsDoNotMixTheirLines)
{
    const std::string text = logged(2, [] {
        std::vector<std::thread> threads;
        for (const char c : {'a', 'b', 'c', 'd'})
            threads.emplace_back([c] {
                for (int i = 0; i < 200; ++i)
                    qv_log_print(kLogInfo, "%s\n", std::string(50, c).c_str());
            });
        for (std::thread &thread : threads)
            thread.join();
    });
    std::istringstream lines(text);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        ASSERT_EQ(line, std::string(50, line.empty() ? '?' : line.front()));
    EXPECT_EQ(count, 800);
}

TEST(LogBudget, ASourceHasItsLinesInItsTime)
{
    using Verdict = LogBudget::Verdict;
    LogBudget budget;
    const LogBudget::Time start{5};
    for (unsigned long i = 0; i < LogBudget::kLines; ++i)
        ASSERT_EQ(budget.take("a", 3, start), Verdict::log);
    EXPECT_EQ(budget.take("a", 3, start), Verdict::leave_out_from_now);
    EXPECT_EQ(budget.take("a", 3, start), Verdict::leave_out);
    EXPECT_EQ(budget.take("b", 3, start), Verdict::log);
    EXPECT_EQ(budget.take("a", 4, start), Verdict::log);
    EXPECT_EQ(budget.due(), start + LogBudget::kWindow);
    EXPECT_TRUE(budget.left_out(budget.due() - LogBudget::Time(1)).empty());
    const auto left_out = budget.left_out(budget.due());
    ASSERT_EQ(left_out.size(), 1U);
    EXPECT_EQ(left_out[0].source + std::to_string(left_out[0].lines), "a2");
    EXPECT_EQ(budget.due(), LogBudget::Time::max());
    EXPECT_EQ(budget.take("a", 3, start + LogBudget::kWindow), Verdict::log);
    for (std::size_t i = 0; i < 2 * LogBudget::kMost; ++i)
        budget.take(std::to_string(i), 3, start);
    EXPECT_EQ(budget.take("another", 3, start), Verdict::leave_out); // they share what others have
}

} // namespace
} // namespace qvcd
