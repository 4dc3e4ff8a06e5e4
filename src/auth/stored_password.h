#pragma once

#include "base/command_lock.h"

#include <mutex>
#include <optional>
#include <string>

namespace qvcd {

/// Around what hashes passwords: without the command lock, and one at a time, so that guesses do not take the
/// processor from the appliance. See Unlocked.
class HashTurn {
  private:
    const Unlocked open_;
    const std::lock_guard<std::mutex> turn_{mutex_};
    inline static std::mutex mutex_;
};

/// What the user file holds for a password: its hash, when the option asks for that, or when the password
/// itself looks like one and would be taken for it; else the password. Nothing, after logging why, when there
/// is no hash. May let go of the command lock.
std::optional<std::string> stored_form(const std::string &password);

} // namespace qvcd
