#include "funcs/introspect_map.h"

#include "base/reply.h"
#include "funcs/check_map.h"
#include "funcs/describers.h"
#include "funcs/func_map.h"
#include "funcs/read_map.h"
#include "platform/password_type.h"
#include "store/database.h"
#include "store/meta.h"

namespace qvcd {

namespace {

struct DescriberRow {
    std::string_view name; // of a type
    Describer describe;
};

constexpr DescriberRow ifuncCmdMap[] = {
    {"boolean", introspect_boolean},
    {"string_set", introspect_set},
    {"string_length", introspect_length},
    {"integer_set", introspect_set},
    {"integer_range", introspect_range},
    {"signed_integer_set", introspect_bounded_set},
    {"signed_integer_range", introspect_range},
    {"domainname_list", introspect_set},
    {"float_range", introspect_range},
    {"profile", introspect_profile},
    {"profile2", introspect_profile2},
    {"quality", introspect_quality},
};

// The API's own "introspect", else its own or adopted "type"; empty when there is neither.
std::string specification(const MetaApi &meta)
{
    for (const auto &text : {meta.own("introspect"), meta.own("type"), meta.adopted("type")}) {
        if (text)
            return std::string(*text);
    }
    return "";
}

// A password of one byte shows as empty, as clients know it.
std::string shown(const std::string &value, bool secret)
{
    return secret ? (value.size() > 1 ? "********" : "") : value;
}

// Dynamic APIs are read, others only when nothing is stored and it is no secret.
std::optional<std::string> described_value(Request &request, const std::string &api, bool dynamic,
                                           bool secret)
{
    if (dynamic)
        return rfuncmap_read(request, api).value_or("");
    if (auto stored = own_copy(hdfDB.get(api)); stored || secret)
        return stored.value_or("");
    return rfuncmap_read(request, api);
}

// What a get would refuse is not written. Reading may let go of the command lock: after it no view is used.
void describe_values(Request &request, const std::string &api, MetaApi &meta, bool secret,
                     const std::optional<std::string> &read, std::FILE *out)
{
    if (const auto preset = own_copy(meta.own("default")))
        reply_value(out, api + ".default", shown(*preset, secret));
    if (const auto value = read ? read : described_value(request, api, meta.is_true("dynamic"), secret))
        reply_value(out, api + ".value", shown(*value, secret));
}

// A type without a describer takes that of the alternative before it: clients rely on "integer_range 1
// 5,blank" giving a second, empty range.
void describe_alternatives(Description what, std::string_view spec)
{
    const DescriberRow *row = nullptr;
    for (const TypeWords &words : parse_type(spec)) {
        if (const DescriberRow *own_row = find_row(ifuncCmdMap, words.front()))
            row = own_row;
        if (!row || words.front().empty())
            continue;
        what.args = std::span(words).subspan(1);
        what.index = row->describe(what);
    }
}

} // namespace

std::vector<std::string_view> described_types()
{
    return row_names(ifuncCmdMap);
}

int cmd_create_ifuncmap_hdf()
{
    return log_func_map("ifunc", ifuncCmdMap);
}

int ifuncmap_introspect(Request &request, std::string_view prefix, std::string_view api, bool compact,
                        std::FILE *out, const std::optional<std::string> &read)
{
    const std::string name(api); // may point into the trees
    MetaApi meta(name);
    const std::string spec = specification(meta);
    if (spec.empty())
        return 1;
    reply_value(out, name + ".type", spec);
    const bool visible = meta.visible_to(request.mask);
    const bool secret = meta.is_password() || is_password_type(spec);
    if (visible)
        describe_values(request, name, meta, secret, read, out);
    describe_alternatives({.prefix = prefix, .api = name, .compact = compact, .visible = visible, .out = out},
                          spec);
    return 0;
}

} // namespace qvcd
