#include <nlohmann/json.hpp>

#include "client/advice.h"
#include "client/json_answer.h"
#include "client/local_commands.h"
#include "client/reply.h"
#include "client/screen.h"
#include "client/settings.h"
#include "client/terminal_text.h"
#include "qvclient/typed_value.h"

namespace qvcd::client {

namespace {

using Json = nlohmann::ordered_json;

std::vector<std::string> parts_of(const std::string &name)
{
    std::vector<std::string> parts;
    for (std::size_t start = 0; start <= name.size();) {
        const std::size_t end = std::min(name.find('.', start), name.size());
        parts.push_back(name.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

std::string marks_of(const Setting &setting)
{
    std::string marks;
    const auto add = [&](const std::string &mark) { marks += (marks.empty() ? "" : ", ") + mark; };
    if (setting.is_modified)
        add("modified");
    if (setting.is_unapplied)
        add("unapplied");
    if (setting.is_changed)
        add(setting.fallback ? "default " + (setting.fallback->empty() ? "empty" : *setting.fallback)
                             : "not default");
    return marks.empty() ? marks : "[" + marks + "]";
}

std::vector<std::string> lines_of_tree(const Screen &screen, const std::vector<Setting> &list)
{
    std::vector<TableRow> rows;
    std::vector<std::string> above;
    for (const Setting &setting : list) {
        std::vector<std::string> parts = parts_of(setting.name);
        std::size_t depth = 0;
        while (depth + 1 < parts.size() && depth < above.size() && above[depth] == parts[depth])
            ++depth;
        for (; depth + 1 < parts.size(); ++depth)
            rows.push_back({std::string(2 * depth, ' ') + parts[depth], ""});
        rows.push_back({std::string(2 * depth, ' ') + parts[depth],
                        setting.value + "  " + in_bold(screen, marks_of(setting))});
        parts.pop_back();
        above = std::move(parts);
    }
    std::vector<std::string> lines = in_columns(rows);
    for (std::string &line : lines)
        line.erase(line.find_last_not_of(' ') + 1);
    return lines;
}

std::string json_of(const Options &options, const Settings &settings)
{
    std::vector<std::string> names;
    for (const Setting &setting : settings.list)
        names.push_back(setting.name);
    auto types = types_of(options, names);
    Json json = {{"command", "tree"}, {"result", settings.result}, {"settings", Json::array()}};
    for (const Setting &setting : settings.list) {
        const std::string &type = types[setting.name];
        Json one = {{"name", setting.name},
                    {"value", typed_value(type, setting.value)},
                    {"modified", setting.is_modified},
                    {"unapplied", setting.is_unapplied},
                    {"changed", setting.is_changed}};
        if (setting.fallback)
            one["default"] = typed_value(type, *setting.fallback);
        json["settings"].push_back(std::move(one));
    }
    if (settings.list.empty() || !settings.refused.empty())
        add_errors(json, options, {"get"}, settings.refused, settings.result);
    return one_json_line(json);
}

} // namespace

int run_tree(const Options &options, const Words &words)
{
    const Settings settings = fetch_settings(options, {words.begin() + 1, words.end()});
    if (options.json) {
        print_line(json_of(options, settings));
        return exit_status(settings.result);
    }
    const Screen screen = look_at_screen();
    if (!options.quiet)
        show_lines(screen, lines_of_tree(screen, settings.list));
    for (const std::string &line : settings.refused)
        std::fprintf(stderr, "%s\n", for_errors(line).c_str());
    advise(options, {"get"}, settings.refused, settings.list.empty() && settings.refused.empty(),
           settings.result);
    return exit_status(settings.result);
}

} // namespace qvcd::client
