#include "appliance_root.h"
#include "platform/claim.h"
#include "platform/lock_file.h"

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
        std::filesystem::create_directories(appliance_root().path("var/run/qv"));
        LockFile file = open_lock_file(appliance_root().path(kFile), 0600);
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
        EXPECT_EQ(appliance_root().read(kFile), row.word);
        qv_claim_stopping(); // is none of ours to say
        qv_release_root();
        EXPECT_EQ(appliance_root().read(kFile), row.word);
    }
}

TEST_F(Claim, OneThatStopsIsWaitedFor)
{
    for (const bool removes : {false, true}) { // its end may be a violent one
        std::thread other([removes, file = other_daemon("stopping\n")]() mutable {
            std::this_thread::sleep_for(50ms);
            if (removes)
                remove_lock_file(file, appliance_root().path(kFile));
            file = {};
        });
        EXPECT_EQ(qv_claim_root(10min), "");
        other.join();
        EXPECT_FALSE(open_lock_file(appliance_root().path(kFile), 0600).ours);
        qv_release_root();
    }
}

TEST_F(Claim, NeverFollowsALink)
{
    appliance_root().write("victim", "precious");
    std::filesystem::create_directories(appliance_root().path("var/run/qv"));
    std::filesystem::create_symlink("../../../victim", appliance_root().path(kFile));
    EXPECT_NE(qv_claim_root(), "");
    EXPECT_EQ(appliance_root().read("victim"), "precious");
    std::filesystem::remove(appliance_root().path(kFile));
}

} // namespace
} // namespace qvcd
