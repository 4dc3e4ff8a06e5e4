#include <cstdlib>
#include <gtest/gtest.h>

#include "client/change_painter.h"
#include "client/confirmation.h"

namespace qvcd::client {

namespace {

constexpr std::time_t kNow = 1'795'430'592; // 2026-11-23T10:43:12Z

// The escape sequences as <r>, <g>, <y>, <c>, <b> and </>.
std::string readable(std::string text)
{
    constexpr std::pair<std::string_view, std::string_view> kNames[] = {
        {"\033[31m", "<r>"}, {"\033[32m", "<g>"}, {"\033[33m", "<y>"},
        {"\033[36m", "<c>"}, {"\033[1m", "<b>"},  {"\033[0m", "</>"}};
    for (const auto &[code, name] : kNames) {
        for (std::size_t at = 0; (at = text.find(code)) != std::string::npos;)
            text.replace(at, code.size(), name);
    }
    return text;
}

} // namespace

TEST(ClientChange, RepliesArePainted)
{
    const std::pair<const char *, const char *> lines[] = {
        {"A.b=1 -> 2", "A.b=<r>1</> -> <g>2</>"},
        {"A.b= -> x -> y", "A.b= -> <g>x -> y</>"},
        {"A.b=##Apply failed#", "A.b=<r>##Apply failed#</>"},
        {"--- /etc/a", "<b>--- /etc/a</>"},
        {"+++ /etc/a", "<b>+++ /etc/a</>"},
        {"@@ -1,2 +1,3 @@", "<c>@@ -1,2 +1,3 @@</>"},
        {"--- b=1 -> 2", "<r>--- b=1 -> 2</>"}, // a line of the file that begins with "-- "
        {"\\ No newline at end of file", "\\ No newline at end of file"},
        {"+@@ -9,9 +9,9 @@", "<g>+@@ -9,9 +9,9 @@</>"},
        {"", ""}, // blanks at the end are lost on some ways
        {"+apply: x", "<g>+apply: x</>"},
        {"@@ -0,0 +1 @@", "<c>@@ -0,0 +1 @@</>"},
        {"+x", "<g>+x</>"},
        {"--- /etc/c", "<b>--- /etc/c</>"},
        {"@@ bad @@", "<c>@@ bad @@</>"},
        {"apply: a.sh: exit status 3", "<y>apply: a.sh</><r>: exit status 3</>"},
        {"undo: x=1 -> 2", "<y>undo: x=1 -> 2</>"},
        {"    apply: a: b: ended by signal 15", "    <y>apply: a: b</><r>: ended by signal 15</>"},
        {"undo: a.sh: failed", "<y>undo: a.sh</><r>: failed</>"},
        {"apply: a: b", "<y>apply: a: b</>"},
        {"Commit=12", "Commit=12"},
    };
    ChangePainter coloured(Colours::yes, kNow);
    ChangePainter plain(Colours::no, kNow);
    for (const auto &[line, painted] : lines) {
        EXPECT_EQ(readable(coloured.paint(line)), painted);
        EXPECT_EQ(plain.paint(line), line);
    }
}

TEST(ClientChange, HistoryHasLocalTimeAndAgeInColumns)
{
    setenv("TZ", "UTC-2", 1);
    const std::pair<const char *, const char *> lines[] = {
        {"12 2026-11-23T10:42:12Z root (user 0, qvc) commit: done",
         "<b>12</>  2026-11-23 12:42:12   1 min ago  root (user 0, qvc) commit: <g>done</>"},
        {"    \"a=1 -> 2\"", "    \"a=1 -> 2\""},
        {"    A.b=1 -> 2", "    A.b=<r>1</> -> <g>2</>"},
        {"9 2026-11-20T23:59:59Z ann (192.0.2.7, web) rollback: undone: x: y",
         " <b>9</>  2026-11-21 01:59:59     2 d ago  ann (192.0.2.7, web) rollback: <r>undone: x: y</>"},
        {"8 2026-11-23T10:43:13Z ann (192.0.2.7, web) set",
         " <b>8</>  2026-11-23 12:43:13              ann (192.0.2.7, web) set"},
        {"7 2026-11-23 10:43:13Z ann", "7 2026-11-23 10:43:13Z ann"},
    };
    ChangePainter painter(Colours::yes, kNow);
    for (const auto &[line, painted] : lines)
        EXPECT_EQ(readable(painter.paint(line)), painted);
    unsetenv("TZ");
}

TEST(ClientChange, ColoursAreForTerminalsThatHaveThem)
{
    EXPECT_EQ(colours_for(nullptr, "xterm"), Colours::yes);
    EXPECT_EQ(colours_for("", "xterm"), Colours::yes);
    EXPECT_EQ(colours_for("0", "xterm"), Colours::no);
    EXPECT_EQ(colours_for(nullptr, "dumb"), Colours::no);
    EXPECT_EQ(colours_for(nullptr, nullptr), Colours::no);
}

TEST(ClientChange, OnlyACommitWithATimeIsAskedAbout)
{
    const struct {
        Words words;
        int seconds; // 0: none
    } cases[] = {
        {{"commit", "-c", "30", "A=1"}, 30}, {{"rollback", "-1", "-m", "text", "-c", "5"}, 5},
        {{"commit", "-m", "-c", "30"}, 0},   {{"commit", "-c"}, 0},
        {{"commit", "-c", "0"}, 0},          {{"commit", "-s"}, 0},
        {{"confirm", "-c", "30"}, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(confirmation_time(c.words).value_or(std::chrono::seconds(0)).count(), c.seconds)
            << c.words.back();
}

TEST(ClientChange, WhichChangeAwaitsConfirmation)
{
    Awaited awaited;
    for (const char *line : {"Commit=none", "Commit=1 -> 2", "Commit.seconds=", "Commit.seconds=1x",
                             "Commit.seconds=-1", "Commit.seconds", "A.Commit=3", "Commit.text=4", ""})
        awaited.take(line);
    EXPECT_EQ(awaited.left, std::nullopt);
    EXPECT_EQ(awaited.entry, "");
    for (const char *line : {"Commit=12", "Commit.seconds=17"})
        awaited.take(line);
    EXPECT_EQ(awaited.left, std::chrono::seconds(17));
    EXPECT_EQ(awaited.entry, "12");
    awaited.take("Rollback=13");
    EXPECT_EQ(awaited.entry, "13");
}

} // namespace qvcd::client
