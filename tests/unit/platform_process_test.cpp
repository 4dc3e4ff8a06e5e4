#include "platform/fd.h"
#include "platform/process.h"
#include "temp_folder.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace qvcd {
namespace {

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
