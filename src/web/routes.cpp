// All that the API answers. To add something: a row here, a handler in the source of its family, a test.

#include "web/routes.h"

#include "web/handlers.h"
#include "web/http.h"

#include "platform/log.h"

#include <exception>

namespace qvcd::web {

namespace {

constexpr Route kRoutes[] = {
    {"POST", "/session", Access::open, log_in, "Log in; the session is in a cookie", "everybody",
     "Credentials", "Session", "", Lane::login, 201},
    {"GET", "/session", Access::session, show_session, "Who is logged in", "everybody", nullptr, "Session"},
    {"DELETE", "/session", Access::session, log_out, "Log out", "everybody", nullptr, nullptr, "",
     Lane::quick, 204},
    {"POST", "/token", Access::open, make_token, "Log in a script; the session is in the answer", "everybody",
     "Credentials", "Session", "", Lane::login, 201},
    {"GET", "/values", Access::session, get_values, "Values of APIs and groups, all without a name",
     "readers of each API", nullptr, "ValueList", "name*"},
    {"PATCH", "/values", Access::session, change_values, "Change values; null stands for the default",
     "writers of each API", "Patch", "Outcome", "", Lane::slow},
    {"GET", "/values/{name}", Access::session, get_value, "One value", "readers of the API", nullptr,
     "NamedValue"},
    {"GET", "/describe", Access::session, describe, "What APIs are, and which values they take",
     "readers of each API", nullptr, "Descriptions", "name*"},
    {"GET", "/schema", Access::session, schema, "The same as JSON Schema", "readers of each API", nullptr,
     "JsonSchema", "name*", Lane::quick, 200, "application/schema+json"},
    {"GET", "/menu", Access::session, menu, "Pages of a user interface", "readers of what is on them",
     nullptr, "Menu"},
    {"GET", "/wizard", Access::session, wizard, "Pages of the first start", "readers of what is on them",
     nullptr, "Menu"},
    {"POST", "/wizard", Access::session, set_wizard, "The wizard has been gone through, or is to be",
     "administrators", "WizardDone", "FirstRun"},
    {"GET", "/state", Access::session, state, "What is not saved, not applied, not confirmed",
     "readers of each API", nullptr, "State", "name*"},
    {"POST", "/plan", Access::session, plan, "What a change would do; one's own changes without values",
     "readers of each API", "Planned", "Outcome"},
    {"GET", "/diff", Access::session, diff, "Values that differ from saved, default or running ones",
     "readers of each API", nullptr, "Differences", "against name*"},
    {"POST", "/save", Access::session, save, "Write what is not saved into files", "writers of each API",
     "Names", "Done", "", Lane::slow},
    {"POST", "/apply", Access::session, apply, "Run the actions of what is not applied",
     "appliers of each API", "Names", "Done", "", Lane::slow},
    {"POST", "/revert", Access::session, revert, "Take back what is not saved", "writers of each API",
     "Names", "Done", "", Lane::slow},
    {"POST", "/commit", Access::session, commit,
     "Set, save and apply as one; one's own changes without values", "writers and appliers of each API",
     "Commit", "Outcome", "", Lane::slow},
    {"POST", "/confirm", Access::session, confirm, "Keep the commit that waits, or give it more time",
     "writers of what it wrote", "Confirmation", "Outcome", "", Lane::slow},
    {"POST", "/abort", Access::session, abort_commit, "Undo the commit that waits",
     "writers of what it wrote", "Confirmation", "Outcome", "", Lane::slow},
    {"GET", "/history", Access::session, history, "Who changed what", "readers of each API", nullptr,
     "History", "limit# name*"},
    {"POST", "/rollback", Access::session, roll_back, "Bring back the values from before an entry",
     "writers and appliers of each API", "RollBack", "Outcome", "", Lane::slow},
    {"GET", "/presets", Access::session, list_presets, "Presets", "administrators", nullptr, "Presets"},
    {"GET", "/presets/{number}", Access::session, show_preset, "What a preset holds", "administrators",
     nullptr, "Preset"},
    {"POST", "/presets/{number}", Access::session, load_preset,
     "Set what a preset holds, and save and apply it", "administrators", "LoadPreset", "ValueList", "",
     Lane::slow},
    {"PATCH", "/presets/{number}", Access::session, name_preset, "Name a preset, and describe it",
     "administrators", "PresetName", "Preset", "", Lane::slow},
    {"PUT", "/presets/{number}", Access::session, store_preset, "Keep the running values in a preset",
     "administrators", nullptr, "Preset", "", Lane::slow},
    {"GET", "/profiles", Access::session, list_profiles, "Profiles", "administrators", nullptr, "Profiles"},
    {"GET", "/profiles/{name}", Access::session, show_profile, "What a profile holds", "administrators",
     nullptr, "Profile"},
    {"POST", "/profiles/{name}", Access::session, load_profile, "Set what a profile holds", "administrators",
     nullptr, "Profile", "", Lane::slow},
    {"PUT", "/profiles/{name}", Access::session, save_profile,
     "Keep running values, or a copy of another one, in a profile", "administrators", "NewProfile", "Profile",
     "", Lane::slow},
    {"DELETE", "/profiles/{name}", Access::session, remove_profile, "Remove a profile", "administrators",
     nullptr, nullptr, "", Lane::slow, 204},
    {"GET", "/users", Access::session, list_users, "Users and groups, without passwords", "administrators",
     nullptr, "Users"},
    {"PUT", "/users/{name}", Access::session, put_user, "Make a user, or change group or password",
     "administrators", "User", "UserName", "", Lane::login},
    {"DELETE", "/users/{name}", Access::session, remove_user, "Remove a user", "administrators", nullptr,
     nullptr, "", Lane::quick, 204},
    {"GET", "/export", Access::session, export_document, "A document of settings, presets or a profile",
     "readers of each API", nullptr, nullptr, "what profile mode# name*", Lane::quick, 200, "text/plain"},
    {"POST", "/import", Access::session, import_document, "Set what a document holds", "writers of each API",
     nullptr, "Done", "what profile mode#", Lane::slow, 200, "application/json", true},
    {"GET", "/events", Access::session, listen,
     "What happens, as server-sent events; Last-Event-ID goes on behind one", "readers of each API", nullptr,
     nullptr, "", Lane::quick, 200, "text/event-stream"},
    {"GET", "/openapi.json", Access::open, openapi, "This document", "everybody", nullptr, "OpenApi", "",
     Lane::quick, 200, "application/json", false, ""},
    {"GET", "/metrics", Access::metrics, metrics, "Counts and status values, for Prometheus",
     "readers of each API; also with user and password (HTTP Basic)", nullptr, nullptr, "", Lane::quick, 200,
     "text/plain", false, ""},
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

// A program that scrapes has no use for a session, but asks often: it gets one that goes by its credentials.
Who log_in_scraper(Services &services, const Request &request)
{
    const std::optional<Credentials> given = basic_credentials(request.authorization);
    if (!given)
        throw Problem{401, "log in first"};
    const std::string token = "basic " + request.authorization;
    if (std::optional<Who> who = services.sessions.find(token))
        return *who;
    const Who who = services.daemon.log_in(given->user, given->password, request.client);
    services.sessions.add_as(token, who);
    return who;
}

Who who_asks(Services &services, const Request &request, const Route &route)
{
    if (const std::optional<Who> who = services.sessions.find(request.token))
        return *who;
    if (route.access == Access::metrics)
        return log_in_scraper(services, request);
    throw Problem{401, "log in first"};
}

Answer answer_or_throw(Services &services, const Request &request)
{
    const auto [route, tail] = find_route(request.method, request.path);
    Call call{services, request, {}, tail};
    if (route->access != Access::open)
        call.who = who_asks(services, request, *route);
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
    if (method == "HEAD") // the answer without its body
        method = "GET";
    std::string allowed;
    for (const Route &route : kRoutes) {
        std::string tail;
        if (!path.starts_with(route.base) ||
            !matches(route.path, path.substr(std::string_view(route.base).size()), tail))
            continue;
        if (route.method == method)
            return {&route, tail};
        allowed.append(allowed.empty() ? "" : ", ").append(route.method);
        if (route.method == std::string_view("GET"))
            allowed += ", HEAD";
    }
    if (allowed.empty())
        throw Problem{404, "there is no such resource"};
    throw Problem{.status = 405, .detail = "not with this method", .allowed = allowed};
}

bool is_api_path(std::string_view path)
{
    return path.starts_with(std::string(kApi) + "/") || path == "/metrics" || path == "/openapi.json";
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
