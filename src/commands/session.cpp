#include "commands/session.h"

#include "auth/login_refusal.h"
#include "auth/session.h"
#include "base/limits.h"
#include "base/notify.h"
#include "base/options.h"
#include "base/reply.h"
#include "base/text.h"
#include "commands/user_events.h"
#include "platform/api_errors.h"
#include "platform/log.h"
#include "store/meta.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

namespace {

int command_login(Request &request, Args &argv, std::FILE *out);
int command_logout(Request &request, Args &argv, std::FILE *out);
int command_sessions(Request &request, Args &argv, std::FILE *out);

} // namespace

const CommandRecord loginRecord = {
    .name = "login",
    .handler = command_login,
    .summary = "Perform a login using username and password",
    .synopsis = "login <username> <password> [ip] [server]\n"
                "login <prefix>:<username> <password> [ip] [server]\n"
                "login <username> <built-in password> <ip> <server> <new password>",
    .return_values = "Session=<number>: the number that the client's connections give on their first line.\n"
                     "##Invalid command arguments#: user name or password is missing.\n"
                     "##Invalid user#: the user is unknown or may do nothing.\n"
                     "##Invalid password#: the password is wrong.\n"
                     "##Try again in <seconds> s#: too many wrong passwords came for this user from the same "
                     "place; this one was not looked at.\n"
                     "##Change the password of admin locally first#: the built-in password does not log in "
                     "from where the client is not trusted. The web interface (the local user qvweb) gives a "
                     "new one with it, which is set first.\n"
                     "##Only a built-in password is changed so#, ##Choose another password than the built-in "
                     "one#, and the errors of user.passwd: no session, and nothing has changed.",
    .secret_from = 1,
    .open_to_strangers = true,
    .recorded = ChangeNotes::Level::lasting,
};

const CommandRecord logoutRecord = {
    .name = "logout",
    .handler = command_logout,
    .summary = "Perform a logout",
    .synopsis = "logout <session number>",
    .errors =
        "##Invalid command arguments#: No session number\n"
        "##Session <number> not valid#: there is no such session, it may do more than the caller, or it is "
        "the local session 0.",
    .description = "Ends a session. Its number opens no further connection; those that are open go on.",
    .secret_from = 0,
};

const CommandRecord sessionsRecord = {
    .name = "sessions",
    .handler = command_sessions,
    .summary = "Returns the current sessions",
    .synopsis = "sessions",
    .errors = "Callers without administration rights get no reply, and result 1.",
    .description =
        "Prints the sessions with their user, permission mask, group, login time, address and server, but "
        "for those that may do more than the caller.",
};

const CommandRecord getSessionRecord = {
    .name = "get_session",
    .handler = command_get_session,
    .summary = "Return info about a particular session",
    .synopsis = "get_session <session number>",
    .errors = "##Need to specify a session number#\n"
              "##Session <number> does not exist#: or it may do more than the caller.",
    .description =
        "Prints the session's number, user, permission mask, group, login time, address and server. When "
        "the daemon does not check sessions, it prints session=1 for every number.",
    .secret_from = 0,
};

namespace {

std::optional<std::string_view> argument(const Args &argv, std::size_t i)
{
    return i < argv.size() ? std::optional<std::string_view>(argv[i]) : std::nullopt;
}

// A client that escapes nothing sends a "+" or "%" of its password as it stands.
std::vector<std::string> either_way(const std::string &word)
{
    const std::optional<std::string> password = url_unescape(word);
    if (!password)
        return {};
    return *password == word ? std::vector{word} : std::vector{*password, word};
}

// Session numbers are credentials, and no part of it.
std::string for_log(std::string_view word)
{
    return cut(word, kMaxLoggedWordBytes);
}

int refuse(const char *error, std::FILE *out)
{
    reply_line(out, error);
    return 1;
}

int command_login(Request &request, Args &argv, std::FILE *out)
{
    if (argv.size() < 2)
        return refuse(API_E_INVALID_CMD_ARGS, out);
    if (!is_for_caller(request))
        return 1;
    const std::optional<std::string> unescaped = url_unescape(argv[0]);
    const std::string name = unescaped.value_or(argv[0]);
    const std::string by = request.caller.trusted ? "" : " by " + request.caller.source;
    const bool changes = argv.size() > 4;
    std::optional<UserEvents> events;
    if (changes)
        events.emplace();
    const LoginResult login = session_login(
        {.name = unescaped ? name : "",
         .passwords = either_way(argv[1]),
         .ip = argument(argv, 2),
         .server = argument(argv, 3),
         .new_password = changes ? url_unescape(argv[4]).value_or("") : std::optional<std::string>()},
        request.caller);
    if (const std::optional<std::string> refusal = login_refusal(login, name, request.caller))
        return refuse(refusal->c_str(), out);
    const int n = login.session;
    const std::string place = for_log(argument(argv, 2).value_or("local"));
    if (events) {
        note_event(request);
        events->publish();
        qv_log_print(kLogNotice, "User %s chose a password on %s%s\n", for_log(name).c_str(), place.c_str(),
                     by.c_str());
    }
    const std::string user = session_get_user(n).value_or("");
    reply_printf(out, "Session=%i\n", n);
    qv_log_print(kLogNotice, "User %s login on %s%s\n", for_log(user).c_str(), place.c_str(), by.c_str());
    notify_publish({"login", user, std::to_string(n), Secret::outside, std::nullopt, {kLevel1Bits}});
    return 0;
}

int command_logout(Request &request, Args &argv, std::FILE *out)
{
    if (argv.empty()) {
        reply_printf(out, "%s: No session number\n", API_E_INVALID_CMD_ARGS);
        return 1;
    }
    const int n = c_int(argv[0]);
    const bool is_own = std::to_string(n) == request.caller.session;
    if (!is_own && !(request.mask & kLevel1Bits))
        return 1;
    const std::string user = session_get_user(n).value_or("");
    if (n == 0 || !session_seen_by(request.mask, n) || session_logout(n) != 0) {
        reply_printf(out, "##Session %d not valid#\n", n);
        return 1;
    }
    reply_printf(out, "Session=%i\n", n);
    qv_log_print(kLogNotice, "User %s logout\n", for_log(user).c_str());
    notify_publish({"logout", "session", std::to_string(n), Secret::outside, std::nullopt, {kLevel1Bits}});
    return 0;
}

int command_sessions(Request &request, Args &, std::FILE *out)
{
    return request.mask & kLevel1Bits ? session_list(request.mask, out) : 1;
}

} // namespace

int command_get_session(Request &request, Args &argv, std::FILE *out)
{
    if (disable_login) {
        reply_line(out, "session=1");
        return 0;
    }
    if (argv.empty())
        return refuse("##Need to specify a session number#", out);
    const int n = c_int(argv[0]);
    const Node session = session_seen_by(request.mask, n);
    if (!session) {
        reply_printf(out, "##Session %i does not exist#\n", n);
        return 1;
    }
    reply_printf(out, "session=%i\n", n);
    if (out)
        hdfutils_dump(session, "", out);
    return 0;
}

} // namespace qvcd
