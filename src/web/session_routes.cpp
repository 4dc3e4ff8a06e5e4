// Log-in, log-out, and who one is.

#include "web/handlers.h"
#include "web/json.h"

#include <unistd.h>

namespace qvcd::web {

namespace {

constexpr std::size_t kMostWordBytes = 1023;

std::string host_name()
{
    char name[256] = "";
    ::gethostname(name, sizeof name - 1);
    return name;
}

Json identity_of(const Call &call, const Who &who)
{
    std::string version;
    std::string host = host_name();
    const Reply reply = call.services.daemon.run_all(who, {{"get", "Network.hostname"}, {"version"}});
    for (const std::string &line : reply.lines) {
        const NamedValue fact = named_value(line);
        if (fact.name == "version")
            version = fact.value;
        else if (fact.name == "Network.hostname" && !fact.error && !fact.value.empty())
            host = fact.value;
    }
    return {{"user", who.user},
            {"group", who.group},
            {"rights", {{"administrator", who.is_administrator}}},
            {"host", host},
            {"version", version}};
}

Who check_login(const Call &call)
{
    const Json body = object_in(call.request);
    const std::string user = wanted_text(body, "user");
    const std::string password = wanted_text(body, "password");
    if (user.size() > kMostWordBytes || password.size() > kMostWordBytes)
        throw Problem{401, "wrong user or password"};
    std::optional<std::string> next;
    if (body.contains("new_password")) {
        next = wanted_text(body, "new_password");
        if (next->empty() || next->size() > kMostWordBytes)
            throw Problem{422, "a password has 1 to 1023 bytes"};
    }
    return call.services.daemon.log_in(user, password, call.request.client, next);
}

std::string cookie(const Call &call, const std::string &token, const char *more)
{
    return "qv_session=" + token + "; Path=/; HttpOnly; SameSite=Strict" +
           (call.services.is_encrypted ? "; Secure" : "") + more;
}

} // namespace

Answer log_in(Call &call)
{
    const Who who = check_login(call);
    const std::string token = call.services.sessions.add(who);
    if (call.request.has_cookie) // the browser has a new one now
        call.services.sessions.remove(call.request.token);
    Answer answer = answer_of(identity_of(call, who), 201);
    answer.headers.emplace_back("Set-Cookie", cookie(call, token, ""));
    return answer;
}

Answer make_token(Call &call)
{
    const Who who = check_login(call);
    Json json = identity_of(call, who);
    json["token"] = call.services.sessions.add(who);
    return answer_of(json, 201);
}

Answer show_session(Call &call)
{
    return answer_of(identity_of(call, call.who));
}

Answer log_out(Call &call)
{
    call.services.sessions.remove(call.request.token);
    Answer answer{.status = 204};
    answer.headers.emplace_back("Set-Cookie", cookie(call, "", "; Max-Age=0"));
    return answer;
}

} // namespace qvcd::web
