#include "platform/crypto.h"

#include "platform/crypto_module.h"
#include "platform/log.h"

#include <array>
#include <cerrno>
#include <optional>
#include <sys/random.h>
#include <system_error>

namespace qvcd {

namespace {

constexpr std::uint32_t kLow31Bits = 0x7fffffff;

std::optional<std::array<unsigned char, 16>> md5(std::string_view text)
{
    try {
        if (const auto digest = module<CryptoModule>().md5(text))
            return digest;
        qv_log_print(kLogError, "MD5 is not available\n");
    } catch (const ModuleError &error) {
        qv_log_print(kLogError, "MD5 is not available: %s\n", error.what());
    }
    return std::nullopt;
}

} // namespace

std::int32_t qvcrypto_get_md5_session(std::string_view text)
{
    const auto digest = md5(text);
    if (!digest) // A constant would let strangers in; a random number only makes this one login useless.
        return static_cast<std::int32_t>(qvcrypto_random31());
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number = number << 8U | (*digest)[i];
    number &= kLow31Bits;
    return number == 0 ? 1 : static_cast<std::int32_t>(number);
}

std::string qvcrypto_sha256(std::string_view text)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hex;
    try {
        const auto digest = module<CryptoModule>().sha256(text);
        for (const unsigned byte : digest.value()) {
            hex += kDigits[byte >> 4U];
            hex += kDigits[byte & 0xfU];
        }
    } catch (const std::exception &error) {
        qv_log_print(kLogError, "SHA-256 is not available: %s\n", error.what());
    }
    return hex;
}

std::uint32_t qvcrypto_random31()
{
    std::uint32_t bits = 0;
    while (::getrandom(&bits, sizeof bits, 0) != static_cast<ssize_t>(sizeof bits)) {
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    return bits & kLow31Bits;
}

bool qvcrypto_equal(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    volatile unsigned difference = 0; // so that no compiler ends the loop early
    for (std::size_t i = 0; i < a.size(); ++i)
        difference = difference | (static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]));
    return difference == 0;
}

} // namespace qvcd
