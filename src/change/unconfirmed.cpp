#include "change/unconfirmed.h"

#include "base/command_lock.h"
#include "base/notify.h"
#include "change/history.h"
#include "change/undo.h"
#include "platform/log.h"
#include "platform/thread.h"

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <system_error>

namespace qvcd {

namespace {

constexpr std::chrono::seconds kTryAgain{5};
constexpr std::chrono::milliseconds kStopPatience{500}; // behind that of the command lock

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

void undo_what_is_due()
{
    const CommandLock lock;
    if (!lock.held() || !standing || standing->state == Standing::State::settling ||
        standing->due > std::chrono::steady_clock::now())
        return;
    qv_log_print(kLogWarning, "Commit %lld is undone: %s\n", static_cast<long long>(standing->number),
                 standing->why.c_str());
    standing->state = Standing::State::settling;
    Request request(kInternalMask);
    Report report;
    undo_standing(request, report);
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

// The commit's entry, too, when the daemon ended before it was written.
void note_in_history(const Request &request, const Standing &undone, Report &report)
{
    const std::string end = "undone: " + undone.why;
    std::int64_t number = undone.number;
    if (number == 0)
        number = history_find(undone.record.entry.key).number;
    if (number != 0)
        report.problem = history_end(number, end);
    HistoryEntry entry = undone.record.entry;
    if (number == 0) {
        entry.end = end;
        for (const UndoRecord::Value &value : undone.record.values)
            entry.values.push_back(value_change(value.api, value.before, value.after, value.secret));
        number = history_add(entry).number;
    }
    if (history_find(key_of_undoing(undone.record)).number != 0)
        return;
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
    const HistoryResult added = history_add(entry);
    report.entry = added.number;
    report.problem = added.problem;
}

} // namespace

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

void undo_standing(Request &request, Report &report)
{
    const Standing undone = *standing;
    const auto complain = [&](const std::vector<std::string> &problems) {
        for (const std::string &problem : problems) {
            report.errors.push_back({"Commit", "##Can not undo: " + problem + "#"});
            qv_log_print(kLogError, "Can not undo commit %lld: %s\n", static_cast<long long>(undone.number),
                         problem.c_str());
        }
    };
    const auto later = [&](const std::vector<std::string> &problems) {
        complain(problems);
        standing->state = Standing::State::undecided;
        stand_until(std::chrono::steady_clock::now() + kTryAgain);
    };
    if (!undone.undone_by) {
        const PutBack files = put_files_back(undone.record);
        complain(files.lost);
        if (!files.problems.empty())
            return later(files.problems);
        report.values = undone.undone;
        for (ValueChange &change : put_values_back(undone.record))
            report.values.push_back(std::move(change));
        report.undone = run_actions_again(request, undone.record, undone.record.actions.size());
        note_in_history(request, undone, report);
        standing->undone_by = report.entry;
    }
    FileResult removed;
    {
        const Unlocked unlocked;
        removed = remove_undo_record();
    }
    if (removed.error && removed.error != ENOENT)
        return later({"its record stays"});
    notify_publish_on("rollback", "entry", std::to_string(standing->undone_by.value_or(0)));
    stand_no_more();
}

bool stop_standing()
{
    return the_clock().stop();
}

} // namespace qvcd
