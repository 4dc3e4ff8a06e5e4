#include "base/command_lock.h"
#include "loopback.h"
#include "status/http_probe.h"
#include "status/uplink.h"
#include "status_fixture.h"

namespace qvcd {
namespace {

class UplinkTest : public StatusTest {
  protected:
    static void probe(const std::string &maker, const std::string &open_web)
    {
        only_values({{"System.Configuration.Uplink.maker_url", maker},
                     {"System.Configuration.Uplink.public_url", open_web}});
    }

    // The interfaces that stand for the modem, the wireless and the wired link.
    static void local_links(const std::string &interface)
    {
        for (const char *name : {"Ppp0", "Wlan0", "Eth0"})
            metaDB.set(std::string("Network.CurrentSettings.Interfaces.") + name + ".linkstate.attr",
                       interface);
    }
};

std::string url_of(const std::string &port)
{
    return "http://127.0.0.1:" + port + "/";
}

TEST_F(UplinkTest, Probe)
{
    const std::pair<std::string, bool> cases[] = {
        {"HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n", true},
        {"HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1:1/\r\nContent-Length: 0\r\n\r\n", true},
        {"HTTP/1.1 200 OK\r\nContent-Length: 500\r\n\r\nhello", false}, // breaks off
        {"", false},
    };
    for (const auto &[answer, reachable] : cases) {
        AnsweringMachine server(answer, "\r\n\r\n");
        EXPECT_EQ(http_reachable(url_of(server.port())), reachable) << answer;
        EXPECT_TRUE(server.requests().starts_with("GET / HTTP/1.1\r\n")) << server.requests();
    }
    const LoopbackPort closed;
    AnsweringMachine server("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", "\r\n\r\n");
    EXPECT_TRUE(http_reachable("127.0.0.1:" + server.port()));
    for (const std::string &url : {url_of(closed.port()), "ftp://127.0.0.1:" + server.port() + "/",
                                   "file://" + appliance_root().path(), std::string()})
        EXPECT_FALSE(http_reachable(url)) << url;
}

TEST_F(UplinkTest, ReachesAsFarAsTheProbesAndLinksSay)
{
    const LoopbackPort closed;
    AnsweringMachine server("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", "\r\n\r\n");
    const struct {
        std::string maker, open_web;
        const char *interface, *uplink;
    } cases[] = {
        {url_of(server.port()), url_of(closed.port()), "no-such-link", "provider"},
        {url_of(closed.port()), url_of(closed.port()), "lo", "local"},
        {url_of(closed.port()), url_of(closed.port()), "no-such-link", "none"},
    };
    for (const auto &c : cases) {
        probe(c.maker, c.open_web);
        local_links(c.interface);
        EXPECT_EQ(read_with(uplink_rfunc, nullptr, nullptr), c.uplink) << c.maker << " " << c.interface;
    }
}

// The server answers the first of two passes of probes, and only after another command had the lock and
// changed the addresses.
TEST_F(UplinkTest, ProbesOnceARequestWithoutTheCommandLock)
{
    const LoopbackPort closed;
    AnsweringMachine other("HTTP/1.1 204 No Content\r\n\r\n", "\r\n\r\n");
    LoopbackPort once;
    ASSERT_EQ(listen(once.socket(), 5), 0);
    const CommandLock lock;
    probe(url_of(once.port()), url_of(closed.port()));
    std::thread server([&] {
        const Fd client(accept(once.socket(), nullptr, nullptr));
        shutdown(once.socket(), SHUT_RDWR);
        const CommandLock other_command;
        EXPECT_TRUE(other_command.held());
        probe(url_of(once.port()), url_of(other.port()));
        const std::string answer = "HTTP/1.1 204 No Content\r\n\r\n";
        send(client.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
    });
    Request request(0xffff);
    EXPECT_EQ(read_for(request, uplink_rfunc, nullptr), "internet");
    EXPECT_TRUE(command_lock_is_mine());
    server.join();
    EXPECT_EQ(read_for(request, uplink_rfunc, nullptr), "internet") << "of the same request";
    EXPECT_EQ(read_with(uplink_rfunc, nullptr, nullptr), "provider");
}

} // namespace
} // namespace qvcd
