#pragma once

#include "web/daemon.h"
#include "web/json.h"

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace qvcd::web {

/// What a status value says when something counts after a restart only.
inline constexpr char kRestartNeeded[] = "restart-needed";

/// The types of APIs, kept for a while: the same for everybody who may read an API. For several threads.
class Types {
  public:
    explicit Types(const Daemon &daemon) : daemon_(daemon) {}

    /// The values, which `who` was given, as the truths and numbers that they are.
    Json typed(const Who &who, const std::vector<NamedValue> &values);

    /// The status values that say when a restart is needed, of those that `who` may read.
    Words restart_signs(const Who &who);

  private:
    using Time = std::chrono::steady_clock::time_point;
    std::vector<std::string> known_types(const std::vector<NamedValue> &values, Words &missing);
    void expire();
    void learn(const Who &who, const Words &names);

    const Daemon &daemon_;
    std::mutex mutex_;
    std::unordered_map<std::string, std::string> types_;
    std::map<std::string, Words> restart_signs_; // by group: who may read the same
    Time made_;
};

} // namespace qvcd::web
