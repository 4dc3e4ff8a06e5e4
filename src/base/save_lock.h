#pragma once

namespace qvcd {

/// Saves are serial: whoever reads a configuration file to give it a new text holds this until the text is in
/// its place. A save lets go of the command lock while it waits for the disk, so nobody waits for this lock
/// with the command lock in his hand: the constructor lets go of the command lock (views of trees are stale
/// after it, base/command_lock.h). May be nested. Nothing that runs under it runs commands or
/// programs.
class SaveLock {
  public:
    SaveLock();
    ~SaveLock();
    SaveLock(const SaveLock &) = delete;
    SaveLock &operator=(const SaveLock &) = delete;
};

} // namespace qvcd
