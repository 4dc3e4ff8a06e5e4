#include "appliance_root.h"
#include "loopback.h"
#include "platform/line_server.h"
#include "platform_client.h"
#include "platform_wait.h"

#include <atomic>
#include <ctime>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace qvcd {
namespace {

using namespace std::chrono_literals;

constexpr auto kLong = 30s;

// Holds up those that say "wait" until it is opened.
class Gate {
  public:
    void pass()
    {
        ++inside;
        open_.wait(false);
    }
    void open()
    {
        open_ = true;
        open_.notify_all();
    }
    std::atomic<int> inside{0};

  private:
    std::atomic<bool> open_{false};
};

// Echoes lines until an empty one; tells how the conversation ended.
class Echo : public LineHandler {
  public:
    Echo(Gate &gate, Gate &second, const Peer &peer) : gate_(gate), second_(second), peer_(peer) {}

    Next line(std::string_view line, LineConnection &connection) override
    {
        if (line == "\n")
            return say("@\n", connection), Next::close;
        ++lines;
        if (line.starts_with("raw "))
            return raw_ = std::stoul(std::string(line.substr(4))), kept_.clear(), Next::go_on;
        if (line.starts_with('#'))
            return Next::go_on;
        if (line == "throw\n")
            throw std::runtime_error("on demand");
        wait_at_end_ = line == "wait at the end\n";
        if (line == "wait if possible\n" && !connection.can_wait())
            return say("busy\n", connection), Next::go_on;
        if (line == "wait for the second\n")
            wait(connection, second_);
        else if (line.starts_with("wait") && !wait_at_end_)
            wait(connection, gate_);
        if (line.ends_with("wait again\n"))
            wait(connection, gate_);
        if (line.ends_with("nap\n")) {
            ++naps;
            std::this_thread::sleep_for(5ms);
        }
        if (line == "big\n")
            return say(std::string(8 << 20, 'x') + "\n", connection), Next::go_on;
        if (line == "who\n") {
            std::string who = peer_.local ? std::to_string(peer_.uid) : peer_.address;
            for (const gid_t group : peer_.groups)
                who += " " + std::to_string(group);
            return say(who + "\n", connection), Next::go_on;
        }
        return say("<" + std::string(line), connection), Next::go_on;
    }
    void end(End why, LineConnection &connection) override
    {
        if (wait_at_end_)
            wait(connection, gate_);
        constexpr const char *kTexts[] = {"input\n", "idle\n", "bad\n", "crowded\n"};
        say(kTexts[static_cast<int>(why)], connection);
    }

    std::size_t raw_bytes() const override { return raw_; }
    std::size_t held() const override { return kept_.capacity(); }
    Next raw(std::string_view bytes, LineConnection &connection) override
    {
        kept_ += bytes;
        raw_ -= bytes.size();
        if (raw_ == 0)
            say(std::to_string(std::hash<std::string>()(kept_)) + "\n", connection);
        return Next::go_on;
    }

    bool is_privileged() const override { return peer_.local && local_is_privileged; }

    static inline bool local_is_privileged = true;
    static inline std::atomic<std::size_t> lines{0};
    static inline std::atomic<int> naps{0};

  private:
    static void wait(LineConnection &connection, Gate &gate)
    {
        connection.begin_wait();
        gate.pass();
        connection.end_wait();
    }
    static void say(const std::string &text, LineConnection &connection)
    {
        std::fputs(text.c_str(), connection.out());
    }
    Gate &gate_, &second_;
    Peer peer_;
    bool wait_at_end_ = false;
    std::size_t raw_ = 0;
    std::string kept_;
};

std::string times(int n, const std::string &text)
{
    std::string all;
    while (n-- > 0)
        all += text;
    return all;
}

class Lines : public testing::Test {
  protected:
    void start(ServerLimits limits = {})
    {
        server = std::make_unique<LineServer>(
            [this](const Peer &peer) { return std::make_unique<Echo>(gate, second, peer); }, limits);
        auto listener = listen_unix("lines");
        ASSERT_TRUE(listener);
        server->listen(std::move(*listener));
        Fd tcp = listen_tcp("127.0.0.1", 0);
        port = port_of(tcp);
        server->listen(std::move(tcp));
        ASSERT_TRUE(server->start());
    }
    void TearDown() override
    {
        Echo::local_is_privileged = true;
        gate.open();
        second.open();
        if (server) {
            EXPECT_TRUE(server->stop(kLong));
        }
    }
    static TestClient local() { return TestClient::of("lines"); }
    TestClient tcp() const { return TestClient(connect_tcp("127.0.0.1", port, kLong)); }

    Gate gate, second;
    std::unique_ptr<LineServer> server;
    std::string port;
};

TEST_F(Lines, ConversationsAndTheirEnds)
{
    start();
    const std::string longest(kMaxLineBytes, 'x');
    const struct {
        std::string said, answer;
    } cases[] = {
        {"a\nb\n\n", "<a\n<b\n@\n"},
        {"a\nhalf", "<a\n<halfinput\n"},
        {"", "input\n"},
        {longest + "\n\n", "<" + longest + "\n@\n"},
        {longest + "y\n\n", "bad\n"},
        {"a\nthrow\nb\n\n", ""},
        {"who\n\n", std::to_string(getuid()) + "\n@\n"},
        {"\n" + std::string(100000, 'x'), "@\n"}, // the answer arrives though the client says more
    };
    for (const auto &c : cases) {
        TestClient client = local();
        std::thread talker([&] { // the client may be cut off while it talks
            client.say(c.said);
            client.end_input();
        });
        EXPECT_EQ(client.all(), c.answer) << c.said.substr(0, 60);
        talker.join();
    }
    TestClient client = tcp();
    ASSERT_TRUE(client.say("who\n\n"));
    EXPECT_EQ(client.all(), "127.0.0.1\n@\n");
}

// The kernel tells the groups that the client had when it connected.
TEST_F(Lines, GroupsOfLocalClients)
{
    start();
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become somebody else";
    const std::filesystem::path folder = appliance_root().path();
    std::filesystem::permissions(folder, std::filesystem::perms(0755));
    ASSERT_EQ(chmod(qv_ipc_socket_path("lines").c_str(), 0666), 0);
    for (const std::size_t count : {0U, 3U, 100U}) {
        std::vector<gid_t> groups;
        std::string expected;
        for (std::size_t i = 0; i < count; ++i) {
            groups.push_back(static_cast<gid_t>(50000 + i));
            expected += " " + std::to_string(groups.back());
        }
        // Rights are a thread's own where the C library does not spread them.
        Fd socket;
        std::thread([&] {
            if (syscall(SYS_setgroups, groups.size(), groups.data()) == 0 &&
                syscall(SYS_setresuid, -1, 65534, -1) == 0)
                socket = connect_unix(qv_ipc_socket_path("lines"), kLong);
        }).join();
        TestClient client(std::move(socket));
        EXPECT_TRUE(client.say("who\n\n"));
        EXPECT_EQ(client.all(), "65534" + expected + "\n@\n");
    }
}

TEST_F(Lines, WhoWaitsHoldsUpNobody)
{
    start({.waiting = 3, .reserved = 0});
    std::vector<TestClient> waiting;
    for (int i = 0; i < 5; ++i) {
        waiting.push_back(local());
        ASSERT_TRUE(waiting.back().say("before\nwait\nafter\n\n"));
        EXPECT_EQ(waiting.back().line(), "<before\n"); // what was answered is sent before the wait
    }
    EXPECT_TRUE(comes_true([this] { return gate.inside == 3; }));
    TestClient quick = local();
    ASSERT_TRUE(quick.say("x\n\n"));
    EXPECT_EQ(quick.all(), "<x\n@\n");
    EXPECT_EQ(gate.inside, 3); // the others wait for a place
    gate.open();
    for (TestClient &client : waiting)
        EXPECT_EQ(client.all(), "<wait\n<after\n@\n");
    EXPECT_EQ(gate.inside, 5);
}

TEST_F(Lines, OneSourceLeavesPlacesForWaitsToOthers)
{
    Echo::local_is_privileged = false;
    start({.waiting = 4, .reserved = 0});
    std::vector<TestClient> waiting;
    for (int i = 0; i < 3; ++i) {
        waiting.push_back(tcp());
        ASSERT_TRUE(waiting.back().say("x\nwait\n\n"));
        EXPECT_EQ(waiting.back().line(), "<x\n");
    }
    EXPECT_TRUE(comes_true([this] { return gate.inside == 2; }));
    TestClient other = local();
    ASSERT_TRUE(other.say("wait for the second\n\n"));
    EXPECT_TRUE(comes_true([this] { return second.inside == 1; }));
    EXPECT_EQ(gate.inside, 2);
    gate.open();
    second.open();
    EXPECT_EQ(other.all(), "<wait for the second\n@\n");
    for (TestClient &client : waiting)
        EXPECT_EQ(client.all(), "<wait\n@\n");
}

TEST_F(Lines, WhoWaitsTwiceQueuesOnce)
{
    start({.waiting = 1, .reserved = 0});
    TestClient twice = local();
    ASSERT_TRUE(twice.say("wait, then wait again\n"));
    EXPECT_TRUE(comes_true([this] { return gate.inside == 1; }));
    TestClient queues = local();
    ASSERT_TRUE(queues.say("x\nwait for the second\n\n"));
    EXPECT_EQ(queues.line(), "<x\n");
    gate.open();
    EXPECT_EQ(twice.line(), "<wait, then wait again\n");
    second.open();
    EXPECT_EQ(queues.all(), "<wait for the second\n@\n");
}

TEST_F(Lines, WhoDoesNotReadHoldsUpNobodyAndGetsAllInTheEnd)
{
    start();
    TestClient slow = local();
    ASSERT_TRUE(slow.say("big\nbig\nx\n"));
    TestClient quick = tcp();
    ASSERT_TRUE(quick.say("x\n\n"));
    EXPECT_EQ(quick.all(), "<x\n@\n");
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(slow.line().size(), (8U << 20) + 1);
    EXPECT_EQ(slow.line(), "<x\n");
}

TEST_F(Lines, RawBytesComeAsTheyAre)
{
    start({.held = 3U << 20, .idle = 300ms});
    std::string bytes = times(40000, "x\n\n@\n");
    bytes += '\0';
    const std::string hash = std::to_string(std::hash<std::string>()(bytes)) + "\n";
    const std::string announced = "raw " + std::to_string(bytes.size()) + "\n";
    TestClient whole = local();
    ASSERT_TRUE(whole.say("a\n" + announced + bytes + "b\n\n"));
    EXPECT_EQ(whole.all(), "<a\n" + hash + "<b\n@\n");

    TestClient half = tcp();
    ASSERT_TRUE(half.say(announced + bytes.substr(1)));
    half.end_input();
    EXPECT_EQ(half.all(), "bad\n");
    for (const std::size_t size : {std::size_t{0}, kRawPieceBytes, kRawPieceBytes + 9}) {
        TestClient late = local(); // says no more
        ASSERT_TRUE(late.say(announced + bytes.substr(0, size)));
        EXPECT_EQ(late.all(), "bad\n") << size;
    }
    TestClient large = tcp(); // the handler keeps more than all may hold
    large.say("raw 5000000\n" + std::string(4900000, 'x'));
    EXPECT_EQ(large.all(), "");
    TestClient other = local();
    ASSERT_TRUE(other.say("x\n\n"));
    EXPECT_EQ(other.all(), "<x\n@\n");
}

TEST_F(Lines, WhoSaysTooMuchWaitsHisTurn)
{
    start();
    TestClient flood = local();
    Echo::lines = 0;
    const std::string remark = "#" + std::string(30, '-') + "\n";
    ASSERT_TRUE(flood.say(times(100000, remark))); // 3 MB; what is not handled is not read either
    EXPECT_GT(Echo::lines, 100000U - (1U << 20) / remark.size());

    std::vector<TestClient> floods;
    for (int i = 0; i < 20; ++i) {
        floods.push_back(local());
        ASSERT_TRUE(floods.back().say(times(100, "nap\n")));
    }
    TestClient polite = tcp();
    const int before = Echo::naps;
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(polite.say("x\n"));
        EXPECT_EQ(polite.line(), "<x\n");
    }
    EXPECT_LT(Echo::naps - before, 1000); // of 2000
}

// What the loop can do nothing about just now must not keep it running.
TEST_F(Lines, TheLoopRestsWhenThereIsNothingToDo)
{
    start();
    const auto rests = [](const char *what) {
        std::this_thread::sleep_for(100ms);
        const std::clock_t before = std::clock(); // of all threads
        std::this_thread::sleep_for(400ms);
        EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 25) << what;
    };
    TestClient longest = local();
    ASSERT_TRUE(longest.say(std::string(kMaxLineBytes, 'x')));
    rests("the longest line, without its end");
    ASSERT_TRUE(longest.say("\n\n"));
    EXPECT_EQ(longest.all().size(), kMaxLineBytes + 4);

    TestClient waiting = local();
    ASSERT_TRUE(waiting.say("wait\n")); // makes no room
    EXPECT_TRUE(comes_true([this] { return gate.inside == 1; }));
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    Fd client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const rlimit none{static_cast<rlim_t>(::dup(client.get())), limit.rlim_max};
    ::close(static_cast<int>(none.rlim_cur));
    const auto address = unix_address(qv_ipc_socket_path("lines"));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const int connected = ::connect(client.get(), as_sockaddr(&*address), sizeof *address);
    rests("a connection, and no descriptors left");
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    ASSERT_EQ(connected, 0);
    TestClient late(std::move(client));
    ASSERT_TRUE(late.say("x\n\n"));
    EXPECT_EQ(late.all(), "<x\n@\n");
}

TEST_F(Lines, TimeIsLimited)
{
    start({.first_line = 50ms, .idle = 100ms, .send = 100ms});
    TestClient silent = local();
    EXPECT_EQ(silent.all(), "idle\n");
    TestClient half = local();
    ASSERT_TRUE(half.say("x"));
    EXPECT_EQ(half.all(), "bad\n");
    TestClient pausing = local();
    ASSERT_TRUE(pausing.say("x\n"));
    EXPECT_EQ(pausing.line(), "<x\n");
    EXPECT_EQ(pausing.all(), "idle\n");
    TestClient busy = local();
    ASSERT_TRUE(busy.say(times(150, "nap\n"))); // its time does not run while the server works for it
    busy.end_input();
    EXPECT_EQ(busy.all(), times(150, "<nap\n") + "input\n");
    TestClient waiting = local();
    ASSERT_TRUE(waiting.say("wait at the end\n"));
    EXPECT_TRUE(comes_true([this] { return gate.inside == 1; }));
    gate.open();
    EXPECT_EQ(waiting.all(), "<wait at the end\nidle\n");
    TestClient dribbling = local();
    ASSERT_TRUE(dribbling.say("x\n"));
    for (bool open = true; open; std::this_thread::sleep_for(5ms))
        open = dribbling.say("y");
    EXPECT_EQ(dribbling.all(), "<x\nbad\n");
    TestClient deaf = local();
    ASSERT_TRUE(deaf.say("big\n"));
    EXPECT_TRUE(comes_true([&] { // it could have read
        pollfd entry{deaf.fd(), 0, 0};
        return ::poll(&entry, 1, 0) > 0 && (entry.revents & POLLHUP) != 0;
    }));
    EXPECT_LT(deaf.all().size(), 8U << 20);
}

TEST_F(Lines, OneSourceLeavesRoomForOthers)
{
    Echo::local_is_privileged = false;
    start({.per_source = 20});
    for (const bool over_tcp : {false, true}) {
        std::vector<TestClient> one_source;
        for (int i = 0; i < 21; ++i)
            one_source.push_back(over_tcp ? tcp() : local());
        EXPECT_EQ(one_source.back().all(), "");
        for (int i = 0; i < 20; ++i) {
            ASSERT_TRUE(one_source[i].say("\n"));
            EXPECT_EQ(one_source[i].all(), "@\n");
        }
        TestClient later = over_tcp ? tcp() : local(); // the places are free again
        ASSERT_TRUE(later.say("\n"));
        EXPECT_EQ(later.all(), "@\n");
    }
}

TEST_F(Lines, WhoHoldsMostMemoryGoes)
{
    start({.held = 600'000});
    std::vector<TestClient> talking;
    for (const std::size_t size : {100'000U, 300'000U, 250'000U}) {
        talking.push_back(tcp());
        ASSERT_TRUE(talking.back().say(std::string(size, 'x')));
    }
    EXPECT_EQ(talking[1].all(), "");
    for (const int i : {0, 2}) {
        ASSERT_TRUE(talking[i].say("\n\n"));
        EXPECT_TRUE(talking[i].all().ends_with("x\n@\n"));
    }
}

// As where the system lets us have no more: no stack is so large that it could be had.
TEST_F(Lines, WithoutAThreadToSpareTheOthersAreServed)
{
    start({.reserved = 0});
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_getattr_default_np(&attributes), 0);
    std::size_t usual = 0;
    pthread_attr_getstacksize(&attributes, &usual);
    pthread_attr_setstacksize(&attributes, std::size_t{1} << 46);
    ASSERT_EQ(pthread_setattr_default_np(&attributes), 0);
    TestClient waiting = local();
    ASSERT_TRUE(waiting.say("wait\n"));
    EXPECT_TRUE(comes_true([this] { return gate.inside == 1; }));
    TestClient refused = local(); // the second of the threads must not be used up
    ASSERT_TRUE(refused.say("wait if possible\nx\n"));
    EXPECT_EQ(refused.line(), "busy\n");
    EXPECT_EQ(refused.line(), "<x\n");
    pthread_attr_setstacksize(&attributes, usual);
    ASSERT_EQ(pthread_setattr_default_np(&attributes), 0);
    pthread_attr_destroy(&attributes);
    ASSERT_TRUE(refused.say("wait if possible\n"));
    EXPECT_TRUE(comes_true([this] { return gate.inside == 2; }));
    gate.open();
    EXPECT_EQ(refused.line(), "<wait if possible\n");
    EXPECT_EQ(waiting.line(), "<wait\n");
}

TEST_F(Lines, WhoIsBusyMakesNoRoom)
{
    start({.connections = 1, .reserved = 1});
    TestClient waiting = local();
    ASSERT_TRUE(waiting.say("wait, then nap\n\n"));
    EXPECT_TRUE(comes_true([this] { return gate.inside == 1; }));
    EXPECT_EQ(tcp().all(), "");
    TestClient administrator = local();
    ASSERT_TRUE(administrator.say("x\n\n"));
    EXPECT_EQ(administrator.all(), "<x\n@\n");
    Echo::naps = 0;
    gate.open();
    EXPECT_TRUE(comes_true([] { return Echo::naps == 1; }));
    EXPECT_TRUE(server->stop(kLong));
    server.reset();
    EXPECT_EQ(waiting.line(), "<wait, then nap\n"); // what was done is told, though the server stops
}

TEST_F(Lines, AThreadThatDoesNotComeBackIsLeftBehind)
{
    start();
    TestClient client = local();
    ASSERT_TRUE(client.say("wait\n"));
    EXPECT_TRUE(comes_true([this] { return gate.inside == 1; }));
    EXPECT_FALSE(server->stop(1ms));
    EXPECT_EQ(client.all(), "");
    server.reset();
    gate.open();
    std::this_thread::sleep_for(50ms); // what it touches is still there: for the sanitizers
}

} // namespace
} // namespace qvcd
