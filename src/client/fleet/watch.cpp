#include <csignal>
#include <cstdio>

#include "client/fleet/commands.h"
#include "client/signal_input.h"
#include "client/terminal_text.h"

namespace qvcd::client::fleet {

int run_watch(Task &task, Arguments arguments)
{
    const Where where(arguments.value("--where"));
    arguments.rest("fleet watch", 0, 0);
    SignalInput signals{SIGINT, SIGTERM};
    task.fleet.watch(
        [&](const Fleet::Event &event) {
            if (event.id.empty())
                return void(std::fprintf(stderr, "qvc: the broker %s\n", event.name.c_str()));
            const auto member = task.fleet.members().find(event.id);
            if (!where.fits(event.id, member == task.fleet.members().end() ? Member() : member->second))
                return;
            if (task.json)
                print_json({{"id", event.id}, {"event", event.name}, {"payload", event.payload}});
            else
                std::printf("%s\n", one_line(event.id + " " + event.name + " " + event.payload).c_str());
            std::fflush(stdout);
        },
        [&] { return signals.wait(-1, 0) == SignalInput::Came::signal; });
    return 0;
}

} // namespace qvcd::client::fleet
