#pragma once

#include <chrono>
#include <cstddef>

namespace qvcd::client {

/// Says on a terminal (standard error) how far a long exchange of a document is: one line, from the first
/// second on, which is gone at the end.
class TransferProgress {
  public:
    TransferProgress();
    ~TransferProgress();
    TransferProgress(const TransferProgress &) = delete;
    TransferProgress &operator=(const TransferProgress &) = delete;

    /// Bytes: how many of `all` are sent, and what came back.
    void show(std::size_t sent, std::size_t all, std::size_t received);

    /// Before anything else is printed.
    void clear();

  private:
    using Clock = std::chrono::steady_clock;
    const bool wanted_;
    bool shown_ = false;
    Clock::time_point start_ = Clock::now(), next_ = start_ + std::chrono::seconds(1);
};

} // namespace qvcd::client
