#include "appliance_root.h"
#include "platform/claim.h"
#include "platform/fd.h"
#include "platform/lock_file.h"
#include "platform/process.h"
#include "temp_folder.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
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

// Creates the file and hands out what was reported.
int create(const std::string &path, std::string *reported = nullptr)
{
    testing::internal::CaptureStderr();
    const int result = qv_create_pid_file(path);
    const std::string text = testing::internal::GetCapturedStderr();
    if (reported)
        *reported = text;
    EXPECT_EQ(text.empty(), result == 0);
    return result;
}

TEST(PidFile, TheFileOfALiveDaemonIsLeftAlone)
{
    const TempFolder folder;
    folder.write("pid", "4711\n");
    const Fd daemon(open(folder.path("pid").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(daemon.get(), LOCK_EX | LOCK_NB), 0);
    std::string reported;
    EXPECT_EQ(create(folder.path("pid"), &reported), -1);
    EXPECT_NE(reported.find("process 4711"), std::string::npos) << reported;
    qv_remove_pid_file(folder.path("pid"));
    EXPECT_EQ(folder.read("pid"), "4711\n");
}

TEST(PidFile, NeverFollowsALinkNorWaitsForAFifo)
{
    const TempFolder folder;
    folder.write("victim", "precious");
    std::filesystem::create_symlink("victim", folder.path("link"));
    EXPECT_EQ(create(folder.path("link")), -1);
    EXPECT_EQ(folder.read("victim"), "precious");
    ASSERT_EQ(mkfifo(folder.path("fifo").c_str(), 0600), 0);
    EXPECT_EQ(create(folder.path("fifo")), -1);
    EXPECT_EQ(create(folder.path("no/folder/pid")), -1);
}

TEST(PidFile, AFileThatReplacedOursStays)
{
    const TempFolder folder;
    ASSERT_EQ(create(folder.path("pid")), 0);
    std::filesystem::remove(folder.path("pid"));
    folder.write("pid", "new daemon\n");
    qv_remove_pid_file(folder.path("pid"));
    EXPECT_EQ(folder.read("pid"), "new daemon\n");
}

} // namespace
} // namespace qvcd
