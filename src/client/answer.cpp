#include "client/answer.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

#include "client/advice.h"
#include "client/errors.h"
#include "client/json_answer.h"
#include "client/reply.h"
#include "client/terminal_text.h"
#include "qvclient/limits.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kMostRefused = 1000; // that are looked at again
constexpr std::size_t kMostKeptBytes = std::size_t{64} << 20;

// Where one waits for each line, they are not kept until the end.
bool waits(const Words &words)
{
    return usual_limits(words[0]).whole != usual_limits("").whole;
}

std::string_view value_of(std::string_view line)
{
    return parse_reply_line(line).value;
}

} // namespace

bool is_at_prompt(const Options &options)
{
    return options.words.empty() && !options.strict && isatty(STDIN_FILENO) == 1;
}

Answer::Form Answer::form_of(const Options &options, const Words &words, const Screen &screen)
{
    if (options.json) // commands of changes answer in JSON themselves
        return is_change_command(words[0]) ? Form::lines : Form::json;
    if (options.quiet)
        return Form::errors;
    if (options.values_only)
        return Form::values;
    return screen.is_there && !options.strict && !waits(words) ? Form::screen : Form::lines;
}

Answer::Answer(const Options &options, Words words)
    : options_(options), words_(std::move(words)), screen_(look_at_screen()),
      form_(form_of(options_, words_, screen_))
{
}

void Answer::take(std::string_view line)
{
    is_empty_ = false;
    if (parse_reply_line(line).error && refused_.size() < kMostRefused)
        refused_.emplace_back(line);
    if (form_ == Form::json || form_ == Form::screen) {
        kept_.push_back(shown_line(line));
        if ((kept_bytes_ += line.size()) > kMostKeptBytes)
            throw WireError("the reply is too long to be kept");
    } else {
        print(shown_line(line));
    }
}

void Answer::print(std::string_view line) const
{
    if (form_ == Form::lines)
        return print_line(line);
    if (parse_reply_line(line).error) {
        std::fflush(stdout);
        std::fprintf(stderr, "%s\n", for_errors(line).c_str());
    } else if (form_ == Form::values) {
        print_line(value_of(line));
    }
}

// A single line stays as it is; many are easier to read in columns.
std::vector<std::string> Answer::for_screen(int result) const
{
    const auto is_setting = [](const std::string &line) {
        const std::string_view name = parse_reply_line(line).name;
        return !name.empty() && name.find_first_of(" \t") == std::string_view::npos;
    };
    const bool is_table = kept_.size() > 1 && std::ranges::all_of(kept_, is_setting);
    std::vector<TableRow> rows;
    for (const std::string &line : kept_) {
        const ReplyLine parts = parse_reply_line(line);
        const bool is_wrong = says_error(words_[0], result, line);
        const std::string value = is_wrong ? in_red(screen_, parts.value) : std::string(parts.value);
        if (is_table)
            rows.push_back({std::string(parts.name), value});
        else
            rows.push_back({parts.name.empty() ? value : std::string(parts.name) + "=" + value, ""});
    }
    return in_columns(rows);
}

int Answer::end(int result)
{
    std::erase_if(refused_, [&](const std::string &line) { return !says_error(words_[0], result, line); });
    const std::string reason = is_empty_ ? reason_of_silence(options_, words_, result) : "";
    if (form_ == Form::json || (options_.json && is_empty_)) // a program reads one line whatever happens
        print_line(json_answer(options_, words_, kept_, result));
    else if (form_ == Form::screen)
        show_lines(screen_, for_screen(result));
    const bool is_shown = form_ == Form::screen || (form_ == Form::lines && screen_.is_there);
    if (is_empty_ && result == 0 && reason.empty() && is_shown && is_at_prompt(options_))
        std::puts("(nothing)");
    std::fflush(stdout);
    if (!options_.json && form_ != Form::errors) {
        if (!reason.empty())
            say_advice(reason);
        advise(options_, words_, refused_, false, result);
    }
    const bool is_refused = !refused_.empty() || !reason.empty();
    return options_.strict && result == 0 && is_refused ? 1 : exit_status(result);
}

} // namespace qvcd::client
