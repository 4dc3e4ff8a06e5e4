#pragma once

#include "appliance_root.h"
#include "captured.h"
#include "commands/cmd_parse.h"
#include "commands/cmd_table.h"
#include "funcs/read_map.h"
#include "model/populate.h"
#include "model_text.h"
#include "store/database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace qvcd {

/// An appliance with an encoder, a group of profiles and a few APIs of each kind.
inline constexpr char kModel[] = R"(
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
)";

/// Each test starts on an empty root and calls start() when its files are in place.
class SnapshotTest : public OnEmptyRoot<testing::Test> {
  protected:
    void SetUp() override
    {
        OnEmptyRoot::SetUp();
        tree_library_init();
        write("etc/enc.conf", "");
        std::filesystem::create_directory(appliance_root().path("tmp"));
    }
    void TearDown() override { stop(); }

    static std::string write(const std::string &name, const std::string &text)
    {
        return appliance_root().write(name, text);
    }
    static std::string file(const std::string &name) { return appliance_root().read(name); }
    static bool exists(const std::string &name)
    {
        return std::filesystem::exists(appliance_root().path(name));
    }

    /// As the daemon does, without the last step of loading the selected profile.
    void start()
    {
        stop();
        started_ = true;
        cmd_create_cmdmap_hdf();
        hdfdb_init();
        Request request(kInternalMask);
        ASSERT_EQ(0, hdfdb_load_meta_file(request, qv_host_file(write("model.hdf", model_text(kModel)))));
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
    static Answer ask(const std::string &line, unsigned mask = 0x0777)
    {
        return answer_of([&](std::FILE *out) { return cmd_parse(mask, line, out); });
    }
    static std::string reply(const std::string &line) { return ask(line).text; }

  private:
    bool started_ = false;
};

} // namespace qvcd
