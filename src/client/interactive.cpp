#include "client/interactive.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <histedit.h>
#include <memory>
#include <stdexcept>

#include "client/completion.h"
#include "client/errors.h"
#include "client/local_commands.h"
#include "client/typed_line.h"

namespace qvcd::client {

namespace {

constexpr int kHistoryLines = 500;

const char *prompt(EditLine *)
{
    return "qvc> ";
}

std::string common_prefix(const std::vector<std::string> &candidates)
{
    std::string prefix = candidates.at(0);
    for (const std::string &candidate : candidates) {
        const auto [mine, theirs] = std::ranges::mismatch(prefix, candidate);
        prefix.erase(mine, prefix.end());
    }
    return prefix;
}

void list_candidates(const std::vector<std::string> &candidates)
{
    std::fputc('\n', stdout);
    for (const std::string &candidate : candidates)
        std::fprintf(stdout, "%s  ", candidate.c_str());
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

bool goes_on(const std::string &candidate)
{
    return candidate.ends_with('.') || candidate.ends_with('=');
}

// TAB: inserts what all candidates share, and lists them when that adds nothing.
unsigned char complete_line(EditLine *editor, int)
{
    const Options *options = nullptr;
    el_get(editor, EL_CLIENTDATA, &options);
    const LineInfo *line = el_line(editor);
    const std::string typed(line->buffer, line->cursor);
    const std::size_t start = typed.find_last_of(" \t") + 1; // npos + 1 is 0
    const std::string word = typed.substr(start);
    std::vector<std::string> before;
    try {
        before = split_typed_line(typed.substr(0, start));
    } catch (const UsageError &) {
        return CC_ERROR;
    }
    const std::vector<std::string> candidates = complete(*options, before, word);
    if (candidates.empty())
        return CC_ERROR;
    std::string more = common_prefix(candidates).substr(word.size());
    if (candidates.size() == 1 && !goes_on(candidates[0]))
        more += ' ';
    if (more.empty()) {
        list_candidates(candidates);
        return CC_REDISPLAY;
    }
    return el_insertstr(editor, more.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
}

void on_interrupt(int)
{
    interrupt_request();
}

// An interrupt leaves the line or the request, and nothing else.
void make_interrupt_harmless()
{
    struct sigaction action {};
    action.sa_handler = on_interrupt;
    sigaction(SIGINT, &action, nullptr);
}

class LineEditor {
  public:
    explicit LineEditor(const Options &options)
        : editor_(el_init("qvc", stdin, stdout, stderr), el_end), history_(history_init(), history_end)
    {
        if (!editor_ || !history_)
            throw std::runtime_error("cannot set up the terminal");
        HistEvent event{};
        history(history_.get(), &event, H_SETSIZE, kHistoryLines);
        history(history_.get(), &event, H_SETUNIQUE, 1);
        el_set(editor_.get(), EL_CLIENTDATA, &options);
        el_set(editor_.get(), EL_PROMPT, prompt);
        el_set(editor_.get(), EL_EDITOR, "emacs");
        el_set(editor_.get(), EL_SIGNAL, 1);
        el_set(editor_.get(), EL_HIST, history, history_.get());
        el_set(editor_.get(), EL_ADDFN, "complete-name", "Complete a name", complete_line);
        el_set(editor_.get(), EL_BIND, "^I", "complete-name", nullptr);
        el_set(editor_.get(), EL_BIND, "^R", "em-inc-search-prev", nullptr);
    }

    // False at the end of the input; an interrupted line is empty.
    bool read_line(std::string &line)
    {
        line.clear();
        int length = 0;
        errno = 0;
        const char *text = el_gets(editor_.get(), &length);
        if (text && length > 0) {
            line.assign(text, static_cast<std::size_t>(length));
            return true;
        }
        std::fputc('\n', stdout);
        return errno == EINTR;
    }

    void remember(const std::string &line)
    {
        HistEvent event{};
        history(history_.get(), &event, H_ENTER, line.c_str());
    }

  private:
    std::unique_ptr<EditLine, decltype(&el_end)> editor_;
    std::unique_ptr<History, decltype(&history_end)> history_;
};

bool may_hold_password(const Words &words)
{
    return words[0] == "login" || words[0].starts_with("user");
}

int run_and_report(const Options &options, const Words &words)
{
    try {
        return run_command(options, words);
    } catch (const UsageError &error) {
        std::fprintf(stderr, "qvc: %s\n", error.what());
        return kExitUsage;
    } catch (const WireError &error) {
        std::fprintf(stderr, "qvc: %s\n", error.what());
        return kExitNoDaemon;
    }
}

} // namespace

int run_interactive(const Options &options)
{
    make_interrupt_harmless();
    LineEditor editor(options);
    int result = 0;
    for (std::string line; editor.read_line(line);) {
        Words words;
        try {
            words = split_typed_line(line);
        } catch (const UsageError &error) {
            std::fprintf(stderr, "qvc: %s\n", error.what());
            result = kExitUsage;
            continue;
        }
        if (words.empty())
            continue;
        if (words[0] == "quit" || words[0] == "exit")
            break;
        if (!may_hold_password(words))
            editor.remember(line);
        result = run_and_report(options, words);
    }
    return result;
}

} // namespace qvcd::client
