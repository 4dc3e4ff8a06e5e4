// What APIs are, and on which page they belong.

#include "web/changes.h"
#include "web/handlers.h"
#include "web/json.h"
#include "web/names.h"
#include "web/types.h"

#include "qvclient/typed_value.h"

namespace qvcd::web {

namespace {

// The default and the choices as what values are.
void give_types(Json &api)
{
    const std::string type = api.value("type", "");
    if (api.contains("default"))
        api["default"] = client::typed_value(type, api["default"].get<std::string>());
    if (!api.contains("choices"))
        return;
    for (Json &choice : api["choices"])
        choice = client::typed_value(type, choice.get<std::string>());
}

} // namespace

Answer describe(Call &call)
{
    const auto commands = in_commands({"describe"}, asked_names(call.request));
    Json apis = Json::array();
    Json errors = Json::array();
    for (const std::string &line : call.services.daemon.run_all(call.who, commands).lines) {
        Json api = Json::parse(line, nullptr, false);
        if (api.is_object()) {
            give_types(api);
            apis.push_back(std::move(api));
        } else if (const NamedValue value = named_value(line); value.error) {
            errors.push_back({{"name", value.name}, {"detail", *value.error}});
        }
    }
    Json json = {{"apis", apis}};
    if (!errors.empty())
        json["errors"] = errors;
    return answer_of(json);
}

Answer menu(Call &call)
{
    const Json pages = json_reply(call.run({"pages"}));
    return answer_of(
        {{"firstrun", pages["firstrun"]}, {"header", pages["header"]}, {"pages", pages["pages"]}});
}

Answer wizard(Call &call)
{
    const Json pages = json_reply(call.run({"pages"}));
    return answer_of({{"firstrun", pages["firstrun"]}, {"pages", pages["wizard"]}});
}

Answer set_wizard(Call &call)
{
    const auto done = truth_in(object_in(call.request), "done");
    if (!done)
        throw Problem{422, "done is missing", "done"};
    const Reply reply = call.run({"menu.firstrun", *done ? "0" : "1"});
    const NamedValue value = named_value(reply.first());
    if (reply.lines.empty() || value.error)
        throw Problem{403, value.error.value_or("Invalid permission")};
    return answer_of({{"firstrun", !*done}});
}

} // namespace qvcd::web
