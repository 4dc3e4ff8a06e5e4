#include "platform/fd.h"
#include "platform/process.h"
#include "temp_folder.h"

#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

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

const std::string own_text = std::to_string(getpid()) + "\n";

TEST(PidFile, HoldsTheProcessIdUntilItIsRemoved)
{
    const TempFolder folder;
    ASSERT_EQ(create(folder.path("pid")), 0);
    EXPECT_EQ(folder.read("pid"), own_text);
    qv_remove_pid_file(folder.path("pid"));
    EXPECT_FALSE(std::filesystem::exists(folder.path("pid")));
}

TEST(PidFile, TheFileOfADeadDaemonIsTakenOver)
{
    const TempFolder folder;
    folder.write("pid", "123456789 and more\n");
    ASSERT_EQ(create(folder.path("pid")), 0);
    EXPECT_EQ(folder.read("pid"), own_text);
    const Fd other(open(folder.path("pid").c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_NE(flock(other.get(), LOCK_EX | LOCK_NB), 0) << "the lock must be held";
    qv_remove_pid_file(folder.path("pid"));
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

bool on_null(int fd)
{
    struct stat null {};
    struct stat s {};
    return stat("/dev/null", &null) == 0 && fstat(fd, &s) == 0 && S_ISCHR(s.st_mode) &&
           s.st_rdev == null.st_rdev;
}

[[noreturn]] void be_a_daemon(bool gets_ready)
{
    if (qv_daemonize() != 0)
        _exit(1);
    dprintf(2, "%s %o %d%d %d", std::filesystem::current_path().c_str(), umask(0), on_null(0), on_null(1),
            getsid(0) == getpid());
    if (gets_ready)
        qv_daemon_ready();
    dprintf(2, " late");
    _exit(0);
}

TEST(Daemonize, StderrAndParentStayUntilTheDaemonIsReady)
{
    for (const bool gets_ready : {true, false}) {
        int ends[2];
        ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
        const Fd reader(ends[0]);
        Fd writer(ends[1]);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            dup2(writer.get(), STDERR_FILENO);
            be_a_daemon(gets_ready);
        }
        writer.reset();
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, gets_ready ? 0 : 1 << 8);
        fcntl(reader.get(), F_SETFL, O_NONBLOCK); // what was said before the parent went is there
        char text[256] = "";
        EXPECT_GT(read(reader.get(), text, sizeof text - 1), 0);
        EXPECT_STREQ(text, gets_ready ? "/ 22 11 1" : "/ 22 11 1 late");
    }
}

} // namespace
} // namespace qvcd
