#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace qvcd {

/// What whoever runs a command does while the command waits on the outside world: sends the replies that are
/// ready, lets others have the command's place. Called on the command's thread, without the command lock, so
/// it may take its time.
class WaitHooks {
  public:
    virtual void before_waiting() noexcept = 0;
    virtual void after_waiting() noexcept = 0;

    /// False when everybody else would wait too: there are no threads to serve them.
    virtual bool can_wait() noexcept = 0;

    /// Bytes of the reply that were not sent yet.
    virtual std::size_t unsent() noexcept = 0;

  protected:
    ~WaitHooks() = default;
};

/// One command runs at a time: the settings trees are not safe even for two readers. The dispatcher holds a
/// CommandLock around each handler. Not recursive: commands that run other commands hold it already.
class CommandLock {
  public:
    /// `hooks` may be null; else they live as long as the lock.
    explicit CommandLock(WaitHooks *hooks = nullptr);
    ~CommandLock();
    CommandLock(const CommandLock &) = delete;
    CommandLock &operator=(const CommandLock &) = delete;

    /// False when the daemon is stopping: the command must not run.
    bool held() const { return held_; }

  private:
    bool held_;
};

/// Lets go of the command lock while something waits on the outside world: a shell command, another daemon, a
/// probe. The hooks of the CommandLock run right after the lock is let go, and right before it is taken
/// again. Does nothing on a thread that does not hold the lock. After it, every node, view and pointer into a
/// tree is stale: look names up again. When the daemon has stopped meanwhile, the destructor never returns.
class Unlocked {
  public:
    Unlocked();
    ~Unlocked();
    Unlocked(const Unlocked &) = delete;
    Unlocked &operator=(const Unlocked &) = delete;

  private:
    bool was_held_;
};

/// False when what may take long must be given up rather than waited for. Call it with the command lock.
bool command_can_wait();

/// Between the names of a command: sends a reply that has become long, with the command lock let go, so that
/// it neither piles up in memory nor holds up others. Nothing is held over it, as over Unlocked.
void send_long_reply();

/// How often a thread has got the command lock. What a command read of the outside world is out of date once
/// this number has changed: others may have run, and changed it.
std::uint64_t command_lock_turns();

/// Commands that have begun and not ended: one that holds the lock, the others wait on the outside world.
int commands_under_way();

/// True when the calling thread holds the command lock.
bool command_lock_is_mine();

/// Lets no further command start and waits up to `patience` for those that run. Returns false when some still
/// run; those never get the lock again.
bool command_lock_close(std::chrono::milliseconds patience);

} // namespace qvcd
