#include "base/turn.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>

namespace qvcd {

namespace {

struct Turns {
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::string, std::deque<Turn *>> lines; // the first of each has its turn
    std::uint64_t clock = 0;                         // orders arrivals and beginnings
};

// Never destroyed: threads that are left behind at shutdown may still wait here.
Turns &turns()
{
    static Turns *const t = new Turns;
    return *t;
}

} // namespace

Turn::Turn(const std::string &key, Deadline deadline, Result result) : key_(key), wanted_(result)
{
    Turns &t = turns();
    std::unique_lock lock(t.mutex);
    arrived_ = ++t.clock;
    std::deque<Turn *> &line = t.lines[key_];
    line.push_back(this);
    t.changed.wait_until(lock, deadline, [&] { return line.front() == this || shared_; });
    mine_ = line.front() == this && !shared_;
    if (mine_)
        began_ = ++t.clock;
    else
        leave();
}

Turn::~Turn()
{
    if (!mine_)
        return;
    const std::lock_guard lock(turns().mutex);
    leave();
}

void Turn::share(const std::string &result)
{
    Turns &t = turns();
    const std::lock_guard lock(t.mutex);
    for (Turn *other : t.lines.find(key_)->second) {
        if (other != this && other->wanted_ == Result::shared && other->arrived_ < began_)
            other->shared_ = result;
    }
    t.changed.notify_all();
}

void Turn::leave()
{
    Turns &t = turns();
    const auto line = t.lines.find(key_);
    std::erase(line->second, this);
    if (line->second.empty())
        t.lines.erase(line);
    t.changed.notify_all();
}

} // namespace qvcd
