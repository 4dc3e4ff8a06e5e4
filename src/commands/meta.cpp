#include "commands/meta.h"

#include "base/command_lock.h"
#include "base/reply.h"
#include "platform/api_errors.h"
#include "store/api.h"
#include "store/database.h"
#include "store/names.h"

namespace qvcd {

namespace {

// All that is below a node; attributes that an API adopted come behind its own. `path` is one buffer for the
// whole walk.
void dump_below(Node node, std::string &path, std::FILE *out)
{
    const std::size_t size = path.size();
    const auto print = [&](std::string_view name, std::string_view value) {
        path.append(size ? "." : "").append(name);
        reply_value(out, path, value);
        path.resize(size);
    };
    for (const Node child : node) {
        if (child.value())
            print(child.name(), child.text());
        if (!child.first_child())
            continue;
        path.append(size ? "." : "").append(child.name());
        dump_below(child, path, out);
        path.resize(size);
    }
    if (find_api(path))
        meta_visit_adopted(path, print);
}

// An attribute by its full name; only one that its API adopted has no node.
void dump_attribute(const std::string &name, Node node, std::FILE *out)
{
    if (node)
        return reply_value(out, name, node.text());
    const std::string api = meta_get_parent(name).value_or("");
    const auto adopted =
        find_api(api) ? MetaApi(api).adopted(std::string_view(name).substr(api.size() + 1)) : std::nullopt;
    reply_value(out, name, adopted.value_or(API_E_PARAM_NOT_FOUND));
}

void dump_name(const std::string &name, std::FILE *out)
{
    const Node node = name.empty() ? Node() : metaDB.find(name);
    std::string path = name;
    if (node.first_child())
        dump_below(node, path, out);
    else
        dump_attribute(name, node, out);
}

int meta_dump(Request &, Args &argv, std::FILE *out)
{
    for (std::size_t i = 1; i < argv.size(); ++i) {
        dump_name(argv[i], out);
        send_long_reply();
    }
    std::string path;
    if (argv.size() <= 1)
        dump_below(metaDB.root(), path, out);
    return 0;
}

constexpr SubCommand kMetaSubCommands[] = {
    {"get", meta_dump, "Get the meta for an API"},
    {"dump", meta_dump, "Get the meta for an API"},
};

int command_meta(Request &request, Args &argv, std::FILE *out)
{
    return run_subcommand(metaRecord, request, argv, out, SubResult::zero);
}

bool is_attribute_word(std::string_view word)
{
    return is_tree_name(word) && word.find('.') == std::string_view::npos;
}

int command_metav(Request &, Args &argv, std::FILE *out)
{
    if (argv.size() < 2 || !is_attribute_word(argv[0])) {
        reply_line(out, std::string(API_E_INVALID_CMD) + ": \"metav " + (argv.empty() ? "" : argv[0]) + "\"");
        return -1;
    }
    if (name_kind(argv[1]) == NameKind::nothing)
        return 0;
    if (const auto value = MetaApi(argv[1]).get(argv[0]))
        reply_line(out, *value);
    return 0;
}

} // namespace

const CommandRecord metaRecord = {
    .name = "meta",
    .handler = command_meta,
    .summary = "Get the metadata for an API or group",
    .synopsis = "Name of metadata to look up",
    .return_values = "Metadata name and value",
    .sub_commands = kMetaSubCommands,
};

const CommandRecord metavRecord = {
    .name = "metav",
    .handler = command_metav,
    .summary = "Get the metadata for an API or group",
    .return_values = "Metadata value only",
};

} // namespace qvcd
