#include "captured.h"
#include "store/hdf_file.h"
#include "store/hdfutils.h"
#include "store/tree.h"
#include "temp_folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace qvcd {
namespace {

std::string dump(Node node)
{
    return captured([&](std::FILE *out) { hdfutils_dump(node, "", out); });
}

Tree tree_of(const std::vector<std::pair<std::string, std::string>> &values)
{
    Tree tree = Tree::make();
    for (const auto &[name, value] : values)
        EXPECT_TRUE(tree.set(name, value)) << name;
    return tree;
}

TEST(TreeName, WhatATreeCanHold)
{
    EXPECT_TRUE(is_tree_name("A") && is_tree_name("A.b_1.0"));
    for (const std::string &name :
         {std::string(), std::string("."), std::string("a."), std::string(".a"), std::string("a..b"),
          std::string("a b"), std::string("a-b"), std::string("a=b"), std::string("\xc3\xa4"),
          std::string("a\n"), std::string("a\0b", 3)})
        EXPECT_FALSE(is_tree_name(name)) << name;
    std::string deep = "a";
    for (int level = 1; level < kMaxTreeDepth; ++level)
        deep += ".a";
    EXPECT_TRUE(is_tree_name(deep));
    EXPECT_FALSE(is_tree_name(deep + ".a"));
}

TEST(Tree, RefusesWhatItCannotGiveBack)
{
    Tree tree = Tree::make();
    EXPECT_FALSE(tree.set("a b", "1"));
    EXPECT_FALSE(tree.set("a", std::string_view("x\0y", 3)));
    EXPECT_EQ(dump(tree.root()), "");
    Tree none;
    EXPECT_FALSE(none.set("a", "1"));
    EXPECT_EQ(none.get("a"), std::nullopt);
    EXPECT_FALSE(none.find("a"));
}

TEST(Tree, ValuesSurviveBeingSetFromThemselves)
{
    Tree tree = tree_of({{"a", "hello world"}});
    tree.set("a", tree.get("a")->substr(6)); // a view into the value that is replaced
    EXPECT_EQ(tree.get("a"), "world");
}

TEST(Tree, NumbersAreReadAsTheCLibraryDoes)
{
    const std::pair<const char *, int> cases[] = {
        {"12abc", 12}, {" -3", -3}, {"", -1}, {"abc", -1}, {"0x10", 0}};
    for (const auto &[text, number] : cases)
        EXPECT_EQ(tree_of({{"n", text}}).get_int("n", -1), number) << text;
}

// The library keeps a pointer to a removed child; on long levels it used to be read by the next set.
TEST(Tree, RemovalLeavesNothingBehind)
{
    Tree tree = Tree::make();
    for (int i = 0; i < 40; ++i)
        tree.set("g.n" + std::to_string(i), "x");
    for (int i = 39; i >= 0; i -= 2) {
        tree.set("g.n" + std::to_string(i), "y");
        EXPECT_TRUE(tree.remove("g.n" + std::to_string(i)));
        tree.set("g.n0", std::to_string(i));
    }
    EXPECT_FALSE(tree.remove("g.n39"));
    EXPECT_FALSE(tree.remove(""));
    EXPECT_EQ(tree.get("g.n0"), "1");
    EXPECT_EQ(hdfutils_names(tree.root(), "", hdfutils_check_endnode).size(), 20U);
}

// Readers publish and remove APIs while a group is printed.
TEST(Walk, VisitsMayChangeTheTree)
{
    Tree tree = tree_of({{"g.a", "1"}, {"g.b", "2"}, {"g.c", "3"}, {"h", "4"}});
    std::vector<std::string> seen;
    hdfutils_visit_leaves(tree, "", [&](const std::string &leaf) {
        seen.push_back(leaf);
        if (leaf == "g.a") {
            tree.remove("g.b");
            tree.set("g.new.x", "5");
        } else if (leaf == "g.c") {
            tree.remove("g.c"); // itself, and what stands behind it stays to be seen
        }
    });
    EXPECT_EQ(seen, (std::vector<std::string>{"g.a", "g.c", "g.new.x", "h"}));
    seen.clear();
    hdfutils_visit_leaves(tree, "g", [&](const std::string &leaf) {
        seen.push_back(leaf);
        tree.remove("g");
    });
    EXPECT_EQ(seen, std::vector<std::string>{"g.a"});
}

TEST(UrlEscape, RoundTripAndMalformedEscapes)
{
    std::string all;
    for (int c = 1; c < 256; ++c)
        all += static_cast<char>(c);
    EXPECT_EQ(url_unescape(url_escape(all)), all);
    EXPECT_EQ(url_escape(std::string_view("a b/~\0b", 7)), "a+b%2F%7E%00b");
    const std::pair<const char *, std::optional<std::string>> cases[] = {
        {"%4", "%4"},     {"%zz", "%zz"},          {"%%41", "%A"},
        {"%2541", "%41"}, {"x%00y", std::nullopt}, {"%%00", std::nullopt}};
    for (const auto &[text, plain] : cases)
        EXPECT_EQ(url_unescape(text), plain) << text;
}

TEST(HdfFile, BadFilesKeepWhatStandsBeforeTheError)
{
    const TempFolder folder;
    std::string deep;
    for (int i = 0; i < 10000; ++i)
        deep += "a {\n";
    const struct {
        const char *what;
        std::string text;
        std::string kept;
    } cases[] = {
        {"rubbish", "a = 1\nwhat is this\nb = 2\n", "a=1\n"},
        {"text behind a brace", "a = 1\ng { b = 1 }\n", "a=1\n"},
        {"a block without its end", "a = 1\nb << EOM\ntext\n", "a=1\n"},
        {"a brace too many", "a = 1\n}\nb = 2\n", "a=1\n"},
        {"include", "a = 1\n#include \"/etc/passwd\"\nb = 2\n", "a=1\n"},
        {"link", "a = 1\nb : a\n", "a=1\n"},
        {"attribute", "a [x] = 1\n", ""},
        {"NUL byte", std::string("a = 1\nb = x\0y\n", 14), "a=1\n"},
        {"10,000 levels", deep, ""},
        {"an empty part of a name", "a = 1\nb..c = 1\n", "a=1\n"},
        {"a block with its mark inside", "a = 1\nb << EOM\nx EOM y\nEOM\n", "a=1\n"},
    };
    for (const auto &c : cases) {
        Tree tree = Tree::make();
        const std::string path = folder.write("bad.hdf", c.text);
        const HdfRead read = hdf_read_own_file(path, tree);
        EXPECT_EQ(read.result, HdfResult::error) << c.what;
        EXPECT_NE(read.detail.find("line "), std::string::npos) << c.what << ": " << read.detail;
        EXPECT_EQ(dump(tree.root()), c.kept) << c.what;

        Tree whole = tree_of({{"old", "1"}});
        EXPECT_EQ(hdf_read_own_file_whole(path, whole).result, HdfResult::error) << c.what;
        EXPECT_EQ(hdf_read_foreign_file(path, whole).result, HdfResult::error) << c.what;
        EXPECT_EQ(dump(whole.root()), "old=1\n") << c.what;
    }
}

TEST(HdfFile, NoFileAndOddFiles)
{
    const TempFolder folder;
    Tree tree = Tree::make();
    EXPECT_EQ(hdf_read_own_file(folder.path("none"), tree).result, HdfResult::missing);
    EXPECT_EQ(hdf_read_own_file(folder.path(), tree).result, HdfResult::error);
    ASSERT_EQ(mkfifo(folder.path("fifo").c_str(), 0600), 0);
    EXPECT_EQ(hdf_read_own_file(folder.path("fifo"), tree).result, HdfResult::error); // and does not wait
    EXPECT_EQ(hdf_read_foreign_file(folder.write("empty", ""), tree).result, HdfResult::ok);
    const std::string big = folder.write("big", "a = " + std::string(4U << 20U, 'x'));
    EXPECT_EQ(hdf_read_foreign_file(big, tree).result, HdfResult::error);
    EXPECT_EQ(hdf_read_own_file(big, tree).result, HdfResult::ok);
}

TEST(HdfFile, WritesOnlyWhatReadsBack)
{
    const TempFolder folder;
    const std::string path = folder.write("f.hdf", "old = 1\n");
    const struct {
        std::string value;
        bool fits;
    } cases[] = {
        {"plain # { = << text", true},
        {"", true},
        {"\xff\x01", true},
        {" lead", false},
        {"trail\r", false},
        {"a\nb", false},
        {"a\nb\n", true},
        {"x\nEOM \nadmin = 1\n", true},
    };
    for (const auto &c : cases) {
        const Tree tree = tree_of({{"g.k", c.value}, {"g", "v"}});
        EXPECT_EQ(hdf_write_file(path, tree.root()).changed, c.fits) << c.value;
        Tree back = Tree::make();
        ASSERT_EQ(hdf_read_own_file_whole(path, back).result, HdfResult::ok);
        EXPECT_EQ(back.get("g.k") == c.value, c.fits) << c.value;
    }
    const std::pair<FileKind, unsigned> kinds[] = {{FileKind::open, 0644},
                                                   {FileKind::secret, 0600},
                                                   {FileKind::named, 0644},
                                                   {FileKind::named_secret, 0600}};
    for (const auto &[kind, mode] : kinds) {
        std::filesystem::remove(path);
        EXPECT_TRUE(hdf_write_file(path, tree_of({{"a", "1"}}).root(), kind).changed);
        EXPECT_EQ(folder.mode_of("f.hdf"), mode);
    }
}

} // namespace
} // namespace qvcd
