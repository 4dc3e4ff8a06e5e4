#pragma once

#include <string_view>

namespace qvcd {

/// The permission mask of a connection by its first line, "<client name> <session number> <number>"; 0:
/// access is denied. 0xffff for every line when session checking is off. Takes the command lock: do not hold
/// it.
unsigned server_login(std::string_view first_line);

} // namespace qvcd
