#include "web/json.h"

#include "web/names.h"

namespace qvcd::web {

namespace {

const Json *member(const Json &object, const char *key)
{
    const auto found = object.find(key);
    return found == object.end() || found->is_null() ? nullptr : &*found;
}

[[noreturn]] void refuse(const char *key, const char *wanted)
{
    throw Problem{422, std::string(key) + " has to be " + wanted, key};
}

} // namespace

std::string text_of(const Json &json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Answer answer_of(const Json &json, int status)
{
    return {.status = status, .body = text_of(json)};
}

Json object_in(const Request &request)
{
    if (request.body.empty())
        return Json::object();
    Json json = Json::parse(request.body, nullptr, false);
    if (!json.is_object())
        throw Problem{400, "the body is no JSON object"};
    return json;
}

std::optional<std::string> text_in(const Json &object, const char *key)
{
    const Json *found = member(object, key);
    if (found && !found->is_string())
        refuse(key, "a text");
    return found ? std::optional(found->get<std::string>()) : std::nullopt;
}

std::optional<bool> truth_in(const Json &object, const char *key)
{
    const Json *found = member(object, key);
    if (found && !found->is_boolean())
        refuse(key, "true or false");
    return found ? std::optional(found->get<bool>()) : std::nullopt;
}

std::optional<long long> number_in(const Json &object, const char *key)
{
    const Json *found = member(object, key);
    if (found && !found->is_number_integer())
        refuse(key, "a whole number");
    return found ? std::optional(found->get<long long>()) : std::nullopt;
}

std::string wanted_text(const Json &object, const char *key)
{
    const auto text = text_in(object, key);
    if (!text || text->empty())
        throw Problem{422, std::string(key) + " is missing", key};
    return *text;
}

std::vector<std::string> names_in(const Json &object, const char *key)
{
    const Json *found = member(object, key);
    std::vector<std::string> names;
    if (found && !found->is_array())
        refuse(key, "an array of names");
    for (const Json &name : found ? *found : Json::array()) {
        if (!name.is_string())
            refuse(key, "an array of names");
        names.push_back(checked_name(name.get<std::string>()));
    }
    return names;
}

} // namespace qvcd::web
