#pragma once

#include "appliance_root.h"
#include "captured.h"

#include "base/options.h"
#include "commands/cmd_table.h"
#include "model/populate.h"
#include "model_text.h"
#include "store/database.h"
#include "store/hdf_file.h"

#include <gtest/gtest.h>

namespace qvcd {

inline constexpr unsigned kMaker = 0x7777;
inline constexpr unsigned kAdmin = 0x0777;
inline constexpr unsigned kViewer = 0x0077;

/// Runs the row of the command table, as the dispatcher does.
inline Answer ask(const char *command, unsigned mask, Args args)
{
    Request request(mask);
    return answer_of([&](std::FILE *out) { return cmd_find(command).handler(request, args, out); });
}

inline std::string tree_text(const Tree &tree)
{
    return captured([&](std::FILE *out) { hdfutils_dump(tree.root(), "", out); });
}

/// One API of each kind that the commands tell apart.
inline constexpr char kModel[] = R"(
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
)";

struct StartValue {
    const char *api;
    const char *value;
};
inline constexpr StartValue kStartValues[] = {
    {"Box.name", "my box"},
    {"Box.color", "red"},
    {"Box.pin", "s3cret"},
    {"Box.clock", "20240229T12:00:00"},
    {"Box.state", "none"},
    {"Box.fixed", "stone"},
    {"Box.shy", "blush"},
    {"Box.maker", "mark"},
    {"Web.Configuration.show_pageload_stats", "1"},
    {"Web.Wizard.firstrun", "1"},
};

/// Starts each test with an empty root, the model above, and its values.
class SelfDescriptionTest : public OnEmptyRoot<testing::Test> {
  protected:
    void SetUp() override
    {
        OnEmptyRoot::SetUp();
        tree_library_init();
        cmd_create_cmdmap_hdf();
        hdfdb_init();
        Request request(kMaker);
        ASSERT_EQ(0, hdfdb_load_meta_file(request,
                                          qv_host_file(appliance_root().write("model", model_text(kModel)))));
        for (const StartValue &row : kStartValues)
            ASSERT_TRUE(hdfDB.set(row.api, row.value));
        appliance_root().write("etc/state", "state=awake\n");
        std::filesystem::create_directories(appliance_root().path("tmp"));
    }
    void TearDown() override
    {
        hdfdb_destroy();
        cmd_destroy_cmdmap_hdf();
    }
};

} // namespace qvcd
