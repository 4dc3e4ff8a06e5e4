#include "base/command_lock.h"
#include "base/file_text.h"
#include "base/save_lock.h"
#include "funcs/apply_map.h"
#include "funcs/file_writes.h"
#include "funcs/generic_readers.h"
#include "funcs/ntp.h"
#include "funcs/read_map.h"
#include "model/populate.h"
#include "model_text.h"
#include "trees_fixture.h"

#include <cstdio>
#include <sys/stat.h>

namespace qvcd {
namespace {

class Funcs : public TreesTest {
  protected:
    std::string read(const std::string &name) { return rfuncmap_read(request, name).value_or("(none)"); }
    static std::string file(const std::string &name) { return appliance_root().read(name); }
    static void file(const std::string &name, const std::string &text) { appliance_root().write(name, text); }
    static bool exists(const std::string &name) { return appliance_root().exists(name); }
    Request request{0xffff};
};

TEST_F(Funcs, ACommandReadsAFileAgainWhenOthersMayHaveWrittenIt)
{
    model("A: read = kv_rfunc; file = /etc/f.conf; attr = a");
    file("etc/f.conf", "a=1\n");
    EXPECT_EQ(read("A"), "1");
    file("etc/f.conf", "a=2\n");
    EXPECT_EQ(read("A"), "2"); // nothing is kept without the command lock
    const CommandLock lock;
    EXPECT_EQ(read("A"), "2");
    file("etc/f.conf", "a=3\n");
    EXPECT_EQ(read("A"), "2"); // one state of the file for one turn of the command
    {
        const Unlocked unlocked;
    }
    EXPECT_EQ(read("A"), "3");
}

TEST_F(Funcs, GenericReaders)
{
    file("etc/f.conf",
         "plain=a b\nquoted=\"c d\"\nempty=\"\"\nin=\"a\"b\"\nlong=\"" + std::string(1023, '"') + "\"\n");
    hdfDB.set("Other.api", "mirror");
    const struct {
        const char *read, *attr;
        std::string value;
    } cases[] = {
        {"hidden_rfunc", "x", "******"},
        {"password_rfunc", "quoted", "********"},
        {"password_rfunc", "empty", "(none)"},
        {"password_rfunc", "missing", "(none)"},
        {"model_rfunc", "Other.none", "(none)"},
        {"quotedkv_rfunc", "in", "a\"b"},
        {"quotedkv_rfunc", "long", std::string(1023, '"')},
        {"eeprom_rfunc", "x", "n/a"},
        {"syscall_rfunc", "true", "(none)"},
    };
    for (const auto &c : cases) {
        model(std::string("A: file = /etc/f.conf; read = ") + c.read + "; attr = " + c.attr);
        EXPECT_EQ(read("A"), c.value) << c.read << " " << c.attr;
        EXPECT_EQ(read_error(request), 0);
    }
    EXPECT_EQ(read("Unknown"), "(none)");
    EXPECT_EQ(kv_rfunc(request, nullptr, "k"), std::nullopt);
    EXPECT_EQ(syscall_rfunc(request, nullptr, nullptr), std::nullopt);
}

TEST_F(Funcs, ReadersTellMissingFromFailed)
{
    std::filesystem::create_directories(appliance_root().path("etc/folder"));
    for (const auto reader : {kv_rfunc, quoted_rfunc, ntp_rfunc, password_rfunc}) {
        read_error(request) = 0;
        EXPECT_EQ(reader(request, "/etc/none", "server"), std::nullopt);
        EXPECT_EQ(read_error(request), 0);
        EXPECT_EQ(reader(request, "/etc/folder", "server"), std::nullopt);
        EXPECT_EQ(read_error(request), EISDIR);
    }
}

TEST_F(Funcs, NtpConfiguration)
{
    const struct {
        const char *text, *server, *interval;
    } reads[] = {
        {"server h minpoll 12 maxpoll 15 iburst\n", "h", "twiceday"},
        {"# a comment\r\nservers x\n\tserver\th minpoll 12 maxpoll 16\r\n", "h", "daily"},
        {"pool p maxpoll 15\nserver h\nserver i\n", "h", "hourly"},
        {"pool p maxpoll 15\n", "p", "twiceday"},
        {"#server h\nserver\nserverx h\nserver=h\n", "(none)", "(none)"},
    };
    for (const auto &c : reads) {
        EXPECT_EQ(ntp_find(c.text, "server").value_or("(none)"), c.server) << c.text;
        EXPECT_EQ(ntp_find(c.text, "interval").value_or("(none)"), c.interval) << c.text;
    }
    const std::vector<KeyValue> settings = {{"server", "set"}, {"interval", "daily"}};
    const struct {
        const char *text;
        std::vector<KeyValue> given;
        const char *result;
    } cases[] = {
        {"# server x\nserver a maxpoll 15\ndriftfile f\nserver b\n",
         {{"server", "v"}},
         "# server x\nserver v minpoll 12 maxpoll 15 iburst\ndriftfile f\nserver v minpoll 12 maxpoll 15 "
         "iburst\n"},
        {"serverx 1\r\nserver a\r\n",
         {{"interval", "daily"}},
         "serverx 1\r\nserver a minpoll 12 maxpoll 16 iburst\r\n"},
        {"", {{"interval", "hourly"}}, "server set minpoll 12 maxpoll 12 iburst\n"},
        {"pool p\n", {{"server", "v"}}, "pool p\nserver v minpoll 12 maxpoll 12 iburst\n"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(ntp_replace(c.text, {c.given, settings}), c.result) << c.text;
    for (const char *bad : {"", "a b", "a\tb", "a\nb", "#a"})
        EXPECT_TRUE(ntp_refuses("server", bad)) << bad;
    EXPECT_TRUE(ntp_refuses("interval", "weekly") && ntp_refuses("other", "x") && ntp_refuses("", "x"));
    EXPECT_FALSE(ntp_refuses("server", "fd00::1") || ntp_refuses("interval", "daily"));
    // From the settings, where they can be written; else from the API's own default.
    hdfDB.set("Services.NTP.server", "two words");
    model("Services.NTP.server: default = own.example\nServices.NTP.interval: default = weekly");
    EXPECT_EQ(ntp_replace("", {{}, ntp_settings()}), "server own.example minpoll 12 maxpoll 12 iburst\n");
}

TEST_F(Funcs, WritersAndTheirResults)
{
    const struct {
        const char *function, *file, *value;
        int result;
        const char *text; // of the file after it; null: it does not exist
        const char *key = "a";
    } cases[] = {
        {"quotedkv_wfunc", "/etc/f.conf", "x y", 0, "a = \"x y\"\n"},
        {"kv_wfunc", "/etc/f.conf", "two\nlines = 1", 1, "a = \"x y\"\n"},
        {"quotedkv_wfunc", "/etc/f.conf", "two\nlines = 1", 1, "a = \"x y\"\n"},
        {"kv_wfunc", "/none/new.conf", "n", 1, nullptr},
        {"quotedkv_wfunc", "/none/new.conf", "n", 1, nullptr},
        {"kv_wfunc", "", "n", 1, nullptr},
        {"io_wfunc", "/sys/none", "1", 0, nullptr},
        {"io_wfunc", "/etc/f.conf", "1", 0, "1\n"},
        {"no_wfunc", "/etc/f.conf", "2", 1, "1\n"},
        {"ntp_wfunc", "/etc/ntp.conf", "h", 0, "server h minpoll 12 maxpoll 12 iburst\n", "server"},
        {"syncclock_wfunc", "/x", "", 1, nullptr},
        {"syncclock_wfunc", "/x", "yesterday", 1, nullptr},
        {"syncclock_wfunc", "/x", "20240229T12:00:00", 0, nullptr},
    };
    file("etc/f.conf", "a = 1\n");
    for (const auto &c : cases) {
        model(std::string("A: write = ") + c.function + "; file = " + c.file + "; attr = " + c.key);
        EXPECT_EQ(wfuncmap_write("A", c.value), c.result) << c.function << " " << c.value;
        const std::string name = std::string(c.file).substr(*c.file ? 1 : 0);
        EXPECT_EQ(!name.empty() && exists(name), c.text != nullptr) << c.function << " " << c.file;
        EXPECT_EQ(c.text ? file(name) : "", c.text ? c.text : "") << c.function << " " << c.value;
    }
    EXPECT_EQ(file("var/run/qv/clock"), "20240229T12:00:00\n");
}

TEST_F(Funcs, ValuesOfOneFileGoTogetherAndFailAlone)
{
    using Result = FileWrites::Result;
    file("etc/f.conf", "a=1\nb=2\n# c=3\n");
    std::filesystem::create_symlink("f.conf", appliance_root().path("etc/link"));
    std::filesystem::create_directories(appliance_root().path("etc/folder"));
    model(R"(Kv: write = kv_wfunc; file = /etc/f.conf; attr = a; shadow = /etc/shadow
Quoted: write = quotedkv_wfunc; file = /etc/../etc/f.conf; attr = c
Linked: write = kv_wfunc; file = /etc/link; attr = b
Bad: write = kv_wfunc; file = /etc/f.conf; attr = d
Folder: write = kv_wfunc; file = /etc/folder; attr = a; shadow = /etc/second
BadShadow: write = kv_wfunc; file = /etc/g.conf; attr = e; shadow = /etc/folder
None: write = no_wfunc; file = /etc/f.conf; attr = f)");
    FileWrites writes;
    for (const char *name : {"Kv", "Quoted", "Linked", "Bad", "Folder", "BadShadow", "None"})
        writes.add(name, std::string(name) == "Bad" ? " x" : "x");
    writes.commit();
    const Result results[] = {Result::written, Result::written, Result::written, Result::failed,
                              Result::failed,  Result::failed,  Result::failed};
    for (std::size_t i = 0; i < std::size(results); ++i)
        EXPECT_EQ(writes.result(i), results[i]) << i;
    EXPECT_EQ(file("etc/f.conf"), "a=x\nb=x\n# c=3\nc=\"x\"\n");
    EXPECT_EQ(file("etc/shadow"), file("etc/f.conf"));
    EXPECT_FALSE(exists("etc/second") || exists("etc/g.conf"));
    EXPECT_TRUE(std::filesystem::is_symlink(appliance_root().path("etc/link")));
}

TEST_F(Funcs, WhatDoesNotChangeIsNotWritten)
{
    file("etc/f.conf", "a=1\n");
    file("etc/shadow", "a=1\n");
    const std::string kept = appliance_root().path("kept"); // the inode of the file
    std::filesystem::create_hard_link(appliance_root().path("etc/f.conf"), kept);
    const auto is_kept = [&] {
        return std::filesystem::equivalent(appliance_root().path("etc/f.conf"), kept);
    };
    model("A: write = kv_wfunc; file = /etc/f.conf; attr = a; shadow = /etc/shadow");
    EXPECT_EQ(wfuncmap_write("A", "1"), 0);
    EXPECT_TRUE(is_kept());
    file("etc/shadow", "torn");
    EXPECT_EQ(wfuncmap_write("A", "1"), 0);
    EXPECT_EQ(file("etc/shadow"), "a=1\n");
    EXPECT_TRUE(is_kept());
}

TEST_F(Funcs, ActionsThatAreNone)
{
    for (const char *call : {"", " , "}) {
        int result = 0;
        EXPECT_EQ(afuncmap_apply_direct(request, "apply", "A", call, result), 0) << call;
        EXPECT_EQ(result, 1) << call;
    }
}

// ---- Population ----

constexpr char kModel[] = R"(
G: file = /etc/f.conf; read = kv_rfunc; write = kv_wfunc; type = integer
G.good: attr = good; default = 1
G.bad: attr = bad; default = 2
G.absent: attr = absent; default = 3
G.blank: attr = nothing
G.live: attr = good; dynamic = true; default = 4
G.blind: attr = good; read = syscall_rfunc; default = 5
G.same: attr = absent; default = 6
G.__t: range = 7 7
G.__t.x: attr = t__n; default = 8
N: file = /etc/ntp.conf; read = ntp_rfunc; write = ntp_wfunc
N.interval: attr = interval; default = daily
N.server: attr = server; default = own.example
)";

class PopulationTest : public Funcs {
  protected:
    void populate()
    {
        EXPECT_EQ(
            hdfdb_load_meta_file(request, qv_host_file(appliance_root().write("m.hdf", model_text(kModel)))),
            0);
        EXPECT_EQ(hdfdb_populate(request), 0);
    }
    static void expect(std::initializer_list<std::pair<const char *, const char *>> values)
    {
        for (const auto &[name, value] : values)
            EXPECT_EQ(hdfDB.get(name), value) << name;
    }
};

TEST_F(PopulationTest, TakesTheSystemThenTheDefaultThenNothing)
{
    file("etc/f.conf", "good=5\nbad=x\n");
    file("etc/ntp.conf", "# server of the first series\ndriftfile f\n");
    populate();
    expect({{"G.good", "5"},
            {"G.bad", "2"},
            {"G.absent", "3"},
            {"G.blank", ""},
            {"G.live", "4"},
            {"G.7.x", "8"}});
    expect({{"N.server", "own.example"}, {"N.interval", "daily"}});
    EXPECT_FALSE(hdfDB.find("G.__t"));
    EXPECT_EQ(file("etc/ntp.conf"),
              "# server of the first series\ndriftfile f\nserver own.example minpoll 12 "
              "maxpoll 16 iburst\n");
    expect({{"G.same", "3"}}); // its key is that of "absent", and the file holds one value
    EXPECT_EQ(file("etc/f.conf"), "good=5\nbad=2\nabsent=3\nt7=8\n");
    expect({{"G.blind", "5"}}); // its reader says nothing, but the file has a value: it stays
    EXPECT_EQ(hdfdb_load_meta_file(request, qv_device_file("/none.hdf")), 1);
    EXPECT_EQ(hdfdb_load_meta_file(request, qv_host_file(appliance_root().write("m", "G {\n } x\n"))), 1);
}

} // namespace
} // namespace qvcd
