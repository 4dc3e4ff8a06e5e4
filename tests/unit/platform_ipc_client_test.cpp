#include "appliance_root.h"
#include "platform/ipc_client.h"
#include "platform/socket.h"

#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <thread>

namespace qvcd {
namespace {

using namespace std::chrono_literals;

// A server for one client.
class Peer {
  public:
    Peer(const std::string &name, void (*talk)(int socket))
        : listener_(listen_unix(name)), thread_([this, talk] {
              const Fd client(::accept(listener_->socket.get(), nullptr, nullptr));
              talk(client.get());
          })
    {
    }
    ~Peer() { thread_.join(); }

  private:
    std::optional<UnixListener> listener_;
    std::thread thread_;
};

bool say(int socket, std::string_view text)
{
    return send_all(socket, text, 30s);
}

// Tells which lines came, up to an empty one.
void report_lines(int socket)
{
    std::string text;
    char c = 0;
    while (!text.ends_with("\n\n") && ::recv(socket, &c, 1, 0) == 1)
        text += c;
    say(socket, "got " + text.substr(0, text.find('\n')) + "\n@\n");
}

std::string next_line(std::FILE *in)
{
    char line[256] = "";
    return std::fgets(line, sizeof line, in) ? line : "";
}

TEST(IpcClient, NobodyThere)
{
    IpcClient client;
    EXPECT_EQ(qv_ipc_client_connect_single("nobody", client), -1);
    EXPECT_EQ(qv_ipc_client_connect_single(std::string(300, 'x'), client), -1);
    EXPECT_EQ(client.in, nullptr);
    EXPECT_EQ(client.out, nullptr);
    qv_ipc_client_disconnect(client);
}

// One that says nothing, and one that never ends but always says something in time.
TEST(IpcClient, AServerThatDoesNotEndLooksLikeTheEndOfTheStream)
{
    const Peer silent("silent", report_lines);
    const Peer talker("talker", [](int socket) {
        while (say(socket, "more\n"))
            std::this_thread::sleep_for(1ms);
    });
    for (const char *name : {"silent", "talker"}) {
        IpcClient client;
        ASSERT_EQ(qv_ipc_client_connect_single(name, client, 50ms), 0);
        while (!next_line(client.in).empty()) {
        }
        EXPECT_TRUE(std::feof(client.in));
        qv_ipc_client_disconnect(client);
    }
}

TEST(IpcClient, AServerThatIsGoneRaisesNoSignal)
{
    const Peer leaving("leaving", [](int) {});
    IpcClient client;
    ASSERT_EQ(qv_ipc_client_connect_single("leaving", client), 0);
    EXPECT_EQ(next_line(client.in), ""); // the server has closed
    std::fputs("anybody?\n", client.out);
    EXPECT_NE(std::fflush(client.out), 0);
    qv_ipc_client_disconnect(client);
}

} // namespace
} // namespace qvcd
