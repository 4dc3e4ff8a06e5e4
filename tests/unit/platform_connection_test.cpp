#include "platform/server.h"
#include "platform_client.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace qvcd {
namespace {

using namespace std::chrono_literals;
using Read = ServerConnection::Read;

constexpr auto kLong = 30s;

// A client and the socket of the server's end.
struct Pair {
    Pair()
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        client = std::make_unique<TestClient>(Fd(ends[0]));
        server.reset(ends[1]);
    }
    std::unique_ptr<TestClient> client;
    Fd server;
};

std::vector<std::string> read_all(ServerConnection &connection, std::size_t limit, Read end = Read::end)
{
    std::vector<std::string> lines;
    std::string line;
    Read read = Read::line;
    while ((read = connection.read_line(line, limit, kLong)) == Read::line)
        lines.push_back(line);
    EXPECT_EQ(read, end);
    EXPECT_EQ(connection.read_line(line, limit, kLong), Read::end) << "for good";
    return lines;
}

TEST(Connection, LinesOfATalk)
{
    const struct {
        std::string said;
        std::size_t limit;
        std::vector<std::string> lines;
    } rows[] = {
        {"", 255, {}},
        {"\n", 255, {"\n"}},
        {"a\nbc\n\nd", 255, {"a\n", "bc\n", "\n", "d"}},
        {"abcdefg\nh\n", 4, {"abcd", "efg\n", "h\n"}},
        {"abc\nd\n", 4, {"abc\n", "d\n"}},
        {"abcd\n", 4, {"abcd", "\n"}},
        {"abcde", 4, {"abcd", "e"}},
        {std::string("a\0b\nc\r\n", 7), 255, {std::string("a\0b\n", 4), "c\r\n"}},
    };
    for (const auto &row : rows) {
        Pair pair;
        ASSERT_TRUE(pair.client->say(row.said));
        pair.client->end_input();
        ServerConnection connection(pair.server.get());
        EXPECT_EQ(read_all(connection, row.limit), row.lines) << row.said;
    }
}

TEST(Connection, ALineOfOneMebibyteIsTakenALongerOneEndsTheConnection)
{
    for (const bool too_long : {false, true}) {
        Pair pair;
        const std::string line(kMaxLineBytes + (too_long ? 1 : 0), 'x');
        std::thread writer([&] {
            pair.client->say("first\n" + line + "\nlast\n");
            pair.client->end_input();
        });
        ServerConnection connection(pair.server.get());
        std::vector<std::string> wanted = {"first\n", line + "\n", "last\n"};
        if (too_long)
            wanted.resize(1);
        EXPECT_TRUE(read_all(connection, kMaxLineBytes, too_long ? Read::bad : Read::end) == wanted)
            << too_long;
        shutdown(pair.server.get(), SHUT_RDWR); // the writer may still have something to say
        writer.join();
    }
}

TEST(Connection, ALongBatchKeepsItsLines)
{
    Pair pair;
    std::string batch;
    std::vector<std::string> wanted;
    for (std::size_t i = 0; i < 5000; ++i) {
        wanted.push_back(std::string(i % 400, static_cast<char>('a' + i % 26)) + "\n");
        batch += wanted.back();
    }
    std::thread writer([&] {
        pair.client->say(batch);
        pair.client->end_input();
    });
    ServerConnection connection(pair.server.get());
    EXPECT_TRUE(read_all(connection, kMaxLineBytes) == wanted);
    writer.join();
}

TEST(Connection, LineWaitingKnowsWhatCameWithOneRead)
{
    Pair pair;
    ASSERT_TRUE(pair.client->say("a\nb\nhalf"));
    ServerConnection connection(pair.server.get());
    EXPECT_FALSE(connection.line_waiting()) << "nothing was read yet";
    std::string line;
    ASSERT_EQ(connection.read_line(line, 255, kLong), Read::line);
    EXPECT_TRUE(connection.line_waiting());
    ASSERT_EQ(connection.read_line(line, 255, kLong), Read::line);
    EXPECT_FALSE(connection.line_waiting());
    ASSERT_TRUE(pair.client->say(" whole\n"));
    ASSERT_EQ(connection.read_line(line, 255, kLong), Read::line);
    EXPECT_EQ(line, "half whole\n");
}

TEST(Connection, SilenceEndsTheConnectionForGood)
{
    for (const auto &[said, wanted] : {std::pair("", Read::idle), {"half a line", Read::bad}}) {
        Pair pair;
        ASSERT_TRUE(pair.client->say(said));
        ServerConnection connection(pair.server.get());
        std::string line;
        EXPECT_EQ(connection.read_line(line, 255, 10ms), wanted) << said;
        ASSERT_TRUE(pair.client->say(", the other half\n"));
        EXPECT_EQ(connection.read_line(line, 255, kLong), Read::end);
    }
}

TEST(Connection, ALineThatDribblesInIsHeldToItsDeadline)
{
    Pair pair;
    std::atomic<bool> ended{false};
    // Were each byte to start the time anew, the line would end with the writer's patience instead.
    std::thread writer([&] {
        for (int i = 0; i < 20000 && !ended; ++i) {
            pair.client->say("x");
            std::this_thread::sleep_for(1ms);
        }
        pair.client->say("\n");
    });
    ServerConnection connection(pair.server.get());
    std::string line;
    EXPECT_EQ(connection.read_line(line, kMaxLineBytes, 100ms), Read::bad);
    ended = true;
    writer.join();
}

TEST(Connection, AHalfClosedClientGetsItsAnswer)
{
    Pair pair;
    ASSERT_TRUE(pair.client->say("question\n"));
    pair.client->end_input();
    {
        ServerConnection connection(pair.server.get());
        EXPECT_EQ(read_all(connection, 255).size(), 1U);
        std::fprintf(connection.out(), "answer %d\n", 1);
        EXPECT_EQ(connection.pending(), 9U);
        EXPECT_TRUE(connection.flush());
        EXPECT_EQ(connection.pending(), 0U);
    }
    pair.server.reset();
    EXPECT_EQ(pair.client->all(), "answer 1\n");
}

TEST(Connection, AnAnswerIsSentByFlushOnly)
{
    Pair pair;
    const std::string answer(1 << 20, 'x');
    std::string got;
    std::thread reader([&] { got = pair.client->all(); });
    {
        ServerConnection connection(pair.server.get());
        std::fputs(answer.c_str(), connection.out());
        EXPECT_EQ(connection.pending(), answer.size());
        EXPECT_TRUE(connection.flush());
        std::fputs("lost", connection.out());
    }
    pair.server.reset();
    reader.join();
    EXPECT_TRUE(got == answer) << got.size();
}

// The place is free while the client takes its time to read.
TEST(Connection, WaitingGivesThePlaceAndSendsWhatIsThere)
{
    struct Place final : ServerPlace {
        ServerConnection *connection = nullptr;
        std::vector<std::size_t> left_with;
        void leave() noexcept override { left_with.push_back(connection->pending()); }
        void take_again() noexcept override { left_with.push_back(connection->pending()); }
    } place;
    Pair pair;
    ServerConnection connection(pair.server.get(), kLong, &place);
    place.connection = &connection;
    std::fputs("so far\n", connection.out());
    connection.begin_wait();
    EXPECT_EQ(pair.client->line(), "so far\n");
    connection.end_wait();
    EXPECT_EQ(place.left_with, (std::vector<std::size_t>{7, 0}));
}

TEST(Connection, AClientThatDoesNotReadIsGivenUp)
{
    Pair pair;
    ServerConnection connection(pair.server.get(), 10ms);
    std::fputs(std::string(8 << 20, 'x').c_str(), connection.out());
    EXPECT_FALSE(connection.flush());
    std::fputs("more", connection.out());
    EXPECT_FALSE(connection.flush());
    EXPECT_EQ(connection.pending(), 0U);
    ASSERT_TRUE(pair.client->say("still talking\n"));
    std::string line;
    EXPECT_EQ(connection.read_line(line, 255, kLong), Read::line) << "input outlives output";
}

TEST(Connection, AClientThatWentAwayRaisesNoSignal)
{
    Pair pair;
    ASSERT_TRUE(pair.client->say("set A.B=1\n"));
    pair.client->close();
    ServerConnection connection(pair.server.get());
    std::fputs("answer\n", connection.out());
    EXPECT_FALSE(connection.flush());
    EXPECT_EQ(read_all(connection, 255), std::vector<std::string>{"set A.B=1\n"});
}

} // namespace
} // namespace qvcd
