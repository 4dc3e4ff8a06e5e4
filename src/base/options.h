#pragma once

#include <chrono>

namespace qvcd {

// Options of the command line that other modules ask for. Set before any request is served.

inline int verbose = 2;                      ///< -v: 0 error, 1 warn, 2 info, 3 chitchat, 4 debug
inline int disable_login = 0;                ///< -c: 1 when session checking is off
inline bool hash_passwords = false;          ///< --hash-passwords: the user file holds no plain ones
inline std::chrono::minutes session_idle{0}; ///< --session-idle: unused sessions end after it; 0: never

/// Commands and their parts are timed for the log; true at every level that the option text offers.
inline bool timing_is_on()
{
    return verbose <= 5;
}

} // namespace qvcd
