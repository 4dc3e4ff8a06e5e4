#include "change/unconfirmed.h"

#include "base/command_lock.h"
#include "base/notify.h"
#include "change/history.h"
#include "change/undo.h"
#include "platform/log.h"
#include "platform/thread.h"

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <mutex>
#include <system_error>

namespace qvcd {

namespace {

constexpr std::chrono::milliseconds kStopPatience{500}; // behind that of the command lock
constexpr std::chrono::seconds kReplyFirst{1};          // as metadata delays what cuts off a client
constexpr char kTurn[] = "qvcd: commit";
constexpr std::size_t kMaxWaiting = 24; // commits, for the one that runs

std::optional<Standing> standing; // under the command lock

// Watches the time, on a thread of its own that begins with the first commit to be confirmed.
class Clock {
  public:
    void set(Deadline due)
    {
        const std::lock_guard lock(mutex_);
        due_ = due;
        if (!thread_.joinable() && !stopping_)
            thread_ = start_quiet_thread([this] { run(); });
        changed_.notify_all();
    }
    // Not joined while it undoes something: a command that is late for the end never comes back.
    bool stop()
    {
        std::unique_lock lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
        if (!thread_.joinable())
            return true;
        const bool idle = changed_.wait_for(lock, kStopPatience, [this] { return !undoing_; });
        lock.unlock();
        if (idle)
            thread_.join();
        else
            thread_.detach();
        return idle;
    }

  private:
    void run();

    std::mutex mutex_;
    std::condition_variable changed_;
    Deadline due_ = Deadline::max();
    bool stopping_ = false;
    bool undoing_ = false;
    std::thread thread_;
};

Clock &the_clock()
{
    static auto *const clock = new Clock; // a thread may be left behind at the exit
    return *clock;
}

bool is_due()
{
    return standing && standing->state != Standing::State::settling &&
           standing->due <= std::chrono::steady_clock::now();
}

void undo_what_is_due()
{
    const CommandLock lock;
    if (!lock.held() || !is_due())
        return;
    const CommitTurn turn = standing->turn ? standing->turn : commit_turn(kCommitPatience);
    if (is_due()) // still
        undo_now(turn);
}

void Clock::run()
{
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (due_ == Deadline::max()) {
            changed_.wait(lock);
        } else if (due_ > std::chrono::steady_clock::now()) {
            changed_.wait_until(lock, Deadline(due_));
        } else {
            due_ = Deadline::max();
            undoing_ = true;
            lock.unlock();
            undo_what_is_due();
            lock.lock();
            undoing_ = false;
            changed_.notify_all();
        }
    }
}

// Told by the commit's own key, so that an undoing that was cut off has one entry.
std::string key_of_undoing(const UndoRecord &record)
{
    return record.entry.key + "-undone";
}

std::int64_t add_to_history(const HistoryEntry &entry, Report &report)
{
    const HistoryResult added = history_add(entry);
    if (!added.problem.empty())
        report.problem = added.problem;
    return added.number;
}

// The commit's entry, too, when the daemon ended before it was written.
void note_in_history(const Request &request, const Standing &undone, Report &report)
{
    HistoryEntry entry = undone.record.entry;
    entry.end = "undone: " + undone.why;
    for (const UndoRecord::Value &value : undone.record.values)
        entry.values.push_back(value_change(value.api, value.before, value.after, value.secret));
    const std::int64_t number = add_to_history(entry, report);
    entry = {.time = std::time(nullptr),
             .key = key_of_undoing(undone.record),
             .user = request.caller.user,
             .source = request.caller.source,
             .client = request.caller.client,
             .command = "rollback",
             .text = "commit " + std::to_string(number) + ": " + undone.why,
             .end = "done",
             .values = report.values,
             .actions = report.undone};
    report.entry = add_to_history(entry, report);
}

} // namespace

// Who waits takes a place that other commands may need, those of the actions that he waits for, too.
CommitTurn commit_turn(std::chrono::seconds patience)
{
    static std::size_t waiting = 0; // under the command lock
    if (waiting == kMaxWaiting)
        return nullptr;
    auto turn = std::shared_ptr<Turn>();
    ++waiting;
    {
        const Unlocked unlocked;
        turn = std::make_shared<Turn>(kTurn, deadline_in(patience));
    }
    --waiting;
    return turn->mine() ? turn : nullptr;
}

Standing *standing_commit()
{
    return standing ? &*standing : nullptr;
}

void stand(Standing one)
{
    standing = std::move(one);
    stand_until(standing->due);
}

void stand_until(Deadline due)
{
    standing->due = due;
    try {
        the_clock().set(due);
    } catch (const std::system_error &error) {
        qv_log_print(kLogError, "No thread to watch commit %lld, which is undone at the next start: %s\n",
                     static_cast<long long>(standing->number), error.what());
    }
}

void stand_no_more()
{
    standing.reset();
}

void stand_for_actions(Standing undone, std::vector<Actions::Action> actions)
{
    undone.record.values.clear(); // who gives them the same values now keeps them
    undone.record.files.clear();
    undone.record.actions = std::move(actions);
    undone.record.further.clear();
    undone.state = Standing::State::undecided;
    if (const int error = write_undo_record(undone.record).error)
        qv_log_print(kLogError, "Can not record what is left of undoing commit %lld: %s\n",
                     static_cast<long long>(undone.number), std::strerror(error));
    undone.due = deadline_in(kReplyFirst);
    stand(std::move(undone));
}

namespace {

void complain(const Standing &undone, const std::vector<std::string> &problems, Report &report)
{
    for (const std::string &problem : problems) {
        report.errors.push_back({"Commit", "##Can not undo: " + problem + "#"});
        qv_log_print(kLogError, "Can not undo commit %lld: %s\n", static_cast<long long>(undone.number),
                     problem.c_str());
    }
}

void try_again_later()
{
    standing->state = Standing::State::undecided;
    standing->turn = nullptr;
    stand_until(std::chrono::steady_clock::now() + kTryAgain);
}

// False when there is nothing to undo now.
bool read_record(Report &report)
{
    UndoRead read = read_undo_record();
    if (read.error) {
        complain(*standing, {std::string("its record: ") + std::strerror(read.error)}, report);
        try_again_later();
    } else if (!read.record) {
        stand_no_more();
    } else {
        standing->record = std::move(*read.record);
        standing->is_unread = false;
    }
    return standing && !standing->is_unread;
}

// False when its files cannot be put back now.
bool undo(Request &request, const Standing &undone, Delay delay, Report &report, RunAgain &again)
{
    const PutBack files = put_files_back(undone.record);
    complain(undone, files.lost, report);
    complain(undone, files.problems, report);
    if (!files.problems.empty())
        return false;
    report.values = undone.undone;
    for (ValueChange &change : put_values_back(undone.record))
        report.values.push_back(std::move(change));
    again = run_actions_again(request, undone.record, undone.record.actions.size(), delay);
    report.undone = std::move(again.runs);
    return true;
}

} // namespace

void undo_standing(Request &request, Report &report, Delay delay)
{
    if (standing->is_unread && !read_record(report))
        return;
    const Standing undone = *standing;
    const bool is_told = undone.record.values.empty(); // what is left are actions
    const auto tell = [&](std::int64_t entry) {
        if (!is_told)
            notify_publish_on("rollback", "entry", std::to_string(entry));
    };
    if (!undone.undone_by) {
        RunAgain again;
        if (!undo(request, undone, delay, report, again))
            return try_again_later();
        if (!is_told)
            note_in_history(request, undone, report);
        standing->undone_by = report.entry;
        if (!again.left.empty()) {
            stand_for_actions(undone, std::move(again.left));
            return tell(report.entry);
        }
    }
    report.entry = *standing->undone_by;
    if (const int error = remove_undo_record().error) {
        complain(undone, {std::string("its record stays: ") + std::strerror(error)}, report);
        return try_again_later();
    }
    tell(report.entry);
    stand_no_more();
}

std::string undo_now(CommitTurn turn)
{
    standing->turn = std::move(turn);
    standing->state = Standing::State::settling;
    if (!standing->record.values.empty())
        qv_log_print(kLogWarning, "Commit %lld is undone: %s\n", static_cast<long long>(standing->number),
                     standing->why.c_str());
    Request request(kInternalMask);
    Report report;
    undo_standing(request, report, Delay::none);
    return report.problem;
}

bool stop_standing()
{
    return the_clock().stop();
}

} // namespace qvcd
