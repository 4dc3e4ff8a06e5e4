#include "client/unsaved.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "client/command_shapes.h"
#include "client/known_commands.h"
#include "client/short_question.h"

namespace qvcd::client {

namespace {

// They change settings that they do not name.
bool changes_others(const Words &words)
{
    static constexpr std::array<std::string_view, 7> kCommands{
        "default", "factory_reset", "import", "preset", "profile", "revert", "rollback"};
    const KnownCommand *command = words.empty() ? nullptr : find_command(words);
    return command && std::ranges::count(kCommands, command->name) != 0;
}

} // namespace

void Unsaved::look(const Options &options, const Words &words)
{
    const auto answer = ask_shortly(options, {"checkmod"});
    if (!answer || answer->result != 0) {
        any_ = Any::unknown;
        return;
    }
    std::set<std::string> now;
    for (const std::string &line : answer->lines())
        now.insert(line.substr(0, line.find('=')));
    // What this session has never seen changed may be out of its sight only.
    std::erase_if(own_, [&](const std::string &name) {
        return seen_by_ == options.session && seen_.contains(name) && !now.contains(name);
    });
    take_own(words, now);
    any_ = now.empty() ? Any::none : Any::some;
    seen_ = std::move(now);
    seen_by_ = options.session;
}

// What others changed at the same time counts as ours where the command names nothing.
void Unsaved::take_own(const Words &words, const std::set<std::string> &now)
{
    if (changes_others(words)) {
        std::ranges::set_difference(now, seen_, std::inserter(own_, own_.end()));
    } else if (!words.empty() && shape_of(words).first == Takes::assignments) {
        for (const std::string &word : words)
            if (const std::string name = word.substr(0, word.find('=')); now.contains(name))
                own_.insert(name);
    }
}

} // namespace qvcd::client
