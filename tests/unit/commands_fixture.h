#pragma once

#include "appliance_root.h"
#include "captured.h"
#include "commands/cmd_parse.h"
#include "commands/cmd_table.h"
#include "model/populate.h"
#include "model_text.h"
#include "store/database.h"
#include "store/hdf_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace qvcd {

inline constexpr unsigned kMaker = 0x7777;
inline constexpr unsigned kAdmin = 0x0777;
inline constexpr unsigned kViewer = 0x0077;

inline std::string tree_text(const Tree &tree)
{
    return captured([&](std::FILE *out) { hdfutils_dump(tree.root(), "", out); });
}

/// The daemon's trees over an empty root. Tests call start() when their files are in place.
class ModelTest : public OnEmptyRoot<testing::Test> {
  protected:
    void SetUp() override
    {
        OnEmptyRoot::SetUp();
        std::filesystem::create_directory(appliance_root().path("tmp"));
    }
    void TearDown() override { stop(); }

    static std::string write(const std::string &name, const std::string &text)
    {
        return appliance_root().write(name, text);
    }
    static std::string file(const std::string &name) { return appliance_root().read(name); }
    static bool exists(const std::string &name) { return appliance_root().exists(name); }

    /// Both texts are as of model_text(). Without values the APIs are populated, else they have these.
    void start(const char *model, const char *values = "")
    {
        stop();
        started_ = true;
        cmd_create_cmdmap_hdf();
        hdfdb_init();
        Request request(kInternalMask);
        ASSERT_EQ(0, hdfdb_load_meta_file(request, qv_host_file(write("model.hdf", model_text(model)))));
        if (*values)
            hdf_read_own_file(write("values.hdf", model_text(values)), hdfDB);
        else
            hdfdb_populate(request);
    }
    void stop()
    {
        if (!started_)
            return;
        hdfdb_destroy();
        cmd_destroy_cmdmap_hdf();
        started_ = false;
    }

    /// The reply to one line of a session.
    static Answer ask(const std::string &line, unsigned mask = kAdmin)
    {
        return answer_of([&](std::FILE *out) { return cmd_parse(mask, line, out); });
    }
    static std::string reply(const std::string &line, unsigned mask = kAdmin) { return ask(line, mask).text; }

  private:
    bool started_ = false;
};

/// An encoder, a group of profiles and a few APIs of each kind.
class SnapshotTest : public ModelTest {
  protected:
    void start()
    {
        if (!exists("etc/enc.conf"))
            write("etc/enc.conf", "");
        ModelTest::start(R"(
Enc: perm = 7774; file = /etc/enc.conf; read = quotedkv_rfunc; write = quotedkv_wfunc
Enc.rate: attr = RATE; type = integer_range 1 99; default = 10; apply = no_apply
Enc.text: attr = TEXT; type = string_length 0 1023; default = plain
Enc.look: attr = LOOK; perm = 4444; type = string_length 0 99; default = seen
Enc.live: attr = LIVE; dynamic = true; type = string_length 0 99; default = now; write = no_wfunc
Enc.still: attr = STILL; dynamic = false; private = true; type = string_length 0 99; default = quiet
Enc.hidden: attr = HIDDEN; private = true; type = string_length 0 99; default = hush
Enc.Profiles.name: attr = NAME; type = blank,profile2; default =; add = profile_addfunc Enc.rate Enc.text
Enc.Profiles.name: remove = profile_removefunc
Enc.Profiles.desc: attr = DESC; type = blank,string_length 1 255; default =
System.Configuration.Profiles: perm = 7774; file = /etc/profiles.conf; read = quotedkv_rfunc; write = quotedkv_wfunc
System.Configuration.Profiles.current: attr = CURRENT; type = profile; default = default
System.Configuration.Profiles.current: apply = profile_apply current
)");
    }
    static std::string setting(const std::string &api) { return hdfDB.get_or(api, "none"); }
    static std::string flag(const char *api, const char *name)
    {
        return meta_get_this_level(api, name).value_or("none");
    }
};

/// One API of each kind that the commands tell apart.
class SelfDescriptionTest : public ModelTest {
  protected:
    void SetUp() override
    {
        ModelTest::SetUp();
        write("etc/state", "state=awake\n");
        start(R"(
Box: perm = 7744
Box.name: attr = name; type = string_length 1 1023; default = unit; apply = syscall true; help = Name of the box
Box.name: desc = Shown on the front panel.
Box.color: attr = color; type = string_set red blue; default = red; help = Color of the box
Box.pin: attr = pin; type = password; desc = Opens the box.
Box.clock: attr = clock; type = timecode; help = Clock of the box
Box.state: attr = state; dynamic = true; default = none; read = kv_rfunc; file = /etc/state
Box.fixed: attr = fixed; perm = 4444; help = Never changes
Box.shy: attr = shy; private = true; help = Hidden
Box.maker: attr = maker; perm = 7000; help = For the maker
Web: perm = 7744
Web.Configuration.show_pageload_stats: attr = stats
Web.Wizard.firstrun: attr = firstrun; type = boolean
)",
              R"(
Box: name = my box; color = red; pin = s3cret; clock = 20240229T12:00:00; state = none; fixed = stone
Box: shy = blush; maker = mark
Web: Configuration.show_pageload_stats = 1; Wizard.firstrun = 1
)");
    }
};

} // namespace qvcd
