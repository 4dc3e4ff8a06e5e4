#include "commands/describe.h"

#include "change/report.h"
#include "commands/targets.h"
#include "funcs/check_map.h"
#include "funcs/introspect_map.h"
#include "funcs/write_map.h"
#include "store/meta.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

namespace qvcd {

namespace {

using Json = nlohmann::ordered_json;

// What a form needs to know of a type, in place of all that a type can be.
struct KindRow {
    std::string_view type;
    std::string_view kind;
};
constexpr KindRow kKinds[] = {
    {"boolean", "boolean"},
    {"integer", "integer"},
    {"integer_set", "choice"},
    {"integer_range", "integer"},
    {"signed_integer", "integer"},
    {"signed_integer_set", "integer"},
    {"signed_integer_range", "integer"},
    {"portnumber", "integer"},
    {"float", "number"},
    {"float_range", "number"},
    {"string_set", "choice"},
    {"profile", "choice"},
    {"profile2", "choice"},
    {"password", "password"},
    {"ipaddress", "address"},
    {"ip6address", "address"},
    {"multicast_ipaddress", "address"},
    {"submask", "address"},
    {"ip_prefix", "prefix"},
    {"address_list", "addresses"},
    {"domainname", "host"},
    {"hostname", "host"},
    {"host_list", "hosts"},
    {"domainname_list", "hosts"},
    {"macaddress", "mac"},
    {"url", "url"},
    {"timezone", "timezone"},
    {"timecode", "time"},
};

std::string_view kind_of_word(std::string_view type)
{
    const auto *row = std::ranges::find(kKinds, type, &KindRow::type);
    return row == std::end(kKinds) ? "string" : row->kind;
}

// An address or a name is what names take.
std::string_view common(std::string_view one, std::string_view other)
{
    const auto is_place = [](std::string_view kind) { return kind == "address" || kind == "host"; };
    if (one == other || other.empty())
        return one;
    return is_place(one) && is_place(other) ? "host" : "string";
}

// Of all alternatives but the empty text.
std::string kind_of(const std::vector<TypeWords> &alternatives)
{
    std::string_view kind;
    for (const TypeWords &words : alternatives) {
        if (words.front() != "blank" && !words.front().empty())
            kind = common(kind_of_word(words.front()), kind);
    }
    return std::string(kind.empty() ? "string" : kind);
}

// What introspect says of the values that the API takes; the API itself is not read.
std::vector<std::pair<std::string, std::string>> facts_of(Request &request, const std::string &name)
{
    char *text = nullptr;
    std::size_t size = 0;
    std::FILE *const stream = ::open_memstream(&text, &size);
    if (!stream)
        return {};
    ifuncmap_introspect(request, "", name, false, stream, "");
    std::fclose(stream);
    const std::unique_ptr<char, decltype(&std::free)> owner(text, &std::free);
    std::vector<std::pair<std::string, std::string>> facts;
    std::istringstream lines(std::string(text, size));
    for (std::string line; std::getline(lines, line);) {
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos && line.starts_with(name + "."))
            facts.emplace_back(line.substr(name.size() + 1, equals - name.size() - 1),
                               line.substr(equals + 1));
    }
    return facts;
}

void add_number(Json &json, const char *key, const std::string &text)
{
    const Json number = Json::parse(text, nullptr, false);
    if (number.is_number())
        json[key] = number;
}

bool is_index(const std::string &key)
{
    return !key.empty() && std::ranges::all_of(key, [](char c) { return c >= '0' && c <= '9'; });
}

void add_values(Request &request, const std::string &name, const std::string &kind, Json &json)
{
    const bool is_text = kind != "integer" && kind != "number";
    for (const auto &[key, value] : facts_of(request, name)) {
        if (key == "min")
            add_number(json, is_text ? "minLength" : "minimum", value);
        else if (key == "max")
            add_number(json, is_text ? "maxLength" : "maximum", value);
        else if (is_index(key) && kind != "boolean")
            json["choices"].push_back(value);
    }
}

void add_texts(const MetaApi &meta, bool secret, Json &json)
{
    if (const auto fallback = meta.own("default"))
        json["default"] = hide(*fallback, secret);
    for (const char *text : {"help", "desc", "metric"}) {
        if (const auto value = meta.own(text); value && !value->empty())
            json[text] = *value;
    }
}

void print_description(Request &request, Api &api, std::FILE *out)
{
    const std::string name = api.name(); // the record may go
    const std::string type(api.type());
    const std::vector<TypeWords> alternatives = parse_type(type);
    const std::string kind = api.is_password() ? "password" : kind_of(alternatives);
    const bool is_status =
        (api.perm() & kWriteBits) == 0 ||
        (api.is_dynamic() && write_row(MetaApi(name).get("write").value_or("")).kind == WriteKind::none);
    Json json = {{"name", name}, {"type", type}, {"kind", kind}};
    if (std::ranges::any_of(alternatives, [](const TypeWords &words) { return words.front() == "blank"; }))
        json["optional"] = true;
    json["readable"] = true;
    json["writable"] = !is_status && api.writable_by(request.mask);
    json["appliable"] = api.applicable_by(request.mask);
    json["applies"] = api.has_action();
    json["status"] = is_status;
    json["dynamic"] = api.is_dynamic();
    json["secret"] = api.is_secret();
    add_texts(MetaApi(name), api.is_secret(), json);
    add_values(request, name, kind, json);
    if (type.starts_with("portnumber"))
        json.update({{"minimum", 0}, {"maximum", 65535}});
    reply_json(out, json);
}

int describe_api(Request &request, Api &api, std::FILE *out)
{
    if (!api.readable_by(request.mask))
        return refuse(api.name(), API_E_INVALID_PERMISSION, out);
    if (api.visible_to(request.mask))
        print_description(request, api, out);
    return 0;
}

int command_describe(Request &request, Args &argv, std::FILE *out)
{
    if (!out)
        return 0;
    const auto group = [&](const std::string &name) {
        visit_apis(name, [&](Api &api) {
            if (api.visible_to(request.mask))
                print_description(request, api, out);
            send_long_reply();
        });
    };
    return for_each_setting(argv, out, group, [&](Api &api) { return describe_api(request, api, out); });
}

} // namespace

const CommandRecord describeRecord = {
    .name = "describe",
    .handler = command_describe,
    .summary = "Describe APIs for programs",
    .synopsis = "describe [<API or group> ...]",
    .return_values = "One line of JSON for each API that the caller may read.",
    .errors = "<name>=##Parameter not found#: there is no such API or group.\n"
              "<name>=##Invalid permission#: the caller may not read the API that was named.\n"
              "The others are described, and the result is 1.",
    .description =
        "Says of each API what a form or a program has to know: name, type (as the metadata has it), kind "
        "(boolean, integer, number, string, choice, password, address, ...), optional (the empty text is "
        "taken), "
        "readable, writable and appliable by the caller, applies (it has an action), status (nobody can set "
        "it), "
        "dynamic, secret, default, help, desc, metric, minimum, maximum, minLength, maxLength and choices. "
        "What does not apply is left out. Values are not read.",
};

} // namespace qvcd
