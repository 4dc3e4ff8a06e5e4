#include "appliance_root.h"
#include "platform/module.h"
#include "platform/sysroot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace qvcd {
namespace {

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
