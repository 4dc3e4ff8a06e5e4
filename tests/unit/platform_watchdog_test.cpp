#include "platform/process.h"
#include "platform/service_manager.h"
#include "platform/watchdog.h"
#include "platform_client.h"
#include "platform_wait.h"
#include "temp_folder.h"

#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace qvcd {
namespace {

// Stands in for the service manager: a datagram socket that the environment names.
class Watchdog : public testing::Test {
  protected:
    Watchdog() : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const auto address = unix_address(folder_.path("manager"));
        EXPECT_EQ(bind(socket_.get(), as_sockaddr(&*address), sizeof *address), 0);
        set_receive_timeout(socket_.get(), std::chrono::seconds(30));
        setenv("NOTIFY_SOCKET", folder_.path("manager").c_str(), 1);
        setenv("WATCHDOG_USEC", "20000", 1);
        unsetenv("WATCHDOG_PID");
    }
    ~Watchdog() override
    {
        unsetenv("NOTIFY_SOCKET");
        unsetenv("WATCHDOG_USEC");
    }

    std::string message(int flags = 0)
    {
        char text[256];
        const ssize_t n = recv(socket_.get(), text, sizeof text, flags);
        return n < 0 ? "" : std::string(text, static_cast<std::size_t>(n));
    }

    // What waits to be read.
    std::vector<std::string> messages()
    {
        std::vector<std::string> all;
        for (std::string text = message(MSG_DONTWAIT); !text.empty(); text = message(MSG_DONTWAIT))
            all.push_back(text);
        return all;
    }

  private:
    TempFolder folder_;
    Fd socket_;
};

struct Health {
    std::atomic<int> result{0};
    std::atomic<int> asked{0};
};

int look(void *context)
{
    auto *health = static_cast<Health *>(context);
    ++health->asked;
    return health->result;
}

TEST_F(Watchdog, TicksWhileHealthyAndSaysThatItStops)
{
    qv_daemon_ready();
    EXPECT_EQ(message(), "READY=1");
    Health health;
    health.result = 1;
    WatchdogHandle *handle = qvwatchdog_start("test", 10, look, &health);
    EXPECT_TRUE(comes_true([&] { return health.asked >= 3; }));
    EXPECT_EQ(messages(), std::vector<std::string>{});
    health.result = 0;
    EXPECT_EQ(message(), "WATCHDOG=1");
    EXPECT_EQ(message(), "WATCHDOG=1");
    qvwatchdog_stop(handle);
    const std::vector<std::string> rest = messages();
    EXPECT_EQ(std::count(rest.begin(), rest.end(), "STOPPING=1"), 1);
}

TEST_F(Watchdog, WithoutAManagerOrItsIntervalTheCheckIsLookedAtOnly)
{
    for (const char *variable : {"WATCHDOG_USEC", "NOTIFY_SOCKET"}) {
        unsetenv(variable);
        Health health;
        WatchdogHandle *handle = qvwatchdog_start("test", 3600, look, &health);
        EXPECT_TRUE(comes_true([&] { return health.asked >= 1; }));
        qvwatchdog_stop(handle); // at once, not in an hour
    }
    EXPECT_EQ(messages(), std::vector<std::string>{"STOPPING=1"});
    qvwatchdog_stop(nullptr);
}

TEST_F(Watchdog, AnIntervalMustBeMeantForThisProcess)
{
    for (const char *process : {"1", ""}) {
        setenv("WATCHDOG_PID", process, 1);
        EXPECT_EQ(watchdog_interval(), std::nullopt) << process;
    }
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    EXPECT_EQ(watchdog_interval(), std::chrono::milliseconds(20));
    unsetenv("WATCHDOG_PID");
    for (const char *microseconds : {"0", "2s", ""}) {
        setenv("WATCHDOG_USEC", microseconds, 1);
        EXPECT_EQ(watchdog_interval(), std::nullopt) << microseconds;
    }
}

TEST(ServiceManager, MayListenInTheAbstractNamespace)
{
    const std::string name = "@qvcd-test-" + std::to_string(getpid());
    auto address = *unix_address(name);
    address.sun_path[0] = '\0';
    const Fd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    ASSERT_EQ(bind(socket.get(), as_sockaddr(&address), size), 0);
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
    tell_service_manager("READY=1");
    unsetenv("NOTIFY_SOCKET");
    char text[16];
    EXPECT_EQ(recv(socket.get(), text, sizeof text, MSG_DONTWAIT), 7);
}

} // namespace
} // namespace qvcd
