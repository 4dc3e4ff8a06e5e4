#include <algorithm>
#include <cstdio>

#include "client/errors.h"
#include "client/fleet/commands.h"
#include "client/fleet/rollout.h"
#include "client/person.h"
#include "client/terminal_text.h"

namespace qvcd::client::fleet {

namespace {

constexpr int kDay = 86400;
constexpr std::chrono::seconds kSettle{3};

Values given_values(const std::vector<std::string> &words)
{
    Values values;
    for (const std::string &word : words) {
        const std::size_t equals = word.find('=');
        if (equals == std::string::npos || equals == 0)
            throw UsageError("'" + word + "' is no API=VALUE");
        values[word.substr(0, equals)] = word.substr(equals + 1);
    }
    return values;
}

// Of each what is not so yet. Who does not tell is left out.
void golden_changes(Task &task, const std::vector<std::string> &ids, const Values &golden,
                    std::map<std::string, Values> &changes)
{
    std::vector<std::string> names;
    for (const auto &[name, value] : golden)
        names.push_back(name);
    ask_all(task, ids, get_lines(names), [&](const std::string &id, const Answer &answer) {
        if (!problem_of(answer).empty())
            return;
        const Values now = values_in(answer);
        Values &change = changes[id];
        for (const auto &[name, value] : golden) {
            const auto found = now.find(name);
            if (found == now.end() || found->second != value)
                change[name] = value;
        }
    });
}

std::string description(const Fleet &fleet, const std::optional<std::string> &where,
                        const std::vector<std::string> &words, const std::optional<std::string> &golden)
{
    Json what = {{"fleet", fleet.name()}, {"where", where.value_or("")}, {"values", words}};
    if (golden)
        what["golden"] = golden_values(*golden);
    return json_line(what);
}

// Two thirds of the time are for the commit and for looking at it, and some for the confirmation.
std::chrono::seconds settle_time(std::optional<int> given, std::chrono::seconds confirm_in)
{
    const std::chrono::seconds most = confirm_in / 4;
    if (given && *given > most.count())
        throw UsageError("--settle " + std::to_string(*given) + " needs -c " + std::to_string(*given * 4) +
                         ": what is not confirmed by then undoes itself");
    return given ? std::chrono::seconds(*given) : std::min(kSettle, most);
}

const char *word_of(Journal::State state)
{
    switch (state) {
    case Journal::State::done:
        return "done";
    case Journal::State::failed:
        return "failed";
    case Journal::State::undone:
        return "rolled back";
    default:
        return "open";
    }
}

void tell(bool json, const std::string &id, Journal::State state, const std::string &why)
{
    if (json)
        print_json({{"id", id}, {"state", word_of(state)}, {"why", why}});
    else
        std::printf("%s\n", one_line(id + ": " + word_of(state) + (why.empty() ? "" : ": " + why)).c_str());
    std::fflush(stdout);
}

void tell_sum(const Task &task, const Rollout &rollout, std::size_t all, std::size_t absent)
{
    const std::size_t done = rollout.count(Journal::State::done);
    const std::size_t failed = rollout.count(Journal::State::failed);
    const std::size_t undone = rollout.count(Journal::State::undone);
    const std::size_t open = all - done - failed - undone;
    if (task.json)
        print_json({{"done", done},
                    {"failed", failed},
                    {"rolled_back", undone},
                    {"open", open},
                    {"absent", absent}});
    else
        std::printf("%zu done, %zu failed, %zu rolled back, %zu not begun, %zu not online or silent\n", done,
                    failed, undone, open, absent);
}

} // namespace

int run_commit(Task &task, Arguments arguments)
{
    const std::optional<std::string> filter = arguments.value("--where");
    const std::optional<std::string> golden = arguments.value("--golden");
    const std::optional<std::string> text = arguments.value("-m");
    Rollout::Plan plan;
    plan.batch = static_cast<std::size_t>(arguments.number("--batch", 1, 10000).value_or(10));
    plan.max_failures = static_cast<std::size_t>(arguments.number("--max-failures", 0, 1000000).value_or(0));
    plan.confirm_in = std::chrono::seconds(arguments.number("-c", 10, kDay).value_or(120));
    plan.settle = settle_time(arguments.number("--settle", 0, 600), plan.confirm_in);
    const std::vector<std::string> words =
        arguments.rest("fleet commit", golden ? 0 : 1, golden ? 0 : ~std::size_t{0});
    const Where where(filter);
    const std::vector<std::string> ids = where.online(task.fleet);
    const std::size_t meant = where.all(task.fleet).size();
    if (golden)
        golden_changes(task, ids, golden_values(*golden), plan.changes);
    else
        for (const std::string &id : ids)
            plan.changes[id] = given_values(words);
    const std::size_t all = plan.changes.size();
    const std::size_t absent = meant - all;
    if (all == 0)
        throw UsageError("no appliance that fits is online");
    if (!task.yes && is_typed() &&
        ask_person("Commit on " + std::to_string(all) + " appliances?") != Reply::yes)
        return 1;
    Journal journal(description(task.fleet, filter, words, golden));
    if (journal.is_resumed())
        std::fprintf(stderr, "qvc: this goes on where it was cut off\n");
    plan.text = text.value_or("");
    Rollout rollout(task, journal, std::move(plan));
    const bool good = rollout.run([&](const std::string &id, Journal::State state, const std::string &why) {
        tell(task.json, id, state, why);
    });
    tell_sum(task, rollout, all, absent);
    if (good && absent == 0)
        journal.end();
    return good && absent == 0 ? 0 : 1;
}

} // namespace qvcd::client::fleet
