#include "appliance_root.h"
#include "platform/socket.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

namespace qvcd {
namespace {

using namespace std::chrono_literals;

void leave_dead_socket(const std::string &path)
{
    const auto address = unix_address(path);
    const Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(fd.get(), as_sockaddr(&*address), sizeof *address), 0);
    ASSERT_EQ(listen(fd.get(), 1), 0);
}

// What was reported when it could not be done; empty when it could.
std::string why_not(const std::string &name)
{
    testing::internal::CaptureStderr();
    const auto listener = listen_unix(name);
    const std::string reported = testing::internal::GetCapturedStderr();
    return listener ? "" : reported;
}

TEST(UnixEndpoint, OnlyADeadServersSocketIsReplaced)
{
    ASSERT_TRUE(listen_unix("folder"));
    leave_dead_socket(qv_ipc_socket_path("dead"));
    EXPECT_EQ(why_not("dead"), "");
    const auto live = listen_unix("live");
    EXPECT_NE(why_not("live").find("cannot serve /var/run/qv/live.sock: a live server answers there"),
              std::string::npos);
    EXPECT_TRUE(connect_unix(qv_ipc_socket_path("live"), 1s));
    appliance_root().write("var/run/qv/file.sock", "precious");
    EXPECT_NE(why_not("file"), "");
    EXPECT_EQ(appliance_root().read("var/run/qv/file.sock"), "precious");
    EXPECT_NE(why_not(std::string(200, 'x')).find("too long"), std::string::npos);
}

TEST(UnixEndpoint, OfServersThatStartAtOnceOneWins)
{
    ASSERT_TRUE(listen_unix("folder"));
    testing::internal::CaptureStderr();
    for (int round = 0; round < 20; ++round) {
        const std::string name = "race" + std::to_string(round);
        leave_dead_socket(qv_ipc_socket_path(name));
        std::vector<std::optional<UnixListener>> listeners(4);
        std::vector<std::thread> starters;
        for (auto &listener : listeners)
            starters.emplace_back([&] { listener = listen_unix(name); });
        for (std::thread &starter : starters)
            starter.join();
        ASSERT_EQ(std::ranges::count_if(listeners, [](const auto &l) { return l.has_value(); }), 1) << name;
    }
    testing::internal::GetCapturedStderr();
}

} // namespace
} // namespace qvcd
