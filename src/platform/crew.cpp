#include "platform/crew.h"

#include "platform/log.h"
#include "platform/thread.h"

#include <exception>
#include <utility>

namespace qvcd {

namespace {
constexpr std::size_t kIdleThreads = 2; // more of them end
} // namespace

bool Crew::start(const std::shared_ptr<void> &owner)
{
    const std::lock_guard lock(mutex_);
    owner_ = owner;
    return spawn_locked() && spawn_locked();
}

bool Crew::spawn_locked()
{
    try {
        const auto self = threads_.emplace(threads_.end());
        *self =
            start_quiet_thread([this, self, lead = recruit_(), owner = owner_.lock()] { work(self, lead); });
        ++idle_;
        return true;
    } catch (const std::exception &error) {
        threads_.remove_if([](const std::thread &thread) { return !thread.joinable(); });
        if (trouble_.over())
            qv_log_print(kLogError, "cannot start a server thread: %s\n", error.what());
        return false;
    }
}

void Crew::work(Threads::iterator self, const Lead &lead)
{
    std::unique_lock lock(mutex_);
    while (!stopping_ && idle_ <= kIdleThreads) {
        if (led_) {
            lead_is_free_.wait(lock);
            continue;
        }
        led_ = true;
        --idle_;
        lock.unlock();
        const bool ends = lead();
        lock.lock();
        ++idle_;
        if (ends) {
            led_ = false;
            stopping_ = true;
            lead_is_free_.notify_all();
        }
    }
    --idle_;
    // Whoever waits for the end wants all of it: a thread's last deed is to free what libraries kept for it.
    std::thread before = std::exchange(last_ended_, std::move(*self));
    threads_.erase(self);
    one_has_ended_.notify_all();
    lock.unlock();
    if (before.joinable())
        before.join();
}

bool Crew::has_follower()
{
    const std::lock_guard lock(mutex_);
    return idle_ > 0 || spawn_locked();
}

void Crew::hand_over()
{
    const std::lock_guard lock(mutex_);
    led_ = false;
    if (idle_ == 0)
        spawn_locked();
    lead_is_free_.notify_one();
}

std::size_t Crew::stop(std::chrono::milliseconds patience)
{
    std::unique_lock lock(mutex_);
    stopping_ = true;
    lead_is_free_.notify_all();
    one_has_ended_.wait_for(lock, patience, [this] { return threads_.empty(); });
    const std::size_t left = threads_.size();
    for (std::thread &thread : threads_)
        thread.detach();
    std::thread last = std::move(last_ended_);
    lock.unlock();
    if (last.joinable())
        last.join();
    return left;
}

} // namespace qvcd
