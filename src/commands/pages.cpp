#include "commands/pages.h"

#include "base/text.h"
#include "change/report.h"
#include "store/api.h"
#include "store/database.h"
#include "store/menu.h"
#include "store/names.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace qvcd {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view kWizardPage = "wizard_"; // how the names of its pages begin

bool sees_some_of(const Request &request, const std::string &name)
{
    if (const Api *api = find_api(name))
        return api->visible_to(request.mask);
    bool sees = false;
    if (name_kind(name) == NameKind::group)
        visit_apis(name, [&](const Api &api) { sees = sees || api.visible_to(request.mask); });
    return sees;
}

// What the caller may see some of.
Json names_in(const Request &request, Node page, std::string_view list)
{
    Json names = Json::array();
    for (const std::string &name : split_words(page.get_or(list, ""), kListSeparators)) {
        if (sees_some_of(request, name))
            names.push_back(name);
    }
    return names;
}

// Null: there is nothing on it for the caller.
Json page_of(const Request &request, Node node)
{
    Json page = {{"id", node.name()}, {"title", node.get_or("title", node.name())}};
    if (const auto external = node.get("external")) {
        page["external"] = *external;
        return page;
    }
    page["load"] = names_in(request, node, "load");
    page["edit"] = names_in(request, node, "introspect");
    return page["load"].empty() && page["edit"].empty() ? Json() : page;
}

// The setting lasts; what the menu's files say is for appliances without it.
bool is_first_run()
{
    if (const Api *api = find_api("Web.Wizard.firstrun"))
        return api->value() == "1";
    return menuDB.get_or("wizard.firstrun", "0") == "1";
}

int command_pages(Request &request, Args &, std::FILE *out)
{
    Json json = {{"firstrun", is_first_run()},
                 {"header", Json::array()},
                 {"pages", Json::array()},
                 {"wizard", Json::array()}};
    for (const Node node : menuDB.find("main")) {
        const bool is_header = node.name() == "header";
        Json page = is_header ? names_in(request, node, "load") : page_of(request, node);
        if (is_header)
            json["header"] = std::move(page);
        else if (!page.is_null())
            json[node.name().starts_with(kWizardPage) ? "wizard" : "pages"].push_back(std::move(page));
    }
    reply_json(out, json);
    return 0;
}

} // namespace

const CommandRecord pagesRecord = {
    .name = "pages",
    .handler = command_pages,
    .summary = "List the pages of a user interface",
    .synopsis = "pages",
    .return_values = "One line of JSON: firstrun (the wizard has not been gone through), header (names that "
                     "every page shows), pages, and wizard (its pages).",
    .description =
        "Says which APIs and groups belong on which page, from the menu's files: of each page id, title, "
        "load "
        "(what it shows) and edit (what can be changed there), or external (an address elsewhere). Names of "
        "which the caller may read nothing are left out, and pages without names.",
};

} // namespace qvcd
