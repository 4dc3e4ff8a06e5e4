#include "base/command_lock.h"
#include "base/text.h"

#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace qvcd {
namespace {

TEST(CommandLock, OneAtATimeAndOthersWhileUnlocked)
{
    int inside = 0; // guarded by the command lock; a sanitizer sees a race
    std::atomic<int> most{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                const CommandLock lock;
                ASSERT_TRUE(lock.held());
                most = std::max(most.load(), ++inside);
                --inside;
                const Unlocked unlocked;
                EXPECT_FALSE(command_lock_is_mine());
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(most, 1);
    EXPECT_FALSE(command_lock_is_mine());
}

TEST(CommandLock, HooksRunAroundWaitsWithoutTheLock)
{
    struct Hooks final : WaitHooks {
        std::string seen;
        void note(const char *what)
        {
            std::thread([] { EXPECT_TRUE(CommandLock().held()); }).join(); // or it hangs
            seen += what;
        }
        void before_waiting() noexcept override { note("before "); }
        void after_waiting() noexcept override { note("after "); }
        bool can_wait() noexcept override { return true; }
        std::size_t unsent() noexcept override { return reply; }
        std::size_t reply = 0;
    } hooks;
    {
        const CommandLock lock(&hooks);
        for (int i = 0; i < 2; ++i) {
            const Unlocked unlocked;
            const Unlocked inner; // waits already
            hooks.seen += "waits ";
        }
        send_long_reply();
        hooks.reply = 1 << 20;
        send_long_reply();
    }
    const CommandLock without;
    const Unlocked unlocked;
    EXPECT_EQ(hooks.seen, "before waits after before waits after before after ");
}

TEST(Text, WordsNumbersAndNames)
{
    EXPECT_EQ(split_words(" a,,b\r\n c ", kListSeparators), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(c_int(" -12x"), -12);
    EXPECT_EQ(c_int("4294967297"), 2147483647); // the nearest, not the remainder
    EXPECT_EQ(c_int64("-99999999999999999999"), INT64_MIN);
    EXPECT_EQ(c_hex16("12345"), 0x2345U);
    EXPECT_EQ(to_short_name("My Cam #1!"), "My_Cam_1");
}

} // namespace
} // namespace qvcd
