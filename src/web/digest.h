#pragma once

#include <string>
#include <string_view>

namespace qvcd::web {

/// 256 bits that nobody can guess, as 64 hexadecimal digits. Throws std::runtime_error when the system has
/// none.
std::string random_token();

/// SHA-256, 32 bytes.
std::string digest_of(std::string_view text);

} // namespace qvcd::web
