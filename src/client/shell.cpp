#include "client/shell.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <unistd.h>

#include "client/command_shapes.h"
#include "client/completion.h"
#include "client/errors.h"
#include "client/history_file.h"
#include "client/known_commands.h"
#include "client/level.h"
#include "client/local_commands.h"
#include "client/login.h"
#include "client/person.h"
#include "client/remembering.h"
#include "client/session_choice.h"
#include "client/shell_words.h"
#include "client/short_question.h"
#include "client/terminal_text.h"

namespace qvcd::client {

namespace {

constexpr std::array<std::string_view, 7> kShellWords{"cd", "edit", "exit", "quit", "top", "up", ".."};

constexpr char kHelp[] = R"(
In this shell:
edit LEVEL: Names count from this group; .NAME counts from the top
up or ..: One group up
top: Back to all settings
login USER, logout: Be somebody else; be who you were
COMMAND | match WORD, | except WORD, | count: Show the lines with or without a word; count them
COMMAND ; COMMAND: One after the other
quit, exit: Leave
)";

// Where the session is, as the person knows the machine.
std::string host_of(const Endpoint &endpoint)
{
    if (!endpoint.local())
        return endpoint.host;
    std::array<char, HOST_NAME_MAX + 1> name{};
    if (gethostname(name.data(), name.size() - 1) != 0)
        return "localhost";
    const std::string host = name.data();
    return host.substr(0, host.find('.'));
}

bool moves(const Words &words)
{
    const std::string &word = words[0];
    return word == "up" || word == ".." || word == "top" || word == "cd" ||
           (word == "edit" && !(words.size() > 1 && words[1] == "-e"));
}

// Where a command that moves leads.
std::string destination(const std::string &level, const Words &words)
{
    if (words[0] == "top" || (words[0] == "cd" && words.size() == 1))
        return "";
    if (words[0] == "up" || words[0] == "..")
        return level_behind(level, "..");
    if (words.size() != 2)
        throw UsageError(words[0] + " takes the name of one group");
    return level_behind(level, words[1]);
}

// Anything else may be a password that was typed in the wrong place.
bool is_understandable(const Step &step)
{
    return std::ranges::count(kShellWords, step.words[0]) != 0 || is_known_command(step.words);
}

} // namespace

Shell::Shell(const Options &options)
    : options_(options), first_session_(options.session),
      editor_([this](const std::string &line) { return complete_typed(line); }),
      host_(host_of(options.endpoint))
{
    for (const std::string &line : load_history())
        editor_.remember(line);
    learn_user();
    if (!user_.empty()) // else there is none who answers, or nothing that he may know
        unsaved_.look(options_, {});
}

int Shell::run()
{
    std::string line;
    while (!ends_) {
        if (!editor_.read_line(prompt(), line))
            ends_ = may_leave();
        else
            run_line(line);
        std::fflush(stdout);
    }
    return status_;
}

// What can stand at the end of a line, which may have a quote open.
LineEditor::Completion Shell::complete_typed(const std::string &line) const
{
    const Tokens tokens = tokenize(line, Separators::blanks_and_bars);
    LineEditor::Completion completion{line.size(), {}};
    Words before;
    bool filters = false;
    for (const Token &token : tokens.list) {
        if (token.kind != Token::Kind::word)
            before.clear();
        else
            before.push_back(token.text);
        filters = token.kind == Token::Kind::bar || (filters && token.kind == Token::Kind::word);
    }
    std::string word;
    if (tokens.in_word) {
        completion.start = tokens.list.back().start;
        word = before.back();
        before.pop_back();
    }
    std::vector<std::string> candidates;
    if (!filters)
        candidates = complete(options_, before, word, level_);
    if (!filters && before.empty())
        candidates.insert(candidates.end(), kShellWords.begin(), kShellWords.end());
    if (filters && before.empty())
        candidates = filter_names();
    if (!before.empty() && (before[0] == "edit" || before[0] == "cd") && before.size() == 1)
        std::erase_if(candidates, [](const std::string &name) { return !name.ends_with('.'); });
    std::erase_if(candidates, [&](const std::string &one) { return !one.starts_with(word); });
    std::ranges::sort(candidates);
    candidates.erase(std::ranges::unique(candidates).begin(), candidates.end());
    for (const std::string &candidate : candidates)
        completion.candidates.push_back(typed_form(candidate));
    return completion;
}

std::string Shell::prompt() const
{
    static constexpr std::string_view kMarks[] = {"", "*", "?"};
    std::string text = user_.empty() ? host_ : user_ + "@" + host_;
    if (!level_.empty())
        text += " " + level_;
    text = harmless(text);
    return text.append(kMarks[static_cast<std::size_t>(unsaved_.any())]) + "> ";
}

void Shell::remember(const std::string &line, const std::vector<Step> &steps)
{
    const Remember how = how_to_remember(options_, level_, steps);
    if (how != Remember::nowhere)
        editor_.remember(line);
    if (how == Remember::for_good && std::ranges::all_of(steps, is_understandable))
        add_to_history(line);
}

// A line that is wrong somewhere is not begun.
void Shell::run_line(const std::string &line)
{
    try {
        std::vector<Step> steps;
        try {
            steps = parse_shell_line(line);
        } catch (const UsageError &) {
            editor_.remember(line); // to be mended
            throw;
        }
        if (steps.empty())
            return;
        remember(line, steps);
        for (Step &step : steps) {
            if (!ends_)
                run_step(step);
        }
    } catch (const UsageError &error) {
        std::fprintf(stderr, "qvc: %s\n", for_errors(error.what()).c_str());
        status_ = kExitUsage;
    } catch (const Interrupted &error) {
        std::fprintf(stderr, "qvc: %s\n", for_errors(error.what()).c_str());
        status_ = kExitNoDaemon;
    }
}

void Shell::run_step(Step &step)
{
    const Words words = moves(step.words) ? step.words : in_level(level_, step.words);
    try {
        const FilteredOutput output(step.filters);
        status_ = run_words(words);
    } catch (const UsageError &error) {
        std::fprintf(stderr, "qvc: %s\n", for_errors(error.what()).c_str());
        status_ = kExitUsage;
    } catch (const Interrupted &) {
        throw;
    } catch (const WireError &error) {
        std::fprintf(stderr, "qvc: %s\n", for_errors(error.what()).c_str());
        status_ = kExitNoDaemon;
    }
    if (ends_)
        return;
    unsaved_.look(options_, words);
    if (user_.empty() && unsaved_.any() != Unsaved::Any::unknown)
        learn_user(); // the daemon is back
}

int Shell::run_words(const Words &words)
{
    const std::string &command = words[0];
    if (command == "quit" || command == "exit") {
        ends_ = may_leave();
        return status_;
    }
    if (moves(words)) {
        enter(destination(level_, words));
        return 0;
    }
    if (command == "login")
        return log_in_here(words);
    if (command == "logout" && words.size() == 1)
        return log_out_here();
    if (command == "edit") { // "edit -e NAME"
        Words rest = words;
        rest.erase(rest.begin() + 1);
        return run_command(options_, rest);
    }
    const int status = run_command(options_, words);
    if (command == "help" && words.size() == 1)
        std::fputs(kHelp, stdout);
    return status;
}

int Shell::log_in_here(Words words)
{
    const bool keeps = std::erase(words, "--keep") > 0;
    const LoginResult login = log_in(options_, std::move(words));
    if (!login.session)
        return login.status;
    options_.session = *login.session;
    if (keeps)
        keep_session(options_.endpoint, *login.session);
    learn_user();
    return login.status;
}

int Shell::log_out_here()
{
    if (options_.session == 0)
        throw UsageError("not logged in");
    const int session = options_.session;
    const int status = log_out(options_, session);
    forget_session(options_.endpoint, session);
    options_.session = session == first_session_ ? 0 : first_session_;
    learn_user();
    return status;
}

void Shell::enter(const std::string &level)
{
    if (!level.empty()) {
        const auto answer = ask_shortly(options_, {command_line({"browse", level})});
        if (!answer)
            throw WireError("the daemon does not answer");
        const std::vector<std::string> lines = answer->lines();
        if (value_in(lines, level) == "leaf")
            throw UsageError("'" + level + "' is a setting; names count from groups" +
                             (find_command({"edit"}) ? ", and edit -e NAME opens the editor" : ""));
        if (lines.empty() || answer->result != 0)
            throw UsageError("there is no group '" + level + "'");
    }
    level_ = options_.level = level;
}

void Shell::learn_user()
{
    const bool by_certificate = options_.session == 0 && options_.endpoint.tls &&
                                !options_.endpoint.tls->certificate.empty(); // the daemon does not say who
    const auto answer = by_certificate
                            ? std::nullopt
                            : ask_shortly(options_, {"get_session " + std::to_string(options_.session)});
    user_ = answer ? value_in(answer->lines(), "user").value_or("") : "";
}

// Nobody who could answer does not stay.
bool Shell::may_leave()
{
    unsaved_.look(options_, {});
    if (unsaved_.own().empty() || options_.yes)
        return true;
    constexpr std::size_t kMostNames = 5;
    std::string names;
    std::size_t count = 0;
    for (const std::string &name : unsaved_.own()) {
        if (++count <= kMostNames)
            names += (names.empty() ? "" : ", ") + name;
    }
    if (count > kMostNames)
        names += " and " + std::to_string(count - kMostNames) + " more";
    return ask_person("You have changed " + names + " and not saved. Leave all the same?") != Reply::no;
}

} // namespace qvcd::client
