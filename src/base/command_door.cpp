#include "base/command_door.h"

#include <utility>

namespace qvcd {

namespace {
CommandDoor the_door = nullptr; // set once at start-up, before any request
}

void set_command_door(CommandDoor door)
{
    the_door = door;
}

int run_command(Request &request, std::string_view name, Args args, std::FILE *out)
{
    return the_door ? the_door(request, name, std::move(args), out) : 1;
}

} // namespace qvcd
