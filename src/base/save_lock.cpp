#include "base/save_lock.h"

#include "base/command_lock.h"

#include <mutex>

namespace qvcd {

namespace {

thread_local int depth = 0;

std::mutex &one_save()
{
    static std::mutex *const mutex = new std::mutex; // threads may be left behind at the exit
    return *mutex;
}

} // namespace

SaveLock::SaveLock()
{
    if (depth++ > 0)
        return;
    // Also when nobody has it: a client that is slow to take its replies takes its time here, not with the
    // lock in its hand.
    const Unlocked unlocked;
    one_save().lock();
}

SaveLock::~SaveLock()
{
    if (--depth == 0)
        one_save().unlock();
}

} // namespace qvcd
