#include "web/pool.h"

#include <utility>

namespace qvcd::web {

Pool::Pool(std::size_t threads, std::size_t most_waiting) : most_waiting_(most_waiting)
{
    for (std::size_t i = 0; i < threads; ++i)
        threads_.emplace_back([this] { work(); });
}

Pool::~Pool()
{
    stop(std::chrono::steady_clock::now());
    for (std::thread &thread : threads_)
        thread.join();
}

bool Pool::stop(std::chrono::steady_clock::time_point deadline)
{
    std::unique_lock lock(mutex_);
    ends_ = true;
    waiting_.clear();
    came_.notify_all();
    return ended_.wait_until(lock, deadline, [this] { return running_ == 0; });
}

bool Pool::add(Job job)
{
    {
        const std::lock_guard lock(mutex_);
        if (ends_ || waiting_.size() >= most_waiting_)
            return false;
        waiting_.push_back(std::move(job));
    }
    came_.notify_one();
    return true;
}

void Pool::work()
{
    for (;;) {
        std::unique_lock lock(mutex_);
        came_.wait(lock, [this] { return ends_ || !waiting_.empty(); });
        if (ends_)
            return;
        Job job = std::move(waiting_.front());
        waiting_.pop_front();
        ++running_;
        lock.unlock();
        job();
        job = nullptr;
        lock.lock();
        --running_;
        ended_.notify_all();
    }
}

} // namespace qvcd::web
