#include "client/interactive.h"

#include <csignal>
#include <cstdio>

#include "client/completion.h"
#include "client/errors.h"
#include "client/line_editor.h"
#include "client/local_commands.h"
#include "client/shell_words.h"
#include "client/typed_line.h"

namespace qvcd::client {

namespace {

// What can stand at the end of a line, which may have a quote open.
LineEditor::Completion complete_typed(const Options &options, const std::string &line)
{
    const Tokens tokens = tokenize(line, Separators::blanks);
    Words before;
    for (const Token &token : tokens.list)
        before.push_back(token.text);
    LineEditor::Completion completion{line.size(), {}};
    std::string word;
    if (tokens.in_word) {
        completion.start = tokens.list.back().start;
        word = before.back();
        before.pop_back();
    }
    for (const std::string &candidate : complete(options, before, word))
        completion.candidates.push_back(typed_form(candidate));
    return completion;
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
    LineEditor editor([&](const std::string &line) { return complete_typed(options, line); });
    int result = 0;
    for (std::string line; editor.read_line("qvc> ", line);) {
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
