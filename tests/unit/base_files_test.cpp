#include "base/file_text.h"
#include "base/file_utils.h"
#include "base/kv_file.h"
#include "temp_folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qvcd {
namespace {

TEST(KvFile, FindsTheFirstMatchingLine)
{
    const struct {
        const char *text;
        const char *key;
        std::optional<std::string> value;
    } cases[] = {
        {"port=554\n", "port", "554"},
        {"#port=554\n", "port", "554"}, // a commented-out line counts
        {"##port=554\n", "port", std::nullopt},
        {"port : 554\n", "port", "554"},
        {"port\t= :x y \n", "port", "x y "},
        {"port554\nportx=1\n", "port", std::nullopt},
        {"a=1\nport=2\nport=3\n", "port", "2"},
        {"name=\n", "name", ""},
        {"name=x", "name", "x"},
        {"name", "name", std::nullopt},
        {"first line = whole\nsecond\n", "", "first line = whole"},
        {"", "", std::nullopt},
    };
    for (const auto &c : cases)
        EXPECT_EQ(kv_find(c.text, c.key), c.value) << c.text;
}

TEST(KvFile, Unquotes)
{
    const struct {
        const char *value;
        const char *plain;
    } cases[] = {{"\"abc\"", "abc"},  {"abc", "abc"}, {"\"", ""},   {"\"abc", "abc"},
                 {"a\"b\"c", "a\"b"}, {"ab\"", "ab"}, {"\"\"", ""}, {"", ""}};
    for (const auto &c : cases)
        EXPECT_EQ(kv_unquote(c.value), c.plain) << c.value;
}

TEST(KvFile, ReplacesAndKeepsTheFilesStyle)
{
    const struct {
        const char *text;
        const char *key;
        const char *value;
        const char *result;
    } cases[] = {
        {"a=1\n#b=2\nb:3\n", "b", "9", "a=1\n#b=2\nb:9\n"},
        {"a=1\n", "c", "x", "a=1\nc=x\n"},
        {"port = 80\nport = 81\n", "port", "554", "port = 554\nport = 81\n"},
        {"k=\n", "k", "v", "k=v\n"},
        {"no newline=1", "c", "x", "no newline=1\nc=x\n"},
        {"c=old", "c", "new", "c=new\n"},
        {"whatever\n", "", "v", "v\n"},
        {"", "k", "", "k=\n"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(kv_replace(c.text, c.key, c.value), c.result) << c.text;
}

TEST(KvFile, LongLinesAreNotLost)
{
    const std::string text = std::string(5000, 'x') + "\nk=1\n";
    EXPECT_EQ(kv_replace(text, "k", "2"), std::string(5000, 'x') + "\nk=2\n");
    EXPECT_EQ(kv_find("k=" + std::string(3000, 'v') + "\n", "k")->size(), 1021U); // what one piece holds
}

class Files : public testing::Test {
  protected:
    mode_t mode_of(const std::string &name) const
    {
        struct stat st {};
        return stat(folder.path(name).c_str(), &st) == 0 ? st.st_mode & 07777U : 0;
    }
    std::size_t entries() const
    {
        std::size_t n = 0;
        for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator(folder.path()))
            ++n;
        return n;
    }
    const TempFolder folder;
};

TEST_F(Files, ReplacingKeepsModeLinksAndNoTemporaries)
{
    folder.write("real", "old");
    chmod(folder.path("real").c_str(), 0640);
    ASSERT_EQ(symlink("real", folder.path("link").c_str()), 0);
    EXPECT_EQ(replace_file(folder.path("link"), "new"), 0);
    EXPECT_EQ(folder.read("real"), "new");
    EXPECT_EQ(mode_of("real"), 0640U);
    EXPECT_TRUE(std::filesystem::is_symlink(folder.path("link")));
    EXPECT_EQ(replace_file(folder.path("fresh"), "x"), 0);
    EXPECT_EQ(mode_of("fresh"), 0644U);
    EXPECT_EQ(replace_secret_file(folder.path("fresh"), "y"), 0);
    EXPECT_EQ(mode_of("fresh"), 0600U);
    EXPECT_EQ(entries(), 3U);
}

TEST_F(Files, FailuresLeaveTheOldFile)
{
    EXPECT_EQ(replace_file(folder.path("none/f"), "x"), ENOENT);
    std::filesystem::create_directory(folder.path("folder"));
    EXPECT_EQ(replace_file(folder.path("folder"), "x"), EISDIR);
    EXPECT_EQ(replace_file("/dev/full", "x"), ENOSPC); // a device is written in place
    EXPECT_EQ(read_file(folder.path("folder")), std::nullopt);
    EXPECT_EQ(read_file(folder.path("none")), std::nullopt);
}

TEST_F(Files, ScratchFilesAreNeverWrittenThroughALink)
{
    folder.write("target", "keep");
    ASSERT_EQ(symlink(folder.path("target").c_str(), folder.path("planted").c_str()), 0);
    EXPECT_EQ(write_scratch_file(folder.path("planted"), "x"), ELOOP);
    EXPECT_EQ(folder.read("target"), "keep");
    EXPECT_EQ(write_scratch_file(folder.path("mine"), "x"), 0);
    EXPECT_EQ(mode_of("mine"), 0600U);
}

TEST_F(Files, CopyAndMove)
{
    folder.write("src", "text");
    folder.write("empty", "");
    EXPECT_EQ(utils_copy_file(folder.path("src"), folder.path("dst")), 0);
    EXPECT_EQ(utils_copy_file(folder.path("empty"), folder.path("empty2")), 0);
    EXPECT_TRUE(file_exists(folder.path("empty2")));
    EXPECT_EQ(utils_copy_file(folder.path("none"), folder.path("dst")), 1);
    EXPECT_EQ(folder.read("dst"), "text");
    EXPECT_EQ(utils_move_file(folder.path("src"), folder.path("moved")), 0);
    EXPECT_FALSE(file_exists(folder.path("src")));
    EXPECT_EQ(utils_move_file(folder.path("moved"), folder.path("none/moved")), 1);
    EXPECT_FALSE(file_exists(folder.path("moved"))); // gone before the destination is tried
}

} // namespace
} // namespace qvcd
