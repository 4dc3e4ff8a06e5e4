#include "platform/claim.h"
#include "platform/lock_file.h"
#include "platform_root.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <thread>

namespace qvcd {
namespace {

using namespace std::chrono_literals;

constexpr char kFile[] = "var/run/qv/qvcd.lock";

class Claim : public testing::Test {
  protected:
    ~Claim() override { qv_release_root(); }

    // What another daemon would hold.
    static LockFile other_daemon(std::string_view word)
    {
        std::filesystem::create_directories(test_root.folder.path("var/run/qv"));
        LockFile file = open_lock_file(test_root.folder.path(kFile), 0600);
        EXPECT_TRUE(file.ours);
        EXPECT_TRUE(write_lock_file(file, word));
        return file;
    }
};

TEST_F(Claim, ALiveDaemonKeepsTheRoot)
{
    const struct {
        const char *word;
        std::chrono::milliseconds patience;
        const char *refusal;
    } rows[] = {
        {"running\n", 10min, "cannot claim /var/run/qv/qvcd.lock: another daemon runs on this root"},
        {"starting\n", 30ms,
         "cannot claim /var/run/qv/qvcd.lock: another daemon on this root starts or stops, and takes too "
         "long"},
        {"", 30ms,
         "cannot claim /var/run/qv/qvcd.lock: another daemon on this root starts or stops, and takes too "
         "long"},
    };
    for (const auto &row : rows) {
        const LockFile other = other_daemon(row.word);
        EXPECT_EQ(qv_claim_root(row.patience), row.refusal);
        EXPECT_EQ(test_root.folder.read(kFile), row.word);
        qv_claim_stopping(); // is none of ours to say
        qv_release_root();
        EXPECT_EQ(test_root.folder.read(kFile), row.word);
    }
}

TEST_F(Claim, OneThatStopsIsWaitedFor)
{
    for (const bool removes : {false, true}) { // its end may be a violent one
        std::thread other([removes, file = other_daemon("stopping\n")]() mutable {
            std::this_thread::sleep_for(50ms);
            if (removes)
                remove_lock_file(file, test_root.folder.path(kFile));
            file = {};
        });
        EXPECT_EQ(qv_claim_root(10min), "");
        other.join();
        EXPECT_FALSE(open_lock_file(test_root.folder.path(kFile), 0600).ours);
        qv_release_root();
    }
}

TEST_F(Claim, NeverFollowsALink)
{
    test_root.folder.write("victim", "precious");
    std::filesystem::create_directories(test_root.folder.path("var/run/qv"));
    std::filesystem::create_symlink("../../../victim", test_root.folder.path(kFile));
    EXPECT_NE(qv_claim_root(), "");
    EXPECT_EQ(test_root.folder.read("victim"), "precious");
    std::filesystem::remove(test_root.folder.path(kFile));
}

} // namespace
} // namespace qvcd
