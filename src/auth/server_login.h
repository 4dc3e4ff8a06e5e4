#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

/// The permission mask of a connection by its first line, "<client name> <session number> <number>"; 0:
/// access is denied. Session 0 of a client that showed a certificate stands for the user of this name, who
/// needs no log-in. 0xffff for every line when session checking is off. Takes the command lock: do not hold
/// it.
unsigned server_login(std::string_view first_line,
                      const std::optional<std::string> &certificate_user = std::nullopt);

} // namespace qvcd
