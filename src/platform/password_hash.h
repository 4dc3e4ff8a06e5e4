#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

// Hashes of passwords in the form of crypt(5), made with yescrypt. To make or to compare one takes some 50 to
// 100 ms and 16 MiB: not under the command lock, and not many at once.

/// Longer passwords have no hash.
inline constexpr std::size_t kMaxHashedPasswordBytes = 511;

/// True for a whole hash, with its digest, of a method that libcrypt has and at a cost that nobody can raise
/// to hold us up: yescrypt up to 64 MiB, bcrypt up to 2^12 rounds, SHA-256 and SHA-512 with the usual rounds,
/// MD5. Everything else, half a hash as well, is taken for a plain password.
bool qv_is_password_hash(std::string_view text);

/// The hash of a password with a fresh salt; nothing after logging why not.
std::optional<std::string> qv_hash_password(const std::string &password);

/// True when `stored` is the password, or its hash.
bool qv_password_matches(const std::string &stored, const std::string &password);

} // namespace qvcd
