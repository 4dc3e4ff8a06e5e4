#pragma once

#include "platform/socket.h"

#include <string>

namespace qvcd {

/// Makes those who do the same thing do it one after the other, in the order in which they came. Others are
/// not held up.
class Turn {
  public:
    /// Waits until all who came before with the same key have ended, at most until the deadline. Call it
    /// without the command lock.
    Turn(const std::string &key, Deadline deadline);
    ~Turn();
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;

    bool mine() const { return mine_; } ///< false: the deadline came first

  private:
    void leave();

    const std::string key_;
    bool mine_ = false;
};

} // namespace qvcd
