#include "client/known_commands.h"
#include "client/nearest.h"
#include "commands/cmd_table.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace qvcd::client {

// What the client need not ask the daemon about is what the daemon has.
TEST(ClientCommands, AreThoseOfTheDaemon)
{
    for (const CommandRow &row : cmd_map().subspan(1)) {
        std::string subs;
        for (const SubCommand &sub : row.record->sub_commands)
            subs += (subs.empty() ? "" : " ") + std::string(sub.name);
        const KnownCommand *const known = find_command({row.record->name});
        ASSERT_TRUE(known) << row.record->name;
        EXPECT_EQ(known->subcommands, subs) << row.record->name;
    }
    for (const Words &words :
         std::vector<Words>{{"user.lists"}, {"user", "x"}, {"sett"}, {""}, {"meta", "A"}})
        EXPECT_FALSE(is_known_command(words)) << words[0];
    for (const Words &words : std::vector<Words>{{"user"}, {"user", "list"}, {"help", "A"}, {"meta.help"}})
        EXPECT_TRUE(is_known_command(words)) << words[0];
}

TEST(ClientCommands, NearestAreWhatWasMeant)
{
    const std::vector<std::string> commands{"get", "geti", "set", "save", "apply", "history"};
    const std::vector<std::string> apis{"Network.hostname", "Services.HTTP.port", "Services.RTSP.port",
                                        "Video.size"};
    const auto command = [&](std::string_view word) { return did_you_mean(nearest(word, commands, 3)); };
    const auto name = [&](std::string_view word) { return did_you_mean(nearest_names(word, apis, 3)); };
    EXPECT_EQ(command("gte"), " (did you mean get?)");
    EXPECT_EQ(command("aplpy"), " (did you mean apply?)");
    EXPECT_EQ(command("hist"), " (did you mean history?)");
    EXPECT_EQ(command("GETT"), " (did you mean get or geti?)");
    EXPECT_EQ(command("frobnicate"), "");
    EXPECT_EQ(command(""), "");
    EXPECT_EQ(name("services.http.prot"), " (did you mean Services.HTTP.port?)");
    EXPECT_EQ(name("HTTP.port"), " (did you mean Services.HTTP.port?)");
    EXPECT_EQ(name("Netwerk"), " (did you mean Network?)");
    EXPECT_EQ(name("Streaming.Video.Configuration.size"), " (did you mean Video.size?)");
    EXPECT_EQ(name("Nothing.alike"), "");
    EXPECT_EQ(name(std::string(100000, 'x')), "");
}

} // namespace qvcd::client
