#pragma once

#include "platform/socket.h"

#include <cstdint>
#include <optional>
#include <string>

namespace qvcd {

/// Makes those who do the same thing do it one after the other, in the order in which they came. Others are
/// not held up.
class Turn {
  public:
    enum class Result { own, shared };

    /// Waits until all who came before with the same key have ended, at most until the deadline. With
    /// Result::shared also until one of them has a result that is as good as an own one: of work that began
    /// after this one came. Call it without the command lock.
    Turn(const std::string &key, Deadline deadline, Result result = Result::own);
    ~Turn();
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;

    bool mine() const { return mine_; } ///< false: it is shared(), or the deadline came first
    const std::optional<std::string> &shared() const { return shared_; }

    /// In one's own turn: gives the result to those who can share it.
    void share(const std::string &result);

  private:
    void leave();

    const std::string key_;
    const Result wanted_;
    bool mine_ = false;
    std::uint64_t arrived_ = 0;
    std::uint64_t began_ = 0; // who arrived before that shares the result
    std::optional<std::string> shared_;
};

} // namespace qvcd
