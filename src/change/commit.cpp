#include "change/commit.h"

#include "base/command_lock.h"
#include "base/failures.h"
#include "base/notify.h"
#include "base/replace_journal.h"
#include "base/save_lock.h"
#include "change/assignment.h"
#include "change/history.h"
#include "change/unconfirmed.h"
#include "change/undo.h"
#include "platform/api_errors.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/api_event.h"
#include "store/flags.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <random>

namespace qvcd {

namespace {

constexpr char kCommit[] = "Commit"; // what an error is about that is no API's

std::string new_key()
{
    std::random_device random;
    std::string key;
    for (int i = 0; i < 4; ++i)
        key += std::to_string(random()) + (i < 3 ? "-" : "");
    return key;
}

// One commit on its way.
class Commit {
  public:
    Commit(Request &request, const CommitOrder &order, Report &report, CommitTurn turn)
        : request_(request), order_(order), report_(report), turn_(std::move(turn))
    {
    }

    enum class Step { go_on, nothing_to_do, refused };

    Step write_files();
    int run_actions();
    bool has_begun() const { return has_begun_; }

  private:
    Step refuse(std::string api, std::string error);
    Step refuse_for(const std::string &why);
    Step refuse_unwritten(const FileWrites &writes);
    Step refuse_unrecorded(const FileResult &written);
    int describe(const FileWrites &writes);
    void store();
    void store(const Proposed &p, bool is_theirs);
    int fail(const std::string &why, std::size_t actions);
    bool take_notes(const Actions::Action &action);
    void add_entry(const std::string &end);
    int finish();
    int await_confirmation();

    Request &request_;
    const CommitOrder &order_;
    Report &report_;
    const CommitTurn turn_;
    Proposal proposal_;
    UndoRecord record_;
    std::size_t further_ = 0; // noted actions that are in the record
    bool has_begun_ = false;  // something may have changed
};

Commit::Step Commit::refuse(std::string api, std::string error)
{
    report_.errors.push_back({std::move(api), std::move(error)});
    return Step::refused;
}

// For what is about no API.
Commit::Step Commit::refuse_for(const std::string &why)
{
    qv_log_print(kLogError, "A commit is refused: %s\n", why.c_str());
    return refuse(kCommit, "##" + why + "#");
}

Commit::Step Commit::refuse_unwritten(const FileWrites &writes)
{
    writes.log_failures("commit");
    std::size_t number = 0;
    for (const Proposed &p : proposal_.values) {
        if (p.saves && writes.result(number++) == FileWrites::Result::failed)
            refuse(p.api, kSaveFailed);
    }
    return Step::refused;
}

// Nothing has changed yet. But a record that stays would undo what others do later.
Commit::Step Commit::refuse_unrecorded(const FileResult &written)
{
    const std::string why = std::string("Can not record how to undo it: ") + std::strerror(written.error);
    if (written.changed && remove_undo_record().error)
        stand({.record = record_,
               .state = Standing::State::undecided,
               .due = deadline_in(kTryAgain),
               .why = why});
    return refuse_for(why);
}

// Returns 0, or the errno of what keeps it from being undone.
int Commit::describe(const FileWrites &writes)
{
    record_.entry = {.time = std::time(nullptr),
                     .key = new_key(),
                     .user = request_.caller.user,
                     .source = request_.caller.source,
                     .client = request_.caller.client,
                     .command = order_.command,
                     .text = order_.text};
    for (const Proposed &p : proposal_.values)
        record_.values.push_back({.api = p.api,
                                  .before = p.before,
                                  .after = p.after,
                                  .saves = p.saves,
                                  .applies = p.applies,
                                  .secret = p.secret});
    record_.actions = proposal_.actions().all();
    for (const FileWrites::Rewrite &rewrite : writes.rewrites()) {
        if (rewrite.is_device)
            continue;
        if (rewrite.error)
            return rewrite.error;
        record_.files.push_back({rewrite.file, rewrite.before, text_hash(rewrite.after)});
    }
    return 0;
}

// Somebody may have set one while the files were written: that stays his change, on top of this one. One API
// may set another, which is no such change.
void Commit::store()
{
    std::vector<bool> theirs;
    for (const Proposed &p : proposal_.values) {
        const Api *api = find_api(p.api);
        theirs.push_back(api && shown_setting(*api) != p.now);
    }
    for (std::size_t i = 0; i < theirs.size(); ++i)
        store(proposal_.values[i], theirs[i]);
}

void Commit::store(const Proposed &p, bool is_theirs)
{
    Api *api = find_api(p.api);
    if (!api)
        return;
    const std::string old(api->value());
    const bool is_new = old != p.after;
    if (is_new && !is_theirs) {
        if (!p.saves && !p.dynamic)
            flag_unsaved(*api, request_.caller.session);
        store_setting(*api, p.after);
        publish_api("set", *api, p.after, old);
    }
    if (p.saves && !p.dynamic)
        flag_saved(p.api, p.after);
    if (p.saves && !is_theirs)
        publish_api("save", *api, p.after, old);
    if (p.applies)
        flag_in_force(p.api, p.after);
    if (p.applies && !is_theirs)
        publish_api("apply", *api, p.after, old);
    qv_log_print(kLogNotice, "Commit %s=%s\n", p.api.c_str(), api->for_log(p.after).c_str());
}

Commit::Step Commit::write_files()
{
    const SaveLock lock; // from before the values are taken
    proposal_ = order_.assignments.empty() ? propose_pending(request_, order_.whose)
                                           : propose(request_, order_.assignments, order_.check);
    report_.errors.insert(report_.errors.end(), proposal_.refused.begin(), proposal_.refused.end());
    if (!proposal_.refused.empty())
        return Step::refused;
    if (proposal_.values.empty())
        return Step::nothing_to_do;
    const std::unique_ptr<FileWrites> writes = proposal_.writes();
    writes->prepare();
    if (writes->has_failed())
        return refuse_unwritten(*writes);
    FileResult recorded{describe(*writes)};
    if (!recorded.error)
        recorded = write_undo_record(record_);
    if (recorded.error)
        return refuse_unrecorded(recorded);
    has_begun_ = true;
    writes->commit(FileWrites::Extent::all);
    if (writes->has_failed()) {
        refuse_unwritten(*writes);
        fail("a file could not be written", 0);
        return Step::refused;
    }
    for (const Proposed &p : proposal_.values)
        report_.values.push_back(shown_change(p));
    store();
    return Step::go_on;
}

int Commit::run_actions()
{
    for (std::size_t i = 0; i < record_.actions.size(); ++i) {
        const Actions::Action &action = record_.actions[i];
        const int status = report_.actions.emplace_back(run_action(request_, action)).status;
        const bool more_to_undo = take_notes(action);
        if (status == 0) {
            const int error = more_to_undo ? write_undo_record(record_).error : 0;
            if (!error)
                continue;
            const std::string why = std::string("it can not be recorded: ") + std::strerror(error);
            refuse_for(why);
            return fail(why, i + 1);
        }
        refuse(action.apis.front(), API_E_APPLY_FAILED);
        return fail(action.call + ": " + status_text(status), i + 1);
    }
    return order_.confirm ? await_confirmation() : finish();
}

// An action that loads a profile sets what that holds, and applies or saves it. False: it did nothing.
bool Commit::take_notes(const Actions::Action &action)
{
    if (!request_.notes)
        return false;
    bool more = false;
    for (const ValueChange &change : request_.notes->values) {
        if (change.before == change.after)
            continue;
        const auto known = std::ranges::find(record_.values, change.api, &UndoRecord::Value::api);
        if (known == record_.values.end()) {
            record_.values.push_back({.api = change.api,
                                      .before = change.before,
                                      .after = change.after,
                                      .saves = true,
                                      .secret = change.secret,
                                      .by_value = true,
                                      .loaded = change.after});
        } else if (known->loaded.value_or(known->after) != change.after) {
            known->loaded = change.after;
            const auto p = std::ranges::find(proposal_.values, change.api, &Proposed::api);
            if (p != proposal_.values.end())
                p->after = change.after;
        } else {
            continue;
        }
        more = true;
    }
    for (; further_ < request_.notes->actions.size(); ++further_) {
        record_.further.push_back({request_.notes->actions[further_].action, {action.apis.front()}});
        more = true;
    }
    return more;
}

// Puts everything back and tells of it; 1.
int Commit::fail(const std::string &why, std::size_t actions)
{
    Standing standing{.record = record_, .state = Standing::State::undecided, .why = why};
    auto [problems, lost] = put_files_back(record_);
    const bool is_undone = problems.empty();
    put_proposal_back(proposal_.values, record_);
    RunAgain again = run_actions_again(request_, record_, actions, Delay::kept);
    report_.undone = std::move(again.runs);
    report_.end = "undone";
    add_entry("undone: " + why);
    standing.number = report_.entry;
    if (is_undone && again.left.empty()) {
        if (const int error = remove_undo_record().error)
            problems.push_back(std::string("its record stays: ") + std::strerror(error));
    }
    for (const auto *all : {&problems, &lost}) {
        for (const std::string &problem : *all) {
            refuse(kCommit, "##Can not undo: " + problem + "#");
            qv_log_print(kLogError, "Can not undo a commit: %s\n", problem.c_str());
        }
    }
    if (is_undone && !again.left.empty()) {
        standing.turn = turn_;
        stand_for_actions(std::move(standing), std::move(again.left));
    } else if (!problems.empty()) {
        if (is_undone)
            standing.undone_by = report_.entry;
        standing.due = deadline_in(kTryAgain);
        stand(std::move(standing));
    }
    return 1;
}

void Commit::add_entry(const std::string &end)
{
    HistoryEntry entry = record_.entry;
    entry.end = end;
    for (const UndoRecord::Value &value : record_.values)
        entry.values.push_back(
            value_change(value.api, value.before, value.loaded.value_or(value.after), value.secret));
    entry.actions = report_.actions;
    const HistoryResult added = history_add(entry);
    report_.entry = added.number;
    if (!added.problem.empty())
        report_.problem = added.problem;
}

int Commit::finish()
{
    add_entry("done");
    const FileResult removed = remove_undo_record();
    const std::string why = std::string("it can not be finished: ") + std::strerror(removed.error);
    if (removed.error && !removed.changed) {
        refuse_for(why);
        return fail(why, record_.actions.size());
    }
    notify_publish_on(order_.command, "entry", std::to_string(report_.entry));
    if (!removed.error)
        return 0;
    qv_log_print(kLogError, "A commit: %s\n", why.c_str());
    refuse(kCommit, kNotFlushed);
    return 1;
}

int Commit::await_confirmation()
{
    add_entry(kAwaitsConfirmation);
    stand({.record = record_, .number = report_.entry, .due = deadline_in(*order_.confirm)});
    report_.left = order_.confirm;
    notify_publish_on(order_.command, "entry", std::to_string(report_.entry));
    return 0;
}

int refuse(Report &report, std::string error)
{
    report.errors.push_back({kCommit, std::move(error)});
    return 1;
}

bool may_settle(const Request &request, const UndoRecord &record)
{
    return std::ranges::all_of(record.values, [&](const UndoRecord::Value &value) {
        return value.by_value || (request.mask & meta_get_perm(value.api) & kWriteBits) != 0;
    });
}

// The commit in that state, where the caller may settle it; null: the report says why not.
Standing *find_standing(const Request &request, std::int64_t number, Standing::State state, Report &report)
{
    Standing *standing = standing_commit();
    if (!standing || standing->state != state || (number != 0 && number != standing->number)) {
        refuse(report, kNothingUnconfirmed);
        return nullptr;
    }
    if (!may_settle(request, standing->record)) {
        refuse(report, API_E_INVALID_PERMISSION);
        return nullptr;
    }
    return standing;
}

// The same, for who settles it now: his is the turn.
Standing *take_standing(const Request &request, std::int64_t number, Standing::State state, Report &report,
                        CommitTurn &turn)
{
    if (!find_standing(request, number, state, report))
        return nullptr;
    turn = commit_turn(kCommitPatience);
    return find_standing(request, number, state, report);
}

} // namespace

int commit(Request &request, const CommitOrder &order, Report &report,
           const std::function<void(Report &)> &tell)
{
    const CommitTurn turn = commit_turn(order.wait ? kCommitPatience : std::chrono::seconds(0));
    if (!turn)
        return refuse(report, "##Another commit is running#");
    if (const Standing *standing = standing_commit();
        standing && standing->state == Standing::State::undecided)
        report.problem = undo_now(turn);
    if (const Standing *standing = standing_commit())
        return refuse(report, standing->state == Standing::State::awaiting
                                  ? "##Commit " + std::to_string(standing->number) + " awaits confirmation#"
                                  : "##A commit is being undone#");
    refresh_live_values(request, order.assignments);
    Commit commit(request, order, report, turn);
    switch (commit.write_files()) {
    case Commit::Step::nothing_to_do:
        return 0;
    case Commit::Step::refused:
        return 1;
    case Commit::Step::go_on:
        break;
    }
    tell(report);
    const int result = commit.run_actions();
    if (request.notes)
        request.notes->clear(); // the commit has an entry of its own
    return result;
}

std::optional<Unconfirmed> unconfirmed_commit()
{
    const Standing *standing = standing_commit();
    if (!standing || standing->state != Standing::State::awaiting)
        return std::nullopt;
    const auto left = std::max(standing->due - std::chrono::steady_clock::now(), Deadline::duration::zero());
    Unconfirmed unconfirmed{standing->record.entry, std::chrono::ceil<std::chrono::seconds>(left)};
    unconfirmed.entry.number = standing->number;
    return unconfirmed;
}

int confirm_commit(const Request &request, std::int64_t number, std::optional<std::chrono::seconds> more,
                   Report &report)
{
    CommitTurn turn;
    Standing *standing = take_standing(request, number, Standing::State::awaiting, report, turn);
    if (!standing)
        return 1;
    report.entry = standing->number;
    report.left = more;
    if (more) {
        stand_until(deadline_in(*more));
        return 0;
    }
    standing->state = Standing::State::settling;
    const FileResult removed = remove_undo_record();
    if (removed.error)
        qv_log_print(kLogError, "Can not confirm commit %lld: %s\n", static_cast<long long>(report.entry),
                     std::strerror(removed.error));
    if (removed.error && !removed.changed) {
        standing = standing_commit();
        standing->state = Standing::State::awaiting;
        stand_until(standing->due);
        return refuse(report, std::string("##Can not be confirmed: ") + std::strerror(removed.error) + "#");
    }
    stand_no_more();
    report.problem = history_end(report.entry, kConfirmed);
    notify_publish_on("confirm", "entry", std::to_string(report.entry));
    return removed.error ? refuse(report, kNotFlushed) : 0;
}

int abort_commit(Request &request, std::int64_t number, Report &report)
{
    CommitTurn turn;
    const Standing *found = standing_commit();
    const bool again = found && found->state == Standing::State::undecided && !found->turn;
    Standing *standing = take_standing(
        request, number, again ? Standing::State::undecided : Standing::State::awaiting, report, turn);
    if (!standing)
        return 1;
    standing->state = Standing::State::settling;
    if (!again)
        standing->why = "aborted";
    standing->turn = turn;
    undo_standing(request, report, Delay::kept);
    for (ValueChange &value : report.values) {
        if (!MetaApi(value.api).visible_to(request.mask))
            value = value_change(value.api, value.before, value.after, true);
    }
    return report.errors.empty() ? 0 : 1;
}

namespace {

// An action may end the daemon, or the appliance, each time it runs.
void count_start(UndoRecord &record)
{
    constexpr int kMaxStarts = 2;
    ++record.starts;
    write_undo_record(record);
    if (record.starts <= kMaxStarts)
        return;
    qv_log_print(kLogError,
                 "The actions of the commit do not run again: %d starts did not get through them\n",
                 kMaxStarts);
    record.actions.clear();
    record.further.clear();
}

} // namespace

void recover_commit()
{
    UndoRead read = read_undo_record();
    if (!read.error && !read.record)
        return history_none_awaits();
    qv_log_print(kLogWarning, "A commit that was not finished or not confirmed is undone\n");
    Standing standing{.state = Standing::State::undecided,
                      .due = Deadline::max(),
                      .why = "the daemon ended before it was settled",
                      .turn = commit_turn(std::chrono::seconds(0)),
                      .is_unread = read.error != 0};
    if (read.record) {
        standing.record = std::move(*read.record);
        count_start(standing.record);
        for (const std::string &problem : put_files_back(standing.record).problems)
            qv_log_print(kLogError, "Can not undo a commit yet: %s\n", problem.c_str());
        standing.undone = put_values_back(standing.record);
    }
    stand(std::move(standing));
}

void start_commits()
{
    const CommandLock lock;
    if (lock.held() && standing_commit())
        stand_until(std::chrono::steady_clock::now());
}

bool stop_commits()
{
    const bool alone = stop_standing();
    history_close();
    return alone;
}

} // namespace qvcd
