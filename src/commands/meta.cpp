#include "commands/meta.h"

#include "base/command_lock.h"
#include "base/reply.h"
#include "platform/api_errors.h"
#include "store/database.h"
#include "store/names.h"

namespace qvcd {

namespace {

void dump_api(const std::string &name, std::FILE *out)
{
    const Node node = name.empty() ? Node() : metaDB.find(name);
    if (!node) {
        reply_value(out, name, API_E_PARAM_NOT_FOUND);
    } else if (node.first_child()) {
        hdfutils_traverse_tree(node, name, hdfutils_check_endnode, [&](Node leaf, const std::string &parent) {
            reply_value(out, join_name(parent, leaf.name()), leaf.text());
        });
    } else {
        reply_value(out, name, node.text());
    }
}

int meta_dump(Request &, Args &argv, std::FILE *out)
{
    for (std::size_t i = 1; i < argv.size(); ++i) {
        dump_api(argv[i], out);
        send_long_reply();
    }
    if (argv.size() <= 1)
        hdfutils_dump(metaDB.root(), "", out);
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
    if (const auto value = MetaApi(argv[1]).look(argv[0]))
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
