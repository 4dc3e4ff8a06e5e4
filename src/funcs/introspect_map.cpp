#include "funcs/introspect_map.h"

#include "base/reply.h"
#include "base/text.h"
#include "funcs/describers.h"
#include "funcs/func_map.h"
#include "funcs/read_map.h"
#include "store/database.h"
#include "store/meta.h"

#include <vector>

namespace qvcd {

namespace {

struct TypeKind {
    std::string_view type;
    std::string_view kind;
};

constexpr TypeKind ifuncDefMap[] = {
    {"boolean", "boolean"},
    {"string_set", "set"},
    {"string_length", "range"},
    {"integer_set", "set"},
    {"integer_range", "range"},
    {"signed_integer_set", "set"},
    {"signed_integer_range", "range"},
    {"domainname_list", "set"},
    {"float_range", "range"},
    {"profile", "profile"},
    {"profile2", "profile2"},
    {"quality", "quality"},
};

struct DescriberRow {
    std::string_view name;
    Describer describe;
};

constexpr DescriberRow ifuncCmdMap[] = {
    {"undefined", introspect_undefined}, {"blank", introspect_blank},
    {"boolean", introspect_boolean},     {"set", introspect_set},
    {"range", introspect_range},         {"profile", introspect_profile},
    {"profile2", introspect_profile2},   {"quality", introspect_quality},
};

// Empty for a type that has no describer.
std::string_view kind_of(std::string_view type)
{
    for (const TypeKind &row : ifuncDefMap) {
        if (row.type == type)
            return row.kind;
    }
    return {};
}

// The API's own "introspect", else its own "type"; empty when there is neither.
std::string specification(std::string_view api)
{
    if (const std::optional<std::string> text = meta_get_this_level(api, "introspect"))
        return *text;
    return meta_get_this_level(api, "type").value_or("");
}

std::optional<std::string> stored_value(std::string_view api)
{
    const std::optional<std::string_view> value = hdfDB.get(api);
    return value ? std::optional<std::string>(*value) : std::nullopt;
}

// A password of one byte shows as empty, as clients know it.
std::string masked_password(std::string_view api)
{
    return stored_value(api).value_or("").size() > 1 ? "********" : "";
}

std::optional<std::string> described_value(Request &request, std::string_view api, std::string_view spec)
{
    if (meta_is_true(api, "dynamic"))
        return rfuncmap_read(request, api).value_or("");
    if (spec.find("password") != std::string_view::npos)
        return masked_password(api);
    const std::optional<std::string> value = stored_value(api);
    return value ? value : rfuncmap_read(request, api);
}

void describe_facts(Request &request, const std::string &api, std::string_view spec, std::FILE *out)
{
    reply_value(out, api + ".type", spec);
    if (const std::optional<std::string> preset = meta_get_this_level(api, "default"))
        reply_value(out, api + ".default", *preset);
    if (const std::optional<std::string> value = described_value(request, api, spec))
        reply_value(out, api + ".value", *value);
}

// A type without a describer takes the kind of the alternative before it: clients rely on "integer_range 1
// 5,blank" giving a second, empty range.
void describe_alternatives(Description what, std::string_view spec)
{
    std::string_view kind;
    for (const std::string &alternative : split_words(spec, ",")) {
        const std::vector<std::string> words = split_words(alternative, " ");
        if (words.empty())
            continue;
        if (const std::string_view own_kind = kind_of(words.front()); !own_kind.empty())
            kind = own_kind;
        if (kind.empty())
            continue;
        what.args = std::span(words).subspan(1);
        what.index = row_or_first(ifuncCmdMap, kind).describe(what);
    }
}

} // namespace

int cmd_create_ifuncmap_hdf()
{
    return log_func_map("ifunc", ifuncCmdMap);
}

int ifuncmap_introspect(Request &request, std::string_view prefix, std::string_view api, bool compact,
                        std::FILE *out)
{
    const std::string spec = specification(api);
    if (spec.empty())
        return 1;
    const std::string name(api); // reading a live value may let go of the trees that `api` points into
    describe_facts(request, name, spec, out);
    describe_alternatives({.prefix = prefix, .api = name, .compact = compact, .out = out}, spec);
    return 0;
}

} // namespace qvcd
