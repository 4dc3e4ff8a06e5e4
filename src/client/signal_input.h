#pragma once

#include <csignal>
#include <initializer_list>
#include <utility>
#include <vector>

#include "platform/fd.h"

namespace qvcd::client {

/// Signals as something to wait for, even where a shell started us with them ignored, as it does in the
/// background. At the end everything is as before, and a signal that was seen has had its effect.
class SignalInput {
  public:
    explicit SignalInput(std::initializer_list<int> signals);
    ~SignalInput();
    SignalInput(const SignalInput &) = delete;
    SignalInput &operator=(const SignalInput &) = delete;

    enum class Came { nothing, input, signal };

    /// Waits until `fd` (-1: none) has something to read, a signal has come, or the time is over (-1: never).
    Came wait(int fd, int milliseconds);

  private:
    Fd fd_;
    std::vector<std::pair<int, struct sigaction>> actions_before_;
    sigset_t mask_before_{};
    bool arrived_ = false;
};

} // namespace qvcd::client
