#pragma once

#include "auth/session.h"
#include "auth/user.h"
#include "store/tree.h"
#include "temp_folder.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace qvcd {

/// The appliance's root folder of this test program; it must be named before anything asks for it.
inline const TempFolder &auth_root()
{
    static const TempFolder root;
    static const bool ready = [] {
        setenv("QV_SYSROOT", root.path().c_str(), 1);
        std::filesystem::create_directories(root.path("tmp"));
        return true;
    }();
    static_cast<void>(ready);
    return root;
}

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

/// Starts each test with the users above, session 0 and an empty list file.
class AuthTest : public testing::Test {
  protected:
    void SetUp() override
    {
        auth_root().write("etc/user.conf", kUserFile);
        ASSERT_EQ(0, user_set_db_file(qv_device_file("/etc/user.conf")));
        ASSERT_EQ(0, user_load_db_file(qv_device_file("/etc/user.conf")));
        ASSERT_EQ(0, session_load_db_file(0));
    }
    void TearDown() override
    {
        session_unload_db_file();
        user_unload_db_file();
        std::filesystem::remove_all(auth_root().path("etc"));
    }

    static std::string list() { return auth_root().read("tmp/current_sessions"); }
    static std::string user_file() { return auth_root().read("etc/user.conf"); }
    static unsigned mode_of(const std::string &name)
    {
        struct stat st {};
        EXPECT_EQ(0, stat(auth_root().path(name).c_str(), &st)) << name;
        return st.st_mode & 07777U;
    }
};

} // namespace qvcd
