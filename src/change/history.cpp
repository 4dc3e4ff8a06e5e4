#include "change/history.h"

#include "base/command_lock.h"
#include "base/replacement.h"
#include "base/text.h"
#include "change/history_module.h"
#include "platform/log.h"
#include "platform/sysroot.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <unistd.h>

namespace qvcd {

namespace {

constexpr std::size_t kBatchEntries = 64; // visited at a time
constexpr std::size_t kBatchValues = 1000;

enum class Access { read, write };

// What is done with the store; gives the number of an entry, or 0.
using Work = std::function<std::int64_t(HistoryStore &store)>;

class History {
  public:
    HistoryResult run(Access access, const Work &work);
    void note_end(std::int64_t number, std::string_view end);
    void note_that_none_awaits();
    void close();

  private:
    std::int64_t try_again(const Work &work, std::string &problem);
    HistoryStore &store();
    void put_aside();
    std::string explained(Access access, const char *why);

    std::mutex mutex_; // guards what follows
    std::unique_ptr<HistoryStore> store_;
    std::int64_t last_ = 0;                    // the highest number that an entry is known to have got
    std::set<std::string> logged_;             // problems, since the last entry that was written
    std::map<std::int64_t, std::string> ends_; // that are not written yet
    bool none_awaits_ = false;                 // what says so was confirmed
};

// What could not be written when it happened is written when it can.
void History::note_end(std::int64_t number, std::string_view end)
{
    const Unlocked unlocked;
    const std::lock_guard lock(mutex_);
    ends_[number] = end;
}

void History::note_that_none_awaits()
{
    const Unlocked unlocked;
    const std::lock_guard lock(mutex_);
    none_awaits_ = true;
}

// Nobody waits for the mutex with the command lock: who has it waits for the disk.
HistoryResult History::run(Access access, const Work &work)
{
    const Unlocked unlocked;
    const std::lock_guard lock(mutex_);
    HistoryResult result;
    try {
        result.number = try_again(work, result.problem);
        last_ = std::max(last_, result.number);
        if (access == Access::write)
            logged_.clear();
    } catch (const std::exception &error) {
        store_.reset(); // the next one begins anew
        result.problem += (result.problem.empty() ? "" : "; ") + explained(access, error.what());
    }
    return result;
}

// What looks damaged may only have been read badly.
std::int64_t History::try_again(const Work &work, std::string &problem)
{
    try {
        return work(store());
    } catch (const HistoryDamaged &) {
        store_.reset();
    }
    try {
        return work(store());
    } catch (const HistoryDamaged &damage) {
        put_aside();
        problem = one_line(std::string("the history is damaged and was put aside as ") + kDamagedHistoryFile +
                           ": " + damage.what());
        qv_log_print(kLogError, "%s\n", problem.c_str());
    }
    return work(store());
}

// The file may have been removed or replaced since it was opened.
HistoryStore &History::store()
{
    if (store_ && !store_->is_in_place())
        store_.reset();
    if (!store_) {
        const std::string path = qv_sysroot_path(kHistoryFile);
        if (const int error = make_folder(folder_of(path)))
            throw HistoryError(std::strerror(error));
        store_ = module<HistoryModule>().open(path, last_);
        last_ = std::max(last_, store_->last());
    }
    for (const auto &[number, end] : ends_)
        store_->end(number, end);
    ends_.clear();
    if (none_awaits_)
        store_->replace_end(kAwaitsConfirmation, kConfirmed);
    none_awaits_ = false;
    return *store_;
}

// The two files of SQLite beside it belong to it, when they are there.
void History::put_aside()
{
    store_.reset();
    const std::string path = qv_sysroot_path(kHistoryFile);
    const std::string aside = qv_sysroot_path(kDamagedHistoryFile);
    if (std::rename(path.c_str(), aside.c_str()) != 0)
        throw HistoryError(std::string("damaged, and cannot be put aside: ") + std::strerror(errno));
    for (const char *part : {"-wal", "-shm"}) {
        if (std::rename((path + part).c_str(), (aside + part).c_str()) != 0)
            ::unlink((aside + part).c_str()); // of an older one
    }
}

std::string History::explained(Access access, const char *why)
{
    const char *const what = access == Access::read ? "read" : "written";
    std::string problem = one_line(std::string("the history cannot be ") + what + ": " + why);
    if (logged_.insert(problem).second)
        qv_log_print(kLogError, "%s\n", problem.c_str());
    return problem;
}

void History::close()
{
    const std::unique_lock lock(mutex_, std::try_to_lock);
    if (!lock)
        return;
    store_.reset();
    last_ = 0;
    logged_.clear();
}

History &history()
{
    static auto *const history = new History; // threads may be left behind at the exit
    return *history;
}

} // namespace

HistoryResult history_add(const HistoryEntry &entry)
{
    return history().run(Access::write, [&](HistoryStore &store) { return store.add(entry); });
}

std::string history_end(std::int64_t number, std::string_view end)
{
    history().note_end(number, end);
    return history().run(Access::write, [](HistoryStore &) { return 0; }).problem;
}

void history_none_awaits()
{
    history().note_that_none_awaits();
}

std::string history_visit(const std::vector<std::string> &names,
                          const std::function<bool(const HistoryEntry &)> &visit)
{
    std::vector<std::int64_t> numbers;
    const auto list = [&](HistoryStore &store) {
        numbers = store.numbers(names);
        return numbers.empty() ? 0 : numbers.front();
    };
    std::string problem = history().run(Access::read, list).problem;
    for (auto next = numbers.begin(); problem.empty() && next != numbers.end();) {
        std::vector<HistoryEntry> batch;
        const auto read = [&](HistoryStore &store) {
            std::size_t values = 0;
            for (; next != numbers.end() && batch.size() < kBatchEntries && values < kBatchValues; ++next) {
                if (auto entry = store.entry(*next)) {
                    values += entry->values.size();
                    batch.push_back(std::move(*entry));
                }
            }
            return 0;
        };
        problem = history().run(Access::read, read).problem;
        if (!std::ranges::all_of(batch, visit))
            break;
    }
    return problem;
}

void history_close()
{
    history().close();
}

} // namespace qvcd
