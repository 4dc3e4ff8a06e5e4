#include <cstdio>

#include "client/errors.h"
#include "client/fleet/commands.h"
#include "client/terminal_text.h"

namespace qvcd::client::fleet {

namespace {

constexpr char kExport[] = "export - 0\n";
constexpr char kNothing[] = "(none)";

std::vector<std::string> names_of(const Values &values)
{
    std::vector<std::string> names;
    for (const auto &[name, value] : values)
        names.push_back(name);
    return names;
}

// Names of `before` alone where it is golden. True when there is no difference.
bool print_differences(const Task &task, const std::string &id, const Values &before, const Values &after)
{
    Json list = Json::array();
    for (const auto &[name, old] : before) {
        const auto found = after.find(name);
        const std::string now = found == after.end() ? kNothing : found->second;
        if (now == old)
            continue;
        list.push_back({{"name", name}, {"old", old}, {"new", now}});
        if (!task.json)
            std::printf("%s\n",
                        one_line(id + (id.empty() ? "" : ": ") + name + "=" + old + " -> " + now).c_str());
    }
    const bool same = list.empty();
    if (task.json)
        print_json({{"id", id}, {"values", std::move(list)}});
    return same;
}

int diff_golden(Task &task, const Where &where, const std::string &file)
{
    const Values golden = golden_values(file);
    bool same = true;
    const bool good = ask_all(task, where.online(task.fleet), get_lines(names_of(golden)),
                              [&](const std::string &id, const Answer &a) {
                                  if (a.how == Answer::How::answered)
                                      same &= print_differences(task, id, golden, values_in(a));
                              });
    return good && same ? 0 : 1;
}

int diff_two(Task &task, const std::string &one, const std::string &other)
{
    for (const std::string &id : {one, other}) {
        if (!task.fleet.members().contains(id))
            throw UsageError("there is no appliance '" + id + "'");
    }
    std::map<std::string, Values> settings;
    bool whole = true;
    const bool good = ask_all(task, {one, other}, kExport, [&](const std::string &id, const Answer &a) {
        const std::optional<Values> values = exported_values(a.lines);
        whole &= values.has_value();
        settings[id] = values.value_or(Values{});
    });
    if (!good || !whole)
        return 1;
    for (const auto &[name, value] : settings[other])
        settings[one].try_emplace(name, kNothing);
    return print_differences(task, "", settings[one], settings[other]) ? 0 : 1;
}

} // namespace

int run_diff(Task &task, Arguments arguments)
{
    const Where where(arguments.value("--where"));
    const std::optional<std::string> golden = arguments.value("--golden");
    const std::size_t count = golden ? 0 : 2;
    const std::vector<std::string> ids = arguments.rest("fleet diff", count, count);
    return golden ? diff_golden(task, where, *golden) : diff_two(task, ids[0], ids[1]);
}

} // namespace qvcd::client::fleet
