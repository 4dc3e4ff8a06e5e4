// The OpenAPI document, made of the table of routes.

#include "web/handlers.h"
#include "web/json.h"
#include "web/schemas.h"

#include <sstream>

namespace qvcd::web {

namespace {

Json reference(const std::string &schema)
{
    return {{"$ref", "#/components/schemas/" + schema}};
}

Json content(const char *type, const char *schema)
{
    return {{type, {{"schema", schema ? reference(schema) : Json{{"type", "string"}}}}}};
}

// The query's words: "name*" may come several times, "limit#" is a number.
Json parameter(std::string word)
{
    Json schema = {{"type", "string"}};
    if (word.ends_with('*'))
        schema = {{"type", "array"}, {"items", {{"type", "string"}}}};
    if (word.ends_with('#'))
        schema = {{"type", "integer"}};
    if (word.ends_with('*') || word.ends_with('#'))
        word.pop_back();
    return {{"name", word}, {"in", "query"}, {"schema", schema}};
}

Json parameters_of(const Route &route)
{
    Json parameters = Json::array();
    const std::string path = route.path;
    if (const std::size_t brace = path.find('{'); brace != std::string::npos)
        parameters.push_back({{"name", path.substr(brace + 1, path.find('}') - brace - 1)},
                              {"in", "path"},
                              {"required", true},
                              {"schema", {{"type", "string"}}}});
    std::istringstream words(route.query);
    for (std::string word; words >> word;)
        parameters.push_back(parameter(word));
    return parameters;
}

Json responses_of(const Route &route)
{
    Json good = {{"description", route.summary}};
    if (route.status != 204)
        good["content"] = content(route.gives_type, route.gives);
    Json responses = {{std::to_string(route.status), good}};
    responses["default"] = {{"description", "What is wrong"},
                            {"content", content("application/problem+json", "Problem")}};
    return responses;
}

// "GET /values/{name}" as "get_values_name".
std::string id_of(const Route &route)
{
    std::string id;
    for (const char c : std::string(route.method) + route.path) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'))
            id += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        else if (c == '/' || c == '.')
            id += '_';
    }
    return id;
}

Json operation_of(const Route &route)
{
    Json operation = {{"operationId", id_of(route)}, {"summary", route.summary}};
    if (*route.rights)
        operation["description"] = "Rights: " + std::string(route.rights) + ".";
    operation["parameters"] = parameters_of(route);
    if (route.takes_document)
        operation["requestBody"] = {{"required", true}, {"content", content("text/plain", nullptr)}};
    else if (route.takes)
        operation["requestBody"] = {{"required", true},
                                    {"content", content("application/json", route.takes)}};
    operation["responses"] = responses_of(route);
    if (route.access == Access::open)
        operation["security"] = Json::array();
    return operation;
}

std::string lower(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    return text;
}

std::string make_document()
{
    Json paths = Json::object();
    for (const Route &route : routes())
        paths[std::string(route.base) + route.path][lower(route.method)] = operation_of(route);
    return text_of(
        {{"openapi", "3.1.0"},
         {"info",
          {{"title", "qvweb"},
           {"version", QVCD_RELEASE},
           {"description",
            "Settings and status of the appliance. All answers have the rights of who logged in."}}},
         {"paths", paths},
         {"components",
          {{"schemas", Json::parse(kSchemas)},
           {"securitySchemes",
            {{"cookie", {{"type", "apiKey"}, {"in", "cookie"}, {"name", "qv_session"}}},
             {"bearer", {{"type", "http"}, {"scheme", "bearer"}}}}}}},
         {"security", {{{"cookie", Json::array()}}, {{"bearer", Json::array()}}}}});
}

} // namespace

Answer openapi(Call &)
{
    static const std::string document = make_document();
    return {.body = document};
}

} // namespace qvcd::web
