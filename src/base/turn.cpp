#include "base/turn.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>

namespace qvcd {

namespace {

struct Turns {
    std::mutex mutex;
    std::condition_variable next;
    std::map<std::string, std::deque<const Turn *>> lines; // the first of each has its turn
};

// Never destroyed: threads that are left behind at shutdown may still wait here.
Turns &turns()
{
    static Turns *const t = new Turns;
    return *t;
}

} // namespace

Turn::Turn(const std::string &key, Deadline deadline) : key_(key)
{
    Turns &t = turns();
    std::unique_lock lock(t.mutex);
    std::deque<const Turn *> &line = t.lines[key_];
    line.push_back(this);
    mine_ = t.next.wait_until(lock, deadline, [&] { return line.front() == this; });
    if (!mine_)
        leave();
}

Turn::~Turn()
{
    if (!mine_)
        return;
    const std::lock_guard lock(turns().mutex);
    leave();
}

void Turn::leave()
{
    Turns &t = turns();
    const auto line = t.lines.find(key_);
    std::erase(line->second, this);
    if (line->second.empty())
        t.lines.erase(line);
    t.next.notify_all();
}

} // namespace qvcd
