#include "client/local_commands.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include "client/advice.h"
#include "client/answer.h"
#include "client/change_painter.h"
#include "client/confirmation.h"
#include "client/errors.h"
#include "client/person.h"
#include "client/reply.h"
#include "client/screen.h"
#include "client/terminal_text.h"
#include "qvclient/connect.h"

namespace qvcd::client {

namespace {

bool is_for_a_person(const Options &options, const Words &words)
{
    return !options.strict && !options.quiet && !options.values_only && isatty(STDOUT_FILENO) &&
           (words.size() < 2 || words[1] != "-j");
}

// What runs no script is shown whole, page by page where it is long.
bool tells_only(std::string_view command)
{
    static constexpr std::string_view kCommands[] = {"plan", "diff", "history", "failures"};
    return std::ranges::count(kCommands, command) != 0;
}

int run_painted(const Options &options, const Words &words)
{
    ChangePainter painter(colours_for(std::getenv("NO_COLOR"), std::getenv("TERM")), std::time(nullptr));
    const auto confirmation = can_ask() ? confirmation_time(words) : std::nullopt;
    Awaited awaited;
    const bool only_tells = tells_only(words[0]);
    std::vector<std::string> told;
    std::vector<std::string> refused;
    const auto show = [&](std::string_view line) {
        if (only_tells)
            told.push_back(painter.paint(line));
        else
            print_line(painter.paint(line));
        if (parse_reply_line(line).error)
            refused.emplace_back(line);
        awaited.take(line);
    };
    const std::string line = command_line(words);
    const TimeLimits limits = options.limits(words[0]);
    begin_request();
    Channel channel = connect_to(options.endpoint, limits.connect);
    int result = 0;
    try {
        result = ask(std::move(channel), options.session, {line}, deadline_in(limits.whole), show);
    } catch (const Interrupted &) {
        throw;
    } catch (const WireError &error) {
        if (!confirmation)
            throw;
        std::fflush(stdout);
        std::fprintf(stderr, "qvc: %s: looking whether the change awaits confirmation\n",
                     for_errors(error.what()).c_str());
        return ask_after_loss(options, painter, *confirmation);
    }
    show_lines(look_at_screen(), told);
    if (only_tells && told.empty() && result == 0 && is_at_prompt(options))
        std::puts("(nothing)");
    std::fflush(stdout);
    advise(options, words, refused, false, result);
    const bool asks = confirmation && result == 0 && awaited.left;
    return asks ? ask_to_keep(options, painter, awaited) : exit_status(result);
}

} // namespace

int run_change(const Options &options, const Words &words)
{
    return is_for_a_person(options, words) ? run_painted(options, words) : run_on_daemon(options, words);
}

} // namespace qvcd::client
