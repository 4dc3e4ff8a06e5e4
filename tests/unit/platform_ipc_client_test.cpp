#include "platform/ipc_client.h"
#include "platform/socket.h"
#include "platform_root.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace qvcd {
namespace {

using namespace std::chrono_literals;
using Read = ServerConnection::Read;

constexpr auto kLong = 30s;

// Tells which lines came, up to an empty one.
void report_lines(ServerConnection &connection)
{
    std::string line;
    while (connection.read_line(line, kMaxLineBytes, kLong) == Read::line && line != "\n")
        std::fputs(("got " + line).c_str(), connection.out());
    std::fputs("@\n", connection.out());
}

std::string next_line(std::FILE *in)
{
    char line[256] = "";
    return std::fgets(line, sizeof line, in) ? line : "";
}

class IpcClientTest : public testing::Test {
  protected:
    ~IpcClientTest() override { qv_ipc_server_exit(kLong); }
};

TEST_F(IpcClientTest, OneConversation)
{
    ASSERT_EQ(qv_ipc_server_init("peer", 1, report_lines), 0);
    IpcClient client;
    ASSERT_EQ(qv_ipc_client_connect_single("peer", client), 0);
    std::fputs("status\n\n", client.out);
    std::fflush(client.out);
    EXPECT_EQ(next_line(client.in), "got status\n");
    EXPECT_EQ(next_line(client.in), "@\n");
    EXPECT_EQ(next_line(client.in), "");
    EXPECT_TRUE(std::feof(client.in));
    qv_ipc_client_disconnect(client);
    EXPECT_EQ(client.in, nullptr);
}

TEST_F(IpcClientTest, NobodyThere)
{
    IpcClient client;
    EXPECT_EQ(qv_ipc_client_connect_single("nobody", client), -1);
    EXPECT_EQ(qv_ipc_client_connect_single(std::string(300, 'x'), client), -1);
    EXPECT_EQ(client.in, nullptr);
    EXPECT_EQ(client.out, nullptr);
    qv_ipc_client_disconnect(client);
}

// One that says nothing, and one that never ends but always says something in time.
TEST_F(IpcClientTest, AServerThatDoesNotEndLooksLikeTheEndOfTheStream)
{
    const auto talk = [](ServerConnection &connection) {
        do {
            std::fputs("more\n", connection.out());
            std::this_thread::sleep_for(1ms);
        } while (connection.flush());
    };
    ASSERT_EQ(qv_ipc_server_init("silent", 1, report_lines), 0);
    ASSERT_EQ(qv_ipc_server_init("talker", 1, talk), 0);
    for (const char *name : {"silent", "talker"}) {
        IpcClient client;
        ASSERT_EQ(qv_ipc_client_connect_single(name, client, 50ms), 0);
        while (!next_line(client.in).empty()) {
        }
        EXPECT_TRUE(std::feof(client.in));
        qv_ipc_client_disconnect(client);
    }
}

TEST_F(IpcClientTest, AServerThatIsGoneRaisesNoSignal)
{
    ASSERT_EQ(qv_ipc_server_init("leaving", 1, [](ServerConnection &) {}), 0);
    IpcClient client;
    ASSERT_EQ(qv_ipc_client_connect_single("leaving", client), 0);
    EXPECT_EQ(next_line(client.in), ""); // the server has closed
    std::fputs("anybody?\n", client.out);
    EXPECT_NE(std::fflush(client.out), 0);
    qv_ipc_client_disconnect(client);
}

} // namespace
} // namespace qvcd
