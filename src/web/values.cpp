// Values: asked for and changed.

#include "web/changes.h"
#include "web/handlers.h"
#include "web/json.h"
#include "web/names.h"
#include "web/types.h"

#include "qvclient/reply.h"

#include <algorithm>

namespace qvcd::web {

namespace {

constexpr std::size_t kMostToSet = 5000;

// What is named and refused stands beside what is not.
struct Values {
    std::vector<NamedValue> good;
    std::vector<FieldError> errors;
};

Values values_in(const Reply &reply, std::string_view command)
{
    Values values;
    for (const std::string &line : reply.lines) {
        NamedValue value = named_value(line);
        if (value.error && client::says_error(command, reply.result, line))
            values.errors.push_back({value.name, *value.error});
        else if (!value.name.empty())
            values.good.push_back(std::move(value));
    }
    return values;
}

Values fetch(const Call &call, const std::string &command, const std::vector<std::string> &names)
{
    return values_in(call.services.daemon.run_all(call.who, in_commands({command}, names)), command);
}

Json json_of(const std::vector<FieldError> &errors)
{
    Json list = Json::array();
    for (const FieldError &error : errors)
        list.push_back({{"name", error.name}, {"detail", error.detail}});
    return list;
}

// The values that are to be; null stands for the default.
struct Wanted {
    std::vector<std::string> names;
    std::vector<std::string> assignments; // NAME=VALUE
    std::vector<std::string> to_default;
};

Wanted wanted_values(const Json &body)
{
    Wanted wanted;
    const auto values = body.find("values");
    if (values == body.end() || !values->is_object() || values->empty())
        throw Problem{422, "values has to be an object of names and values", "values"};
    if (values->size() > kMostToSet)
        throw Problem{422, "more than " + std::to_string(kMostToSet) + " values", "values"};
    for (const auto &[name, value] : values->items()) {
        wanted.names.push_back(checked_name(name));
        if (value.is_null())
            wanted.to_default.push_back(name);
        else
            wanted.assignments.push_back(name + "=" + text_of_value(name, value));
    }
    return wanted;
}

[[noreturn]] void refuse(const std::vector<FieldError> &errors, const Json &changes)
{
    throw Problem{.status = status_of(errors),
                  .detail = errors.front().detail,
                  .name = errors.front().name,
                  .errors = errors,
                  .more = text_of({{"changes", changes}})};
}

// What was, and what is now: as `get` tells it, so that no secret comes back.
Json changes_of(const Call &call, const std::vector<NamedValue> &before,
                const std::vector<NamedValue> &changed)
{
    std::vector<std::string> names;
    for (const NamedValue &value : changed)
        names.push_back(value.name);
    const std::vector<NamedValue> after =
        names.empty() ? std::vector<NamedValue>() : fetch(call, "get", names).good;
    const Json from = call.services.types.typed(call.who, before);
    const Json to = call.services.types.typed(call.who, after);
    Json changes = Json::array();
    for (const std::string &name : names)
        changes.push_back(
            {{"name", name}, {"from", from.value(name, Json())}, {"to", to.value(name, Json())}});
    return changes;
}

Answer set_values(const Call &call, const Wanted &wanted)
{
    const Values before = fetch(call, "get", wanted.names);
    Values changed;
    const auto change = [&](const std::string &command, const std::vector<std::string> &arguments) {
        if (arguments.empty())
            return;
        Values answered = fetch(call, command, arguments);
        std::ranges::move(answered.good, std::back_inserter(changed.good));
        std::ranges::move(answered.errors, std::back_inserter(changed.errors));
    };
    change("set", wanted.assignments);
    change("default", wanted.to_default);
    const Json changes = changes_of(call, before.good, changed.good);
    if (!changed.errors.empty())
        refuse(changed.errors, changes);
    return answer_of({{"changes", changes}});
}

} // namespace

Answer get_values(Call &call)
{
    const Values values = fetch(call, "get", asked_names(call.request));
    Json json = {{"values", call.services.types.typed(call.who, values.good)}};
    if (!values.errors.empty())
        json["errors"] = json_of(values.errors);
    return answer_of(json);
}

Answer get_value(Call &call)
{
    const std::string &name = checked_name(call.tail);
    const Values values = values_in(call.run({"get", name}), "get");
    if (!values.errors.empty())
        throw Problem{404, values.errors.front().detail, name};
    if (values.good.empty())
        throw Problem{403, "Invalid permission", name};
    if (values.good.front().name != name)
        throw Problem{404, "This is a group, not a parameter", name};
    return answer_of({{"name", name}, {"value", call.services.types.typed(call.who, values.good)[name]}});
}

Answer change_values(Call &call)
{
    const Json body = object_in(call.request);
    Wanted wanted = wanted_values(body);
    const std::string mode = text_in(body, "mode").value_or("set");
    if (mode == "set")
        return set_values(call, wanted);
    if (mode != "commit")
        throw Problem{422, "mode has to be set or commit", "mode"};
    return commit_values(call, body, assignments_in(call, body));
}

std::vector<std::string> assignments_in(const Call &call, const Json &body)
{
    if (!body.contains("values") || body["values"].is_null())
        return {};
    Wanted wanted = wanted_values(body);
    if (!wanted.to_default.empty()) {
        const Values defaults = fetch(call, "getd", wanted.to_default);
        if (!defaults.errors.empty())
            refuse(defaults.errors, Json::array());
        for (const NamedValue &value : defaults.good)
            wanted.assignments.push_back(value.name + "=" + value.value);
    }
    if (wanted.assignments.size() > kMostNames)
        throw Problem{422, "a commit takes " + std::to_string(kMostNames) + " values at once", "values"};
    return wanted.assignments;
}

} // namespace qvcd::web
