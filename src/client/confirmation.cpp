#include "client/confirmation.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <termios.h>
#include <unistd.h>

#include "client/errors.h"
#include "client/reply.h"
#include "client/signal_input.h"
#include "client/terminal_text.h"
#include "qvclient/connect.h"
#include "qvclient/escape.h"

namespace qvcd::client {

namespace {

using std::chrono::ceil;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Came = SignalInput::Came;

constexpr std::initializer_list<int> kEnders = {SIGINT, SIGTERM, SIGHUP};
constexpr TimeLimits kAttempt{seconds{2}, seconds{6}};
constexpr int kPauseMilliseconds = 1000;

std::optional<std::int64_t> parse_number(std::string_view text)
{
    std::int64_t number = 0;
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    const bool good = result.ec == std::errc() && result.ptr == end && number > 0;
    return good ? std::optional(number) : std::nullopt;
}

std::optional<seconds> parse_seconds(std::string_view text)
{
    const auto number = parse_number(text);
    return number ? std::optional(seconds(*number)) : std::nullopt;
}

// Key presses, one by one and unseen. What was typed before is no answer.
class KeyMode {
  public:
    KeyMode()
    {
        known_ = tcgetattr(STDIN_FILENO, &before_) == 0;
        termios mode = before_;
        mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        mode.c_cc[VMIN] = 1;
        mode.c_cc[VTIME] = 0;
        if (known_)
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &mode);
    }
    ~KeyMode()
    {
        if (known_)
            tcsetattr(STDIN_FILENO, TCSANOW, &before_);
    }
    KeyMode(const KeyMode &) = delete;
    KeyMode &operator=(const KeyMode &) = delete;

  private:
    termios before_{};
    bool known_ = false;
};

enum class Answer { keep, undo, leave, none };

std::optional<Answer> answer_of_key()
{
    constexpr char kEndOfInput = 4;
    char key = 0;
    if (read(STDIN_FILENO, &key, 1) != 1)
        return Answer::leave;
    switch (key) {
    case 'y':
    case 'Y':
        return Answer::keep;
    case 'n':
    case 'N':
    case '\n':
    case '\r':
        return Answer::undo;
    case kEndOfInput:
        return Answer::leave;
    default:
        return std::nullopt;
    }
}

Answer answer_until(Deadline deadline)
{
    SignalInput signals(kEnders);
    const KeyMode keys;
    std::optional<Answer> answer;
    while (!answer) {
        const int left = milliseconds_left(deadline);
        if (left == 0)
            return Answer::none;
        std::printf("\rKeep this change? [y/N] %lld s ",
                    static_cast<long long>(ceil<seconds>(milliseconds(left)).count()));
        std::fflush(stdout);
        const Came came = signals.wait(STDIN_FILENO, (left - 1) % kPauseMilliseconds + 1);
        if (came == Came::signal)
            return Answer::leave;
        if (came == Came::input)
            answer = answer_of_key();
    }
    return *answer;
}

enum class Outcome { settled, interrupted, over };

// Repeats what needs a connection every second until it gives true. Says why a connection fails.
Outcome try_until(Deadline deadline, const std::function<bool()> &attempt)
{
    SignalInput signals(kEnders);
    std::string said;
    do {
        try {
            if (attempt())
                return Outcome::settled;
        } catch (const WireError &error) {
            std::fflush(stdout);
            if (said != error.what())
                std::fprintf(stderr, "qvc: %s: trying again\n", for_errors(error.what()).c_str());
            said = error.what();
        }
        if (signals.wait(-1, kPauseMilliseconds) == Came::signal)
            return Outcome::interrupted;
    } while (milliseconds_left(deadline) > 0);
    return Outcome::over;
}

// "confirm" or "abort", of this change only: meanwhile another one may await confirmation.
int settle(const Options &options, const char *command, const Awaited &awaited, TimeLimits limits,
           ChangePainter &painter)
{
    Words words = {command};
    if (!awaited.entry.empty())
        words.push_back(awaited.entry);
    return exit_status(ask(options.endpoint, options.session, {wire_line(words)}, limits,
                           [&](std::string_view reply) { print_line(painter.paint(reply)); }));
}

int leave_to_daemon()
{
    std::fprintf(stderr,
                 "qvc: left to the daemon, which undoes the change unless \"qvc confirm\" comes in time\n");
    return 1;
}

int confirm(const Options &options, ChangePainter &painter, const Awaited &awaited, Deadline deadline)
{
    int result = 0;
    int attempts = 0;
    const Outcome outcome = try_until(deadline, [&] {
        ++attempts;
        result = settle(options, "confirm", awaited, kAttempt, painter);
        return true;
    });
    if (outcome == Outcome::interrupted)
        return leave_to_daemon();
    if (outcome == Outcome::over) {
        std::fprintf(stderr, "qvc: not confirmed in time: the daemon undoes the change\n");
        return kExitNoDaemon;
    }
    if (result != 0 && attempts > 1) // the answer to an earlier one may be what was lost
        std::fprintf(stderr, "qvc: \"qvc history -n 1\" tells how the change ended\n");
    return result;
}

int undo(const Options &options, ChangePainter &painter, const Awaited &awaited)
{
    try {
        settle(options, "abort", awaited, options.limits("abort"), painter);
    } catch (const WireError &error) {
        std::fflush(stdout);
        std::fprintf(stderr, "qvc: %s: the daemon undoes the change when the time is over\n",
                     for_errors(error.what()).c_str());
    }
    return 1;
}

} // namespace

std::optional<seconds> confirmation_time(const Words &words)
{
    if (words.at(0) != "commit" && words[0] != "rollback")
        return std::nullopt;
    for (std::size_t i = 1; i + 1 < words.size(); ++i) {
        if (words[i] == "-m")
            ++i;
        else if (words[i] == "-c")
            return parse_seconds(words[i + 1]);
    }
    return std::nullopt;
}

void Awaited::take(std::string_view line)
{
    const std::size_t equals = std::min(line.find('='), line.size());
    const std::string_view name = line.substr(0, equals);
    const std::string_view value = line.substr(std::min(equals + 1, line.size()));
    if (!parse_number(value))
        return;
    if (name == "Commit.seconds")
        left = parse_seconds(value);
    else if (name == "Commit" || name == "Rollback")
        entry = value;
}

int ask_to_keep(const Options &options, ChangePainter &painter, const Awaited &awaited)
{
    const Deadline deadline = deadline_in(awaited.left.value_or(seconds(0)));
    const Answer answer = answer_until(deadline);
    std::printf("\n");
    switch (answer) {
    case Answer::keep:
        return confirm(options, painter, awaited, deadline);
    case Answer::undo:
        return undo(options, painter, awaited);
    case Answer::leave:
        return leave_to_daemon();
    case Answer::none:
        break;
    }
    std::printf("The time is over: the daemon undoes the change.\n");
    return 1;
}

int ask_after_loss(const Options &options, ChangePainter &painter, seconds time)
{
    Awaited awaited;
    const Outcome outcome = try_until(deadline_in(time), [&] {
        std::vector<std::string> lines;
        awaited = {};
        ask(options.endpoint, options.session, {"commit -s"}, kAttempt, [&](std::string_view line) {
            lines.emplace_back(line);
            awaited.take(line);
        });
        for (const std::string &line : awaited.left ? lines : std::vector<std::string>{})
            print_line(painter.paint(line));
        return awaited.left.has_value();
    });
    if (outcome == Outcome::settled)
        return ask_to_keep(options, painter, awaited);
    if (outcome == Outcome::interrupted)
        return leave_to_daemon();
    std::fprintf(stderr, "qvc: no change awaits confirmation: \"qvc history -n 1\" tells how it ended\n");
    return kExitNoDaemon;
}

} // namespace qvcd::client
