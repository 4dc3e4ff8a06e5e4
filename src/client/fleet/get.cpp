#include <algorithm>
#include <cstdio>
#include <set>

#include "client/fleet/commands.h"
#include "client/fleet/table.h"

namespace qvcd::client::fleet {

namespace {

using Columns = std::map<std::string, Values>; // by appliance

bool is_the_same_everywhere(const Columns &columns, const std::string &name)
{
    const auto value = [&](const Values &values) {
        const auto found = values.find(name);
        return found == values.end() ? std::optional<std::string>() : std::optional(found->second);
    };
    const std::optional<std::string> first = value(columns.begin()->second);
    return std::ranges::all_of(columns, [&](const auto &column) { return value(column.second) == first; });
}

void print_columns(const Columns &columns, const std::set<std::string> &names)
{
    std::vector<Row> rows{{"NAME"}};
    for (const auto &[id, values] : columns)
        rows[0].push_back(id);
    for (const std::string &name : names) {
        Row row{name};
        for (const auto &[id, values] : columns)
            row.push_back(values.contains(name) ? values.at(name) : "");
        rows.push_back(std::move(row));
    }
    print_table(rows);
}

} // namespace

int run_get(Task &task, Arguments arguments)
{
    const Where where(arguments.value("--where"));
    const bool differ = arguments.flag("--differ");
    const std::vector<std::string> names = arguments.rest("fleet get", 1);
    Columns columns;
    std::set<std::string> found;
    bool any = false;
    const bool good = ask_all(task, where.online(task.fleet), get_lines(names),
                              [&](const std::string &id, const Answer &a) {
                                  if (a.how != Answer::How::answered)
                                      return;
                                  any = true;
                                  if (task.json && !differ) // as they come, for there may be many
                                      return print_json({{"id", id}, {"values", values_in(a)}});
                                  Values &values = columns[id] = values_in(a);
                                  for (const auto &[name, value] : values)
                                      found.insert(name);
                              });
    if (differ && !columns.empty())
        std::erase_if(found, [&](const std::string &name) { return is_the_same_everywhere(columns, name); });
    for (const auto &[id, values] : task.json ? columns : Columns{}) {
        Json shown = Json::object();
        for (const std::string &name : found) {
            if (values.contains(name))
                shown[name] = values.at(name);
        }
        print_json({{"id", id}, {"values", std::move(shown)}});
    }
    if (!task.json)
        print_columns(columns, found);
    return good && any ? 0 : 1;
}

} // namespace qvcd::client::fleet
