// All that the API answers. To add something: a row here, a handler in the source of its family, a test.

#include "web/routes.h"

#include "web/handlers.h"

#include "platform/log.h"

#include <exception>

namespace qvcd::web {

namespace {

constexpr Route kRoutes[] = {
    {"POST", "/session", Access::open, log_in, "Log in; the session is in a cookie", Lane::login},
    {"GET", "/session", Access::session, show_session, "Who is logged in"},
    {"DELETE", "/session", Access::session, log_out, "Log out"},
    {"POST", "/token", Access::open, make_token, "Log in a script; the session is in the answer",
     Lane::login},
    {"GET", "/values", Access::session, get_values, "Values of APIs and groups"},
    {"PATCH", "/values", Access::session, change_values, "Change values", Lane::slow},
    {"GET", "/values/{name}", Access::session, get_value, "One value"},
    {"GET", "/describe", Access::session, describe, "What APIs are, and which values they take"},
    {"GET", "/menu", Access::session, menu, "Pages of a user interface"},
    {"GET", "/wizard", Access::session, wizard, "Pages of the first start"},
    {"POST", "/wizard", Access::session, set_wizard, "The wizard has been gone through, or is to be"},
    {"GET", "/state", Access::session, state, "What is not saved, not applied, not confirmed"},
    {"POST", "/plan", Access::session, plan, "What a change would do"},
    {"GET", "/diff", Access::session, diff, "Values that differ"},
    {"POST", "/save", Access::session, save, "Write what is not saved into files", Lane::slow},
    {"POST", "/apply", Access::session, apply, "Run the actions of what is not applied", Lane::slow},
    {"POST", "/revert", Access::session, revert, "Take back what is not saved"},
    {"POST", "/commit", Access::session, commit, "Set, save and apply as one", Lane::slow},
    {"POST", "/confirm", Access::session, confirm, "Keep the commit that waits, or give it time", Lane::slow},
    {"POST", "/abort", Access::session, abort_commit, "Undo the commit that waits", Lane::slow},
    {"GET", "/history", Access::session, history, "Who changed what"},
    {"POST", "/rollback", Access::session, roll_back, "Bring back the values from before an entry",
     Lane::slow},
    {"GET", "/events", Access::session, listen, "What happens, as server-sent events"},
};

// The pattern's last part may be in braces, and stands for one part of any text.
bool matches(std::string_view pattern, std::string_view path, std::string &tail)
{
    const std::size_t brace = pattern.find('{');
    if (brace == std::string_view::npos)
        return pattern == path;
    if (!path.starts_with(pattern.substr(0, brace)) || path.size() == brace ||
        path.find('/', brace) != std::string_view::npos)
        return false;
    tail = path.substr(brace);
    return true;
}

Answer answer_or_throw(Services &services, const Request &request)
{
    const auto [route, tail] = find_route(request.method, request.path);
    Call call{services, request, {}, tail};
    if (route->access == Access::session) {
        std::optional<Who> who = services.sessions.find(request.token);
        if (!who)
            throw Problem{401, "log in first"};
        call.who = std::move(*who);
    }
    try {
        return route->handler(call);
    } catch (const Problem &problem) {
        if (problem.status == 401 && call.who.session != 0)
            services.sessions.forget(call.who.session);
        throw;
    }
}

} // namespace

std::span<const Route> routes()
{
    return kRoutes;
}

Found find_route(std::string_view method, std::string_view path)
{
    if (!path.starts_with(kApi))
        throw Problem{404, "there is no such page"};
    path.remove_prefix(kApi.size());
    bool is_known = false;
    for (const Route &route : kRoutes) {
        std::string tail;
        if (!matches(route.path, path, tail))
            continue;
        if (route.method == method)
            return {&route, tail};
        is_known = true;
    }
    throw is_known ? Problem{405, "not with this method"} : Problem{404, "there is no such resource"};
}

const Route *route_of(std::string_view method, std::string_view path) noexcept
{
    try {
        return find_route(method, path).route;
    } catch (const Problem &) {
        return nullptr;
    }
}

Answer answer(Services &services, const Request &request) noexcept
{
    try {
        return answer_or_throw(services, request);
    } catch (const Problem &problem) {
        return answer_of(problem);
    } catch (const std::exception &error) {
        qv_log_print(kLogError, "%s %s: %s\n", request.method.c_str(), request.path.c_str(), error.what());
        return answer_of(Problem{500, "the gateway cannot answer"});
    }
}

} // namespace qvcd::web
