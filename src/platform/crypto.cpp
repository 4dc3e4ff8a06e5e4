#include "platform/crypto.h"

#include "platform/log.h"

#include <array>
#include <cerrno>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <sys/random.h>
#include <system_error>

namespace qvcd {

namespace {
constexpr std::uint32_t kLow31Bits = 0x7fffffff;
}

std::int32_t qvcrypto_get_md5_session(std::string_view text)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    if (EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_md5(), nullptr) != 1) {
        // A constant would let strangers in; a random number only makes this one login useless.
        qv_log_print(kLogError, "MD5 is not available\n");
        return static_cast<std::int32_t>(qvcrypto_random31());
    }
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number = number << 8U | digest[i];
    number &= kLow31Bits;
    return number == 0 ? 1 : static_cast<std::int32_t>(number);
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
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

} // namespace qvcd
