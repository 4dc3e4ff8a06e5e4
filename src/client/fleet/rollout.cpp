#include "client/fleet/rollout.h"

#include <algorithm>

#include "client/fleet/progress.h"
#include "qvclient/escape.h"
#include "qvclient/limits.h"

namespace qvcd::client::fleet {

namespace {

constexpr char kHidden[] = "*******";
constexpr char kStands[] = " awaits confirmation#"; // behind the number of a commit
constexpr std::chrono::seconds kUndoPatience{20};
constexpr std::size_t kMostWords = 90; // the daemon takes 99, options among them; more go as a document

std::string line_of(const std::vector<std::string> &words)
{
    return wire_line(words) + "\n";
}

// The one line of JSON with which changes are answered.
Json told(const Answer &answer)
{
    for (const std::string &line : answer.lines) {
        Json json = json_of(line);
        if (json.is_object())
            return json;
    }
    return Json::object();
}

long number(const Json &json, const char *name)
{
    const auto found = json.find(name);
    return found != json.end() && found->is_number_integer() ? found->get<long>() : 0;
}

std::string text(const Json &json, const char *name)
{
    const auto found = json.find(name);
    return found != json.end() && found->is_string() ? found->get<std::string>() : "";
}

std::string first_error(const Json &json)
{
    const auto errors = json.find("errors");
    if (errors == json.end() || !errors->is_array() || errors->empty())
        return "";
    const Json &first = errors->front();
    return text(first, "name") + "=" + text(first, "error");
}

// Whether the history, which was asked for behind, has this entry as confirmed.
bool is_confirmed(const Answer &answer, long number_of_entry)
{
    for (const std::string &line : answer.lines) {
        const Json json = json_of(line);
        for (const Json &entry : json.is_object() ? json.value("entries", Json::array()) : Json::array()) {
            if (number(entry, "number") == number_of_entry)
                return text(entry, "end") == "confirmed";
        }
    }
    return false;
}

std::string problem_with(const Answer &answer)
{
    const std::string error = first_error(told(answer));
    return error.empty() ? problem_of(answer) : error;
}

// Whether all of these are in force, or hidden.
bool are_in_force(const Values &wanted, const Values &now)
{
    return std::ranges::all_of(wanted, [&](const auto &one) {
        const auto found = now.find(one.first);
        return found != now.end() && (found->second == one.second || found->second == kHidden);
    });
}

std::vector<std::string> names_of(const Values &values)
{
    std::vector<std::string> names;
    for (const auto &[name, value] : values)
        names.push_back(name);
    return names;
}

} // namespace

Rollout::Rollout(Task &task, Journal &journal, Plan plan)
    : task_(task), journal_(journal), plan_(std::move(plan)), mark_("(fleet " + journal.run() + ")")
{
}

std::size_t Rollout::count(State state) const
{
    return static_cast<std::size_t>(std::ranges::count_if(
        plan_.changes, [&](const auto &one) { return journal_.state(one.first) == state; }));
}

void Rollout::end(const std::string &id, State state, const std::string &why)
{
    journal_.note(id, state);
    ++settled_;
    if (state == State::failed)
        ++failures_;
    tell_(id, state, why);
}

void Rollout::work(const std::string &what)
{
    Progress progress;
    task_.fleet.work([&] {
        progress.show(std::to_string(settled_) + " of " + std::to_string(plan_.changes.size()) +
                      " settled, " + what);
    });
}

// What a run before us may have left standing comes first.
std::vector<std::string> Rollout::in_order() const
{
    std::vector<std::string> ids;
    for (const auto &[id, values] : plan_.changes)
        ids.push_back(id);
    std::ranges::stable_partition(ids,
                                  [&](const std::string &id) { return journal_.state(id) == State::asked; });
    std::erase_if(ids, [&](const std::string &id) { return journal_.state(id) == State::done; });
    return ids;
}

bool Rollout::run(const std::function<void(const std::string &, State, const std::string &)> &tell)
{
    tell_ = tell;
    look_at_done();
    settled_ = count(State::done);
    const std::vector<std::string> ids = in_order();
    for (std::size_t i = 0; i < ids.size() && failures_ <= plan_.max_failures; i += plan_.batch) {
        Batch batch;
        for (std::size_t j = i; j < std::min(i + plan_.batch, ids.size()); ++j)
            batch[ids[j]];
        run_batch(batch);
    }
    return count(State::done) == plan_.changes.size();
}

// What a run before us did, somebody may have changed since.
void Rollout::look_at_done()
{
    for (const auto &[id, values] : plan_.changes) {
        if (journal_.state(id) == State::done && !values.empty())
            task_.fleet.ask(id, {get_lines(names_of(values)), true, plan_.confirm_in / 4},
                            [this, id = id, wanted = &values](const Answer &answer) {
                                if (answer.how == Answer::How::answered &&
                                    !are_in_force(*wanted, values_in(answer)))
                                    journal_.note(id, State::open);
                            });
    }
    work("looking at what was done");
}

void Rollout::run_batch(Batch &batch)
{
    commit(batch);
    wait_to_settle();
    verify(batch);
    std::size_t failed = failures_;
    for (const auto &[id, one] : batch)
        failed += one.problem.empty() ? 0 : 1;
    const bool too_many = failed > plan_.max_failures;
    undo(batch, too_many);
    if (!too_many)
        confirm(batch);
}

void Rollout::commit(Batch &batch)
{
    std::vector<std::string> unsure;
    for (const auto &[id, one] : batch) {
        if (journal_.state(id) == State::asked)
            unsure.push_back(id);
    }
    look_for_standing(batch, unsure);
    unsure.clear();
    for (auto &[id, one] : batch) {
        if (one.entry != 0 || !one.problem.empty())
            continue;
        const std::string lines = commit_lines(plan_.changes.at(id));
        journal_.note(id, State::asked);
        task_.fleet.ask(id, {lines, false, plan_.confirm_in / 2},
                        [&, i = id, o = &one](const Answer &answer) { take_commit(i, *o, answer, unsure); });
    }
    work("committing");
    look_for_standing(batch, unsure);
    for (const std::string &id : unsure) {
        if (One &one = batch[id]; one.entry == 0 && one.problem.empty())
            one.problem = "it did not say what became of the commit, and nothing stands";
    }
}

std::string Rollout::commit_lines(const Values &values) const
{
    std::vector<std::string> words{"commit", "-j",
                                   "-c",     std::to_string(plan_.confirm_in.count()),
                                   "-m",     plan_.text.empty() ? mark_ : plan_.text + " " + mark_};
    const bool as_document = values.size() > kMostWords;
    std::string document;
    for (const auto &[name, value] : values) {
        if (as_document)
            document += name + "=" + url_escape(value) + "\n";
        else
            words.push_back(name + "=" + value);
    }
    if (!as_document)
        return line_of(words);
    words.emplace_back("-");
    return "document " + std::to_string(document.size()) + "\n" + document + "\n" + line_of(words);
}

void Rollout::take_commit(const std::string &id, One &one, const Answer &answer,
                          std::vector<std::string> &unsure)
{
    if (answer.how == Answer::How::silent)
        return unsure.push_back(id);
    const Json json = told(answer);
    one.problem = problem_with(answer);
    if (one.problem.ends_with(kStands)) // a broker that comes back may bring a request twice: then it is ours
        unsure.push_back(id);
    one.entry = one.problem.empty() ? number(json, "entry") : 0;
    one.is_unchanged = one.problem.empty() && !json.contains("seconds");
    for (const Json &value : json.value("values", Json::array()))
        one.expected[text(value, "name")] = text(value, "new");
}

// Whether ours awaits confirmation there: of commits whose answer was lost.
void Rollout::look_for_standing(Batch &batch, const std::vector<std::string> &ids)
{
    for (const std::string &id : ids) {
        One &one = batch[id];
        one.expected = plan_.changes.at(id);
        task_.fleet.ask(id, {"commit -s -j\n", true, plan_.confirm_in / 8}, [&](const Answer &answer) {
            const Json json = told(answer);
            if (answer.how != Answer::How::answered)
                one.problem = answer.problem;
            else if (text(json, "text").ends_with(mark_)) {
                one.entry = number(json, "entry");
                one.problem.clear();
            }
        });
    }
    work("looking for what stands");
}

void Rollout::wait_to_settle()
{
    task_.fleet.rest(plan_.settle);
}

void Rollout::verify(Batch &batch)
{
    for (auto &[id, one] : batch) {
        const std::vector<std::string> names = names_of(one.expected);
        if (one.entry == 0 || one.is_unchanged || names.empty())
            continue;
        task_.fleet.ask(
            id, {get_lines(names), true, plan_.confirm_in / 4}, [&one = one](const Answer &answer) {
                one.problem =
                    answer.how == Answer::How::answered ? "" : "it did not come back: " + answer.problem;
                const Values now = values_in(answer);
                for (const auto &[name, value] : one.expected) {
                    const auto found = now.find(name);
                    if (one.problem.empty() && value != kHidden &&
                        (found == now.end() || found->second != value))
                        one.problem = name + " is not what was committed";
                }
            });
    }
    work("looking at the new values");
}

// Those that failed, or all.
void Rollout::undo(Batch &batch, bool all)
{
    std::erase_if(batch, [&](auto &item) {
        auto &[id, one] = item;
        const bool failed = !one.problem.empty();
        if (!failed && (!all || one.is_unchanged))
            return false;
        if (one.entry == 0) {
            end(id, State::failed, one.problem);
            return true;
        }
        const std::string why = failed ? one.problem : "too many of its batch failed";
        const State state = failed ? State::failed : State::undone;
        task_.fleet.ask(id, {line_of({"abort", "-j", std::to_string(one.entry)}), true, kUndoPatience},
                        [this, id = id, why, state](const Answer &answer) {
                            const std::string problem = problem_with(answer);
                            end(id, state,
                                problem.empty() ? why : why + "; it undoes itself in time: " + problem);
                        });
        return true;
    });
    work("undoing");
}

void Rollout::confirm(Batch &batch)
{
    for (auto &[id, one] : batch) {
        if (one.is_unchanged) {
            end(id, State::done, "nothing to change");
            continue;
        }
        const std::string lines =
            line_of({"confirm", "-j", std::to_string(one.entry)}) + "history -j -n 10\n";
        task_.fleet.ask(
            id, {lines, true, plan_.confirm_in}, [this, id = id, entry = one.entry](const Answer &answer) {
                if (is_confirmed(answer, entry)) // now, or the first time that it was asked
                    return end(id, State::done, "entry " + std::to_string(entry));
                const std::string problem = problem_with(answer);
                end(id, problem.empty() ? State::done : State::failed,
                    problem.empty() ? "entry " + std::to_string(entry) : "not confirmed: " + problem);
            });
    }
    work("confirming");
}

} // namespace qvcd::client::fleet
