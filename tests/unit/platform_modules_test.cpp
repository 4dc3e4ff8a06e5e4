#include "appliance_root.h"
#include "platform/crypto.h"
#include "platform/module.h"
#include "platform/sysroot.h"

#include <gmock/gmock.h>
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

using testing::HasSubstr;

std::string refusal(const char *name)
{
    try {
        module_table(name);
    } catch (const ModuleError &error) {
        return error.what();
    }
    return {};
}

TEST(Module, WhatCannotBeUsedIsNamed)
{
    EXPECT_THAT(refusal("missing"), HasSubstr("lib/qvcd/missing.so"));
    EXPECT_THAT(refusal("of_another_release"), HasSubstr("of_another_release.so: not of this release"));
}

TEST(Sysroot, NoPathLeadsOutOfIt)
{
    const struct {
        const char *path, *below;
    } cases[] = {
        {"etc//a.conf", "/etc/a.conf"}, {"/etc/", "/etc/"}, {"/etc/x/..", "/etc/"},
        {"/etc/x/../a", "/etc/a"},      {"/..", "/"},       {"../../etc/./a", "/etc/a"},
        {"/a/../../../b", "/b"},        {"/...", "/..."},   {"", "/"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(qv_sysroot_path(c.path), appliance_root().path() + c.below) << c.path;
}

} // namespace
} // namespace qvcd
