#include "client/login.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

#include "client/answer.h"
#include "client/errors.h"
#include "client/local_commands.h"
#include "client/person.h"
#include "client/session_choice.h"
#include "qvclient/connect.h"
#include "qvclient/escape.h"

namespace qvcd::client {

namespace {

constexpr std::string_view kAnswer = "Session=";

// `login USER` and `login USER -`: from a terminal without echo, else the first line of standard input.
Words with_password(Words words)
{
    if (words.size() < 2)
        throw UsageError("login needs a user");
    if (words.size() == 2)
        words.emplace_back("-");
    if (words.size() > 2 && words[2] == "-")
        words[2] =
            isatty(STDIN_FILENO) ? ask_password("Password of " + words[1] + ": ") : first_line_of_input();
    return words;
}

// Session 0 may log in wherever one asks from. Another may not, or be over, a kept one above all.
constexpr int kNewcomer = 0;

Options as_newcomer(Options options)
{
    options.session = kNewcomer;
    return options;
}

std::optional<int> session_in(std::string_view line)
{
    return line.starts_with(kAnswer) ? std::optional(session_number(std::string(line.substr(kAnswer.size()))))
                                     : std::nullopt;
}

int send_logout(Options options, int as, int session)
{
    options.session = as;
    return ask(options.endpoint, options.session, {"logout " + std::to_string(session)},
               options.limits("logout"), [](std::string_view) {});
}

} // namespace

LoginResult log_in(const Options &options, Words words)
{
    const Words whole = with_password(std::move(words));
    Answer answer(options, whole);
    std::optional<int> session;
    const int code = ask(options.endpoint, kNewcomer, {command_line(whole)}, options.limits("login"),
                         [&](std::string_view line) {
                             if (const auto number = session_in(line))
                                 session = number;
                             else
                                 answer.take(line);
                         });
    return {session ? exit_status(code) : answer.end(code), session};
}

// Who is no administrator may end no session, not even his own; session 0 may, where it is root.
int log_out(const Options &options, int session)
{
    if (send_logout(options, session, session) == 0 || send_logout(options, 0, session) == 0)
        return 0;
    std::fprintf(stderr, "qvc: the daemon has not ended the session: it lets administrators do that, or the "
                         "session is over\n");
    return 1;
}

int run_login(const Options &options, const Words &words)
{
    Words rest = words;
    const bool keeps = std::erase(rest, "--keep") > 0;
    if (!keeps)
        return run_on_daemon(as_newcomer(options), with_password(std::move(rest)));
    const LoginResult login = log_in(options, rest);
    if (login.session)
        keep_session(options.endpoint, *login.session);
    return login.status;
}

int run_logout(const Options &options, const Words &words)
{
    if (words.size() > 1)
        return run_on_daemon(options, words);
    if (options.session == 0)
        throw UsageError("not logged in");
    const int status = log_out(options, options.session);
    forget_session(options.endpoint, options.session);
    return status;
}

} // namespace qvcd::client
