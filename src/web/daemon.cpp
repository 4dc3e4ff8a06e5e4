#include "web/daemon.h"

#include "qvclient/connect.h"
#include "qvclient/escape.h"
#include "web/message.h"

#include <charconv>
#include <cstdlib>

namespace qvcd::web {

namespace {

constexpr std::chrono::seconds kConnect{5};
constexpr unsigned kAdministrator = 0x0f00; // bits of a session's rights

client::Caller caller_of(const Who &who)
{
    client::Caller caller(who.session);
    caller.name = "qvweb/" + (who.address.empty() ? "local" : who.address);
    return caller;
}

[[noreturn]] void refuse_login(const std::string &reason, bool is_with_new)
{
    constexpr std::string_view kWait = "Try again in ";
    if (reason.starts_with(kWait)) {
        const int seconds = std::atoi(reason.c_str() + kWait.size());
        throw Problem{.status = 429, .detail = reason, .retry_after = std::max(seconds, 1)};
    }
    if (reason.starts_with("Change the password"))
        throw Problem{403, reason};
    if (reason != "Invalid user" && reason != "Invalid password" && is_with_new && !reason.empty())
        throw Problem{422, reason};
    throw Problem{401, "wrong user or password"}; // which of them is nobody's business
}

// "session=N", "user=root", "perm=7777" ...
Who facts_of(const Reply &reply, Who who)
{
    for (const std::string &line : reply.lines) {
        const NamedValue fact = named_value(line);
        if (fact.name == "user")
            who.user = fact.value;
        else if (fact.name == "group")
            who.group = fact.value;
        else if (fact.name == "perm")
            who.is_administrator = (std::strtoul(fact.value.c_str(), nullptr, 16) & kAdministrator) != 0;
    }
    return who;
}

} // namespace

NamedValue named_value(const std::string &line)
{
    const client::ReplyLine parts = client::parse_reply_line(line);
    return {std::string(parts.name), std::string(parts.value),
            parts.error ? std::optional<std::string>(*parts.error) : std::nullopt};
}

Daemon::Daemon(const std::string &folder)
{
    endpoint_.folder = folder;
}

Reply Daemon::exchange(const Who &who, const std::string &command, const std::string &lines,
                       std::optional<std::string> document) const
{
    Reply reply;
    client::TimeLimits limits = client::usual_limits(command);
    limits.connect = kConnect;
    try {
        reply.result = client::exchange(endpoint_, caller_of(who), {lines, std::move(document)}, limits,
                                        [&](std::string_view line) { reply.lines.emplace_back(line); });
    } catch (const client::WireError &error) {
        if (error.kind == client::WireError::Kind::timeout)
            throw Problem{504,
                          "the configuration daemon does not answer in time; it may still do what was asked"};
        throw Problem{.status = 503, .detail = "the configuration daemon is away", .retry_after = 1};
    }
    return reply;
}

Reply Daemon::run_all(const Who &who, const std::vector<Words> &commands) const
{
    std::string lines;
    try {
        for (const Words &words : commands)
            lines += client::wire_line(words) + "\n";
    } catch (const client::UsageError &error) {
        throw Problem{422, error.what()};
    }
    Reply reply = exchange(who, commands.front().front(), lines, std::nullopt);
    if (reply.lines.empty() && reply.result != 0 && !knows(who))
        throw Problem{401, "the session has ended"};
    return reply;
}

Reply Daemon::run(const Who &who, const Words &words) const
{
    return run_all(who, {words});
}

Reply Daemon::run_with_document(const Who &who, const Words &words, std::string document) const
{
    if (!knows(who)) // what it would answer to a stranger is a matter of documents
        throw Problem{401, "the session has ended"};
    return exchange(who, words.front(), client::wire_line(words) + "\n", std::move(document));
}

Who Daemon::log_in(const std::string &user, const std::string &password, const std::string &address,
                   const std::optional<std::string> &new_password) const
{
    if (user.find(':') != std::string::npos) // a prefix, which is for programs
        refuse_login("", false);
    Who nobody;
    nobody.address = address;
    std::string line;
    try {
        Words words{"login", user, password, address.empty() ? "local" : address, "qvweb"};
        if (new_password)
            words.push_back(*new_password);
        line = client::wire_line(words) + "\n";
    } catch (const client::UsageError &) { // an empty one
        refuse_login("", false);
    }
    const NamedValue answer = named_value(exchange(nobody, "login", line, std::nullopt).first());
    if (answer.name != "Session")
        refuse_login(answer.error.value_or(""), new_password.has_value());
    Who who = nobody;
    const char *end = answer.value.data() + answer.value.size();
    if (std::from_chars(answer.value.data(), end, who.session).ec != std::errc() || who.session <= 0)
        throw Problem{502, "the configuration daemon gave no session"};
    return facts_of(run(who, {"get_session", answer.value}), who);
}

void Daemon::log_out(const Who &who) const noexcept
{
    try {
        exchange(who, "logout", "logout " + std::to_string(who.session) + "\n", std::nullopt);
    } catch (...) { // it is away: so is the session, or it ends when it was idle for long
        return;
    }
}

bool Daemon::knows(const Who &who) const
{
    return who.session > 0 &&
           !exchange(who, "get_session", "get_session " + std::to_string(who.session) + "\n", std::nullopt)
                .lines.empty();
}

std::unique_ptr<client::EventStream> Daemon::events(const Who &who) const
{
    return std::make_unique<client::EventStream>(endpoint_, caller_of(who), Words{}, kConnect);
}

} // namespace qvcd::web
