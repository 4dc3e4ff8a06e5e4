#include "commands/help.h"

#include "base/command_lock.h"
#include "base/reply.h"
#include "commands/cmd_table.h"
#include "commands/wordwrap.h"
#include "funcs/introspect_map.h"
#include "funcs/read_map.h"
#include "store/database.h"

namespace qvcd {

namespace {

int command_help(Request &request, Args &argv, std::FILE *out);
int cmd_help_cmd(Request &request, Args &argv, std::FILE *out);
int cmd_help_api(Request &request, Args &argv, std::FILE *out);
int cmd_help_apihdf(Request &request, Args &argv, std::FILE *out);

constexpr SubCommand kSubCommands[] = {
    {"cmd", cmd_help_cmd, "Command help"},
    {"api", cmd_help_api, "API help"},
    {"apihdf", cmd_help_apihdf, "API Help in HDF format"},
};

constexpr char kPrefix[] = "\t";
constexpr std::size_t kWidth = 60;

// The sections of a manual page, in their order.
struct Section {
    const char *title;
    const char *CommandRecord::*text;
};
constexpr Section kSections[] = {
    {"SYNOPSIS", &CommandRecord::synopsis},
    {"DESCRIPTION", &CommandRecord::description},
    {"RETURN VALUES", &CommandRecord::return_values},
    {"ERRORS", &CommandRecord::errors},
    {"NOTES", &CommandRecord::notes},
};

struct AccessWord {
    unsigned bit; // of level 1
    const char *word;
};
constexpr AccessWord kAccessWords[] = {{0x0400, "read "}, {0x0200, "write "}, {0x0100, "apply"}};

} // namespace

const CommandRecord helpRecord = {
    .name = "help",
    .handler = command_help,
    .summary = "Print help for commands and APIs",
    .synopsis = "help\n"
                "help.cmd [<command> or all]\n"
                "help.api [<API or group> ...]\n"
                "help.apihdf [<API or group> ...]",
    .errors =
        "Callers without administration rights get no reply; who has not logged in may read the help of "
        "commands. What the caller may not see, or does not exist, is left out. The result is 0 in every "
        "case.",
    .description =
        "help.cmd lists the commands with one line each, or prints the manual page of one command or of "
        "all. help.api prints the documentation of one API, of a group, or of all: what it is, who may do "
        "what, and which values are valid. help.apihdf prints the texts alone, as key=value lines for "
        "programs. Without a sub-command the sub-commands are listed.",
    .sub_commands = kSubCommands,
    .open_to_strangers = true,
};

namespace {

int command_help(Request &request, Args &argv, std::FILE *out)
{
    return run_subcommand(helpRecord, request, argv, out, SubResult::zero);
}

void print_cmd_help(const CommandRecord &record, std::FILE *out)
{
    reply_printf(out, "NAME\n%s%s - %s\n", kPrefix, record.name, record.summary);
    for (const Section &section : kSections) {
        const char *text = record.*section.text;
        if (!text)
            continue;
        reply_printf(out, "\n%s\n", section.title);
        wordwrap(out, kPrefix, kWidth, text);
    }
    if (record.sub_commands.empty())
        return;
    reply_text(out, "\nSUB-COMMANDS\n");
    for (const SubCommand &sub : record.sub_commands) {
        if (sub.listed)
            reply_printf(out, "%s%s.%s - %s\n", kPrefix, record.name, sub.name, sub.description);
    }
}

int cmd_help_cmd(Request &request, Args &argv, std::FILE *out)
{
    const std::string wanted = argv.size() > 1 ? argv[1] : "";
    for (const CommandRow &row : cmd_map()) {
        if (!row.listed && (request.mask & kLevel0Bits) == 0)
            continue;
        const CommandRecord &record = *row.record;
        if (argv.size() <= 1) {
            reply_printf(out, "%s: %s\n", record.name, record.summary);
        } else if (wanted == "all") {
            reply_text(out, "\n========================================\n\n");
            print_cmd_help(record, out);
        } else if (wanted == record.name) {
            print_cmd_help(record, out);
        }
    }
    return 0;
}

// Which texts are chosen and how each is printed.
struct ApiHelp {
    Classifier choose;
    void (*print)(Request &request, const std::string &api, std::string_view leaf, const std::string &text,
                  std::FILE *out);
};

Walk visit_leaf(Node node, bool chosen)
{
    return chosen && !node.first_child() ? Walk::visit : Walk::descend;
}

Walk is_help(Node node)
{
    return visit_leaf(node, node.name() == "help");
}

Walk is_help_or_desc(Node node)
{
    return visit_leaf(node, node.name() == "help" || node.name() == "desc");
}

void print_permission(const std::string &api, std::FILE *out)
{
    const unsigned perm = meta_get_perm(api);
    reply_text(out, kPrefix);
    for (const AccessWord &row : kAccessWords) {
        if (perm & row.bit)
            reply_text(out, row.word);
    }
    reply_text(out, "\n");
}

void print_api(Request &request, const std::string &api, std::string_view, const std::string &text,
               std::FILE *out)
{
    reply_printf(out, "\nNAME    %s\n", api.c_str());
    reply_printf(out, "\n%s\n", text.c_str());
    reply_text(out, "\nACCESS TYPE\n");
    print_permission(api, out);
    reply_text(out, "\nVALID OPTIONS\n");
    ifuncmap_introspect(request, kPrefix, api, true, out);
    reply_text(out, "\n");
    if (const Node desc = metaDB.find(api + ".desc"))
        reply_printf(out, "\nDESCRIPTION\n\t%s\n", std::string(desc.text()).c_str());
    reply_text(out, "\n\n");
}

void print_apihdf(Request &, const std::string &api, std::string_view leaf, const std::string &text,
                  std::FILE *out)
{
    if (leaf == "help" || leaf == "desc")
        reply_value(out, join_name(api, leaf), text);
}

constexpr ApiHelp kReadable = {is_help, print_api};
constexpr ApiHelp kAsHdf = {is_help_or_desc, print_apihdf};

// Templates are no APIs.
bool may_see(const Request &request, const std::string &api)
{
    return api.find("__") == std::string::npos && MetaApi(api).visible_to(request.mask);
}

std::string last_component(const std::string &name)
{
    return name.substr(name.rfind('.') + 1); // npos + 1 is 0
}

void print_text(Request &request, const std::string &leaf, const std::string &api, const ApiHelp &how,
                std::FILE *out)
{
    const Node node = metaDB.find(leaf);
    if (node && may_see(request, api))
        how.print(request, api, last_component(leaf), std::string(node.text()), out);
}

// By name: the description of a live value may let go of the command lock.
void print_group(Request &request, Node node, const std::string &name, const ApiHelp &how, std::FILE *out)
{
    for (const std::string &leaf : hdfutils_names(node, name, how.choose))
        print_text(request, leaf, meta_get_parent(leaf).value_or(""), how, out);
}

int do_cmd_help_api(Request &request, const Args &argv, const ApiHelp &how, std::FILE *out)
{
    if (request.mask == 0)
        return 0; // nothing can be seen, and a search takes its time
    // The sub-command's own word is looked up like the others: an API may have that name.
    for (const std::string &name : argv) {
        const Node node = name.empty() ? Node() : metaDB.find(name);
        if (!node)
            continue;
        if (node.first_child())
            print_group(request, node, name, how, out);
        else
            print_text(request, name, name, how, out); // a text that was named is shown under its own name
        send_long_reply();
    }
    if (argv.size() <= 1)
        print_group(request, metaDB.root(), "", how, out);
    return 0;
}

int cmd_help_api(Request &request, Args &argv, std::FILE *out)
{
    return do_cmd_help_api(request, argv, kReadable, out);
}

int cmd_help_apihdf(Request &request, Args &argv, std::FILE *out)
{
    return do_cmd_help_api(request, argv, kAsHdf, out);
}

} // namespace

} // namespace qvcd
