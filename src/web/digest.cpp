#include "web/digest.h"

#include <array>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <stdexcept>

namespace qvcd::web {

std::string random_token()
{
    constexpr char digits[] = "0123456789abcdef";
    std::array<unsigned char, 32> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1)
        throw std::runtime_error("the system has no random numbers");
    std::string token;
    for (const unsigned char byte : bytes)
        token.append({digits[byte >> 4U], digits[byte & 0xfU]});
    return token;
}

std::string digest_of(std::string_view text)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    if (EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("no digest can be made");
    return {digest.begin(), digest.begin() + size};
}

} // namespace qvcd::web
