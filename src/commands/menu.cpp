#include "commands/menu.h"

#include "auth/session.h"
#include "base/reply.h"
#include "base/text.h"
#include "commands/get.h"
#include "commands/save.h"
#include "commands/session.h"
#include "commands/set.h"
#include "platform/log.h"
#include "store/database.h"
#include "store/menu.h"

#include <algorithm>

namespace qvcd {

namespace {

int command_menu(Request &request, Args &argv, std::FILE *out);
int menu_get(Request &request, Args &argv, std::FILE *out);
int menu_get_load(Request &request, Args &argv, std::FILE *out);
int menu_firstrun(Request &request, Args &argv, std::FILE *out);
int menu_reload(Request &request, Args &argv, std::FILE *out);

constexpr SubCommand kSubCommands[] = {
    {"get", menu_get, "Get the menu HDF"},
    {"getload", menu_get_load, "Get the menu load parameters"},
    {"firstrun", menu_firstrun, "Set first run bit"},
    {"reload", menu_reload, "Reload the menu file"},
};

constexpr std::size_t kMaxPageNames = 100; // both lists of a page together

} // namespace

const CommandRecord menuRecord = {
    .name = "menu",
    .handler = command_menu,
    .summary = "Perform operations of the menu",
    .synopsis = "get, getload, firstrun, reload",
    .notes = "More to come",
    .sub_commands = kSubCommands,
    .secret_from = 1,
    .recorded = ChangeNotes::Level::lasting,
};

namespace {

int command_menu(Request &request, Args &argv, std::FILE *out)
{
    return run_subcommand(menuRecord, request, argv, out, SubResult::zero);
}

int menu_get(Request &, Args &argv, std::FILE *out)
{
    const Node node = argv.size() > 1 ? menuDB.find(argv[1]) : menuDB.root();
    if (!node)
        return argv.size() > 1 ? 1 : 0;
    if (out)
        hdfutils_dump(node, "", out);
    return 0;
}

// The check's reply is for callers that have no session; others get the page alone.
int check_session(Request &request, const std::string &number, std::FILE *out)
{
    Args session;
    if (!number.empty())
        session.push_back(number);
    const int result = command_get_session(request, session, nullptr);
    return result == 0 ? 0 : command_get_session(request, session, out);
}

std::string page_key(const std::string &page, const char *key)
{
    return "main." + page + "." + key;
}

// What every page loads, and what this one loads.
std::string load_list(const std::string &page)
{
    std::string list;
    for (const std::string &key : {std::string("main.header.load"), page_key(page, "load")}) {
        if (const auto names = menuDB.get(key))
            list.append(" ").append(*names);
    }
    return list;
}

// A list without names asks for nothing; the commands would take it for everything.
void run_on_list(CommandHandler command, Request &request, std::string_view list, std::size_t &room,
                 std::FILE *out)
{
    Args names = split_words(list, kListSeparators);
    names.resize(std::min(names.size(), room));
    room -= names.size();
    if (!names.empty())
        command(request, names, out);
}

int menu_get_load(Request &request, Args &argv, std::FILE *out)
{
    const std::string number = argv.size() > 1 ? argv[1] : "";
    const std::string page = argv.size() > 2 ? argv[2] : "";
    if (const int result = check_session(request, number, out))
        return result;
    if (const auto external = menuDB.get(page_key(page, "external")))
        reply_value(out, page_key(page, "external"), *external);
    std::size_t room = kMaxPageNames;
    run_on_list(command_get, request, load_list(page), room, out);
    run_on_list(command_introspect, request, menuDB.get_or(page_key(page, "introspect"), ""), room, out);
    reply_printf(out, "menu.stats=%lld\n", hdfDB.get_int("Web.Configuration.show_pageload_stats", 0));
    reply_value(out, "user", session_get_user(c_int(number)).value_or(""));
    return 0;
}

int menu_firstrun(Request &request, Args &argv, std::FILE *out)
{
    const bool first = argv.size() > 1 && c_int(argv[1]) == 1;
    menuDB.set("wizard.firstrun", first ? "1" : "0");
    Args change = {first ? "Web.Wizard.firstrun=1" : "Web.Wizard.firstrun=0"};
    command_set(request, change, out);
    Args names = {"Web.Wizard.firstrun"};
    command_save(request, names, out);
    return 0;
}

int menu_reload(Request &, Args &, std::FILE *)
{
    menu_unload_db_file();
    const FileName &file = menu_get_db_filename();
    menu_load_db_file(file);
    qv_log_print(kLogInfo, "Reloading menu DB with %s\n", file.text.c_str());
    return 0;
}

} // namespace

} // namespace qvcd
