#include "appliance_root.h"
#include "loopback.h"
#include "platform/channel.h"
#include "platform/line_server.h"
#include "platform_client.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <utility>

namespace qvcd {
namespace {

using namespace std::chrono_literals;

constexpr auto kLong = 30s;

// A certificate of "box" that is its own authority, made once.
const TlsFiles &files()
{
    static const TlsFiles made = [] {
        const std::string stem = appliance_root().path() + "/box";
        const std::string command =
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 "
            "-subj /CN=box -addext subjectAltName=DNS:box -keyout " +
            stem + ".key -out " + stem + ".pem 2>/dev/null";
        EXPECT_EQ(std::system(command.c_str()), 0);
        return TlsFiles{stem + ".pem", stem + ".key", ""};
    }();
    return made;
}

std::unique_ptr<TlsStream> client_side()
{
    return TlsContext::client({"", "", files().certificate}).connect("box");
}

// Both ends of a connection whose handshake is done.
struct Ends {
    Ends()
    {
        int sockets[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets), 0);
        server = Channel(Fd(sockets[0]), TlsContext::server(files()).accept());
        client = Channel(Fd(sockets[1]), client_side());
        for (bool done = false; !done;) {
            done = client.handshake();
            EXPECT_TRUE(done || errno == EAGAIN) << client.problem();
            done &= server.handshake();
            EXPECT_TRUE(done || errno == EAGAIN) << server.problem();
        }
    }
    Channel server, client;
};

// Reads as a loop around poll(2) does, until nothing is told of.
std::string read_told(Channel &channel)
{
    std::string text;
    std::string buffer(Channel::kLeastRead, '\0');
    pollfd entry{channel.fd(), POLLIN, 0};
    while (poll(&entry, 1, 0) == 1) {
        const ssize_t n = channel.read(buffer.data(), buffer.size());
        if (n == 0 || (n < 0 && errno != EAGAIN))
            break;
        text.append(buffer, 0, static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
    }
    return text;
}

TEST(TlsChannel, PollTellsOfAllThatComes)
{
    Ends ends;
    std::string sent;
    for (const std::size_t size : {1U, 16384U, 3U, 16383U, 16384U, 2U}) {
        const std::string piece(size, static_cast<char>('a' + sent.size() % 26));
        ASSERT_TRUE(ends.client.write_all(piece, kLong));
        sent += piece;
    }
    EXPECT_EQ(read_told(ends.server), sent);
    EXPECT_EQ(ends.server.read(sent.data(), sent.size()), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST(TlsChannel, WhatWasNotTakenGoesOnFromAnotherPlaceInMemory)
{
    Ends ends;
    std::string sent;
    for (char c = 'a'; sent.size() < (4U << 20); c = c == 'z' ? 'a' : static_cast<char>(c + 1))
        sent.append(1001, c);
    std::string left = sent;
    std::string received;
    while (!left.empty()) {
        const ssize_t n = ends.server.write(left);
        if (n < 0) {
            ASSERT_EQ(errno, EAGAIN);
            EXPECT_EQ(ends.server.write_events(), POLLOUT);
            received += read_told(ends.client);
        }
        left = std::string(left, static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
    }
    received += read_told(ends.client);
    EXPECT_EQ(received, sent);
}

TEST(TlsChannel, TheFarewellWaitsForItsPlace)
{
    Ends ends;
    char byte = 'x';
    read_told(ends.client);                                     // the session tickets
    while (send(ends.server.fd(), &byte, 1, MSG_DONTWAIT) == 1) // fills the socket behind its back
        continue;
    EXPECT_FALSE(ends.server.finish());
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(ends.server.write_events(), POLLOUT);
    while (recv(ends.client.fd(), &byte, 1, MSG_DONTWAIT) == 1)
        continue;
    EXPECT_TRUE(ends.server.finish());
    EXPECT_TRUE(ends.server.finish());
    EXPECT_EQ(ends.client.read(&byte, 1), 0);
    // The other direction is still open.
    EXPECT_TRUE(ends.client.write_all("y", kLong));
    EXPECT_EQ(ends.server.read(&byte, 1), 1);
}

TEST(TlsChannel, AStreamThatBreaksOffIsAFailure)
{
    Ends ends;
    char byte = 0;
    ends.client = Channel();
    EXPECT_EQ(ends.server.read(&byte, 1), -1);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_FALSE(ends.server.write_all("x", kLong)); // and no signal
}

class Mute : public LineHandler {
    Next line(std::string_view, LineConnection &) override { return Next::go_on; }
    void end(End why, LineConnection &connection) override
    {
        std::fputs(why == End::bad ? "bad\n" : "", connection.out());
    }
};

TEST(TlsServer, TimeIsLimited)
{
    LineServer server([](const Peer &) { return std::make_unique<Mute>(); },
                      {.first_line = 300ms, .idle = 300ms, .send = 300ms});
    Fd listener = listen_tcp("127.0.0.1", 0);
    const std::string port = port_of(listener);
    server.listen(std::move(listener), std::make_shared<TlsContext>(TlsContext::server(files())));
    ASSERT_TRUE(server.start());
    const auto connect = [&] { return connect_tcp("127.0.0.1", port, kLong); };
    const auto secure = [&] {
        Channel channel(connect(), client_side());
        while (!channel.handshake() && errno == EAGAIN)
            poll_until(channel.fd(), channel.read_events(), deadline_in(kLong));
        return channel;
    };
    const auto all = [](Channel &channel) {
        std::string text;
        std::string buffer(Channel::kLeastRead, '\0');
        for (;;) {
            const ssize_t n = channel.read(buffer.data(), buffer.size());
            if (n < 0 && errno == EAGAIN && poll_until(channel.fd(), POLLIN, deadline_in(kLong)) > 0)
                continue;
            if (n <= 0)
                return text;
            text.append(buffer, 0, static_cast<std::size_t>(n));
        }
    };

    for (const std::string_view sent : {std::string_view(), std::string_view("\x16\x03\x01", 3)}) {
        TestClient stalled(connect());
        ASSERT_TRUE(stalled.say(sent));
        EXPECT_EQ(stalled.all(), "");
    }
    Channel half = secure();
    ASSERT_TRUE(half.write_all("x", kLong));
    EXPECT_EQ(all(half), "bad\n");
    EXPECT_TRUE(server.stop(kLong));
}

} // namespace
} // namespace qvcd
