#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qvcd {

/// The session number that stands for a login's credentials: the first four bytes of the text's MD5 digest,
/// big-endian, top bit cleared; 0 becomes 1.
std::int32_t qvcrypto_get_md5_session(std::string_view text);

/// The text's SHA-256 digest in hexadecimal digits; empty, after logging why, when there is none.
std::string qvcrypto_sha256(std::string_view text);

/// 31 random bits from the kernel (getrandom(2)).
std::uint32_t qvcrypto_random31();

/// Compares two secrets in a time that depends on their lengths only.
bool qvcrypto_equal(std::string_view a, std::string_view b);

} // namespace qvcd
