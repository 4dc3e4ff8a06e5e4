// The descriptions of APIs as JSON Schema, for who checks values before they are sent.

#include "web/changes.h"
#include "web/handlers.h"
#include "web/names.h"

#include "qvclient/typed_value.h"

namespace qvcd::web {

namespace {

// JSON Schema's word for a kind; what is no number and no truth is a text.
const char *type_of(const std::string &kind)
{
    return kind == "boolean"   ? "boolean"
           : kind == "integer" ? "integer"
           : kind == "number"  ? "number"
                               : "string";
}

Json schema_of(const Json &api)
{
    const std::string type = api.value("type", "");
    const std::string kind = api.value("kind", "");
    Json schema = {{"type", type_of(kind)}};
    for (const char *key : {"minimum", "maximum", "minLength", "maxLength"}) {
        if (api.contains(key))
            schema[key] = api[key];
    }
    if (api.contains("choices") && kind == "choice") {
        schema.erase("type");
        for (const Json &choice : api["choices"])
            schema["enum"].push_back(client::typed_value(type, choice.get<std::string>()));
    }
    if (api.value("optional", false)) // beside what it takes otherwise, the empty text
        schema = {{"anyOf", {schema, {{"const", ""}}}}};
    if (api.contains("help"))
        schema["title"] = api["help"];
    if (api.contains("desc"))
        schema["description"] = api["desc"];
    if (api.contains("default"))
        schema["default"] = client::typed_value(type, api["default"].get<std::string>());
    if (!api.value("writable", false))
        schema["readOnly"] = true;
    return schema;
}

} // namespace

Answer schema(Call &call)
{
    const auto commands = in_commands({"describe"}, asked_names(call.request));
    Json properties = Json::object();
    for (const std::string &line : call.services.daemon.run_all(call.who, commands).lines) {
        const Json api = Json::parse(line, nullptr, false);
        if (api.is_object())
            properties[api.value("name", "")] = schema_of(api);
    }
    Answer answer = answer_of(Json{{"$schema", "https://json-schema.org/draft/2020-12/schema"},
                                   {"title", "Settings and status values"},
                                   {"type", "object"},
                                   {"properties", properties},
                                   {"additionalProperties", false}});
    answer.type = "application/schema+json";
    return answer;
}

} // namespace qvcd::web
