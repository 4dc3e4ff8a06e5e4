#pragma once

#include "appliance_root.h"
#include "auth/session.h"
#include "auth/user.h"
#include "store/tree.h"

#include <gtest/gtest.h>

namespace qvcd {

inline constexpr char kUserFile[] = "Group {\n"
                                    "  0 {\n    perm = 7777\n  }\n"
                                    "  1 {\n    perm = 777\n  }\n"
                                    "  2 {\n    perm = 7777\n  }\n"
                                    "}\n"
                                    "User {\n"
                                    "  admin {\n    group = 1\n    passwd = kelpo\n    default = first\n  }\n"
                                    "  viewer {\n    group = 2\n    passwd = a b\n  }\n"
                                    "  silent {\n    group = 2\n  }\n"
                                    "}\n";

inline constexpr unsigned kRoot = 0x7777;
inline constexpr unsigned kAdmin = 0x0777;
inline constexpr unsigned kViewer = 0x0077;

inline const char *import_users(unsigned rights, const std::string &path)
{
    Tree fresh = Tree::make();
    HdfRead read = hdf_read_foreign_file(path, fresh);
    return user_import(rights, read, std::move(fresh));
}

/// Starts each test with the users above, session 0 and an empty list file.
class AuthTest : public OnEmptyRoot<testing::Test> {
  protected:
    void SetUp() override
    {
        OnEmptyRoot::SetUp();
        std::filesystem::create_directory(appliance_root().path("tmp"));
        appliance_root().write("etc/user.conf", kUserFile);
        ASSERT_EQ(0, user_set_db_file(qv_device_file("/etc/user.conf")));
        ASSERT_EQ(0, user_load_db_file(qv_device_file("/etc/user.conf")));
        ASSERT_EQ(0, session_load_db_file(0));
    }
    void TearDown() override
    {
        session_unload_db_file();
        user_unload_db_file();
    }

    static std::string list() { return appliance_root().read("tmp/current_sessions"); }
    static std::string user_file() { return appliance_root().read("etc/user.conf"); }
    static unsigned mode_of(const std::string &name) { return appliance_root().mode_of(name); }
};

} // namespace qvcd
