#include "base/shell_later.h"

#include "base/shell.h"
#include "platform/log.h"
#include "platform/thread.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <system_error>

namespace qvcd {

namespace {

constexpr std::size_t kMost = 100;

struct Job {
    std::string command;
    std::chrono::milliseconds limit;
    LateFailure failed;
};

// One thread watches the clock. A command has a thread of its own only while it runs: one that hangs must not
// hold up the reboot behind it.
struct Later {
    std::mutex mutex;
    std::condition_variable changed;
    std::multimap<Deadline, Job> waiting;
    std::size_t running = 0;
    bool stopping = false;
    std::thread clock; // runs from the first job on
};

// Never destroyed: a command may still run at shutdown.
Later &later()
{
    static Later *const l = new Later;
    return *l;
}

void run(const Job &job)
{
    const ShellErrors errors;
    const int status = shell_run(shell_with_errors(job.command), job.limit, job.command);
    if (status != 0)
        job.failed(status, errors.text());
    qv_log_print(kLogDebug, "  delay_syscall: %s\n", job.command.c_str());
    const std::lock_guard lock(later().mutex);
    --later().running;
}

void start(Later &l, Job job)
{
    try {
        start_quiet_thread([job = std::move(job)] { run(job); }).detach();
        ++l.running;
    } catch (const std::system_error &error) {
        qv_log_print(kLogError, "a delayed command is lost: %s\n", error.what());
    }
}

void watch_the_clock()
{
    Later &l = later();
    std::unique_lock lock(l.mutex);
    while (!l.stopping) {
        if (l.waiting.empty()) {
            l.changed.wait(lock);
        } else if (const Deadline due = l.waiting.begin()->first; due > std::chrono::steady_clock::now()) {
            l.changed.wait_until(lock, due);
        } else {
            start(l, std::move(l.waiting.begin()->second));
            l.waiting.erase(l.waiting.begin());
        }
    }
}

} // namespace

bool shell_run_later(std::chrono::seconds delay, std::string command, std::chrono::milliseconds limit,
                     LateFailure failed)
{
    Later &l = later();
    const std::lock_guard lock(l.mutex);
    if (l.stopping || l.waiting.size() + l.running >= kMost) {
        qv_log_print(kLogWarning, "not run later, %s: %s\n",
                     l.stopping ? "the daemon stops" : "too many wait", command.c_str());
        return false;
    }
    try {
        if (!l.clock.joinable())
            l.clock = start_quiet_thread(watch_the_clock);
    } catch (const std::system_error &error) {
        qv_log_print(kLogError, "not run later, %s: %s\n", error.what(), command.c_str());
        return false;
    }
    l.waiting.emplace(std::chrono::steady_clock::now() + delay,
                      Job{std::move(command), limit, std::move(failed)});
    l.changed.notify_all();
    return true;
}

bool shell_stop_later()
{
    Later &l = later();
    {
        const std::lock_guard lock(l.mutex);
        l.stopping = true;
        for (const auto &[due, job] : l.waiting)
            qv_log_print(kLogWarning, "not run any more, the daemon stops: %s\n", job.command.c_str());
        l.waiting.clear();
    }
    l.changed.notify_all();
    if (l.clock.joinable())
        l.clock.join();
    const std::lock_guard lock(l.mutex);
    return l.running == 0;
}

} // namespace qvcd
