#include "base/failures.h"

#include "base/limits.h"
#include "base/text.h"
#include "platform/log.h"

#include <sys/wait.h>

namespace qvcd {

namespace {

constexpr std::size_t kMost = 50;

std::deque<Failure> &kept()
{
    static auto *const all = new std::deque<Failure>; // never destroyed: an action may end at shutdown
    return *all;
}

std::vector<std::string> first_lines(const std::string &text)
{
    constexpr std::size_t kMostLines = 5;
    std::vector<std::string> lines;
    for (const std::string &line : split_words(text, "\r\n")) {
        if (lines.size() < kMostLines)
            lines.push_back(one_line(cut(line, kMaxErrorLineBytes)));
    }
    return lines;
}

} // namespace

ActionRun note_failure(const std::vector<std::string> &apis, const std::string &action, int status,
                       const std::string &errors)
{
    ActionRun run{action, status, first_lines(errors)};
    qv_log_print(kLogWarning, "Can not apply %s\n", apis.front().c_str());
    qv_log_print(kLogError, "  %s: %s\n", action.c_str(), status_text(status).c_str());
    for (const std::string &line : run.errors)
        qv_log_print(kLogError, "    %s\n", line.c_str());
    kept().push_back({.time = std::time(nullptr), .apis = apis, .run = run});
    if (kept().size() > kMost)
        kept().pop_front();
    return run;
}

const std::deque<Failure> &failures()
{
    return kept();
}

std::string status_text(int status)
{
    constexpr int kNotRun = 1; // what shell_run() returns for a command that could not be started
    if (status > kNotRun && WIFEXITED(status))
        return "exit status " + std::to_string(WEXITSTATUS(status));
    if (status > kNotRun && WIFSIGNALED(status))
        return "ended by signal " + std::to_string(WTERMSIG(status));
    return "failed";
}

} // namespace qvcd
