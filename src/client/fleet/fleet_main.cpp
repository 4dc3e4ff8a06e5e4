// qvc-fleet: `qvc fleet`, a program of its own for the sake of what it takes of the MQTT library.

#include <algorithm>
#include <cstdio>

#include "client/errors.h"
#include "client/fleet/commands.h"
#include "client/program.h"

using namespace qvcd::client;
using namespace qvcd::client::fleet;

namespace {

constexpr char kFleetUsage[] =
    R"(Usage: qvc [-t SECONDS] [--json] fleet [-b mqtts://USER@BROKER[:PORT]] [-u USER] [--ca FILE] COMMAND ...

  list [--where FILTER]                    the appliances
  get [--where FILTER] [--differ] NAME...  a column an appliance; what is not the same everywhere
  diff ID1 ID2                             settings of two appliances that differ
  diff [--where FILTER] --golden FILE      settings that differ from those of an export
  watch [--where FILTER]                   events as they come, until interrupted
  backup [--where FILTER] DIR              an export of each, with passwords
  commit [--where FILTER] [-c SECONDS] [--batch N] [--max-failures M] [-m TEXT] API=VALUE... | --golden FILE
                                           changes some after the others; see docs/fleet.md

FILTER is FACT=PATTERN,...: id, label, model, version, host, identity, revision, online=yes|no.
What is always the same stands in ~/.config/qvc/fleet.conf: broker, broker_password, cafile, certfile, keyfile, prefix,
user, password.
)";

struct Command {
    std::string_view name;
    int (*run)(Task &task, Arguments arguments);
    bool asks; // the appliances, as a user of theirs
};
constexpr Command kCommands[] = {
    {"list", run_list, false},   {"get", run_get, true},       {"diff", run_diff, true},
    {"watch", run_watch, false}, {"backup", run_backup, true}, {"commit", run_commit, true},
};

int run(const Options &options, char **)
{
    std::vector<std::string> words(options.words.begin() + (options.words.empty() ? 0 : 1),
                                   options.words.end());
    if (words.empty() || words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
        std::fputs(kFleetUsage, words.empty() ? stderr : stdout);
        return words.empty() ? kExitUsage : 0;
    }
    const auto command_word = std::ranges::find_if(words, [](const std::string &word) {
        return std::ranges::count(kCommands, word, &Command::name) > 0;
    });
    if (command_word == words.end())
        throw UsageError("there is no such command of fleet: \"qvc fleet help\" tells them");
    const auto *const command = std::ranges::find(kCommands, *command_word, &Command::name);
    const Settings settings = take_settings(words, command->asks);
    if (words.empty() || words[0] != command->name)
        throw UsageError("'" + words.at(0) + "' is no command of fleet");
    words.erase(words.begin());
    Arguments arguments(std::move(words));
    const bool json = arguments.flag("--json") || options.json;
    const bool yes = arguments.flag("-y") || options.yes;
    Fleet fleet(settings);
    Task task{fleet, json, yes};
    if (options.timeout)
        task.patience = std::chrono::ceil<std::chrono::seconds>(*options.timeout);
    return command->run(task, std::move(arguments));
}

} // namespace

int main(int, char **argv)
{
    return run_program(argv, run);
}
