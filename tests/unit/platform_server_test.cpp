#include "platform/log.h"
#include "platform/server.h"
#include "platform_client.h"
#include "platform_root.h"
#include "platform_wait.h"

#include <arpa/inet.h>
#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <vector>

namespace qvcd {
namespace {

using namespace std::chrono_literals;
using Read = ServerConnection::Read;

constexpr auto kLong = 30s;

// Echoes each line until an empty one comes, and flushes as the daemon does.
void echo(ServerConnection &connection)
{
    std::string line;
    while (connection.read_line(line, kMaxLineBytes, kLong) == Read::line && line != "\n") {
        std::fputs(("<" + line).c_str(), connection.out());
        if (!connection.line_waiting())
            connection.flush();
    }
    std::fputs("@\n", connection.out());
}

class Server : public testing::Test {
  protected:
    ~Server() override { qv_ipc_server_exit(kLong); }

    static int start_silently(std::string_view name, int places, ConnectionHandler handler)
    {
        testing::internal::CaptureStderr();
        const int result = qv_ipc_server_init(name, places, std::move(handler));
        reported = testing::internal::GetCapturedStderr();
        return result;
    }
    static inline std::string reported;
};

void leave_dead_socket(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr *a = static_cast<const sockaddr *>(static_cast<const void *>(&address));
    ASSERT_EQ(bind(fd.get(), a, sizeof address), 0);
    ASSERT_EQ(listen(fd.get(), 1), 0);
}

TEST_F(Server, SocketAndFolderHaveTheirModes)
{
    ASSERT_EQ(qv_ipc_server_init("modes", 1, echo), 0);
    const std::string path = qv_ipc_socket_path("modes");
    EXPECT_EQ(path, test_root.folder.path("var/run/qv/modes.sock"));
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFSOCK | 0660U);
    ASSERT_EQ(stat(test_root.folder.path("var/run/qv").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFDIR | 0755U);
    qv_ipc_server_exit(kLong);
    EXPECT_NE(stat(path.c_str(), &status), 0) << "the name goes with the server";
}

TEST_F(Server, MoreClientsThanPlacesAreAllServed)
{
    ASSERT_EQ(qv_ipc_server_init("crowd", 3, echo), 0);
    std::vector<std::thread> clients;
    std::atomic<int> served{0};
    for (int i = 0; i < 30; ++i)
        clients.emplace_back([i, &served] {
            TestClient client = TestClient::of("crowd");
            const std::string line = std::to_string(i) + "\n";
            client.say(line + line + "\n");
            served += client.all() == "<" + line + "<" + line + "@\n";
        });
    for (std::thread &client : clients)
        client.join();
    EXPECT_EQ(served, 30);
}

TEST_F(Server, EachPlaceServesAClientOfItsOwn)
{
    ASSERT_EQ(qv_ipc_server_init("places", 3, echo), 0);
    std::vector<TestClient> clients;
    for (int i = 0; i < 3; ++i)
        clients.push_back(TestClient::of("places"));
    for (TestClient &client : clients) { // all stay open
        ASSERT_TRUE(client.say("x\n"));
        EXPECT_EQ(client.line(), "<x\n");
    }
    TestClient waiting = TestClient::of("places");
    ASSERT_TRUE(waiting.say("y\n"));
    clients.front().close();
    EXPECT_EQ(waiting.line(), "<y\n");
}

std::size_t threads()
{
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

// 64 may wait beside the one that is served; one more keeps its place.
TEST_F(Server, ThoseWhoWaitGiveTheirPlaces)
{
    std::promise<void> gate;
    const std::shared_future<void> opened = gate.get_future().share();
    const auto wait_at_the_gate = [opened](ServerConnection &connection) {
        std::fputs("here\n", connection.out());
        connection.begin_wait();
        opened.wait();
        connection.end_wait();
        std::fputs("through\n", connection.out());
    };
    ASSERT_EQ(qv_ipc_server_init("gate", 1, wait_at_the_gate), 0);
    const std::size_t few = threads();
    std::vector<TestClient> clients;
    for (int i = 0; i < 65; ++i) {
        clients.push_back(TestClient::of("gate"));
        ASSERT_EQ(clients.back().line(), "here\n") << i;
    }
    const std::size_t many = threads();
    EXPECT_EQ(many, few + 64);
    TestClient late = TestClient::of("gate");
    EXPECT_EQ(poll_until(late.fd(), POLLIN, deadline_in(50ms)), 0);
    gate.set_value();
    for (TestClient &client : clients)
        EXPECT_EQ(client.all(), "through\n");
    EXPECT_EQ(late.all(), "here\nthrough\n");
    EXPECT_TRUE(comes_true([&] { return threads() == few; })) << threads();
}

TEST_F(Server, TheAnswerArrivesThoughTheClientSaysMore)
{
    ASSERT_EQ(qv_ipc_server_init("talker", 1, echo), 0);
    TestClient client = TestClient::of("talker");
    ASSERT_TRUE(client.say("\n" + std::string(100000, 'x')));
    client.end_input();
    EXPECT_EQ(client.all(), "@\n");
}

TEST_F(Server, AHandlerThatThrowsCostsItsConnectionOnly)
{
    ASSERT_EQ(qv_ipc_server_init("thrower", 1,
                                 [](ServerConnection &connection) {
                                     std::string line;
                                     connection.read_line(line, 255, kLong);
                                     if (line == "throw\n")
                                         throw std::runtime_error("on demand");
                                     std::fputs("ok\n", connection.out());
                                 }),
              0);
    TestClient first = TestClient::of("thrower");
    ASSERT_TRUE(first.say("throw\n"));
    EXPECT_EQ(first.all(), "");
    TestClient second = TestClient::of("thrower");
    ASSERT_TRUE(second.say("x\n"));
    EXPECT_EQ(second.all(), "ok\n");
}

TEST_F(Server, StopEndsOpenConnections)
{
    std::atomic<int> ended{0};
    ASSERT_EQ(qv_ipc_server_init("stop", 3, [&](ServerConnection &c) { echo(c), ++ended; }), 0);
    TestClient talking = TestClient::of("stop");
    TestClient silent = TestClient::of("stop");
    ASSERT_TRUE(talking.say("x\n"));
    EXPECT_EQ(talking.line(), "<x\n");
    ASSERT_TRUE(silent.say("x\n"));
    EXPECT_EQ(silent.line(), "<x\n");
    EXPECT_TRUE(qv_ipc_server_exit(kLong));
    EXPECT_EQ(ended, 2);
    EXPECT_EQ(silent.all(), "");
    EXPECT_FALSE(connect_unix(qv_ipc_socket_path("stop"), 1s));
}

TEST_F(Server, AThreadThatDoesNotComeBackIsLeftBehind)
{
    std::promise<void> inside;
    std::promise<void> go_on;
    std::promise<void> done;
    ASSERT_EQ(qv_ipc_server_init("stuck", 1,
                                 [&](ServerConnection &connection) {
                                     inside.set_value();
                                     go_on.get_future().wait();
                                     std::fputs("nobody reads this\n", connection.out());
                                     connection.flush();
                                     done.set_value();
                                 }),
              0);
    TestClient client = TestClient::of("stuck");
    inside.get_future().wait();
    EXPECT_FALSE(qv_ipc_server_exit(1ms));
    go_on.set_value();
    done.get_future().wait();
}

TEST_F(Server, ADeadServersSocketIsReplaced)
{
    ASSERT_EQ(qv_ipc_server_init("folder", 1, echo), 0);
    leave_dead_socket(qv_ipc_socket_path("dead"));
    ASSERT_EQ(qv_ipc_server_init("dead", 1, echo), 0);
    TestClient client = TestClient::of("dead");
    ASSERT_TRUE(client.say("\n"));
    EXPECT_EQ(client.all(), "@\n");
}

TEST_F(Server, ALiveServersSocketIsNot)
{
    ASSERT_EQ(qv_ipc_server_init("live", 1, echo), 0);
    EXPECT_EQ(start_silently("live", 1, echo), -1);
    EXPECT_NE(reported.find("cannot serve /var/run/qv/live.sock: a live server answers there"),
              std::string::npos)
        << reported;
    TestClient client = TestClient::of("live");
    ASSERT_TRUE(client.say("\n"));
    EXPECT_EQ(client.all(), "@\n");
}

TEST_F(Server, AFileThatIsNoSocketIsKept)
{
    test_root.folder.write("var/run/qv/file.sock", "precious");
    EXPECT_EQ(start_silently("file", 1, echo), -1);
    EXPECT_EQ(test_root.folder.read("var/run/qv/file.sock"), "precious");
    EXPECT_EQ(start_silently(std::string(200, 'x'), 1, echo), -1);
    EXPECT_NE(reported.find("too long"), std::string::npos) << reported;
}

TEST_F(Server, OfServersThatStartAtOnceOneWins)
{
    ASSERT_EQ(qv_ipc_server_init("folder", 1, echo), 0);
    testing::internal::CaptureStderr();
    for (int round = 0; round < 20; ++round) {
        const std::string name = "race" + std::to_string(round);
        leave_dead_socket(qv_ipc_socket_path(name));
        std::atomic<int> winners{0};
        std::vector<std::thread> starters;
        for (int i = 0; i < 4; ++i)
            starters.emplace_back([&] { winners += qv_ipc_server_init(name, 1, echo) == 0; });
        for (std::thread &starter : starters)
            starter.join();
        ASSERT_EQ(winners, 1) << name;
    }
    testing::internal::GetCapturedStderr();
}

// No descriptors left: the client waits in the queue, the server says so once and does not turn in circles.
TEST_F(Server, OutOfDescriptorsIsWaitedOut)
{
    const TempFolder folder;
    qv_log_start(0, false, false, folder.path("log").c_str(), false, "test");
    const Fd log(open(folder.path("log").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(qv_ipc_server_init("full", 1, echo), 0);
    TestClient served = TestClient::of("full");
    ASSERT_TRUE(served.say("x\n"));
    EXPECT_EQ(served.line(), "<x\n");
    TestClient waiting = TestClient::of("full");
    ASSERT_TRUE(waiting.say("\n"));

    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    served.close(); // the server turns to the next client
    char text[4096] = "";
    EXPECT_TRUE(comes_true([&] { return pread(log.get(), text, sizeof text - 1, 0) > 0; }));
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(waiting.all(), "@\n");
    qv_log_stop();
    EXPECT_EQ(folder.read("log"), "cannot accept a connection: Too many open files\n");
}

TEST_F(Server, Tcp)
{
    // A port that was free a moment ago.
    int port = 0;
    {
        const Fd probe = listen_tcp("127.0.0.1", 0);
        sockaddr_in address{};
        socklen_t size = sizeof address;
        ASSERT_EQ(getsockname(probe.get(), static_cast<sockaddr *>(static_cast<void *>(&address)), &size), 0);
        port = ntohs(address.sin_port);
    }
    ASSERT_EQ(qv_rpc_server_init("127.0.0.1", port, 2, echo), 0);
    TestClient client(connect_tcp("127.0.0.1", std::to_string(port), kLong));
    ASSERT_TRUE(client.say("a\nb\n\n"));
    EXPECT_EQ(client.all(), "<a\n<b\n@\n");

    testing::internal::CaptureStderr();
    EXPECT_EQ(qv_rpc_server_init("127.0.0.1", port, 2, echo), -1) << "taken";
    EXPECT_EQ(qv_rpc_server_init("no address", port, 2, echo), -1);
    EXPECT_EQ(qv_rpc_server_init("127.0.0.1", 70000, 2, echo), -1);
    testing::internal::GetCapturedStderr();
    qv_ipc_server_exit(kLong);
    EXPECT_FALSE(connect_tcp("127.0.0.1", std::to_string(port), kLong));
}

TEST_F(Server, DescriptorsDoNotReachChildren)
{
    ASSERT_EQ(qv_ipc_server_init("exec", 1, echo), 0);
    TestClient client = TestClient::of("exec");
    ASSERT_TRUE(client.say("x\n"));
    EXPECT_EQ(client.line(), "<x\n");
    for (int fd = 3; fd < 256; ++fd) {
        const int flags = fcntl(fd, F_GETFD);
        char target[64] = "";
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        const bool is_socket = readlink(link.c_str(), target, sizeof target - 1) > 0 &&
                               std::string_view(target).starts_with("socket:");
        EXPECT_TRUE(!is_socket || (flags & FD_CLOEXEC)) << fd;
    }
}

} // namespace
} // namespace qvcd
