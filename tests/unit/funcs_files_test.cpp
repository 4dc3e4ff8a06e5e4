#include "appliance_root.h"
#include "funcs/apply_map.h"
#include "funcs/check_map.h"
#include "funcs/generic_readers.h"
#include "funcs/ntp.h"
#include "funcs/read_map.h"
#include "funcs/write_functions.h"
#include "funcs/write_map.h"
#include "model/populate.h"
#include "model/template.h"
#include "store/database.h"

#include <gtest/gtest.h>

namespace qvcd {
namespace {

class Funcs : public OnEmptyRoot<testing::Test> {
  protected:
    void SetUp() override
    {
        OnEmptyRoot::SetUp();
        for (const char *name : {"tmp/qvcd/x", "etc/x"})
            appliance_root().write(name, "");
        hdfdb_init();
        cmd_create_cfuncmap_hdf();
        cmd_create_rfuncmap_hdf();
        cmd_create_wfuncmap_hdf();
        cmd_create_afuncmap_hdf();
    }
    void TearDown() override
    {
        cmd_destroy_afuncmap_hdf();
        cmd_destroy_wfuncmap_hdf();
        cmd_destroy_rfuncmap_hdf();
        cmd_destroy_cfuncmap_hdf();
        hdfdb_destroy();
    }
    static void meta(std::initializer_list<std::pair<const char *, const char *>> values)
    {
        for (const auto &[name, value] : values)
            ASSERT_TRUE(metaDB.set(name, value)) << name;
    }
    static std::string read(const std::string &api)
    {
        std::string out;
        return rfuncmap_read(api, out) ? out : "(none)";
    }
};

TEST_F(Funcs, GenericReaders)
{
    appliance_root().write("etc/f.conf", "plain=a b\nquoted=\"c d\"\nempty=\"\"\n");
    hdfDB.set("Other.api", "mirror");
    const struct {
        const char *read;
        const char *attr;
        const char *value;
    } cases[] = {
        {"na_rfunc", "x", "n/a"},
        {"hidden_rfunc", "x", "******"},
        {"password_rfunc", "quoted", "********"},
        {"password_rfunc", "empty", "(none)"},
        {"password_rfunc", "missing", "(none)"},
        {"no_rfunc", "x", "(none)"},
        {"zero_rfunc", "x", "0"},
        {"model_rfunc", "Other.api", "mirror"},
        {"model_rfunc", "Other.none", "(none)"},
        {"kv_rfunc", "plain", "a b"},
        {"kv_rfunc", "quoted", "\"c d\""},
        {"quotedkv_rfunc", "quoted", "c d"},
        {"quotedkv_rfunc", "plain", "a b"},
        {"eeprom_rfunc", "x", "n/a"},
        {"ipc_rfunc", "status", "n/a"}, // nobody answers at that name
        {"syscall_rfunc", "echo '  42 x'", "42"},
        {"syscall_rfunc", "true", "(none)"},
        {"bogus_rfunc", "plain", "(none)"},
    };
    for (const auto &c : cases) {
        meta({{"A.file", "/etc/f.conf"}, {"A.read", c.read}, {"A.attr", c.attr}});
        EXPECT_EQ(read("A"), c.value) << c.read << " " << c.attr;
    }
    EXPECT_EQ(read("Unknown"), "(none)");
}

TEST_F(Funcs, ReadersLeaveTheCallersTextWhereTheySaySo)
{
    std::string out = "before";
    EXPECT_TRUE(ipc_attr_rfunc("nobody", "status rate", out, false));
    EXPECT_EQ(out, "before");
    EXPECT_TRUE(password_rfunc("/etc/none", "k", out, false)); // the caller's text counts
    EXPECT_EQ(out, "********");
    EXPECT_FALSE(kv_rfunc(nullptr, "k", out, false));
    EXPECT_FALSE(syscall_rfunc(nullptr, nullptr, out, false));
}

TEST_F(Funcs, NtpConfiguration)
{
    hdfDB.set("Services.NTP.interval", "daily");
    EXPECT_EQ(ntp_replace_server("server a\ndriftfile x\nserver b\n", "server", "v"),
              "server pool.ntp.org minpoll 12 maxpoll 16 iburst\ndriftfile x\n"
              "server pool.ntp.org minpoll 12 maxpoll 16 iburst\n");
    EXPECT_EQ(ntp_replace_server("driftfile x\n", "interval", "daily"), "driftfile x\ninterval=daily\n");
    const struct {
        const char *line;
        const char *server;
        const char *interval;
    } cases[] = {
        {"server h minpoll 12 maxpoll 15 iburst\n", "h", "twiceday"},
        {"server h minpoll 12 maxpoll 16 iburst\n", "h", "daily"},
        {"server h minpoll 12 maxpoll 12 iburst\n", "h", "hourly"},
        {"server h\n", "h", "hourly"},
        {"driftfile x\nserver h minpoll 12 maxpoll 16 iburst\n", "(none)", "hourly"},
    };
    for (const auto &c : cases) {
        std::string out = "(none)";
        ntp_find(c.line, "server", out);
        EXPECT_EQ(out, c.server) << c.line;
        EXPECT_TRUE(ntp_find(c.line, "interval", out));
        EXPECT_EQ(out, c.interval) << c.line;
        EXPECT_FALSE(ntp_find(c.line, "other", out));
    }
}

TEST_F(Funcs, WritersAndTheirResults)
{
    appliance_root().write("etc/f.conf", "a = 1\n");
    const auto write = [](const char *function, const char *file, const char *value) {
        meta({{"A.file", file}, {"A.write", function}, {"A.attr", "a"}});
        return wfuncmap_write("A", value);
    };
    EXPECT_EQ(write("kv_wfunc", "/etc/f.conf", "2"), 0);
    EXPECT_EQ(appliance_root().read("etc/f.conf"), "a = 2\n");
    EXPECT_EQ(write("quotedkv_wfunc", "/etc/f.conf", "x y"), 0);
    EXPECT_EQ(appliance_root().read("etc/f.conf"), "a = \"x y\"\n");
    EXPECT_EQ(write("kv_wfunc", "/etc/f.conf", "two\nlines = 1"), 1); // would be a line of its own
    EXPECT_EQ(appliance_root().read("etc/f.conf"), "a = \"x y\"\n");
    EXPECT_EQ(write("kv_wfunc", "/etc/new.conf", "n"), 0);
    EXPECT_EQ(appliance_root().read("etc/new.conf"), "a=n\n");
    EXPECT_EQ(write("kv_wfunc", "/none/new.conf", "n"), 1);
    EXPECT_EQ(write("quotedkv_wfunc", "/none/new.conf", "n"), 0);
    EXPECT_EQ(write("io_wfunc", "/sys/none", "1"), 0);
    EXPECT_FALSE(std::filesystem::exists(appliance_root().path("sys/none")));
    EXPECT_EQ(write("io_wfunc", "/etc/f.conf", "1"), 0);
    EXPECT_EQ(appliance_root().read("etc/f.conf"), "1\n");
    EXPECT_EQ(write("no_wfunc", "/etc/f.conf", "1"), 1);
    EXPECT_EQ(write("bogus", "/etc/f.conf", "1"), 1);
    EXPECT_EQ(write("ntp_wfunc", "/etc/none.conf", "1"), 1);
    EXPECT_EQ(write("syncclock_wfunc", "/x", ""), -1);
    EXPECT_EQ(write("syncclock_wfunc", "/x", "yesterday"), 1);
    EXPECT_EQ(write("syncclock_wfunc", "/x", "20240229T12:00:00"), 0);
    EXPECT_EQ(appliance_root().read("var/run/qv/clock"), "20240229T12:00:00\n");
}

TEST_F(Funcs, WhatAKilledSaveLeftBehindIsTidiedUp)
{
    namespace fs = std::filesystem;
    appliance_root().write("tmp/qvcd/old", "");
    appliance_root().write("tmp/qvcd/folder/x", "");
    appliance_root().write("tmp/target", "");
    fs::create_symlink("../target", appliance_root().path("tmp/qvcd/link"));
    const auto hour_ago = fs::file_time_type::clock::now() - std::chrono::hours(1);
    for (const char *name : {"tmp/qvcd/old", "tmp/target"})
        fs::last_write_time(appliance_root().path(name), hour_ago);
    cmd_create_wfuncmap_hdf();
    const auto exists = [](const char *name) { return fs::exists(appliance_root().path(name)); };
    EXPECT_FALSE(exists("tmp/qvcd/old"));
    EXPECT_TRUE(exists("tmp/qvcd/x") && exists("tmp/qvcd/link") && exists("tmp/qvcd/folder/x") &&
                exists("tmp/target"));
}

TEST_F(Funcs, ShadowGetsTheNewTextFirst)
{
    appliance_root().write("etc/f.conf", "a=1\nb=2\n");
    meta({{"A.file", "/etc/f.conf"}, {"A.shadow", "/etc/s.conf"}, {"A.write", "kv_wfunc"}, {"A.attr", "b"}});
    EXPECT_EQ(wfuncmap_write("A", "3"), 0);
    EXPECT_EQ(appliance_root().read("etc/s.conf"), "a=1\nb=3\n");
    EXPECT_EQ(appliance_root().read("etc/f.conf"), "a=1\nb=3\n");
}

TEST_F(Funcs, ApplyFunctions)
{
    const std::string log = appliance_root().path("log");
    appliance_root().write("etc/init.d/web", "#!/bin/sh\necho \"web $*\" >> " + log + "\n");
    std::filesystem::permissions(appliance_root().path("etc/init.d/web"), std::filesystem::perms::owner_all);
    hdfDB.set("A.time", "20240101T01:02:03");
    const struct {
        const char *call;
        int result;
    } cases[] = {
        {"syscall echo one two three four five >>", 0}, // the sixth argument is ignored
        {"syscall exit 3", 3 << 8},
        {"syscall", 0},
        {"no_apply x", 0},
        {"initd_restart none web", 0},
        {"initd_restart none", 0},
        {"settime_apply", 0},
        {"syscall_delay", 1},
        {"syscall_delay 0 true", 0},
        {"bogus", 1},
        {"", 1},
    };
    for (const auto &c : cases) {
        int result = -99;
        EXPECT_EQ(afuncmap_apply_direct("apply", "A.time", c.call, result), 0) << c.call;
        EXPECT_EQ(result, c.result) << c.call;
    }
    EXPECT_EQ(appliance_root().read("log"), "web restart\n");
    EXPECT_EQ(appliance_root().read("var/run/qv/clock"), "20240101T01:02:03\n");
    int result = 0;
    afuncmap_apply_direct("other", "A.time", "syscall exit 3", result);
    EXPECT_EQ(result, 0); // only "apply" runs something
    afuncmap_apply_direct("apply", "A.none", "settime_apply", result);
    EXPECT_EQ(result, -1);
    meta({{"B.apply", "initd_restart web, syscall exit 2"}});
    EXPECT_EQ(afuncmap_apply("apply", "B"), 2 << 8);
    EXPECT_EQ(appliance_root().read("log"), "web restart\nweb restart\n");
}

TEST_F(Funcs, TemplatesAreCopiedForEachNumber)
{
    meta({{"Out.__i.range", "1 2"},
          {"Out.__i.port.attr", "port__i"},
          {"Out.__i.port.help", "__i and __i at __i"},
          {"Out.__i.In.__j.range", "0 4 2"},
          {"Out.__i.In.__j.key.attr", "key__j"},
          {"None.__i.range", "3 1"},
          {"Bare.__i.x.attr", "x"},
          {"Still.__i.range", "5 9 0"},
          {"Still.__i.x.attr", "x__i"},
          {"Huge.__i.range", "1 100000"},
          {"Huge.__i.x.attr", "x"},
          {"Live.count.read", "kv_rfunc"},
          {"Live.count.file", "/etc/count"},
          {"Live.count.attr", "n"},
          {"Live.__i.range", "1 Live.count"},
          {"Live.__i.x.attr", "x"},
          {"Dead.__i.range", "0 Dead.count"},
          {"Dead.count.attr", "n"},
          {"Dead.__i.x.attr", "x"}});
    appliance_root().write("etc/count", "n=3\n");
    for (int run = 0; run < 2; ++run) { // each metadata file expands the whole tree again
        dyngroup_expand_meta();
        const struct {
            const char *name;
            std::optional<std::string> value;
        } cases[] = {
            {"Out.1.port.attr", "port1"},
            {"Out.2.port.help", "2 and 2 at 2"},
            {"Out.3.port.attr", std::nullopt},
            {"Out.1.In.0.key.attr", "key0"},
            {"Out.2.In.4.key.attr", "key4"},
            {"Out.2.In.1.key.attr", std::nullopt},
            {"Out.__i.port.attr", "port__i"},
            {"None.3.range", std::nullopt},
            {"Bare.1.x.attr", std::nullopt},
            {"Still.5.x.attr", "x5"},
            {"Still.6.x.attr", std::nullopt},
            {"Huge.1.x.attr", std::nullopt},
            {"Live.3.x.attr", "x"},
            {"Live.4.x.attr", std::nullopt},
            {"Dead.0.x.attr", "x"},
            {"Dead.1.x.attr", std::nullopt},
        };
        for (const auto &c : cases) {
            const auto value = metaDB.get(c.name);
            EXPECT_EQ(value ? std::optional<std::string>(*value) : std::nullopt, c.value)
                << c.name << " " << run;
        }
    }
}

TEST_F(Funcs, PopulationTakesTheSystemThenTheDefaultThenNothing)
{
    appliance_root().write("etc/f.conf", "good=5\nbad=x\n");
    const std::string path = appliance_root().write("m.hdf", R"(G {
  file = /etc/f.conf
  read = kv_rfunc
  write = kv_wfunc
  type = integer
  good { attr = good }
)");
    EXPECT_EQ(hdfdb_load_meta_file(qv_host_file(path)), 1); // text behind a brace
    const std::string fine = appliance_root().write("n.hdf", R"(G {
  good {
    attr = good
    default = 1
  }
  bad {
    attr = bad
    default = 2
  }
  absent {
    attr = absent
    default = 3
  }
  blank {
    attr = nothing
  }
  live {
    attr = good
    dynamic = true
    default = 4
  }
  __t {
    range = 7 7
    x {
      attr = t__n
      default = 8
    }
  }
}
)");
    EXPECT_EQ(hdfdb_load_meta_file(qv_host_file(fine)), 0);
    EXPECT_EQ(hdfdb_populate(), 0);
    const struct {
        const char *name;
        const char *value;
    } cases[] = {{"G.good", "5"}, {"G.bad", "2"},  {"G.absent", "3"},
                 {"G.blank", ""}, {"G.live", "4"}, {"G.7.x", "8"}};
    for (const auto &c : cases)
        EXPECT_EQ(hdfDB.get(c.name), c.value) << c.name;
    EXPECT_FALSE(hdfDB.find("G.__t"));
    EXPECT_EQ(appliance_root().read("etc/f.conf"), "good=5\nbad=2\nabsent=3\nt7=8\n");
    EXPECT_EQ(hdfdb_load_meta_file(qv_device_file("/none.hdf")), 1);
}

} // namespace
} // namespace qvcd
