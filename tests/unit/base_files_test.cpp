#include "base/file_text.h"
#include "base/kv_file.h"
#include "base/text.h"
#include "temp_folder.h"

#include <algorithm>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace qvcd {
namespace {

namespace fs = std::filesystem;

TEST(Text, OneLine)
{
    for (int byte = 0; byte < 256; ++byte) {
        for (std::size_t size = 1; size < 20; ++size) {
            std::string text(size, '\xff');
            text[static_cast<std::size_t>(byte) % size] = static_cast<char>(byte);
            EXPECT_NE(is_control(static_cast<char>(byte)), is_one_line(text)) << byte << " of " << size;
        }
    }
}

TEST(KvFile, FindsTheValue)
{
    const struct {
        const char *text;
        const char *key;
        std::optional<std::string> value;
    } cases[] = {
        {"#Port 22\n#Port = 21 is used by\nPort 8022\n", "Port", "8022"},
        {"#Port 22\nPortX 1\n", "Port", "22"},
        {"port : 554\n", "port", "554"},
        {"name=\n", "name", ""},
        {"name", "name", std::nullopt},
        {"a=1\r\nname=x\r\n", "name", "x"},
        {"listen ::\nbind=::1\n", "bind", "::1"}, // an address, not separators
        {"port::80\n", "port", "80"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(kv_find(c.text, c.key), c.value) << c.text;
        EXPECT_EQ(KvIndex(c.text).find(c.key), c.value) << c.text;
    }
    const std::string long_value(3000, 'v');
    EXPECT_EQ(kv_find(std::string(5000, '#') + "\nk=" + long_value + "\n", "k"), long_value);
}

TEST(KvFile, ReplacesAndKeepsTheFilesStyle)
{
    const std::string long_line = std::string(5000, 'x') + " k=1\n";
    const struct {
        std::string text;
        std::vector<KeyValue> values;
        std::string result;
    } cases[] = {
        {"a=1\n#b=2\nb:3\n", {{"b", "9"}}, "a=1\n#b=2\nb:9\n"},
        {"#Port 22\n#Port = 21 is used by\n",
         {{"Port", "8022"}},
         "#Port 22\n#Port = 21 is used by\nPort=8022\n"},
        {"a=1\r\nb=2\r\n", {{"b", "3"}, {"c", "4"}}, "a=1\r\nb=3\r\nc=4\r\n"},
        {"", {{"b", "1"}, {"a", "2"}, {"b", "3"}}, "b=3\na=2\n"},
        {"a b=1\na=2\n", {{"a b", "3"}}, "a b=3\na=2\n"},
        {long_line + "k=1\n", {{"k", "2"}}, long_line + "k=2\n"},
        {"k=" + std::string(3000, 'v') + "\nrest", {{"k", "2"}}, "k=2\nrest"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(kv_replace(c.text, c.values), c.result) << c.text;
}

TEST(KvFile, RefusesWhatWouldNotReadBack)
{
    for (const char *value : {"", "a = b : c ", "::1", "\xc3\xa4"})
        EXPECT_FALSE(kv_refuses("k", value)) << value;
    for (const char *value : {" a", "=a", ":a", ":: a", "a\nb", "a\rb"})
        EXPECT_TRUE(kv_refuses("k", value)) << value;
    for (const char *key : {"", "#k", "k\nx"})
        EXPECT_TRUE(kv_refuses(key, "a")) << key;
}

// Texts and values that are likely to meet: few letters, all that has a meaning, some of it long.
class Random {
  public:
    std::size_t below(std::size_t n) { return engine_() % n; }
    std::string of(std::string_view letters, std::size_t longest)
    {
        std::string text(below(longest + 1), ' ');
        std::ranges::generate(text, [&] { return letters[below(letters.size())]; });
        return text;
    }

  private:
    std::mt19937 engine_{std::random_device{}()};
};

std::vector<std::string> lines_of(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty())
        lines.emplace_back(next_line(text).text);
    return lines;
}

// An index finds what a search finds, and several values go in as one after the other.
TEST(KvFile, SeveralAreAsOneAfterTheOther)
{
    Random random;
    for (int run = 0; run < 2000; ++run) {
        const std::string text = random.of("klm=#: \r\n\n\n", 60);
        const KvIndex index(text);
        for (const char *key : {"k", "l", "m", "kk", "l=m", "k ", ":", "#k", "", "#"})
            ASSERT_EQ(index.find(key), kv_find(text, key)) << "[" << text << "] " << key;
        std::vector<KeyValue> values;
        std::string one_by_one = text;
        for (const char *key : {"k", "l", "m", "kk", "lm"}) {
            if (random.below(2) == 0)
                continue;
            values.push_back({key, random.of("ab", 3)});
            one_by_one = kv_replace(one_by_one, std::vector<KeyValue>{values.back()});
        }
        ASSERT_EQ(kv_replace(text, values), one_by_one) << "[" << text << "]";
    }
}

TEST(KvFile, WhatIsWrittenReadsBackAndNothingElseChanges)
{
    Random random;
    for (int run = 0; run < 20000; ++run) {
        const std::string text = random.of("kk=#: \t\r\n\n\"ab", 60);
        const std::string key = random.of("kab", 2) + "k";
        const std::string value =
            random.below(50) ? random.of("kab=#: \"\x80", 8) : std::string(random.below(1024), 'v');
        const std::string quoted = "\"" + value + "\"";
        const std::string again = kv_replace(text, std::vector<KeyValue>{{key, quoted}});
        ASSERT_EQ(kv_refuses(key, quoted), nullptr);
        ASSERT_EQ(kv_unquote(*kv_find(again, key)), value) << "[" << text << "] " << key;
        ASSERT_TRUE(kv_holds(again, key));
        if (kv_refuses(key, value))
            continue;
        const std::string plain = kv_replace(text, std::vector<KeyValue>{{key, value}});
        ASSERT_EQ(kv_find(plain, key), value) << "[" << text << "] " << key;
        std::vector<std::string> old_lines = lines_of(text);
        std::vector<std::string> new_lines = lines_of(plain);
        const bool held = kv_holds(text, key);
        ASSERT_EQ(new_lines.size(), old_lines.size() + (held ? 0 : 1)) << "[" << text << "] " << key;
        old_lines.resize(new_lines.size());
        const auto [changed, with] = std::ranges::mismatch(new_lines, old_lines);
        if (changed == new_lines.end())
            continue;
        ASSERT_TRUE(changed->starts_with(key)) << "[" << text << "] " << key;
        ASSERT_TRUE(std::equal(changed + 1, new_lines.end(), with + 1)) << "[" << text << "] " << key;
    }
}

class Files : public testing::Test {
  protected:
    const TempFolder folder;
};

TEST_F(Files, ReadingIsAllOrAnError)
{
    folder.write("text", "abc");
    fs::create_directory(folder.path("folder"));
    fs::create_symlink("loop", folder.path("loop"));
    ASSERT_EQ(mkfifo(folder.path("fifo").c_str(), 0600), 0);
    const struct {
        std::string path;
        std::size_t limit;
        int error;
    } cases[] = {
        {folder.path("text"), 3, 0},        {folder.path("text"), 2, EFBIG},
        {folder.path("none"), 9, ENOENT},   {folder.path("text/none"), 9, ENOTDIR},
        {folder.path("folder"), 9, EISDIR}, {folder.path("loop"), 9, ELOOP},
        {folder.path("fifo"), 9, ESPIPE},                               // and does not wait
        {"/dev/zero", 1U << 20U, EFBIG},    {"/proc/self/mem", 9, EIO}, // opens, but does not read
    };
    for (const auto &c : cases) {
        const FileText file = read_whole_file(c.path, c.limit);
        EXPECT_EQ(file.error, c.error) << c.path;
        EXPECT_EQ(file.text, c.error ? "" : "abc") << c.path;
        EXPECT_EQ(file.missing(), c.error == ENOENT || c.error == ENOTDIR) << c.path;
        EXPECT_EQ(read_file(c.path, c.limit).has_value(), c.error == 0) << c.path;
    }
    EXPECT_FALSE(read_whole_file("/proc/self/stat").text.empty()); // its size reads as 0
}

TEST_F(Files, NamedFilesInAFolderOfEverybody)
{
    const auto named = [&](const std::string &name, unsigned mode = 0666) {
        return replace_named_file(folder.path("open/" + name), "new", mode);
    };
    folder.write("secret", "keep");
    folder.write("safe/x", "keep");
    const std::string open = folder.path("open");
    fs::create_directory(open);
    ASSERT_EQ(chmod(open.c_str(), 01777), 0);
    fs::create_symlink("../secret", open + "/link");
    fs::create_symlink("../none", open + "/dangling");
    fs::create_directory_symlink("../safe", open + "/way");
    // What stands in the way goes, be it a link; nothing is written through it.
    for (const std::string name : {"link", "dangling"}) {
        EXPECT_EQ(named(name), 0);
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(open + "/" + name))) << name;
        EXPECT_EQ(folder.read("open/" + name), "new");
    }
    EXPECT_NE(named("way/x"), 0); // somebody may turn the way elsewhere
    EXPECT_EQ(folder.read("secret") + folder.read("safe/x"), "keepkeep");
    EXPECT_FALSE(fs::exists(folder.path("none")));
    ASSERT_EQ(mkfifo((open + "/fifo").c_str(), 0600), 0);
    EXPECT_EQ(named("fifo"), EPERM);
    EXPECT_EQ(named("fresh"), 0);
    EXPECT_EQ(folder.mode_of("open/fresh"), 0644U);
    EXPECT_EQ(named("fresh", 0600), 0);
    EXPECT_EQ(folder.mode_of("open/fresh"), 0600U);
    EXPECT_EQ(named("fresh"), 0); // what was narrow stays so
    EXPECT_EQ(folder.mode_of("open/fresh"), 0600U);
    EXPECT_EQ(named("none/x"), ENOENT);
    EXPECT_EQ(named(""), EISDIR);
    if (geteuid() != 0)
        return;
    folder.write("open/strangers", "keep");
    ASSERT_EQ(chown((open + "/strangers").c_str(), 12345, 12345), 0);
    const int theirs = ::open((open + "/strangers").c_str(), O_RDONLY);
    EXPECT_EQ(named("strangers", 0600), 0);
    struct stat st {};
    EXPECT_TRUE(stat((open + "/strangers").c_str(), &st) == 0 && st.st_uid == 0 &&
                (st.st_mode & 0777U) == 0600);
    char byte = 0;
    EXPECT_TRUE(read(theirs, &byte, 1) == 1 && byte == 'k'); // who has it open sees nothing new
    close(theirs);
    fs::create_directory(open + "/theirs");
    ASSERT_EQ(chown((open + "/theirs").c_str(), 12345, 12345), 0);
    fs::create_symlink("../../secret", open + "/theirs/link");
    EXPECT_EQ(named("theirs/link"), 0);
    EXPECT_EQ(folder.read("secret"), "keep");
}

TEST_F(Files, NamedFilesWhereNobodyElseWrites)
{
    folder.write("a/real", "old");
    fs::create_symlink("a", folder.path("way"));
    fs::create_symlink(folder.path("way") + "/real", folder.path("link"));
    EXPECT_EQ(replace_named_file(folder.path("link"), "new"), 0);
    EXPECT_EQ(folder.read("a/real"), "new");
    EXPECT_TRUE(fs::is_symlink(folder.path("link")));
    EXPECT_EQ(replace_named_file(folder.path("way/../a/x"), "x"), 0);
    EXPECT_EQ(folder.read("a/x"), "x");
    EXPECT_EQ(replace_named_file("/dev/full", "x"), ENOSPC); // a device is written, not replaced
    fs::create_symlink("round", folder.path("round"));
    EXPECT_EQ(replace_named_file(folder.path("round"), "x"), ELOOP);
    EXPECT_EQ(replace_named_file(folder.path("a"), "x"), EISDIR);
}

} // namespace
} // namespace qvcd
