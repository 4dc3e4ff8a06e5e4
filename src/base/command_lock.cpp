#include "base/command_lock.h"

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace qvcd {

namespace {

// `busy` stands for the lock itself; a plain mutex could not be watched for "nobody is inside any more" while
// commands wait outside in Unlocked.
struct State {
    std::mutex mutex;
    std::condition_variable freed;
    bool busy = false;
    bool closed = false;
    std::atomic<std::uint64_t> turns = 0;
    int running = 0; // commands begun and not ended, those in Unlocked included
};

// Never destroyed: threads that are left behind at shutdown may still wait here.
State &state()
{
    static State *const s = new State;
    return *s;
}

thread_local bool mine = false;
thread_local WaitHooks *wait_hooks = nullptr; // of the command that this thread runs

void release(State &s, int ended)
{
    bool closed = false;
    {
        std::lock_guard lock(s.mutex);
        s.busy = false;
        s.running -= ended;
        mine = false;
        closed = s.closed;
    }
    // When the daemon stops, two kinds of waiters listen: commands that come back, and who closes the lock.
    if (closed)
        s.freed.notify_all();
    else
        s.freed.notify_one();
}

} // namespace

CommandLock::CommandLock(WaitHooks *hooks) : held_(false)
{
    State &s = state();
    std::unique_lock lock(s.mutex);
    s.freed.wait(lock, [&] { return s.closed || !s.busy; });
    if (s.closed)
        return;
    s.busy = true;
    ++s.turns;
    ++s.running;
    mine = held_ = true;
    wait_hooks = hooks;
}

CommandLock::~CommandLock()
{
    if (!held_)
        return;
    wait_hooks = nullptr;
    release(state(), 1);
}

Unlocked::Unlocked() : was_held_(mine)
{
    if (!was_held_)
        return;
    release(state(), 0);
    if (wait_hooks)
        wait_hooks->before_waiting();
}

Unlocked::~Unlocked()
{
    if (!was_held_)
        return;
    if (wait_hooks)
        wait_hooks->after_waiting();
    State &s = state();
    std::unique_lock lock(s.mutex);
    s.freed.wait(lock, [&] { return !s.busy; });
    // While command_lock_close() is patient, a command that comes back may still end properly.
    s.busy = true;
    ++s.turns;
    mine = true;
}

bool command_can_wait()
{
    return !mine || !wait_hooks || wait_hooks->can_wait();
}

void send_long_reply()
{
    constexpr std::size_t kLongBytes = std::size_t{256} << 10;
    if (mine && wait_hooks && wait_hooks->unsent() > kLongBytes)
        const Unlocked unlocked;
}

std::uint64_t command_lock_turns()
{
    return state().turns;
}

int commands_under_way()
{
    State &s = state();
    const std::lock_guard lock(s.mutex);
    return s.running;
}

bool command_lock_is_mine()
{
    return mine;
}

bool command_lock_close(std::chrono::milliseconds patience)
{
    State &s = state();
    std::unique_lock lock(s.mutex);
    s.closed = true;
    s.freed.notify_all();
    const bool ended = s.freed.wait_for(lock, patience, [&] { return s.running == 0; });
    if (!ended)
        s.freed.wait(lock, [&] { return !s.busy; }); // a handler that computes ends by itself
    s.busy = true; // from here on nobody gets in: who comes back from the outside world waits for the exit
    return ended;
}

} // namespace qvcd
