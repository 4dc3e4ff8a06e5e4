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
    if (one_save().try_lock())
        return;
    const Unlocked unlocked;
    one_save().lock();
}

SaveLock::~SaveLock()
{
    if (--depth == 0)
        one_save().unlock();
}

} // namespace qvcd
