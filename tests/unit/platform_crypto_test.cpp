#include "platform/crypto.h"

#include <gtest/gtest.h>

namespace qvcd {
namespace {

TEST(Crypto, SessionIsTheHeadOfTheMd5Digest)
{
    // Digests of RFC 1321, appendix A.5.
    EXPECT_EQ(qvcrypto_get_md5_session(""), 0xd41d8cd9 & 0x7fffffff);
    EXPECT_EQ(qvcrypto_get_md5_session("message digest"), 0xf96b697d & 0x7fffffff);
}

TEST(Crypto, RandomNumbersHave31BitsAndDiffer)
{
    std::uint32_t seen = 0;
    for (int i = 0; i < 200; ++i) {
        const std::uint32_t number = qvcrypto_random31();
        EXPECT_LE(number, 0x7fffffffU);
        seen |= number;
    }
    EXPECT_EQ(seen, 0x7fffffffU); // each bit shows up; a miss has odds of 31 in 2^200
}

} // namespace
} // namespace qvcd
